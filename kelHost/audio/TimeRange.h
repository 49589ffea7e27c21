/// Which part of a file is meant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel::host {

/// A time as the command line says it: in seconds or in frames.
struct TimePoint {
    std::int64_t value = 0; ///< frames, or nanoseconds
    bool inFrames = false;

    /// The time in frames, rounded to the nearest.
    /// @param rate frames per second
    std::int64_t Frames(std::uint32_t rate) const;
};

/// Parses "12.5" (seconds), "1:02:03.250" or "2:03.250" (h:mm:ss, mm:ss), or "48000f" (frames).
/// @param option the option that it stands in, for the error
/// @throws UsageError with the forms that are understood
TimePoint ParseTime(const std::string& option, std::string_view text);

/// What the command line says about the part of a file; what is not said is the file's own.
struct TimeRange {
    std::optional<TimePoint> start;
    std::optional<TimePoint> end;
    std::optional<TimePoint> duration;

    bool IsWholeFile() const { return !start && !end && !duration; }
};

/// A part of a file in frames.
struct FrameRange {
    std::int64_t first = 0;
    std::int64_t count = 0;
};

/// The frames that a range means in a file.
/// @param frames how many frames the file has
/// @param rate frames per second
/// @param file the file, for the error
/// @throws JobError when the range is empty or does not lie within the file
FrameRange Resolve(const TimeRange& range, std::int64_t frames, std::uint32_t rate,
                   const std::string& file);

} // namespace kel::host
