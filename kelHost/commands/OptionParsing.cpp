#include "commands/OptionParsing.h"

#include "base/Suggestion.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

// Returns a number in decimal; a NaN for anything else.
double ParseNumber(std::string_view text) {
    double number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? number
                                                         : std::numeric_limits<double>::quiet_NaN();
}

// A comparison with a NaN is false.
bool IsTimeout(double seconds) {
    constexpr double kMin = 0.001;
    constexpr double kMax = 86400;
    return seconds >= kMin && seconds <= kMax;
}

std::chrono::milliseconds ToMilliseconds(double seconds) {
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

} // namespace

std::chrono::milliseconds ParseSecondsOption(std::string_view name, std::string_view value) {
    const double seconds = ParseNumber(value);
    if (!IsTimeout(seconds)) {
        throw InvalidValue(name, value, "seconds from 0.001 to 86400");
    }
    return ToMilliseconds(seconds);
}

std::chrono::milliseconds ParseLimitOption(std::string_view name, std::string_view value) {
    const double seconds = ParseNumber(value);
    if (seconds != 0 && !IsTimeout(seconds)) {
        throw InvalidValue(name, value, "seconds from 0.001 to 86400, or 0");
    }
    return ToMilliseconds(seconds);
}

std::uint64_t ParseSizeOption(std::string_view name, std::string_view value) {
    constexpr std::string_view kUnits = "KMGT";
    constexpr unsigned kUnitBits = 10;
    constexpr std::uint64_t kMax = std::uint64_t{1} << 63U;
    const std::size_t unit = value.empty() ? std::string_view::npos : kUnits.find(value.back());
    const bool hasUnit = unit != std::string_view::npos;
    const auto number =
        ParseInteger<std::uint64_t>(value.substr(0, value.size() - (hasUnit ? 1 : 0)));
    const std::uint64_t factor = hasUnit ? std::uint64_t{1} << (kUnitBits * (unit + 1)) : 1;
    if (!number.has_value() || *number >= kMax / factor) {
        throw InvalidValue(name, value, "a number of bytes, also with K, M, G or T: 500M");
    }
    return *number * factor;
}

double ParseToleranceOption(std::string_view name, std::string_view value) {
    constexpr std::string_view kUnit = "dB";
    constexpr double kBase = 10;
    constexpr double kDecibels = 20; // for a factor of ten
    const std::size_t digits = value.size() - std::min(value.size(), kUnit.size());
    const bool isLevel = value.substr(digits) == kUnit;
    const double number = ParseNumber(isLevel ? value.substr(0, digits) : value);
    const double difference = isLevel ? std::pow(kBase, number / kDecibels) : number;
    // -inf dB would be 0.
    if (!std::isfinite(number) || !std::isfinite(difference) || difference < 0) {
        throw InvalidValue(name, value, "a part of full scale (0.001) or decibels (-60dB)");
    }
    return difference;
}

void RequireChoice(std::string_view name, std::string_view value,
                   const std::vector<std::string>& choices) {
    if (std::find(choices.begin(), choices.end(), value) == choices.end()) {
        throw InvalidChoice(name, value, choices);
    }
}

std::vector<Option> RangeOptions::Options() {
    return {Option("--start", "TIME", &start,
                   "Beginning of the part: seconds (12.5), h:mm:ss.mmm or frames (48000f)"),
            Option("--end", "TIME", &end, "End of the part"),
            Option("--duration", "TIME", &duration, "Duration of the part, instead of --end")
                .Excludes("--end")};
}

TimeRange RangeOptions::Interpret() const {
    const auto parse = [](const char* name, const std::optional<std::string>& value) {
        return value.has_value() ? std::optional(ParseTime(name, *value)) : std::nullopt;
    };
    const TimeRange range{parse("--start", start), parse("--end", end),
                          parse("--duration", duration)};
    if (range.start && range.end && range.start->inFrames == range.end->inFrames &&
        range.end->value < range.start->value) {
        throw UsageError(fmt::format("--end {} is before --start {}", *end, *start));
    }
    return range;
}

std::size_t TerminalWidth(int descriptor) {
    constexpr std::size_t kDefaultWidth = 80;
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                        : kDefaultWidth;
}

bool UsesColour(int descriptor) {
    const char* refusal = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb" && *terminal != '\0' && isatty(descriptor) == 1;
}

} // namespace kel::host
