// Files that go from a source into a sink through the elements alone, and what libsndfile itself
// reads from the file that comes out.

#include "AudioFiles.h"

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

void ExpectFloatFile(const std::string& path, const SF_INFO& info,
                     const std::vector<float>& values) {
    const DecodedFile decoded = DecodeAudioFile(path);
    EXPECT_EQ(decoded.info.format, info.format);
    EXPECT_EQ(decoded.info.channels, info.channels);
    EXPECT_EQ(decoded.info.samplerate, info.samplerate);
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
            WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, 48000),
                           values);
            CopyFile(*MakeConfiguredSource(maxFrames), In(), *MakeConfiguredSink(GetParam()),
                     Out());
            ExpectFloatFile(Out(), MakeSfInfo(GetParam().format, channels, 48000), values);
        }
    }
}

TEST_P(RoundTrip, TurnsIntegersIntoTheFloatsThatLibsndfileMakesOfThem) {
    const std::vector<int> integers{INT32_MIN, INT32_MIN + 256, -256, 0, 256, INT32_MAX};
    WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 2, 44100), integers);
    CopyFile(*MakeConfiguredSource(2), In(), *MakeConfiguredSink(GetParam()), Out());
    const std::vector<float> values{-1.0F, -8388607.0F / 8388608.0F, -1.0F / 8388608.0F,
                                    0.0F,  1.0F / 8388608.0F,        8388607.0F / 8388608.0F};
    ExpectFloatFile(Out(), MakeSfInfo(GetParam().format, 2, 44100), values);
}

TEST_P(RoundTrip, OfAFileWithoutFramesIsAFileWithoutFrames) {
    WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000),
                   std::vector<float>());
    CopyFile(*MakeConfiguredSource(1024), In(), *MakeConfiguredSink(GetParam()), Out());
    ExpectFloatFile(Out(), MakeSfInfo(GetParam().format, 2, 48000), {});
}

TEST_P(RoundTrip, OfItsOwnOutputChangesNothing) {
    const std::vector<float> values = MakeValues(6000);
    WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 6, 96000), values);
    CopyFile(*MakeConfiguredSource(999), In(), *MakeConfiguredSink(GetParam()), Out());
    CopyFile(*MakeConfiguredSource(7), Out(), *MakeConfiguredSink(GetParam()), In());
    ExpectFloatFile(In(), MakeSfInfo(GetParam().format, 6, 96000), values);
}

TEST_P(RoundTrip, LogsNoWarningsAndNoErrors) {
    WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000), MakeValues(5000));
    const LogCapture log;
    CopyFile(*MakeConfiguredSource(1024), In(), *MakeConfiguredSink(GetParam()), Out());
    EXPECT_EQ(log->Messages(LogLevel::Warning), std::vector<std::string>());
    EXPECT_EQ(log->Messages(LogLevel::Error), std::vector<std::string>());
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
        WriteAudioFile(in, MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, file.channels, file.hertz),
                       values);
        CopyFile(*source, in, *sink, out);
        EXPECT_FALSE(source->IsMediaOpen());
        ExpectFloatFile(out, MakeSfInfo(GetParam().format, file.channels, file.hertz), values);
    }
}

TEST_P(SeriesOfFiles, GoThroughASinkThatIsReleasedInsteadOfClosed) {
    const auto sink = MakeConfiguredSink(GetParam());
    for (const std::uint32_t seed : {1U, 2U, 3U}) {
        SCOPED_TRACE(seed);
        const std::vector<float> values = MakeValues(2000, seed);
        WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000), values);
        const auto source = OpenSource(In());
        sink->Open(Wide(Out()));
        sink->DefineInput(source->GetDefinedOutput(""), "");
        while (const auto container = source->GetSample()) {
            sink->PushSample(container);
        }
        sink->Release();
        ExpectFloatFile(Out(), MakeSfInfo(GetParam().format, 2, 48000), values);
    }
}

// The stamps count what a source delivered, whatever it came from.
TEST_P(SeriesOfFiles, AreStampedOneAfterTheOther) {
    constexpr std::int64_t kFrames = 1500;
    const auto source = MakeConfiguredSource(1000);
    const auto sink = MakeConfiguredSink(GetParam());
    WriteAudioFile(In(), MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000),
                   MakeValues(kFrames));
    CopyFile(*source, In(), *sink, Out());

    source->Open(Wide(In()));
    EXPECT_EQ(source->GetTimeLimits("").start.GetTimeNumber(), 0);
    for (const std::int64_t offset : {0, 1000}) {
        const auto container = source->GetSample();
        ASSERT_NE(container, nullptr);
        EXPECT_EQ(container->GetAudioSamples(nullptr, nullptr)
                      .front()
                      ->GetTimeLimits()
                      .start.GetTimeNumber(),
                  kFrames + offset);
    }
}

// What lies in a sample that somebody still holds is not touched by the next file.
TEST_P(SeriesOfFiles, LeaveTheSamplesOfEarlierFilesAlone) {
    const std::vector<float> first = MakeValues(1024, 1);
    const SF_INFO info = MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000);
    WriteAudioFile(In(), info, first);
    const auto source = MakeConfiguredSource(1024);
    source->Open(Wide(In()));
    const auto held = source->GetSample();
    source->Release();

    WriteAudioFile(In(), info, MakeValues(1024, 2));
    source->Open(Wide(In()));
    ASSERT_NE(source->GetSample(), nullptr);

    const auto sink = MakeConfiguredSink(GetParam());
    sink->Open(Wide(Out()));
    sink->DefineInput(source->GetDefinedOutput(""), "");
    source->Release();
    sink->PushSample(held);
    sink->Close(false);
    ExpectFloatFile(Out(), MakeSfInfo(GetParam().format, 1, 48000), first);
}

INSTANTIATE_TEST_SUITE_P(Into, SeriesOfFiles, testing::Values(kWAVE, kBWAVE), NameOf);

} // namespace
} // namespace kel::test
