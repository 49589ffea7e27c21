// Files that are copied from a source to a sink, compared with the values that libsndfile itself
// reads from the copy.

#include "Noise.h"

#include <AudioFiles.h>
#include <CapturingWriter.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {
namespace {

// A format of the sink and of the file that it makes.
struct Target {
    const char* type;
    int format; // of libsndfile
};

constexpr Target kWAVE{"WAVE", SF_FORMAT_WAVEX | SF_FORMAT_FLOAT};
constexpr Target kBWAVE{"BWAVE", SF_FORMAT_RF64 | SF_FORMAT_FLOAT};

void PrintTo(const Target& target, std::ostream* stream) {
    *stream << target.type;
}

std::string NameOf(const testing::TestParamInfo<Target>& info) {
    return info.param.type;
}

// The floats that a conversion on the way would give away: signs of nothing, numbers without a
// leading one, the ends of the range, and NaN of both kinds with every sign and with payloads.
constexpr std::uint32_t kSpecialBits[]{
    0x00000000, 0x80000000, // 0, -0
    0x00000001, 0x80000001, // the smallest denormals
    0x007FFFFF, 0x807FFFFF, // the largest denormals
    0x00800000, 0x80800000, // the smallest normals
    0x3F800000, 0xBF800000, // 1, -1
    0x3F800001, 0xBF800001, // just beyond
    0x7F7FFFFF, 0xFF7FFFFF, // the largest finite ones
    0x7F800000, 0xFF800000, // infinities
    0x7FC00000, 0xFFC00000, // quiet NaN
    0x7FC12345, 0xFFFFFFFF, // quiet NaN with payloads
    0x7F800001, 0xFF800001, // signalling NaN
    0x7FA5A5A5, 0xFFBFFFFF, // signalling NaN with payloads
};

// The special values, and noise up to so many values in all.
std::vector<float> MakeValues(std::size_t count, std::uint32_t seed = 1) {
    std::vector<std::uint32_t> bits(std::begin(kSpecialBits), std::end(kSpecialBits));
    const std::vector<std::uint32_t> noise = MakeNoise(count, seed);
    bits.insert(bits.end(), noise.begin(), noise.end());
    bits.resize(count);
    return FloatsOf(bits);
}

// A source without a file.
std::shared_ptr<IAudioSource> MakeConfiguredSource(int maxFrames) {
    auto settings = MakeSourceSettings();
    settings->SetIntegerValue("MaxSamplesPerBuffer", maxFrames);
    auto source = MakeSource();
    source->SetInitConfig(settings);
    return source;
}

// A sink without a file.
std::shared_ptr<IAudioSink> MakeConfiguredSink(const Target& target) {
    auto sink = MakeSink(target.type);
    sink->SetInitConfig(MakeSinkSettings());
    return sink;
}

std::wstring Wide(const std::string& path) {
    return ConvertPlatformStringToWideString(path);
}

// Copies one file; both elements are without one before and after.
void CopyFile(IAudioSource& source, const std::string& in, IAudioSink& sink,
              const std::string& out) {
    source.Open(Wide(in));
    sink.Open(Wide(out));
    sink.DefineInput(source.GetDefinedOutput(""), "");
    while (const auto container = source.GetSample()) {
        sink.PushSample(container);
    }
    sink.Close(false);
    source.Release();
}

void ExpectFloatFile(const std::string& path, int format, int channels, int rate,
                     const std::vector<float>& values) {
    const Audio decoded = ReadAudio(path);
    EXPECT_EQ(decoded.format, format);
    EXPECT_EQ(decoded.channels, channels);
    EXPECT_EQ(decoded.rate, rate);
    EXPECT_EQ(BitsOf(decoded.values), BitsOf(values));
}

class RoundTrip : public testing::TestWithParam<Target> {
protected:
    std::string In() const { return m_directory / "in"; }
    std::string Out() const { return m_directory / "out"; }

private:
    TemporaryDirectory m_directory;
};

TEST_P(RoundTrip, KeepsTheBitsOfEveryFloat) {
    for (const int channels : {1, 2, 6, 32}) {
        for (const int maxFrames : {1, 1000, 65536}) {
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(maxFrames) +
                         " frames a sample");
            const std::vector<float> values = MakeValues(static_cast<std::size_t>(channels) * 2500);
            WriteAudio(In(), SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, 48000, values);
            CopyFile(*MakeConfiguredSource(maxFrames), In(), *MakeConfiguredSink(GetParam()),
                     Out());
            ExpectFloatFile(Out(), GetParam().format, channels, 48000, values);
        }
    }
}

TEST_P(RoundTrip, TurnsIntegersIntoTheFloatsThatLibsndfileMakesOfThem) {
    const std::vector<int> integers{INT32_MIN, INT32_MIN + 256, -256, 0, 256, INT32_MAX};
    WriteAudio(In(), SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 2, 44100, integers);
    CopyFile(*MakeConfiguredSource(2), In(), *MakeConfiguredSink(GetParam()), Out());
    const std::vector<float> values{-1.0F, -8388607.0F / 8388608.0F, -1.0F / 8388608.0F,
                                    0.0F,  1.0F / 8388608.0F,        8388607.0F / 8388608.0F};
    ExpectFloatFile(Out(), GetParam().format, 2, 44100, values);
}

INSTANTIATE_TEST_SUITE_P(Into, RoundTrip, testing::Values(kWAVE, kBWAVE), NameOf);

// One file of a series.
struct File {
    const char* name;
    int channels;
    int hertz;
    std::size_t frames;
};

// Files of different shapes: each is described, buffered and written by its own.
constexpr std::array kSeries{
    File{"stereo", 2, 48000, 3000}, File{"mono", 1, 44100, 10},    File{"many", 32, 96000, 2500},
    File{"empty", 2, 8000, 0},      File{"last", 6, 192000, 1025},
};

class SeriesOfFiles : public RoundTrip {};

TEST_P(SeriesOfFiles, GoThroughTheSameTwoElements) {
    constexpr int kMaxFrames = 1024;
    const TemporaryDirectory directory;
    const auto source = MakeConfiguredSource(kMaxFrames);
    const auto sink = MakeConfiguredSink(GetParam());
    for (std::size_t i = 0; i < kSeries.size(); ++i) {
        const File& file = kSeries[i];
        SCOPED_TRACE(file.name);
        const std::string in = directory / (std::string(file.name) + ".in");
        const std::string out = directory / (std::string(file.name) + ".out");
        const std::vector<float> values = MakeValues(
            file.frames * static_cast<std::size_t>(file.channels), static_cast<std::uint32_t>(i));
        WriteAudio(in, SF_FORMAT_WAV | SF_FORMAT_FLOAT, file.channels, file.hertz, values);
        CopyFile(*source, in, *sink, out);
        EXPECT_FALSE(source->IsMediaOpen());
        ExpectFloatFile(out, GetParam().format, file.channels, file.hertz, values);
    }
}

INSTANTIATE_TEST_SUITE_P(Into, SeriesOfFiles, testing::Values(kWAVE, kBWAVE), NameOf);

} // namespace
} // namespace kel::test
