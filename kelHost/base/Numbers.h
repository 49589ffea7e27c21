/// Numbers from text, and sums. Pure functions, independent of the locale.
#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
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

/// Returns a sum; the largest number if it has more than 64 bits.
constexpr std::uint64_t SaturatingSum(std::uint64_t first, std::uint64_t second) {
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
    return first > kMax - second ? kMax : first + second;
}

} // namespace kel::host
