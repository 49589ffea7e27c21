#include "audio/TimeRange.h"

#include "base/Errors.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace kel::host {

namespace {

constexpr std::int64_t kNanoseconds = 1000000000; // per second
// 10,000 hours, and as many frames as no file has: what is beyond is a mistake.
constexpr std::int64_t kMostSeconds = 36000000;
constexpr std::int64_t kMostFrames = std::int64_t{1} << 56U;

std::optional<std::int64_t> ParseNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (text.empty() || text.front() == '-' || result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return number;
}

// "12" or "12.5", in nanoseconds.
std::optional<std::int64_t> ParseSeconds(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto whole = ParseNumber(text.substr(0, point));
    if (!whole.has_value() || *whole > kMostSeconds) {
        return std::nullopt;
    }
    if (point == std::string_view::npos) {
        return *whole * kNanoseconds;
    }
    constexpr std::size_t kDigits = 9;
    std::string fraction(text.substr(point + 1));
    if (fraction.empty() || fraction.size() > kDigits) {
        return std::nullopt;
    }
    fraction.resize(kDigits, '0');
    const auto nanoseconds = ParseNumber(fraction);
    return nanoseconds.has_value() ? std::optional(*whole * kNanoseconds + *nanoseconds)
                                   : std::nullopt;
}

std::optional<std::int64_t> ParseClock(std::string_view text) {
    constexpr std::int64_t kSixty = 60;
    std::vector<std::string_view> fields;
    for (std::size_t colon = 0; (colon = text.find(':')) != std::string_view::npos;) {
        fields.push_back(text.substr(0, colon));
        text.remove_prefix(colon + 1);
    }
    const auto seconds = ParseSeconds(text);
    if (fields.size() > 2 || !seconds.has_value() ||
        (!fields.empty() && *seconds >= kSixty * kNanoseconds)) {
        return std::nullopt;
    }
    std::int64_t minutes = 0;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto field = ParseNumber(fields[i]);
        if (!field.has_value() || *field > kMostSeconds || (i > 0 && *field >= kSixty)) {
            return std::nullopt;
        }
        minutes = minutes * kSixty + *field;
    }
    if (minutes > kMostSeconds / kSixty) {
        return std::nullopt;
    }
    return minutes * kSixty * kNanoseconds + *seconds;
}

} // namespace

std::int64_t TimePoint::Frames(std::uint32_t rate) const {
    if (inFrames) {
        return value;
    }
    const std::int64_t seconds = value / kNanoseconds;
    const std::int64_t rest = value % kNanoseconds;
    return seconds * rate + (rest * rate + kNanoseconds / 2) / kNanoseconds;
}

TimePoint ParseTime(const std::string& option, std::string_view text) {
    if (!text.empty() && text.back() == 'f') {
        const auto frames = ParseNumber(text.substr(0, text.size() - 1));
        if (frames.has_value() && *frames <= kMostFrames) {
            return {*frames, true};
        }
    } else if (const auto nanoseconds = ParseClock(text)) {
        return {*nanoseconds, false};
    }
    throw UsageError(fmt::format("{} does not understand \"{}\"; times are seconds (12.5), "
                                 "h:mm:ss.mmm (1:02:03.250) or frames (48000f)",
                                 option, Escape(text)));
}

FrameRange Resolve(const TimeRange& range, std::int64_t frames, std::uint32_t rate,
                   const std::string& file) {
    const std::int64_t first = range.start ? range.start->Frames(rate) : 0;
    std::int64_t end = range.end ? range.end->Frames(rate) : frames;
    if (range.duration) {
        end = first + range.duration->Frames(rate);
    }
    if (first > end || end > frames || (first == end && !range.IsWholeFile())) {
        throw JobError(
            fmt::format("{}: the range from frame {} to frame {} is not within the file, "
                        "which has {} frames ({})",
                        Escape(file), first, end, frames, FormatDuration(frames, rate)));
    }
    return {first, end - first};
}

} // namespace kel::host
