#include "audio/TimeRange.h"

#include "base/Errors.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::int64_t kSecond = 1000000000; // in nanoseconds

const std::string kForms =
    "\" for --start: expected seconds (12.5), h:mm:ss.mmm (1:02:03.250) or frames "
    "(48000f)";

std::string RefusalOf(const std::string& text) {
    try {
        ParseTime("--start", text);
    } catch (const UsageError& error) {
        return DescribeError(error).message;
    }
    return "no UsageError";
}

std::string ResolveErrorOf(const TimeRange& range, std::int64_t frames) {
    try {
        Resolve(range, frames, 48000, "a\nb.wav");
    } catch (const JobError& error) {
        return DescribeError(error).message;
    }
    return "no JobError";
}

TimePoint Frames(std::int64_t frames) {
    return {frames, true};
}

std::string OutOfFile(const std::string& from, const std::string& to) {
    return "a\\nb.wav: the range from frame " + from + " to frame " + to +
           " is not within the file, which has 96000 frames (0:00:02.000)";
}

} // namespace

TEST(TimeRangeText, IsSecondsOrAClockOrFrames) {
    struct Row {
        std::string text;
        std::int64_t value;
        bool inFrames;
    };
    const std::vector<Row> rows{
        {"0", 0, false},
        {"12.5", 12 * kSecond + kSecond / 2, false},
        {"00012.500", 12 * kSecond + kSecond / 2, false},
        {"0.000000001", 1, false},
        {"3600.25", 3600 * kSecond + kSecond / 4, false},
        {"36000000", 36000000 * kSecond, false},
        {"2:03.25", 123 * kSecond + kSecond / 4, false},
        {"90:00", 5400 * kSecond, false}, // more than an hour, as no hours are named
        {"1:02:03.250", 3723 * kSecond + kSecond / 4, false},
        {"100:59:59.999", 363599 * kSecond + 999 * (kSecond / 1000), false},
        {"48000f", 48000, true},
        {"72057594037927936f", std::int64_t{1} << 56U, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const TimePoint time = ParseTime("--start", row.text);
        EXPECT_EQ(time.value, row.value);
        EXPECT_EQ(time.inFrames, row.inFrames);
    }
}

TEST(TimeRangeText, IsRefusedInEveryOtherForm) {
    std::istringstream texts(
        "-5 +5 1,5 1e3 0x10 nan .5 5. 1.2.3 1.0000000001 36000001 : 1: :30 1:60 "
        "99999999999999999999 0:60:00 0:00:60 1:-1 1:2:3:4 1::2 1.5:00 f -1f "
        "36000000:00:00 99999999999:00 1.5f 1:00f 1ff 1F 1s "
        "72057594037927937f 99999999999999999999f");
    std::vector<std::string> refused{"", " ", "5 ", " 5"};
    refused.insert(refused.end(), std::istream_iterator<std::string>(texts), {});
    for (const std::string& text : refused) {
        EXPECT_EQ(RefusalOf(text), "invalid value \"" + text + kForms);
    }
    EXPECT_EQ(RefusalOf("1\n\x1B"), "invalid value \"1\\n\\x1B" + kForms);
}

TEST(TimeRangeFrames, AreTheNearestToATime) {
    struct Row {
        std::string text;
        std::uint32_t rate;
        std::int64_t frames;
    };
    const std::vector<Row> rows{
        {"0.1", 44100, 4410},
        {"0.001", 44100, 44}, // 44.1
        {"0.0035", 1000, 4},  // half way
        {"0.003499999", 1000, 3},
        {"0.000010416", 48000, 0}, // just before the half of a frame
        {"0.000010417", 48000, 1},
        {"1:00:00", 192000, 691200000},
        {"10000:00:00", 4294967295U, 154618822620000000},
        {"0.999999999", 4294967295U, 4294967291}, // less than one frame of four from the second
        {"0.5", 1, 1},
        {"48000f", 1, 48000}, // whatever the rate
        {"1", 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text + " at " + std::to_string(row.rate));
        EXPECT_EQ(ParseTime("--start", row.text).Frames(row.rate), row.frames);
    }
}

TEST(TimeRange, IsTheWholeFileWhenNothingIsSaid) {
    EXPECT_TRUE(TimeRange().IsWholeFile());
    EXPECT_FALSE((TimeRange{Frames(0), {}, {}}.IsWholeFile()));
    EXPECT_FALSE((TimeRange{{}, Frames(0), {}}.IsWholeFile()));
    EXPECT_FALSE((TimeRange{{}, {}, Frames(0)}.IsWholeFile()));
    for (const std::int64_t frames : {std::int64_t{0}, std::int64_t{1}, std::int64_t{1} << 40U}) {
        const FrameRange range = Resolve({}, frames, 48000, "a.wav");
        EXPECT_EQ(range.first, 0);
        EXPECT_EQ(range.count, frames);
    }
}

TEST(TimeRange, IsCutToTheFrame) {
    struct Row {
        TimeRange range;
        std::int64_t first;
        std::int64_t count;
    };
    const TimePoint second{kSecond, false};
    const std::vector<Row> rows{
        {{Frames(0), {}, {}}, 0, 96000},
        {{Frames(95999), {}, {}}, 95999, 1},
        {{second, {}, {}}, 48000, 48000},
        {{{}, second, {}}, 0, 48000},
        {{{}, {}, Frames(96000)}, 0, 96000},
        {{Frames(10), Frames(11), {}}, 10, 1},
        {{Frames(10), second, {}}, 10, 47990},
        {{second, {}, Frames(48000)}, 48000, 48000},
        {{Frames(1), Frames(96000), {}}, 1, 95999},
    };
    for (const Row& row : rows) {
        const FrameRange range = Resolve(row.range, 96000, 48000, "a.wav");
        SCOPED_TRACE(testing::Message() << row.first << " and " << row.count);
        EXPECT_EQ(range.first, row.first);
        EXPECT_EQ(range.count, row.count);
    }
}

TEST(TimeRange, MustBeWithinTheFileAndNotEmpty) {
    struct Row {
        TimeRange range;
        std::string from;
        std::string to;
    };
    const std::int64_t most = std::int64_t{1} << 56U;
    const std::vector<Row> rows{
        {{Frames(96000), {}, {}}, "96000", "96000"},
        {{Frames(96001), {}, {}}, "96001", "96000"},
        {{{}, Frames(0), {}}, "0", "0"},
        {{{}, Frames(96001), {}}, "0", "96001"},
        {{{}, {}, Frames(96001)}, "0", "96001"},
        {{Frames(5), Frames(5), {}}, "5", "5"},
        {{Frames(95999), {}, Frames(2)}, "95999", "96001"},
        {{Frames(most), {}, Frames(most)}, "72057594037927936", "144115188075855872"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ResolveErrorOf(row.range, 96000), OutOfFile(row.from, row.to));
    }
    EXPECT_EQ(ResolveErrorOf({Frames(0), {}, {}}, 0),
              "a\\nb.wav: the range from frame 0 to frame 0 is not within the file, which has 0 "
              "frames (0:00:00.000)");
}

TEST(TimeRange, MayEndWithAFileOfUnknownLength) {
    struct Row {
        TimeRange range;
        std::int64_t first;
        std::optional<std::int64_t> count;
    };
    const std::vector<Row> rows{
        {{}, 0, std::nullopt},
        {{Frames(7), {}, {}}, 7, std::nullopt},
        {{{}, Frames(7), {}}, 0, 7},
        {{Frames(7), Frames(9), {}}, 7, 2},
        {{Frames(7), {}, Frames(9)}, 7, 9},
    };
    for (const Row& row : rows) {
        const FrameRange range = Resolve(row.range, std::nullopt, 48000, "a.wav");
        SCOPED_TRACE(row.first);
        EXPECT_EQ(range.first, row.first);
        EXPECT_EQ(range.count, row.count);
    }
    try {
        Resolve({Frames(7), Frames(7), {}}, std::nullopt, 48000, "a.wav");
        FAIL() << "accepts an empty range";
    } catch (const JobError& error) {
        EXPECT_EQ(DescribeError(error).message,
                  "a.wav: the range from frame 7 to frame 7 is empty");
    }
}

} // namespace kel::host
