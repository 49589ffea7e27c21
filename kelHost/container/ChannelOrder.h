/// The order of the channels in Ogg files. One thread at a time for one file.
#pragma once

#include "base/FileName.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace kel::host {

/// Channels as the first header of an Ogg stream declares them.
struct OggChannels {
    bool isOpus = false;             ///< otherwise Vorbis
    std::uint32_t mappingFamily = 0; ///< of Opus

    /// True when the channels have the speakers and the order of Vorbis I, section 4.3.9. The other
    /// mapping families of Opus (Ambisonics, discrete channels) have neither.
    bool HasVorbisLayout() const { return !isOpus || mappingFamily <= 1; }
};

/// Reads the first header of a Vorbis or Opus stream.
///
/// Sources of the layouts: Ogg pages (RFC 3533, section 6), the identification headers of Vorbis
/// (Vorbis I, section 4.2.2) and Opus (RFC 7845, section 5.1).
/// @return none for other files, and for those that are not regular files
/// @throws JobError when it cannot be read
std::optional<OggChannels> ReadOggChannels(const FileName& file);

/// Returns the channel of a file, from 0, for each channel in WAVE order. Vorbis and Opus files
/// with 3 to 8 channels are delivered in Vorbis order.
/// @return empty where both orders are the same
/// @throws JobError when the file cannot be read
std::vector<std::uint32_t> ReadChannelOrder(const FileName& file, std::uint32_t channels);

} // namespace kel::host
