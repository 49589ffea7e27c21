#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>

namespace kel {

namespace {

static_assert(std::is_same_v<decltype(TimeLimits::start), MediaTime>);
static_assert(std::is_same_v<decltype(TimeLimits::duration), std::int64_t>);

TEST(TimeLimitsObjects, HaveWhatTheyWereMadeWith) {
    const auto attachment = std::make_shared<const int>(1);
    const TimeLimits limits{MediaTime(EditRate{48000, 1}, 7, nullptr), 96000, attachment};
    EXPECT_EQ(limits.start.GetEditRate(), (EditRate{48000, 1}));
    EXPECT_EQ(limits.start.GetTimeNumber(), 7);
    EXPECT_EQ(limits.duration, 96000);
    EXPECT_EQ(limits.attachment, attachment);
    EXPECT_EQ((TimeLimits{MediaTime(), 1}.attachment), nullptr);
}

TEST(TimeLimitsObjects, AreEmptyByDefault) {
    const TimeLimits limits;
    EXPECT_EQ(limits.start.GetEditRate(), kEditRateNull);
    EXPECT_EQ(limits.start.GetTimeNumber(), 0);
    EXPECT_EQ(limits.duration, 0);
    EXPECT_EQ(limits.attachment, nullptr);
}

TEST(TimeLimitsObjects, HaveTheirMembersInOrder) {
    const TimeLimits limits;
    const void* const start = &limits.start;
    const void* const duration = &limits.duration;
    const void* const attachment = &limits.attachment;
    EXPECT_EQ(start, static_cast<const void*>(&limits));
    EXPECT_LT(start, duration);
    EXPECT_LT(duration, attachment);
}

} // namespace
} // namespace kel
