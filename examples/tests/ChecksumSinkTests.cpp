#include "Examples.h"

#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<const ISampleContainer> SampleOf(const std::string& bytes) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(static_cast<std::uint32_t>(bytes.size()));
    buffer->SetSize(static_cast<std::uint32_t>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), buffer->GetData());
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, buffer, TimeLimits(), {}),
                                 nullptr);
}

// The record of Close for samples of 24-bit values, one after the other.
std::string ChecksumOf(IAudioSink& sink, const std::vector<std::string>& samples) {
    const PCMFormat format{48000, 1, AudioPCMType::Integer, 3};
    sink.DefineInput(CreateInfoContainer(CreateAudioInfo(format, ""), nullptr), "");
    const LogCapture log;
    for (const std::string& bytes : samples) {
        sink.PushSample(SampleOf(bytes));
    }
    sink.Close(false);
    return log->Messages(LogLevel::Info).at(0);
}

} // namespace

TEST(ChecksumSink, ComputesTheCRC32OfEachInputHoweverItIsDivided) {
    const auto sink = MakeSink("example.ChecksumSink");
    // The check value of CRC-32 in the catalogue of parametrised CRC algorithms.
    EXPECT_EQ(ChecksumOf(*sink, {"123456789"}), "ChecksumSink: CRC-32 cbf43926 of 9 bytes");
    EXPECT_EQ(ChecksumOf(*sink, {"123", "", "456789"}), "ChecksumSink: CRC-32 cbf43926 of 9 bytes");
    EXPECT_EQ(ChecksumOf(*sink, {}), "ChecksumSink: CRC-32 00000000 of 0 bytes");
}

TEST(ChecksumSink, IsTheSameForTheToneInLongAndInShortSamples) {
    const auto sink = MakeSink("example.ChecksumSink");
    std::vector<std::string> records;
    for (const std::int32_t frames : {7, 48000}) {
        const auto tone = MakeTone({{"MaxSamplesPerBuffer", frames}});
        const LogCapture log;
        PushAll(*tone, *sink);
        records.push_back(log->Messages(LogLevel::Info).at(0));
    }
    EXPECT_EQ(records[0], records[1]);
    EXPECT_EQ(records[0].substr(records[0].find(" of")), " of 384000 bytes");
}

} // namespace kel::test
