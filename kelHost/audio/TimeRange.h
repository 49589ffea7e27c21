/// Parts of a file: times and ranges. Pure functions.
#pragma once

#include "base/Errors.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel::host {

/// A time in seconds or in frames.
struct TimePoint {
    std::int64_t value = 0; ///< frames, or nanoseconds
    bool inFrames = false;

    /// Returns the time in frames, rounded to the nearest.
    /// @param rate frames per second
    std::int64_t Frames(std::uint32_t rate) const;
};

/// Parses "12.5" (seconds), "1:02:03.250" or "2:03.250" (h:mm:ss, mm:ss), or "48000f" (frames).
/// @param option the option that has the text as its value, for the error
/// @throws UsageError with the accepted forms
TimePoint ParseTime(const std::string& option, std::string_view text);

/// The part of a file that the command line selects. Missing members mean the file's own ends.
struct TimeRange {
    std::optional<TimePoint> start;
    std::optional<TimePoint> end;
    std::optional<TimePoint> duration;

    bool IsWholeFile() const { return !start && !end && !duration; }
};

/// A part of a file in frames.
struct FrameRange {
    std::int64_t first = 0;
    std::optional<std::int64_t> count; ///< missing: up to the end of a file of unknown length
};

/// Returns the frames of a range in a file.
/// @param frames number of frames in the file; missing when it is unknown
/// @param rate frames per second
/// @param file the file, for the error
/// @throws JobError when the range is empty, or is known not to be within the file
FrameRange Resolve(const TimeRange& range, std::optional<std::int64_t> frames, std::uint32_t rate,
                   const std::string& file);

/// Returns the error about a range that is not within a file.
/// @param end first frame after the range
JobError OutsideOfFile(const std::string& file, std::int64_t first, std::int64_t end,
                       std::int64_t frames, std::uint32_t rate);

} // namespace kel::host
