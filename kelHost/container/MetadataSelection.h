/// The choice of the metadata of an input that a copy gets. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "container/ChunkList.h"
#include "container/HeaderReader.h"
#include "container/Metadata.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// A chunk that is copied as it is, but for adjustments.
struct SelectedChunk {
    Chunk content;       ///< of the input; a list has its kind in its name: "LIST mine"
    bool isWAVE = false; ///< its layout is that of WAVE, also within a chunk of AIFF
};

/// The metadata of an input by what becomes of it. Names are for users.
struct MetadataSelection {
    std::vector<SelectedChunk> chunks;
    std::optional<Metadata> translated; ///< none when all of it is in chunks
    std::vector<std::string> refused;   ///< names of chunks that the output cannot hold
    std::vector<std::string> truncated; ///< names of chunks that end after the file
    bool isFromAIFF = false;
};

/// Selects the metadata of an input. Between WAVE, RF64, BW64 and W64, and between AIFF files, all
/// chunks are copied that do not describe samples. From these WAVE files to AIFF, those without
/// tags and cue points are carried; on the way back, they are taken out again (see CarriedChunk.h).
/// Everything else is translated.
/// @param header reads the file, and receives its byte order
/// @param toAIFF the output is an AIFF file, not WAVE
/// @throws JobError when the file cannot be read
MetadataSelection SelectMetadata(const FileName& file, HeaderReader& header,
                                 std::uint64_t fileBytes, bool toAIFF);

} // namespace kel::host
