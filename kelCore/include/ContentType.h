/// What the content of a track is.
#pragma once

#include <cstdint>

namespace kel {

/// Kind of content that a track carries.
enum class ContentType : std::int32_t {
    Audio = 1,
};

} // namespace kel
