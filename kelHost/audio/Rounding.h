/// Values that a copy cannot keep exactly. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kel::host {

/// Counts the values that change when they pass through a 32-bit float, and through an integer
/// after that. A NaN changes when its bits do.
/// @param values 1.0 is full scale
/// @param integerBits of the integer; 0 for none
std::uint64_t CountRounded(const double* values, std::size_t count, std::uint32_t integerBits);

} // namespace kel::host
