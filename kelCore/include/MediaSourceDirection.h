/// Directions in which a source is read.
/// A plain value: any thread may use its own copy.
/// @ingroup sources
#pragma once

#include <cstdint>

namespace kel {

/// Direction in which a source delivers its medium.
enum class MediaSourceDirection : std::int32_t {
    Forward = 0,
    Backward = 1,
};

} // namespace kel
