/// Metadata of an input in its copy. One thread at a time for one copy.
#pragma once

#include "audio/Formats.h"
#include "base/Descriptor.h"
#include "base/FileName.h"
#include "container/ChunkAdjustment.h"
#include "container/ChunkList.h"
#include "container/ChunkWriter.h"
#include "container/MetadataSelection.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The parts of a copy on which its metadata depends.
struct CopiedSamples {
    FramePart part;                ///< of the input
    bool hasOtherChannels = false; ///< some of the input's are missing, or in another order
    std::uint32_t rate = 0;        ///< frames per second
    std::uint32_t channels = 0;    ///< of the output
    std::uint32_t bits = 0;        ///< per value of the output
};

/// Outcome of a copy of metadata. Names are those of chunks, without spaces at their ends, each
/// once: "bext", "LIST INFO".
struct MetadataReport {
    std::vector<std::string> kept;
    std::vector<std::string> notPreserved;
    std::vector<std::string> warnings;     ///< with the input's name
    std::optional<AppendedBytes> appended; ///< to the output
};

/// Functions that are called before and after each read of the input, which may wait.
struct ReadWatch {
    std::function<void()> begin;
    std::function<void()> end;
};

/// Copies the metadata of an input into a finished output. Chunks remain as they are, in their
/// order, where both files belong to one family: WAVE, RF64, BW64 and W64, or AIFF and AIFF-C.
/// Otherwise tags and cue points are translated, and chunks of WAVE are carried in AIFF files.
/// Chunks that describe the layout of the samples, and padding, are not metadata.
class MetadataCopy {
public:
    /// Reads the names and sizes of the chunks, or the metadata to translate.
    /// @param file the input
    /// @param container of the output; one of the same family may take its place
    /// @throws JobError when the input cannot be read
    MetadataCopy(FileName file, const Container& container);

    /// Upper bound of the bytes that the output grows by.
    std::uint64_t MaxBytes() const;

    /// Appends the metadata to an output that its writer has closed. Positions are adjusted to the
    /// copied part. A coding history gets a line about this conversion (EBU R 98).
    /// @param container of the output
    /// @throws JobError when the input cannot be read, or the output cannot be written
    MetadataReport Write(const FileName& output, const Container& container,
                         const CopiedSamples& samples, const ReadWatch& watch) const;

private:
    class Writing;

    ChunkForm OutputForm() const;
    std::uint64_t HeaderBytes(const SelectedChunk& chunk) const;

    FileName m_file;
    bool m_toAIFF;
    Descriptor m_descriptor;
    MetadataSelection m_selection;
};

/// Returns the line that a conversion adds to a coding history (EBU R 98), without its end:
/// "A=PCM,F=48000,W=24,M=stereo,T=kelhost".
std::string CodingHistoryLine(const CopiedSamples& samples);

} // namespace kel::host
