#include "audio/Rounding.h"

#include <cmath>
#include <cstring>

namespace kel::host {

namespace {

bool AreSameBits(double first, double second) {
    std::uint64_t firstBits = 0;
    std::uint64_t secondBits = 0;
    std::memcpy(&firstBits, &first, sizeof first);
    std::memcpy(&secondBits, &second, sizeof second);
    return firstBits == secondBits;
}

// False for NaN and infinities. -0 and 0 are the same value.
bool FitsIntoInteger(double value, double scale) {
    const double scaled = value * scale;
    return scaled >= -scale && scaled < scale && std::trunc(scaled) == scaled;
}

} // namespace

std::uint64_t CountRounded(const double* values, std::size_t count, std::uint32_t integerBits) {
    const double scale = integerBits > 0 ? std::ldexp(1.0, static_cast<int>(integerBits) - 1) : 0.0;
    std::uint64_t rounded = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const bool isKept =
            AreSameBits(static_cast<double>(static_cast<float>(values[i])), values[i]) &&
            (integerBits == 0 || FitsIntoInteger(values[i], scale));
        rounded += isKept ? 0 : 1;
    }
    return rounded;
}

} // namespace kel::host
