/// Families of audio codecs.
#pragma once

#include <cstdint>

namespace kel {

/// Codec family of an audio stream.
enum class ACodecFamily : std::int32_t {
    Unknown = 0, ///< none given
    PCM = 2,     ///< linear PCM, integer or floating point
};

} // namespace kel
