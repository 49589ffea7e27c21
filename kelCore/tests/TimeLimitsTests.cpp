#include <IClockInfo.h>
#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>

namespace kel {

namespace {

class Clock final : public IClockInfo {};

static_assert(std::is_same_v<decltype(TimeLimits::start), MediaTime>);
static_assert(std::is_same_v<decltype(TimeLimits::duration), std::int64_t>);
static_assert(std::is_copy_constructible_v<TimeLimits> && std::is_copy_assignable_v<TimeLimits>);

TEST(TimeLimitsOfAFile, StartAtZeroAndLastItsFrames) {
    const TimeLimits limits{MediaTime(EditRate{48000, 1}, 0, nullptr), 96000};
    EXPECT_EQ(limits.start.GetEditRate(), (EditRate{48000, 1}));
    EXPECT_EQ(limits.start.GetTimeNumber(), 0);
    EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
    EXPECT_EQ(limits.duration, 96000);
    EXPECT_EQ(limits.attachment, nullptr);
}

TEST(TimeLimitsOfAFile, OfNoFramesHaveStartAndDurationZero) {
    const TimeLimits limits{MediaTime(EditRate{48000, 1}, 0, nullptr), 0};
    EXPECT_EQ(limits.start.GetTimeNumber(), 0);
    EXPECT_EQ(limits.duration, 0);
}

TEST(DefaultTimeLimits, AreEmpty) {
    const TimeLimits limits;
    EXPECT_EQ(limits.start.GetEditRate(), kEditRateNull);
    EXPECT_EQ(limits.start.GetTimeNumber(), 0);
    EXPECT_EQ(limits.duration, 0);
    EXPECT_EQ(limits.attachment, nullptr);
}

TEST(TimeLimitsInPlace, HaveTheirMembersInOrder) {
    TimeLimits limits;
    limits.start = MediaTime(EditRate{44100, 1}, 3, nullptr);
    limits.duration = 4;
    EXPECT_EQ(limits.start.GetTimeNumber(), 3);
    EXPECT_EQ(limits.duration, 4);
    const void* const start = &limits.start;
    const void* const duration = &limits.duration;
    const void* const attachment = &limits.attachment;
    EXPECT_EQ(start, static_cast<const void*>(&limits));
    EXPECT_LT(start, duration);
    EXPECT_LT(duration, attachment);
}

TEST(TimeLimitsAtTheirEnd, ReleaseTheClockAndTheAttachment) {
    auto clock = std::make_shared<const Clock>();
    auto attachment = std::make_shared<const int>(1);
    const std::weak_ptr<const Clock> watchedClock = clock;
    const std::weak_ptr<const int> watchedAttachment = attachment;
    {
        const TimeLimits limits(MediaTime(EditRate{48000, 1}, 0, clock), 0, attachment);
        clock.reset();
        attachment.reset();
        EXPECT_FALSE(watchedClock.expired());
        EXPECT_FALSE(watchedAttachment.expired());
    }
    EXPECT_TRUE(watchedClock.expired());
    EXPECT_TRUE(watchedAttachment.expired());
}

} // namespace
} // namespace kel
