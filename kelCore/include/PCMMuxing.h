/// How the channels of a PCM stream are combined.
#pragma once

#include <cstdint>

namespace kel {

/// How the channels of a PCM stream are combined in one run of bytes.
enum class PCMMuxing : std::int32_t {
    Undefined = 0,
    None = 1,   ///< a single channel, nothing to combine
    Multi = 2,  ///< interleaved frames of any number of channels
    Stereo = 3, ///< interleaved frames of a left and a right channel
};

} // namespace kel
