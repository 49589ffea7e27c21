/// An interval on a timeline.
/// A small value type: any thread may use its own copy.
/// @ingroup time
#pragma once

#include "MediaTime.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace kel {

/// A start and a length. Its members may be set in place.
struct TimeLimits {
    /// Starts at a default MediaTime and lasts 0.
    TimeLimits() = default;

    /// @param from the start of the interval
    /// @param length its length, in edit units of the start's rate
    /// @param attached see the member attachment; usually empty
    TimeLimits(MediaTime from, std::int64_t length, std::shared_ptr<const void> attached = nullptr)
        : start(std::move(from)), duration(length), attachment(std::move(attached)) {}

    MediaTime start;           ///< the start of the interval
    std::int64_t duration = 0; ///< edit units of the start's edit rate

    /// An object of the application that lives as long as the interval and its copies. The
    /// framework and its elements leave it empty.
    std::shared_ptr<const void> attachment;
};

} // namespace kel
