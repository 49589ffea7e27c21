/// Layout of a track.
#pragma once

#include <cstdint>

namespace kel {

/// How the channels of a track are laid out.
enum class TrackLayout : std::int32_t {
    Default = 0, ///< channels in the order of the medium, without named positions
};

} // namespace kel
