// Time limits, and seeking by media time.

#include "SourceTestSupport.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace kel::test {
namespace {

constexpr EditRate kRate{44100, 1};

const std::string kOtherRate =
    "[LibsndfileSource::GotoTimeOffset - must use same EditRate as the source TimeLimits]";
const std::string kNegative = "[LibsndfileSource::GotoTimeOffset - mediaTime.GetTimeNumber() < 0]";
const std::string kPastEnd =
    "[LibsndfileSource::GotoTimeOffset - mediaTime.GetTimeNumber() past file end!]";

class Clock final : public IClockInfo {};

class LibsndfileSourceSeeking : public ::testing::Test {
protected:
    void ExpectRefused(const std::string& message, std::int64_t number, const EditRate& rate) {
        ExpectRefusal(message, [&] { source->GotoTimeOffset(Frames(number, rate), ""); });
    }

    // What is read next is the file from this frame on.
    void ExpectReadsFrom(std::uint32_t frame) {
        EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, frame, 100));
    }

    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const std::shared_ptr<IAudioSource> source = OpenSource(path, 100);
};

TEST(LibsndfileSourceTimeLimits, AreTheFramesOfTheFile) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory, {1, 44100, 441000}));
    ExpectRecords({}, [&] {
        const TimeLimits limits = source->GetTimeLimits("");
        EXPECT_EQ(limits.start.GetTimeNumber(), 0);
        EXPECT_EQ(limits.start.GetEditRate(), kRate);
        EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
        EXPECT_EQ(limits.duration, 441000);
        EXPECT_EQ(limits.attachment, nullptr);
    });
}

TEST(LibsndfileSourceTimeLimits, AreEmptyForAFileWithoutFrames) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory, {1, 8000, 0}));
    const TimeLimits limits = source->GetTimeLimits("");
    EXPECT_EQ(limits.start.GetTimeNumber(), 0);
    EXPECT_EQ(limits.start.GetEditRate(), EditRate(8000, 1));
    EXPECT_EQ(limits.duration, 0);
}

TEST(LibsndfileSourceTimeLimits, NeedAFile) {
    const auto source = MakeConfiguredSource();
    for (const std::string track : {"", "track"}) {
        ExpectRefusal("[Cannot call GetTimeLimits without an opened file]",
                      [&] { source->GetTimeLimits(track); });
    }
}

TEST_F(LibsndfileSourceSeeking, DoesNotMoveTheTimeLimits) {
    for (const std::string track : {"", "track"}) {
        source->GetSample();
        source->GotoTimeOffset(Frames(1000, kRate), track);
        const TimeLimits limits = source->GetTimeLimits(track);
        EXPECT_EQ(limits.start.GetTimeNumber(), 0);
        EXPECT_EQ(limits.duration, 2500);
    }
}

TEST_F(LibsndfileSourceSeeking, IgnoresTheNameOfTheTrack) {
    for (const std::string track : {"", "track", "audio.wav"}) {
        source->GotoTimeOffset(Frames(5, kRate), track);
        ExpectReadsFrom(5);
    }
}

TEST_F(LibsndfileSourceSeeking, ReadsFromThereOn) {
    for (const std::uint32_t frame : {2400U, 0U, 1U, 1023U, 1024U, 1024U, 17U}) {
        SCOPED_TRACE(frame);
        ExpectRecords({}, [&] {
            const MediaTime reached = source->GotoTimeOffset(Frames(frame, kRate), "");
            EXPECT_EQ(reached.GetTimeNumber(), frame);
            EXPECT_EQ(reached.GetEditRate(), kRate);
            EXPECT_EQ(reached.GetClockInfo(), nullptr);
        });
        ExpectReadsFrom(frame);
    }
}

TEST_F(LibsndfileSourceSeeking, LeavesTheStamps) {
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 100, 800}));
    source->GotoTimeOffset(Frames(2000, kRate), "");
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{100, 100, 800}));
    source->GotoTimeOffset(Frames(0, kRate), "");
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{200, 100, 800}));
}

TEST_F(LibsndfileSourceSeeking, KeepsTheClock) {
    const auto clock = std::make_shared<Clock>();
    const MediaTime time(kRate, 2050, clock);
    const MediaTime reached = source->GotoTimeOffset(time, "");
    EXPECT_EQ(reached.GetTimeNumber(), 2050);
    EXPECT_EQ(reached.GetEditRate(), kRate);
    EXPECT_EQ(reached.GetClockInfo(), clock);
    EXPECT_EQ(time.GetTimeNumber(), 2050);
}

TEST_F(LibsndfileSourceSeeking, TakesTheSameRateInOtherNumbersAndKeepsThem) {
    for (const EditRate& rate :
         {EditRate(88200, 2), EditRate(4410000, 100), EditRate(44100U * 97391U, 97391)}) {
        const MediaTime reached = source->GotoTimeOffset(Frames(2000, rate), "");
        EXPECT_EQ(reached.GetTimeNumber(), 2000);
        EXPECT_EQ(reached.GetEditRate(), rate);
        ExpectReadsFrom(2000);
    }
}

TEST_F(LibsndfileSourceSeeking, TakesARateThatDiffersByNoMoreThanTheTolerance) {
    // One divisor-th of a hertz more or less: just under, then just over 0.00006.
    constexpr std::uint32_t kNear = 16667;
    constexpr std::uint32_t kFar = 16666;
    for (const std::uint32_t offset : {0U, 2U}) {
        const EditRate near{44100 * kNear - 1 + offset, kNear};
        ExpectRecords({}, [&] {
            EXPECT_EQ(source->GotoTimeOffset(Frames(3, near), "").GetEditRate(), near);
        });
        ExpectRefused(kOtherRate, 3, {44100 * kFar - 1 + offset, kFar});
    }
}

TEST_F(LibsndfileSourceSeeking, RefusesOtherRates) {
    source->GotoTimeOffset(Frames(7, kRate), "");
    for (const EditRate& rate :
         {EditRate(48000, 1), EditRate(44101, 1), EditRate(44099, 1), EditRate(44100, 2),
          EditRate(22050, 1), EditRate(25, 1), EditRate(1, 44100), EditRate(4294967295, 1)}) {
        SCOPED_TRACE(std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator));
        ExpectRefused(kOtherRate, 1000, rate);
    }
    ExpectReadsFrom(7);
}

TEST_F(LibsndfileSourceSeeking, RefusesNullRatesWithoutADivision) {
    source->GotoTimeOffset(Frames(7, kRate), "");
    for (const EditRate& rate : {EditRate(0, 0), EditRate(0, 1), EditRate(44100, 0)}) {
        SCOPED_TRACE(std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator));
        ExpectRefused(kOtherRate, 1000, rate);
    }
    ExpectReadsFrom(7);
}

TEST_F(LibsndfileSourceSeeking, RefusesTimesBeforeTheFile) {
    source->GotoTimeOffset(Frames(7, kRate), "");
    ExpectRefused(kNegative, -1, kRate);
    ExpectRefused(kNegative, -2500, kRate);
    ExpectRefused(kNegative, std::numeric_limits<std::int64_t>::min(), kRate);
    ExpectReadsFrom(7);
}

TEST_F(LibsndfileSourceSeeking, RefusesTimesPastTheEnd) {
    source->GotoTimeOffset(Frames(7, kRate), "");
    ExpectRefused(kPastEnd, 2501, kRate);
    ExpectRefused(kPastEnd, std::int64_t{1} << 32, kRate);
    ExpectRefused(kPastEnd, std::numeric_limits<std::int64_t>::max(), kRate);
    ExpectReadsFrom(7);
}

TEST_F(LibsndfileSourceSeeking, ChecksTheRateBeforeTheNumber) {
    ExpectRefused(kOtherRate, -1, {48000, 1});
    ExpectRefused(kOtherRate, 2501, {48000, 1});
}

TEST_F(LibsndfileSourceSeeking, GoesToTheEndWhereNothingIsLeft) {
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GotoTimeOffset(Frames(2500, kRate), "").GetTimeNumber(), 2500);
        EXPECT_EQ(source->GetSample(), nullptr);
    });
}

TEST_F(LibsndfileSourceSeeking, GoesBackFromTheEnd) {
    source->GotoTimeOffset(Frames(2500, kRate), "");
    EXPECT_EQ(source->GetSample(), nullptr);
    source->GotoTimeOffset(Frames(2400, kRate), "");
    ExpectReadsFrom(2400);
    EXPECT_EQ(source->GetSample(), nullptr);
}

TEST_F(LibsndfileSourceSeeking, IsAllowedWhileTheOutputIsInactive) {
    source->ActivateOutputs({});
    EXPECT_EQ(source->GotoTimeOffset(Frames(9, kRate), "").GetTimeNumber(), 9);
    source->ActivateOutputs({nullptr});
    ExpectReadsFrom(9);
}

TEST_F(LibsndfileSourceSeeking, NeedsAFileBeforeAnythingElse) {
    source->Release();
    const std::string message = "[Cannot call GotoTimeOffset without an opened file]";
    ExpectRefused(message, 0, kRate);
    ExpectRefused(message, -1, {48000, 1});
    ExpectRefused(message, 0, {0, 0});
}

TEST(LibsndfileSourceSeekingEmptyFile, GoesToItsOnlyPlace) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory, {1, 44100, 0}));
    EXPECT_EQ(source->GotoTimeOffset(Frames(0, kRate), "").GetTimeNumber(), 0);
    ExpectRefusal(kPastEnd, [&] { source->GotoTimeOffset(Frames(1, kRate), ""); });
}

} // namespace
} // namespace kel::test
