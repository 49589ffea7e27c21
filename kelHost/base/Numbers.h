/// Reading numbers from text. Pure functions, independent of the locale.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace kel::host {

/// Returns the integer that a whole text is, in decimal; none for any other text, a sign of a
/// positive number and a value beyond the type's range included.
template <typename Integer>
std::optional<Integer> ParseInteger(std::string_view text) {
    Integer number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

} // namespace kel::host
