#include "analysis/Levels.h"

#include <gtest/gtest.h>

#include <optional>

namespace kel::host {

TEST(LevelsInDecibels, AreRelativeToFullScale) {
    EXPECT_EQ(Decibels(1), 0.0);
    EXPECT_DOUBLE_EQ(*Decibels(0.1), -20);
    EXPECT_DOUBLE_EQ(*Decibels(10), 20);
    EXPECT_EQ(Decibels(0), std::nullopt);
    EXPECT_EQ(Decibels(-1), std::nullopt);
}

} // namespace kel::host
