/// Families of audio codecs.
/// A plain value: any thread may use its own copy.
/// @ingroup formats
#pragma once

#include <cstdint>

namespace kel {

/// Codec family of an audio stream.
enum class ACodecFamily : std::int32_t {
    Unknown = 0, ///< no family
    PCM = 2,     ///< linear PCM, integer or floating point
};

} // namespace kel
