/// Content types of tracks.
/// A plain value: any thread may use its own copy.
/// @ingroup streams
#pragma once

#include <cstdint>

namespace kel {

/// Kind of content of a track.
enum class ContentType : std::int32_t {
    Audio = 1,
};

} // namespace kel
