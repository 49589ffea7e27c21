#include "elements/RangeReader.h"

#include "AudioFiles.h"
#include "Program.h"
#include "audio/SampleConverter.h"
#include "base/Errors.h"

#include <CapturingWriter.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <Plugin.h>
#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kFrames = 100;

// A file of two channels, read in blocks of 16 frames.
class RangeReaderTest : public testing::Test {
protected:
    RangeReaderTest() {
        test::LoadPlugin();
        test::WriteTake(m_directory / "take.wav", kFrames);
    }

    struct Piece {
        std::int64_t frames;
        std::int64_t stamp;
        std::vector<float> values;
    };

    std::vector<Piece> ReadAll(std::int64_t first, std::int64_t count) {
        const SourceReader source(FileName(m_directory / "take.wav"), 16);
        RangeReader reader(source, {first, count});
        EXPECT_EQ(reader.Delivered(), 0);
        std::vector<Piece> pieces;
        std::int64_t delivered = 0;
        while (const SampleHandle container = reader.Pull()) {
            const auto sample = container->GetAudioSamples(nullptr, nullptr).at(0);
            const FloatView floats = FloatsIn(*container);
            const std::int64_t frames = sample->GetTimeLimits().duration;
            EXPECT_EQ(floats.count, static_cast<std::size_t>(2 * frames));
            EXPECT_NE(sample->GetAudioParameters(), nullptr);
            EXPECT_EQ(sample->GetAudioInfo(), source.Info());
            pieces.push_back({frames,
                              sample->GetTimeLimits().start.GetTimeNumber(),
                              {floats.values, floats.values + floats.count}});
            delivered += frames;
            EXPECT_EQ(reader.Delivered(), delivered);
        }
        EXPECT_EQ(reader.Pull(), nullptr) << "the end stays the end";
        return pieces;
    }

    const test::LogCapture m_log;
    test::TemporaryDirectory m_directory;
};

} // namespace

TEST_F(RangeReaderTest, ReturnsExactlyTheFramesOfTheRange) {
    struct Row {
        std::int64_t first;
        std::int64_t count;
    };
    const std::vector<float> values = test::MakeValues(2 * kFrames);
    for (const Row& row : {Row{0, 100}, Row{0, 1}, Row{0, 16}, Row{0, 17}, Row{0, 15}, Row{1, 16},
                           Row{99, 1}, Row{50, 50}, Row{7, 33}, Row{16, 32}, Row{0, 99}}) {
        SCOPED_TRACE(testing::Message() << row.count << " frames from " << row.first);
        std::vector<float> read;
        std::int64_t stamp = 0;
        std::int64_t left = row.count;
        for (const Piece& piece : ReadAll(row.first, row.count)) {
            EXPECT_EQ(piece.stamp, stamp);
            EXPECT_EQ(piece.frames, std::min<std::int64_t>(left, 16));
            stamp += piece.frames;
            left -= piece.frames;
            read.insert(read.end(), piece.values.begin(), piece.values.end());
        }
        const auto first = values.begin() + 2 * row.first;
        EXPECT_EQ(read, std::vector<float>(first, first + 2 * row.count));
    }
}

TEST_F(RangeReaderTest, EndsWithTheRangeOrTheFile) {
    EXPECT_TRUE(ReadAll(50, 0).empty());
    const SourceReader source(FileName(m_directory / "take.wav"), 64);
    RangeReader reader(source, {90, 1000});
    ASSERT_NE(reader.Pull(), nullptr);
    EXPECT_EQ(reader.Delivered(), 10);
    EXPECT_EQ(reader.Pull(), nullptr);
    EXPECT_EQ(reader.Delivered(), 10);
}

TEST_F(RangeReaderTest, ReportsThatTheSourceCannotGoThere) {
    const SourceReader source(FileName(m_directory / "take.wav", "a\nb.wav"), 64);
    try {
        const RangeReader reader(source, {101, 1});
        FAIL() << "went beyond the end";
    } catch (const JobError& error) {
        EXPECT_EQ(DescribeError(error).message,
                  "a\\nb.wav: cannot seek to frame 101: it may be damaged (--verbose shows more); "
                  "damaged files can only be read from their beginning");
    }
}

} // namespace kel::host
