// Every encoding of every container that libsndfile writes and the source may meet. The measure is
// what libsndfile itself reads from the file, bit for bit.

#include "Noise.h"

#include <AudioFiles.h>
#include <CapturingWriter.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

struct Encoding {
    const char* name;
    int format;
};

constexpr std::array kEncodings{
    Encoding{"PCM_U8", SF_FORMAT_PCM_U8},     Encoding{"PCM_S8", SF_FORMAT_PCM_S8},
    Encoding{"PCM_16", SF_FORMAT_PCM_16},     Encoding{"PCM_24", SF_FORMAT_PCM_24},
    Encoding{"PCM_32", SF_FORMAT_PCM_32},     Encoding{"Float", SF_FORMAT_FLOAT},
    Encoding{"Double", SF_FORMAT_DOUBLE},     Encoding{"ALaw", SF_FORMAT_ALAW},
    Encoding{"MuLaw", SF_FORMAT_ULAW},        Encoding{"IMA_ADPCM", SF_FORMAT_IMA_ADPCM},
    Encoding{"MS_ADPCM", SF_FORMAT_MS_ADPCM},
};

struct Container {
    const char* name;
    int format;
    // The most of our channel counts that libsndfile writes, encoding by encoding; 0: none.
    std::array<int, kEncodings.size()> mostChannels;
};

// clang-format off
constexpr std::array kContainers{
    //                                                         U8  S8  16  24  32 Flt Dbl  A  Mu IMA MS
    Container{"WAV", SF_FORMAT_WAV,                           {32,  0, 32, 32, 32, 32, 32, 32, 32, 2, 2}},
    Container{"WAVBigEndian", SF_FORMAT_WAV | SF_ENDIAN_BIG,  {32,  0, 32, 32, 32, 32, 32, 32, 32, 2, 2}},
    Container{"WAVEX", SF_FORMAT_WAVEX,                       {32,  0, 32, 32, 32, 32, 32, 32, 32, 0, 0}},
    Container{"RF64", SF_FORMAT_RF64,                         {32,  0, 32, 32, 32, 32, 32, 32, 32, 0, 0}},
    Container{"AIFF", SF_FORMAT_AIFF,                         {32, 32, 32, 32, 32, 32, 32, 32, 32, 2, 0}},
    Container{"AIFCLittleEndian",
              SF_FORMAT_AIFF | SF_ENDIAN_LITTLE,              { 0,  0, 32, 32, 32,  0,  0,  0,  0, 0, 0}},
    Container{"AIFCBigEndian",
              SF_FORMAT_AIFF | SF_ENDIAN_BIG,                 { 0,  0, 32, 32, 32,  0,  0,  0,  0, 0, 0}},
    Container{"FLAC", SF_FORMAT_FLAC,                         { 0,  6,  6,  6,  0,  0,  0,  0,  0, 0, 0}},
};
// clang-format on

struct ChannelsAndRate {
    int channels;
    int hertz;
};

constexpr std::array kChannelCounts{
    ChannelsAndRate{1, 44100},
    ChannelsAndRate{2, 48000},
    ChannelsAndRate{6, 96000},
    ChannelsAndRate{32, 8000},
};

// One encoding of one container.
struct Combination {
    std::string name;
    int format;
    int mostChannels;
};

void PrintTo(const Combination& combination, std::ostream* stream) {
    *stream << combination.name;
}

std::string NameOf(const testing::TestParamInfo<Combination>& info) {
    return info.param.name;
}

// The encodings that libsndfile writes.
std::vector<Combination> AllCombinations() {
    std::vector<Combination> combinations;
    for (const Container& container : kContainers) {
        for (std::size_t i = 0; i < kEncodings.size(); ++i) {
            if (container.mostChannels[i] > 0) {
                combinations.push_back({std::string(container.name) + "_" + kEncodings[i].name,
                                        container.format | kEncodings[i].format,
                                        container.mostChannels[i]});
            }
        }
    }
    return combinations;
}

// Values that use all of an encoding's range: all bit patterns of integers and of 32-bit floats,
// NaN among them; doubles with more precision than a float has.
void WriteNoise(const std::string& path, int format, const ChannelsAndRate& layout,
                std::size_t frames) {
    const auto [channels, hertz] = layout;
    const std::vector<std::uint32_t> noise = MakeNoise(frames * static_cast<std::size_t>(channels));
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_FLOAT:
        WriteAudio(path, format, channels, hertz, FloatsOf(noise));
        break;
    case SF_FORMAT_DOUBLE: {
        std::vector<double> values(noise.size());
        std::transform(noise.begin(), noise.end(), values.begin(),
                       [](std::uint32_t value) { return std::ldexp(value, -31) - 1.0; });
        WriteAudio(path, format, channels, hertz, values);
        break;
    }
    default:
        WriteAudio(path, format, channels, hertz, CopyBits<int>(noise));
        break;
    }
}

// The samples that a source delivers, each compared with the frames of the decoded file that follow
// the ones before it.
class SampleChecker {
public:
    SampleChecker(const Audio& decoded, std::int64_t maxFrames,
                  std::shared_ptr<const IAudioInfo> info)
        : m_decoded(decoded), m_maxFrames(maxFrames), m_info(std::move(info)) {}

    // Fatal failures end the reading.
    void Check(const ISampleContainer& container) {
        EXPECT_EQ(container.GetPackagingInfo(), nullptr);
        const auto samples = container.GetAudioSamples(nullptr, nullptr);
        ASSERT_EQ(samples.size(), 1U);
        const IAudioSample& sample = *samples.front();
        EXPECT_EQ(sample.GetAudioInfo(), m_info);
        EXPECT_EQ(sample.GetAudioParameters(), m_info->GetAudioParameters());
        EXPECT_TRUE(sample.GetMetadatas().empty());

        const std::int64_t frames = std::min(m_maxFrames, m_decoded.Frames() - m_position);
        const TimeLimits& limits = sample.GetTimeLimits();
        EXPECT_EQ(limits.start.GetTimeNumber(), m_position);
        EXPECT_EQ(limits.start.GetEditRate(),
                  EditRate(static_cast<std::uint32_t>(m_decoded.rate), 1));
        EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
        EXPECT_EQ(limits.attachment, nullptr);
        ASSERT_EQ(limits.duration, frames);

        const auto channels = static_cast<std::size_t>(m_decoded.channels);
        const std::size_t bytes = static_cast<std::size_t>(frames) * channels * sizeof(float);
        const std::shared_ptr<const IBuffer> buffer = sample.GetBuffer();
        ASSERT_EQ(buffer->GetSize(), bytes);
        const float* const expected =
            m_decoded.values.data() + static_cast<std::size_t>(m_position) * channels;
        ASSERT_EQ(std::memcmp(buffer->GetData(), expected, bytes), 0)
            << "from frame " << m_position;
        m_position += frames;
    }

    std::int64_t CheckedFrames() const { return m_position; }

private:
    const Audio& m_decoded;
    std::int64_t m_maxFrames;
    std::shared_ptr<const IAudioInfo> m_info;
    std::int64_t m_position = 0;
};

// Reads all of a file through the source.
void CheckReading(const std::string& path, const Audio& decoded, int maxFrames) {
    SCOPED_TRACE(std::to_string(maxFrames) + " frames a sample");
    const LogCapture log;
    const auto source = OpenSource(path, maxFrames);
    log->Clear();
    EXPECT_EQ(source->GetTimeLimits("").duration, decoded.Frames());

    SampleChecker checker(decoded, maxFrames,
                          source->GetDefinedOutput("")->GetAudioInfos().front());
    std::int64_t deliveredSamples = 0;
    while (const auto container = source->GetSample()) {
        ++deliveredSamples;
        ASSERT_NO_FATAL_FAILURE(checker.Check(*container));
    }
    EXPECT_EQ(checker.CheckedFrames(), decoded.Frames());
    EXPECT_EQ(deliveredSamples, (decoded.Frames() + maxFrames - 1) / maxFrames);
    EXPECT_EQ(source->GetSample(), nullptr) << "after the end";

    // Neither a short last sample nor the end is worth a record.
    EXPECT_TRUE(log->Records().empty());
}

void CheckFile(int format, const ChannelsAndRate& layout, std::size_t frames,
               const std::vector<int>& blockSizes) {
    SCOPED_TRACE(std::to_string(layout.channels) + " channels, " + std::to_string(frames) +
                 " frames");
    const TemporaryDirectory directory;
    const std::string path = directory / "noise";
    WriteNoise(path, format, layout, frames);

    // The file is what it was meant to be, and holds at least the frames written: some encodings
    // fill their last block up, and an AIFF file of an odd number of bytes gains a frame.
    const Audio decoded = ReadAudio(path);
    ASSERT_EQ(decoded.format, format);
    ASSERT_EQ(decoded.channels, layout.channels);
    ASSERT_EQ(decoded.rate, layout.hertz);
    ASSERT_GE(decoded.Frames(), static_cast<sf_count_t>(frames));

    for (const int blockSize : blockSizes) {
        ASSERT_NO_FATAL_FAILURE(CheckReading(path, decoded, blockSize));
    }
}

class LibsndfileSourceSamples : public testing::TestWithParam<Combination> {};

TEST_P(LibsndfileSourceSamples, AreTheFloatsThatLibsndfileReads) {
    for (const ChannelsAndRate& layout : kChannelCounts) {
        if (layout.channels > GetParam().mostChannels) {
            continue;
        }
        // The length is not a multiple of a block size, so that the last samples are short.
        CheckFile(GetParam().format, layout, 3001, {7, 1024, 65536});
    }
}

INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSourceSamples, testing::ValuesIn(AllCombinations()), NameOf);

} // namespace
} // namespace kel::test
