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

static_assert(std::is_constructible_v<MediaTime, const EditRate&, std::int64_t,
                                      std::shared_ptr<const IClockInfo>>);
static_assert(
    std::is_same_v<decltype(&MediaTime::GetTimeNumber), std::int64_t (MediaTime::*)() const>);
static_assert(
    std::is_same_v<decltype(&MediaTime::SetTimeNumber), void (MediaTime::*)(std::int64_t)>);

TEST(AMediaTime, HasWhatItWasMadeWith) {
    const auto clock = std::make_shared<const Clock>();
    const MediaTime time(EditRate{48000, 1}, -5, clock);
    EXPECT_EQ(time.GetEditRate(), (EditRate{48000, 1}));
    EXPECT_EQ(time.GetTimeNumber(), -5);
    EXPECT_EQ(time.GetClockInfo(), clock);
}

TEST(AMediaTime, MayHaveNoClock) {
    const MediaTime time(EditRate{44100, 1}, 0, nullptr);
    EXPECT_EQ(time.GetClockInfo(), nullptr);
}

TEST(AMediaTime, IsPositionZeroAtTheNullRateByDefault) {
    const MediaTime time;
    EXPECT_EQ(time.GetEditRate(), kEditRateNull);
    EXPECT_EQ(time.GetTimeNumber(), 0);
    EXPECT_EQ(time.GetClockInfo(), nullptr);
}

TEST(AMediaTime, TakesANewNumberAndKeepsRateAndClock) {
    const auto clock = std::make_shared<const Clock>();
    MediaTime time(EditRate{48000, 1}, 7, clock);
    for (const std::int64_t number :
         {std::int64_t{0}, std::int64_t{1} << 40, std::numeric_limits<std::int64_t>::min(),
          std::numeric_limits<std::int64_t>::max()}) {
        time.SetTimeNumber(number);
        EXPECT_EQ(time.GetTimeNumber(), number);
        EXPECT_EQ(time.GetEditRate(), (EditRate{48000, 1}));
        EXPECT_EQ(time.GetClockInfo(), clock);
    }
}

TEST(AMediaTime, SharesItsClockWithItsCopiesAndNothingElse) {
    const auto clock = std::make_shared<const Clock>();
    const MediaTime time(EditRate{48000, 1}, 7, clock);
    MediaTime copy = time;
    copy.SetTimeNumber(8);
    EXPECT_EQ(time.GetTimeNumber(), 7);
    EXPECT_EQ(copy.GetTimeNumber(), 8);
    EXPECT_EQ(copy.GetClockInfo(), clock);
}

} // namespace
} // namespace kel
