/// The chunks "fmt " and "COMM", which describe the samples of WAVE and AIFF files. One thread at a
/// time.
#pragma once

#include "container/ChunkList.h"
#include "container/HeaderReader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kel::host {

/// Encodings of values in these files.
enum class ChunkEncoding {
    Integer,
    Float,
    Other, ///< compressed, or unknown
};

/// A description of samples.
///
/// Sources of the layouts: WAVEFORMATEX and WAVEFORMATEXTENSIBLE (Microsoft, "Multiple Channel
/// Audio Data and WAVE Files"), "COMM" (Apple, "Audio Interchange File Format AIFF-C", 1991).
struct FormatChunk {
    ChunkEncoding encoding = ChunkEncoding::Other;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;                   ///< frames per second
    std::uint32_t bits = 0;                   ///< significant bits per value
    std::uint32_t frameBytes = 0;             ///< bytes per frame; 0 where values are compressed
    std::optional<std::uint64_t> frames;      ///< declared by "COMM"
    std::optional<std::uint32_t> channelMask; ///< declared by WAVEFORMATEXTENSIBLE
    std::uint32_t waveTag = 0; ///< wFormatTag of the samples; only for VOC files, 0 elsewhere
};

/// Reads the description of a file's samples.
/// @return none when its chunk is missing or too short
/// @throws JobError when it cannot be read
std::optional<FormatChunk> ReadFormatChunk(const HeaderReader& header, const ChunkList& chunks);

} // namespace kel::host
