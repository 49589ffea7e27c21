/// Interpretation of option values. Pure functions, except TerminalWidth and UsesColour.
#pragma once

#include "audio/TimeRange.h"
#include "base/Errors.h"
#include "base/Numbers.h"
#include "commands/Option.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Returns the integer in the value of an option.
/// @throws UsageError when the value is not an integer from @p min to @p max
template <typename Integer>
Integer ParseIntegerOption(std::string_view name, std::string_view value, Integer min,
                           Integer max) {
    const auto number = ParseInteger<Integer>(value);
    if (!number.has_value() || *number < min || *number > max) {
        throw InvalidValue(name, value,
                           "an integer from " + std::to_string(min) + " to " + std::to_string(max));
    }
    return *number;
}

/// Returns the duration in the value of an option, given in seconds.
/// @throws UsageError when the value is not a number from 0.001 to 86400
std::chrono::milliseconds ParseSecondsOption(std::string_view name, std::string_view value);

/// The same for an option that also accepts 0, for no limit.
/// @throws UsageError when the value is neither 0 nor a number from 0.001 to 86400
std::chrono::milliseconds ParseLimitOption(std::string_view name, std::string_view value);

/// Returns the number of bytes in the value of an option: "1000", "500M". K, M, G and T are powers
/// of 1024.
/// @throws UsageError when the value is something else, or has more than 63 bits
std::uint64_t ParseSizeOption(std::string_view name, std::string_view value);

/// Returns the difference of two values in the value of an option: 0.001, where 1.0 is full scale,
/// or "-60dB".
/// @throws UsageError when the value is neither a finite number from 0 nor finite decibels
double ParseToleranceOption(std::string_view name, std::string_view value);

/// Verifies that the value of an option is one of its choices.
/// @throws UsageError when it is not
void RequireChoice(std::string_view name, std::string_view value,
                   const std::vector<std::string>& choices);

/// Returns the entry of a table that the value of an option names.
/// @throws UsageError when there is none
template <typename Entry>
const Entry& ParseTableOption(std::string_view name, std::string_view value,
                              const std::vector<Entry>& table) {
    for (const Entry& entry : table) {
        if (entry.name == value) {
            return entry;
        }
    }
    std::vector<std::string> names;
    for (const Entry& entry : table) {
        names.emplace_back(entry.name);
    }
    RequireChoice(name, value, names);
    return table.front(); // not reached
}

/// The options --start, --end and --duration, for commands that work on a part of a file.
struct RangeOptions {
    std::optional<std::string> start;
    std::optional<std::string> end;
    std::optional<std::string> duration;

    /// Returns the options, which refer to this object.
    std::vector<Option> Options();

    /// @throws UsageError when a value is invalid
    TimeRange Interpret() const;
};

/// Returns the number of characters in a line of the terminal; 80 when the descriptor is not one.
std::size_t TerminalWidth(int descriptor);

/// Returns whether texts at a descriptor are coloured: on a terminal that knows colours, unless the
/// variable NO_COLOR is set and not empty (https://no-color.org).
bool UsesColour(int descriptor);

} // namespace kel::host
