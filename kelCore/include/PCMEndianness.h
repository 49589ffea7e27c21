/// Byte order of PCM samples.
/// A plain value: any thread may use its own copy.
/// @ingroup formats
#pragma once

#include <cstdint>

namespace kel {

/// Byte order of a PCM sample value. Any value but Little and Big counts as undefined.
enum class PCMEndianness : std::int32_t {
    Undefined = 0,
    Little = 1,
    Big = 2,
};

} // namespace kel
