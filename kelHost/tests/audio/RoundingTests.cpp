#include "audio/Rounding.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace kel::host {

namespace {

std::uint64_t Count(const std::vector<double>& values, std::uint32_t integerBits = 0) {
    return CountRounded(values.data(), values.size(), integerBits);
}

double FromBits(std::uint64_t bits) {
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

TEST(Rounding, CountsTheValuesThatFloatsDoNotHold) {
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(Count({}), 0U);
    EXPECT_EQ(Count({0.0, -0.0, 1.0, -1.0, 16777215.0 / 16777216.0, 1e-45 * 0, kInfinite}), 0U);
    for (const double value : {1.0 / 3, 2147483647.0 / 2147483648.0, 16777217.0, 1e-50, 1e300,
                               std::numeric_limits<double>::denorm_min()}) {
        EXPECT_EQ(Count({0.5, value, -value}), 2U) << value;
    }
}

TEST(Rounding, CountsNaNsWhoseBitsAreLost) {
    EXPECT_EQ(Count({FromBits(0x7FF8000000000000)}), 0U);
    EXPECT_EQ(Count({FromBits(0xFFF8000020000000)}), 0U); // the last bit of a float
    EXPECT_EQ(Count({FromBits(0x7FF8000000000001)}), 1U);
}

TEST(Rounding, CountsTheValuesThatIntegersDoNotHold) {
    constexpr double kUnit = 1.0 / 8388608.0;
    EXPECT_EQ(Count({0.0, -0.0, kUnit, -kUnit, -1.0, 1.0 - kUnit}, 24), 0U);
    EXPECT_EQ(Count({kUnit / 2, 1.0, -1.0 - kUnit, 2.0}, 24), 4U);
    EXPECT_EQ(
        Count({std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()},
              24),
        2U);
}

} // namespace kel::host
