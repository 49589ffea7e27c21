#include "analysis/AudioComparison.h"

#include "AudioFiles.h"

#include <CapturingWriter.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kTakeFrames = 1000;

// Records the progress.
class RecordingReporter final : public Reporter {
public:
    void Opening(const std::string& /*file*/) override {}
    void Opened() override {}
    void Spooled(std::uint64_t /*bytes*/) override {}
    void Progress(std::int64_t done, std::int64_t total, std::uint32_t /*rate*/) override {
        m_done = done;
        m_total = total;
    }
    void Show(const std::string& /*line*/) override {}
    void ShowAs(const FileName& /*file*/) override {}
    void BeginReading() override {}
    void EndReading() override {}

    std::int64_t m_done = 0;
    std::int64_t m_total = 0;
};

} // namespace

// Sources may deliver samples of any lengths.
TEST(AudioComparison, ReadsSourcesWhoseSamplesBeginElsewhere) {
    test::LoadPlugin();
    const test::TemporaryDirectory directory;
    const HostLogger log([](const std::string&) {}, Verbosity::Nothing);
    std::vector<float> values = test::MakeValues(2 * kTakeFrames);
    test::WriteTake(directory / "a.wav", kTakeFrames);
    values[2 * 700 + 1] += 0.25F;
    values.resize(values.size() - 2);
    test::WriteAudio(directory / "b.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, values);
    for (const std::uint32_t blockTakeFrames : {1U, 7U, 64U, 1000U}) {
        SCOPED_TRACE(blockTakeFrames);
        const SourceReader a(FileName(directory / "a.wav"), 64);
        const SourceReader b(FileName(directory / "b.wav"), blockTakeFrames);
        RecordingReporter reporter;
        const Comparison comparison = CompareSources(a, b, {}, log, reporter);
        EXPECT_FALSE(comparison.IsSame());
        EXPECT_EQ(comparison.files[0].frames, 1000);
        EXPECT_EQ(comparison.files[1].frames, 999);
        EXPECT_EQ(comparison.comparedFrames, 999);
        EXPECT_EQ(comparison.first, 700);
        EXPECT_EQ(comparison.channels[0].differing, 0U);
        EXPECT_EQ(comparison.channels[1].differing, 1U);
        EXPECT_EQ(comparison.channels[1].largest, 0.25);
        EXPECT_EQ(comparison.channels[1].largestAt, 700);
        EXPECT_EQ(reporter.m_done, 1000);
        EXPECT_EQ(reporter.m_total, 1000);
    }
}

} // namespace kel::host
