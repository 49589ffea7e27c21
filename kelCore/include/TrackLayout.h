/// Layouts of tracks.
/// A plain value: any thread may use its own copy.
/// @ingroup streams
#pragma once

#include <cstdint>

namespace kel {

/// Layout of the channels of a track.
enum class TrackLayout : std::int32_t {
    Default = 0, ///< channels in the order of the medium, without named positions
};

} // namespace kel
