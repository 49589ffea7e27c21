#include "audio/SampleConverter.h"

#include "audio/PCMDescription.h"

#include "AudioFiles.h"

#include <CapturingWriter.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IChannelInfo.h>
#include <ISampleContainer.h>
#include <ITrack.h>
#include <MediaTime.h>
#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint32_t kRate = 44100;

std::shared_ptr<const IInfoContainer> DescribeFloats(std::uint32_t channels) {
    return CreateInfoContainer(
        DescribePCM(EncodingByName("float32"), PCMEndianness::Little, kRate, channels), nullptr);
}

SampleHandle MakeSample(const std::vector<float>& values, std::uint32_t channels,
                        std::int64_t start = 0) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    const auto bytes = static_cast<std::uint32_t>(values.size() * sizeof(float));
    buffer->Reserve(bytes);
    if (bytes > 0) {
        std::memcpy(buffer->GetData(), values.data(), bytes);
    }
    buffer->SetSize(bytes);
    const TimeLimits limits(MediaTime(EditRate(kRate, 1), start, nullptr),
                            static_cast<std::int64_t>(values.size() / channels));
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, buffer, limits, {}), nullptr);
}

std::string BytesOf(const SampleHandle& container) {
    const std::shared_ptr<const IBuffer> buffer =
        container->GetAudioSamples(nullptr, nullptr).at(0)->GetBuffer();
    return {reinterpret_cast<const char*>(buffer->GetData()), buffer->GetSize()};
}

class SampleConverterTest : public testing::Test {
    const test::LogCapture m_log;
};

} // namespace

TEST_F(SampleConverterTest, LeavesFloatsAsTheyAre) {
    const auto source = DescribeFloats(2);
    SampleConverter converter(source, {EncodingByName("float32"), PCMEndianness::Little, {}, {}});
    EXPECT_TRUE(converter.IsIdentity());
    EXPECT_EQ(converter.Description(), source);
    EXPECT_EQ(converter.Channels().size(), 2U);
    const SampleHandle sample = MakeSample({0.5F, -0.5F}, 2);
    EXPECT_EQ(converter.Convert(sample), sample);
}

TEST_F(SampleConverterTest, DescribesItsOutputAndReadsItBack) {
    for (const Encoding& encoding : Encodings()) {
        for (const PCMEndianness byteOrder : {PCMEndianness::Little, PCMEndianness::Big}) {
            SCOPED_TRACE(std::string(encoding.name));
            SampleConverter converter(DescribeFloats(3), {encoding, byteOrder, {2, 0}, {}});
            EXPECT_FALSE(converter.IsIdentity());
            EXPECT_EQ(converter.Channels().size(), 2U);
            const SampleHandle converted = converter.Convert(MakeSample({0.5F, 0.0F, 0.25F}, 3));
            const auto sample = converted->GetAudioSamples(nullptr, nullptr).at(0);
            const auto info = converter.Description()->GetAudioInfos().at(0);
            EXPECT_EQ(sample->GetAudioInfo(), info);
            EXPECT_EQ(info->GetChannelInfo()->GetNumberOfChannels(), 2U);
            EXPECT_EQ(info->GetChannelInfo()->GetTrack()->GetContentType(), ContentType::Audio);
            const auto parameters =
                std::dynamic_pointer_cast<const IAudioParameters_PCM>(sample->GetAudioParameters());
            ASSERT_NE(parameters, nullptr);
            EXPECT_EQ(parameters, info->GetAudioParameters());
            EXPECT_EQ(parameters->GetSampleRate(), kRate);
            EXPECT_EQ(parameters->GetBitsDepth(), encoding.bits);
            EXPECT_EQ(parameters->GetSampleSize(), encoding.bytes);
            EXPECT_EQ(parameters->GetPCMType(), encoding.type);
            EXPECT_EQ(parameters->GetEndianness(), byteOrder);
            EXPECT_EQ(parameters->GetMuxing(), PCMMuxing::Multi);
            EXPECT_EQ(BytesOf(converted).size(), 2U * encoding.bytes);
            const FloatView back = converter.ReadBack(*converted);
            EXPECT_EQ(std::vector<float>(back.values, back.values + back.count),
                      (std::vector<float>{0.25F, 0.5F}));
        }
    }
}

TEST_F(SampleConverterTest, PicksChannelsAndKeepsTheStamp) {
    SampleConverter converter(DescribeFloats(3),
                              {EncodingByName("float32"), PCMEndianness::Little, {2, 0, 2}, {}});
    const SampleHandle converted =
        converter.Convert(MakeSample({1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F}, 3, 4711));
    EXPECT_EQ(BytesOf(converted),
              test::BytesOf(std::vector<float>{3.0F, 1.0F, 3.0F, 6.0F, 4.0F, 6.0F}));
    const TimeLimits& limits = converted->GetAudioSamples(nullptr, nullptr).at(0)->GetTimeLimits();
    EXPECT_EQ(limits.start.GetTimeNumber(), 4711);
    EXPECT_EQ(limits.start.GetEditRate().numerator, kRate);
    EXPECT_EQ(limits.duration, 2);
}

TEST_F(SampleConverterTest, ConvertsSamplesOfEverySizeIntoMemoryOfTheirOwn) {
    SampleConverter converter(DescribeFloats(2),
                              {EncodingByName("int16"), PCMEndianness::Big, {1}, {}});
    std::vector<SampleHandle> samples;
    std::vector<std::string> bytes;
    for (const std::size_t frames : {5U, 0U, 3000U, 5U, 1024U}) {
        std::vector<float> values;
        std::string expected;
        for (std::size_t frame = 0; frame < frames; ++frame) {
            const auto value = static_cast<std::int16_t>((frame * 31 + frames) % 65536 - 32768);
            values.insert(values.end(), {0.9F, static_cast<float>(value) / 32768.0F});
            expected.push_back(static_cast<char>(static_cast<std::uint16_t>(value) >> 8U));
            expected.push_back(static_cast<char>(value));
        }
        samples.push_back(converter.Convert(MakeSample(values, 2)));
        bytes.push_back(expected);
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_TRUE(BytesOf(samples[i]) == bytes[i]) << i;
    }
}

TEST_F(SampleConverterTest, CountsTheChannelsOfItsOutput) {
    SampleConverter converter(DescribeFloats(3),
                              {EncodingByName("int16"), PCMEndianness::Little, {2, 0}, {}});
    converter.Convert(MakeSample({0.0F, 9.0F, 2.0F}, 3));
    converter.Convert(MakeSample({-4.0F, 9.0F, 3.0F}, 3));
    EXPECT_EQ(converter.Channels()[0].clipped, 2U);
    EXPECT_EQ(converter.Channels()[0].loudest, 3.0F);
    EXPECT_EQ(converter.Channels()[1].clipped, 1U);
    EXPECT_EQ(converter.Channels()[1].loudest, 4.0F);
}

} // namespace kel::host
