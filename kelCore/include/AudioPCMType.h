/// Number type of PCM samples.
/// A plain value: any thread may use its own copy.
/// @ingroup formats
#pragma once

#include <cstdint>

namespace kel {

/// Number type of a PCM sample value.
enum class AudioPCMType : std::int32_t {
    Undefined = 0,
    Integer = 1, ///< two's complement
    Float = 2,   ///< IEEE 754, full scale is 1.0
};

} // namespace kel
