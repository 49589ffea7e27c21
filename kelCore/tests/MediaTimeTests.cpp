#include <IClockInfo.h>
#include <MediaTime.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>

namespace kel {

namespace {

class Clock final : public IClockInfo {};

static_assert(
    std::is_same_v<decltype(&MediaTime::GetTimeNumber), std::int64_t (MediaTime::*)() const>);
static_assert(
    std::is_same_v<decltype(&MediaTime::SetTimeNumber), void (MediaTime::*)(std::int64_t)>);

TEST(AMediaTime, IsPositionZeroAtTheNullRateByDefault) {
    const MediaTime time;
    EXPECT_EQ(time.GetEditRate(), kEditRateNull);
    EXPECT_EQ(time.GetTimeNumber(), 0);
    EXPECT_EQ(time.GetClockInfo(), nullptr);
}

TEST(AMediaTime, KeepsRateAndClockWhenItsNumberIsSet) {
    const auto clock = std::make_shared<const Clock>();
    MediaTime time(EditRate{48000, 1}, -5, clock);
    EXPECT_EQ(time.GetTimeNumber(), -5);
    for (const std::int64_t number :
         {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        time.SetTimeNumber(number);
        EXPECT_EQ(time.GetTimeNumber(), number);
        EXPECT_EQ(time.GetEditRate(), (EditRate{48000, 1}));
        EXPECT_EQ(time.GetClockInfo(), clock);
    }
}

} // namespace
} // namespace kel
