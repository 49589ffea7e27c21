#include "audio/TimeRange.h"

#include "base/Errors.h"
#include "base/Numbers.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

constexpr std::int64_t kNanoseconds = 1000000000; // per second
// 10,000 hours, and more frames than any file has: larger values are mistakes.
constexpr std::int64_t kMaxSeconds = 36000000;
constexpr std::int64_t kMaxFrames = std::int64_t{1} << 56U;

// Times have no sign.
std::optional<std::int64_t> ParseNumber(std::string_view text) {
    const auto number = ParseInteger<std::int64_t>(text);
    return number.has_value() && text.front() != '-' ? number : std::nullopt;
}

// "12" or "12.5", in nanoseconds.
std::optional<std::int64_t> ParseSeconds(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto whole = ParseNumber(text.substr(0, point));
    if (!whole.has_value() || *whole > kMaxSeconds) {
        return std::nullopt;
    }
    if (point == std::string_view::npos) {
        return *whole * kNanoseconds;
    }
    constexpr std::size_t kDigits = 9;
    const std::string_view fraction = text.substr(point + 1);
    auto nanoseconds = fraction.size() <= kDigits ? ParseNumber(fraction) : std::nullopt;
    if (!nanoseconds.has_value()) {
        return std::nullopt;
    }
    for (std::size_t digits = fraction.size(); digits < kDigits; ++digits) {
        *nanoseconds *= 10;
    }
    return *whole * kNanoseconds + *nanoseconds;
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
        if (!field.has_value() || *field > kMaxSeconds || (i > 0 && *field >= kSixty)) {
            return std::nullopt;
        }
        minutes = minutes * kSixty + *field;
    }
    if (minutes > kMaxSeconds / kSixty) {
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
        if (frames.has_value() && *frames <= kMaxFrames) {
            return {*frames, true};
        }
    } else if (const auto nanoseconds = ParseClock(text)) {
        return {*nanoseconds, false};
    }
    throw InvalidValue(option, text,
                       "seconds (12.5), h:mm:ss.mmm (1:02:03.250) or frames (48000f)");
}

FrameRange Resolve(const TimeRange& range, std::optional<std::int64_t> frames, std::uint32_t rate,
                   const std::string& file) {
    const std::int64_t first = range.start ? range.start->Frames(rate) : 0;
    std::optional<std::int64_t> end = range.end ? range.end->Frames(rate) : frames;
    if (range.duration) {
        end = first + range.duration->Frames(rate);
    }
    if (!end.has_value()) {
        return {first, std::nullopt};
    }
    if (range.end && first > *end) {
        throw JobError(
            file, fmt::format("the end, frame {}, is before the start, frame {}", *end, first));
    }
    if (first > *end || *end > frames.value_or(*end) || (first == *end && !range.IsWholeFile())) {
        if (frames.has_value()) {
            throw OutsideOfFile(file, first, *end, *frames, rate);
        }
        throw JobError(file,
                       fmt::format("the range from frame {} to frame {} is empty", first, *end));
    }
    return {first, *end - first};
}

JobError OutsideOfFile(const std::string& file, std::int64_t first, std::int64_t end,
                       std::int64_t frames, std::uint32_t rate) {
    return {file, fmt::format("the range from frame {} to frame {} is not within the file, which "
                              "has {} ({})",
                              first, end, Count(static_cast<std::uint64_t>(frames), "frame"),
                              FormatDuration(frames, rate))};
}

} // namespace kel::host
