/// Combinations of the channels of a PCM stream.
/// A plain value: any thread may use its own copy.
/// @ingroup formats
#pragma once

#include <cstdint>

namespace kel {

/// Combination of the channels of a PCM stream in one run of bytes.
enum class PCMMuxing : std::int32_t {
    Undefined = 0,
    None = 1,   ///< a single channel, nothing to combine
    Multi = 2,  ///< interleaved frames of any number of channels
    Stereo = 3, ///< interleaved frames of a left and a right channel
};

} // namespace kel
