// The files that a sink writes: byte by byte, and as libsndfile and other audio tools read them.

#include "SinkTestSupport.h"

#include <AudioFiles.h>
#include <Process.h>
#include <TemporaryDirectory.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::test {
namespace {

constexpr auto kEncoding = static_cast<std::int32_t>(CheckInputErrorType::Encoding);

// A container with a PCM layout.
struct Combination {
    std::string name;
    std::string type; //< the container, as manifests name it
    Layout layout;
};

// The form in test listings.
void PrintTo(const Combination& combination, std::ostream* stream) {
    *stream << combination.name;
}

std::string NameOf(const ::testing::TestParamInfo<Combination>& info) {
    return info.param.name;
}

// The five encodings in one container and byte order.
std::vector<Combination> EncodingsIn(const std::string& type, PCMEndianness endianness) {
    const struct {
        std::string name;
        AudioPCMType pcmType;
        int bits;
    } encodings[] = {{"Integer16", AudioPCMType::Integer, 16},
                     {"Integer24", AudioPCMType::Integer, 24},
                     {"Integer32", AudioPCMType::Integer, 32},
                     {"Float32", AudioPCMType::Float, 32},
                     {"Float64", AudioPCMType::Float, 64}};
    std::vector<Combination> combinations;
    for (const auto& encoding : encodings) {
        Layout layout;
        layout.type = encoding.pcmType;
        layout.bits = static_cast<std::uint8_t>(encoding.bits);
        layout.bytes = static_cast<std::uint8_t>(encoding.bits / 8);
        layout.endianness = endianness;
        combinations.push_back(
            {type + encoding.name + (endianness == PCMEndianness::Little ? "Little" : "Big"), type,
             layout});
    }
    return combinations;
}

// All thirty.
std::vector<Combination> AllCombinations() {
    std::vector<Combination> all;
    for (const std::string type : {"WAVE", "BWAVE", "AIFF"}) {
        for (const auto endianness : {PCMEndianness::Little, PCMEndianness::Big}) {
            for (const Combination& combination : EncodingsIn(type, endianness)) {
                all.push_back(combination);
            }
        }
    }
    return all;
}

// True if the container supports such samples: WAVE has little-endian ones, AIFF integers.
bool IsWritable(const Combination& combination) {
    return combination.type == "AIFF" ? combination.layout.type == AudioPCMType::Integer
                                      : combination.layout.endianness == PCMEndianness::Little;
}

// Those that can be written.
std::vector<Combination> WritableCombinations() {
    std::vector<Combination> writable;
    for (const Combination& combination : AllCombinations()) {
        if (IsWritable(combination)) {
            writable.push_back(combination);
        }
    }
    return writable;
}

// The numbers of channels that files are written with. The rate is another one for each.
const std::vector<std::uint32_t> kChannelCounts{1, 2, 6};

Layout WithChannels(Layout layout, std::uint32_t channels) {
    layout.channels = channels;
    layout.rate = channels == 1 ? 44100 : channels == 2 ? 48000 : 96000;
    return layout;
}

// Sample values from -1 to just below 1 that the layout holds exactly: integers of its depth, and
// for floating point values that 16-bit integers hold as well.
std::vector<double> MakeValues(const Layout& layout, std::size_t count) {
    const int bits = layout.type == AudioPCMType::Integer ? layout.bits : 16;
    std::vector<double> values;
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525U + 1013904223U;
        const auto integer = static_cast<std::int64_t>(state >> (32 - bits));
        values.push_back(std::ldexp(static_cast<double>(integer), 1 - bits) - 1.0);
    }
    return values;
}

// The bytes of sample values in a layout.
std::string Encode(const std::vector<double>& values, const Layout& layout) {
    std::string bytes;
    for (const double value : values) {
        std::uint64_t word = 0;
        if (layout.type == AudioPCMType::Integer) {
            word = static_cast<std::uint64_t>(std::llround(std::ldexp(value, layout.bits - 1)));
        } else if (layout.bits == 32) {
            const auto single = static_cast<float>(value);
            std::uint32_t half = 0;
            std::memcpy(&half, &single, sizeof half);
            word = half;
        } else {
            std::memcpy(&word, &value, sizeof word);
        }
        for (int i = 0; i < layout.bytes; ++i) {
            const int index = layout.endianness == PCMEndianness::Little ? i : layout.bytes - 1 - i;
            bytes.push_back(static_cast<char>(word >> (8 * index)));
        }
    }
    return bytes;
}

// Writes a file of these bytes through a sink, in several samples of whole frames.
void WriteThroughSink(const std::string& path, const std::string& type, const Layout& layout,
                      const std::string& bytes) {
    const auto sink = MakeWritingSink(path, layout, type);
    const std::size_t frame = std::size_t{layout.bytes} * layout.channels;
    std::size_t frames = 1;
    for (std::size_t at = 0; at < bytes.size(); ++frames) {
        const std::string part = bytes.substr(at, frames * frame);
        ExpectRecords({}, [&] { sink->PushSample(MakeContainer(part)); });
        at += part.size();
    }
    sink->Close(false);
}

std::string Little(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) {
        text.push_back(static_cast<char>(value >> (8 * i)));
    }
    return text;
}

std::string Big(std::uint64_t value, int bytes) {
    const std::string little = Little(value, bytes);
    return {little.rbegin(), little.rend()};
}

std::string Padded(const std::string& bytes) {
    return bytes.size() % 2 == 0 ? bytes : bytes + '\0';
}

std::string RIFFChunk(const std::string& id, const std::string& content) {
    return id + Little(content.size(), 4) + Padded(content);
}

std::string IFFChunk(const std::string& id, const std::string& content) {
    return id + Big(content.size(), 4) + Padded(content);
}

std::size_t FrameSize(const Layout& layout) {
    return std::size_t{layout.bytes} * layout.channels;
}

// Front centre; front left and right; those with low frequency and the back.
std::uint32_t SpeakersOf(std::uint32_t channels) {
    return channels == 1 ? 0x4 : channels == 2 ? 0x3 : 0x3F;
}

// WAVEFORMATEXTENSIBLE
std::string FormatChunk(const Layout& layout) {
    const std::size_t frame = FrameSize(layout);
    const int subformat = layout.type == AudioPCMType::Integer ? 1 : 3;
    return RIFFChunk("fmt ", Little(0xFFFE, 2) + Little(layout.channels, 2) +
                                 Little(layout.rate, 4) + Little(layout.rate * frame, 4) +
                                 Little(frame, 2) + Little(layout.bits, 2) + Little(22, 2) +
                                 Little(layout.bits, 2) + Little(SpeakersOf(layout.channels), 4) +
                                 Little(static_cast<std::uint64_t>(subformat), 4) + Little(0, 2) +
                                 Little(0x10, 2) + std::string("\x80\0\0\xAA\0\x38\x9B\x71", 8));
}

// Peaks of raw writes are not looked for: value and position are 0 for each channel.
std::string PeakChunk(const Layout& layout, const std::string& time) {
    return RIFFChunk("PEAK",
                     Little(1, 4) + time + std::string(std::size_t{8} * layout.channels, '\0'));
}

std::string ExpectedWAVE(const Layout& layout, const std::string& bytes, const std::string& time) {
    const std::string content =
        "WAVE" + FormatChunk(layout) +
        RIFFChunk("fact", Little(bytes.size() / FrameSize(layout), 4)) +
        (layout.type == AudioPCMType::Float ? PeakChunk(layout, time) : "") +
        RIFFChunk("data", bytes);
    return RIFFChunk("RIFF", content);
}

std::string ExpectedRF64(const Layout& layout, const std::string& bytes) {
    const std::string behindSizes =
        FormatChunk(layout) + "data" + Little(0xFFFFFFFF, 4) + Padded(bytes);
    const std::size_t ds64Size = 8 + 28;
    const std::string sizes = Little(4 + ds64Size + behindSizes.size(), 8) +
                              Little(bytes.size(), 8) +
                              Little(bytes.size() / FrameSize(layout), 8) + Little(0, 4);
    return "RF64" + Little(0xFFFFFFFF, 4) + "WAVE" + RIFFChunk("ds64", sizes) + behindSizes;
}

// An 80-bit floating-point number, big-endian.
std::string Extended(std::uint32_t value) {
    int exponent = 16383 + 31;
    std::uint64_t mantissa = value;
    while ((mantissa & 0x80000000) == 0) {
        mantissa <<= 1;
        --exponent;
    }
    return Big(static_cast<std::uint64_t>(exponent), 2) + Big(mantissa << 32, 8);
}

// The name of a layout in AIFF-C.
std::string CompressionOf(const Layout& layout) {
    const bool little = layout.endianness == PCMEndianness::Little;
    switch (layout.bits) {
    case 16:
        return little ? "sowt" : "twos";
    case 24:
        return little ? "42n1" : "in24";
    default:
        return little ? "23ni" : "in32";
    }
}

std::string ExpectedAIFF(const Layout& layout, const std::string& bytes) {
    const std::string common = Big(layout.channels, 2) + Big(bytes.size() / FrameSize(layout), 4) +
                               Big(layout.bits, 2) + Extended(layout.rate) + CompressionOf(layout) +
                               std::string(2, '\0'); // the empty name of the compression
    // libsndfile counts the padding of odd sound data as sound data. Nothing follows it, so readers
    // that use the number of frames are not affected.
    return IFFChunk("FORM", "AIFC" + IFFChunk("FVER", Big(0xA2805140, 4)) +
                                IFFChunk("COMM", common) +
                                IFFChunk("SSND", Big(0, 4) + Big(0, 4) + Padded(bytes)));
}

class LibsndfileSinkFile : public ::testing::TestWithParam<Combination> {
protected:
    TemporaryDirectory directory;
    std::string path = directory / "take";
};

std::string Expected(const std::string& type, const Layout& layout, const std::string& bytes) {
    if (type == "WAVE") {
        return ExpectedWAVE(layout, bytes, "time"); // see WithoutTime
    }
    return type == "BWAVE" ? ExpectedRF64(layout, bytes) : ExpectedAIFF(layout, bytes);
}

TEST_P(LibsndfileSinkFile, IsExactlyWhatItsFormatDescribesAndTheBytesThatWerePushed) {
    const std::string& type = GetParam().type;
    for (const std::uint32_t channels : kChannelCounts) {
        for (const std::size_t frames : {0U, 3U}) {
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(frames) +
                         " frames");
            const Layout layout = WithChannels(GetParam().layout, channels);
            const std::string bytes = Encode(MakeValues(layout, frames * channels), layout);
            WriteThroughSink(path, type, layout, bytes);
            EXPECT_EQ(WithoutTime(ReadFile(path)), Expected(type, layout, bytes));
        }
    }
}

TEST_P(LibsndfileSinkFile, IsReadAsTheSameAudioByLibsndfile) {
    for (const std::uint32_t channels : kChannelCounts) {
        SCOPED_TRACE(std::to_string(channels) + " channels");
        const Layout layout = WithChannels(GetParam().layout, channels);
        const std::vector<double> values = MakeValues(layout, std::size_t{501} * channels);
        WriteThroughSink(path, GetParam().type, layout, Encode(values, layout));

        SF_INFO info{};
        const SndfileHandle file = OpenAudio(path, SFM_READ, info);
        EXPECT_EQ(info.frames, 501);
        EXPECT_EQ(info.channels, static_cast<int>(channels));
        EXPECT_EQ(info.samplerate, static_cast<int>(layout.rate));
        std::vector<double> read(values.size());
        EXPECT_EQ(sf_readf_double(file.get(), read.data(), info.frames), 501);
        EXPECT_EQ(read, values);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkFile, ::testing::ValuesIn(WritableCombinations()),
                         NameOf);

TEST(LibsndfileSinkCombinations, AreThirtyOfWhichSixteenAreAccepted) {
    std::vector<std::string> taken;
    for (const Combination& combination : AllCombinations()) {
        const auto report = MakeConfiguredSink(combination.type)
                                ->CheckInputAndAdaptIfNecessary(MakeInput(combination.layout), "");
        if (report->GetErrorType() == 0) {
            taken.push_back(combination.name);
        }
    }
    EXPECT_EQ(AllCombinations().size(), 30U);
    EXPECT_EQ(taken, std::vector<std::string>({
                         "WAVEInteger16Little",
                         "WAVEInteger24Little",
                         "WAVEInteger32Little",
                         "WAVEFloat32Little",
                         "WAVEFloat64Little",
                         "BWAVEInteger16Little",
                         "BWAVEInteger24Little",
                         "BWAVEInteger32Little",
                         "BWAVEFloat32Little",
                         "BWAVEFloat64Little",
                         "AIFFInteger16Little",
                         "AIFFInteger24Little",
                         "AIFFInteger32Little",
                         "AIFFInteger16Big",
                         "AIFFInteger24Big",
                         "AIFFInteger32Big",
                     }));
}

TEST(LibsndfileSinkCombinations, AreAcceptedWithUpTo1024Channels) {
    for (const std::string type : {"WAVE", "BWAVE", "AIFF"}) {
        const TemporaryDirectory directory;
        Layout layout;
        layout.channels = 1024;
        const auto sink = MakeConfiguredSink(type, directory / "take");
        sink->DefineInput(MakeInput(layout), "");
        sink->Close(false);
        EXPECT_EQ(directory.Names().size(), 1U);

        for (const std::uint32_t channels : {1025U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
            const TemporaryDirectory empty;
            layout.channels = channels;
            const auto refusing = MakeConfiguredSink(type, empty / "take");
            EXPECT_EQ(
                refusing->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")->GetErrorType(),
                kEncoding);
            EXPECT_THROW(refusing->DefineInput(MakeInput(layout), ""), KELRuntimeError);
            EXPECT_EQ(empty.Names().size(), 0U);
        }
    }
}

// Other audio tools

// Only the samples, without dither, in the layout that was written. Warnings are suppressed,
// because sox expects a part of the header that the extensible form does not have.
Command SoxCommand(const std::string& path, const Layout& layout) {
    Command command;
    command.program = KEL_TEST_SOX;
    command.arguments = {
        "-V1", "-D",
        path,  "-t",
        "raw", layout.endianness == PCMEndianness::Little ? "-L" : "-B",
        "-e",  layout.type == AudioPCMType::Integer ? "signed-integer" : "floating-point",
        "-b",  std::to_string(layout.bits),
        "-"};
    return command;
}

Command FFmpegCommand(const std::string& path, const Layout& layout) {
    const std::string format = (layout.type == AudioPCMType::Integer ? "s" : "f") +
                               std::to_string(layout.bits) +
                               (layout.endianness == PCMEndianness::Little ? "le" : "be");
    Command command;
    command.program = KEL_TEST_FFMPEG;
    command.arguments = {"-v", "error", "-nostdin", "-i", path, "-f", format, "-"};
    return command;
}

template <typename MakeCommand>
void ExpectSameAudio(const Combination& combination, MakeCommand makeCommand) {
    constexpr std::uint32_t kChannels = 6;
    const TemporaryDirectory directory;
    const std::string path = directory / (combination.type == "AIFF" ? "take.aiff" : "take.wav");
    const Layout layout = WithChannels(combination.layout, kChannels);
    const std::string bytes = Encode(MakeValues(layout, std::size_t{2000} * kChannels), layout);
    WriteThroughSink(path, combination.type, layout, bytes);
    const ProcessResult result = RunCommand(makeCommand(path, layout));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, bytes);
}

std::vector<Combination> Writable(bool (*isSupported)(const Combination&)) {
    std::vector<Combination> combinations;
    for (const Combination& combination : WritableCombinations()) {
        if (combination.type != "AIFF" || isSupported(combination)) {
            combinations.push_back(combination);
        }
    }
    return combinations;
}

class LibsndfileSinkFileInSox : public ::testing::TestWithParam<Combination> {};

TEST_P(LibsndfileSinkFileInSox, IsTheSameAudio) {
    ExpectSameAudio(GetParam(), SoxCommand);
}

// Of AIFF-C, sox knows the forms with 16 bits.
INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkFileInSox,
                         ::testing::ValuesIn(Writable([](const Combination& aiff) {
                             return aiff.layout.bits == 16;
                         })),
                         NameOf);

class LibsndfileSinkFileInFFmpeg : public ::testing::TestWithParam<Combination> {};

TEST_P(LibsndfileSinkFileInFFmpeg, IsTheSameAudio) {
    ExpectSameAudio(GetParam(), FFmpegCommand);
}

// Of AIFF-C, ffmpeg knows the forms with 16 bits and the others in big-endian order.
INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkFileInFFmpeg,
                         ::testing::ValuesIn(Writable([](const Combination& aiff) {
                             return aiff.layout.bits == 16 ||
                                    aiff.layout.endianness == PCMEndianness::Big;
                         })),
                         NameOf);

} // namespace
} // namespace kel::test
