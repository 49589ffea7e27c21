// The files that a sink writes, judged by the public descriptions of their formats and by
// libsndfile reading them again.

#include "Combinations.h"

#include <TemporaryDirectory.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <gtest/gtest.h>
#include <memory>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::test {
namespace {

constexpr auto kEncoding = static_cast<std::int32_t>(CheckInputErrorType::Encoding);

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

std::uint32_t FromLittle(const std::string& bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes.at(i))) << (8 * i);
    }
    return value;
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
std::string PeakChunk(const Layout& layout, std::uint32_t time) {
    return RIFFChunk("PEAK", Little(1, 4) + Little(time, 4) +
                                 std::string(std::size_t{8} * layout.channels, '\0'));
}

std::string ExpectedWAVE(const Layout& layout, const std::string& bytes, std::uint32_t time) {
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

// How AIFF-C names a layout.
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
    // libsndfile counts the padding of odd sound data as sound data; nothing follows it, so that
    // readers who go by the number of frames do not mind.
    return IFFChunk("FORM", "AIFC" + IFFChunk("FVER", Big(0xA2805140, 4)) +
                                IFFChunk("COMM", common) +
                                IFFChunk("SSND", Big(0, 4) + Big(0, 4) + Padded(bytes)));
}

class LibsndfileSinkFile : public ::testing::TestWithParam<Combination> {
protected:
    TemporaryDirectory directory;
    std::string path = directory / "take";
};

// The time is that of the file's PEAK chunk, if it has one.
std::string Expected(const std::string& type, const Layout& layout, const std::string& bytes,
                     std::uint32_t time) {
    if (type == "WAVE") {
        return ExpectedWAVE(layout, bytes, time);
    }
    return type == "BWAVE" ? ExpectedRF64(layout, bytes) : ExpectedAIFF(layout, bytes);
}

TEST_P(LibsndfileSinkFile, IsExactlyWhatItsFormatDescribesAndTheBytesThatWerePushed) {
    const std::string& type = GetParam().type;
    for (const std::uint32_t channels : kChannelCounts) {
        for (const std::size_t frames : {0U, 1U, 3U, 500U}) {
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(frames) +
                         " frames");
            const Layout layout = WithChannels(GetParam().layout, channels);
            const std::string bytes = Encode(MakeValues(layout, frames * channels), layout);
            const auto before = static_cast<std::uint32_t>(std::time(nullptr));
            WriteThroughSink(path, type, layout, bytes);
            const auto after = static_cast<std::uint32_t>(std::time(nullptr));

            const std::string file = ReadFile(path);
            std::uint32_t time = 0;
            if (type == "WAVE" && layout.type == AudioPCMType::Float) {
                time = FromLittle(file.substr(84, 4));
                EXPECT_GE(time, before);
                EXPECT_LE(time, after);
            }
            EXPECT_EQ(file, Expected(type, layout, bytes, time));
        }
    }
}

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

// The format word that libsndfile finds in such a file.
int FormatWordOf(const Combination& combination) {
    const Layout& layout = combination.layout;
    const int encoding = layout.type == AudioPCMType::Integer ? layout.bits / 8
                         : layout.bits == 32                  ? 6
                                                              : 7;
    if (combination.type != "AIFF") {
        return (combination.type == "WAVE" ? 0x130000 : 0x220000) | encoding;
    }
    const bool little = layout.endianness == PCMEndianness::Little;
    return 0x020000 | encoding | (little ? 0x10000000 : 0x20000000);
}

TEST_P(LibsndfileSinkFile, IsReadAsTheSameAudioByLibsndfile) {
    for (const std::uint32_t channels : kChannelCounts) {
        SCOPED_TRACE(std::to_string(channels) + " channels");
        const Layout layout = WithChannels(GetParam().layout, channels);
        const std::vector<double> values = MakeValues(layout, std::size_t{501} * channels);
        const std::string bytes = Encode(values, layout);
        WriteThroughSink(path, GetParam().type, layout, bytes);

        SF_INFO info{};
        const std::unique_ptr<SNDFILE, SndfileCloser> file(sf_open(path.c_str(), SFM_READ, &info));
        ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
        EXPECT_EQ(info.format, FormatWordOf(GetParam()));
        EXPECT_EQ(info.frames, 501);
        EXPECT_EQ(info.channels, static_cast<int>(channels));
        EXPECT_EQ(info.samplerate, static_cast<int>(layout.rate));

        std::vector<double> read(values.size() + channels);
        ASSERT_EQ(sf_readf_double(file.get(), read.data(), 502), 501);
        read.resize(values.size());
        EXPECT_EQ(read, values);

        ASSERT_EQ(sf_seek(file.get(), 0, SEEK_SET), 0);
        std::string raw(bytes.size(), '\0');
        EXPECT_EQ(sf_read_raw(file.get(), raw.data(), static_cast<sf_count_t>(raw.size())),
                  static_cast<sf_count_t>(raw.size()));
        EXPECT_EQ(raw, bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkFile, ::testing::ValuesIn(WritableCombinations()),
                         NameOf);

class LibsndfileSinkCombination : public ::testing::TestWithParam<Combination> {};

TEST_P(LibsndfileSinkCombination, IsTakenOrRefusedAsTheFormatHasIt) {
    const TemporaryDirectory directory;
    const std::string path = directory / "take";
    const auto info = MakeInfo(GetParam().layout);
    const auto input = CreateInfoContainer(info, nullptr);
    const auto sink = MakeConfiguredSink(GetParam().type, path);
    const Line fromType{LogLevel::Info,
                        "Read the following WrapperFormat from type: " + GetParam().type};

    const auto report = sink->CheckInputAndAdaptIfNecessary(input, "");
    if (IsWritable(GetParam())) {
        EXPECT_EQ(report->GetErrorType(), 0);
        ExpectRecords({fromType}, [&] { sink->DefineInput(input, ""); });
        sink->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({"take"}));
    } else {
        EXPECT_EQ(report->GetErrorType(), kEncoding);
        ASSERT_EQ(report->GetAcceptedEncodings().size(), 1U);
        EXPECT_EQ(report->GetAcceptedEncodings().begin()->first, info->GetId());
        EXPECT_EQ(report->GetAcceptedEncodings().begin()->second.size(), 0U);
        ExpectRefusal(kInputRefused, [&] { sink->DefineInput(input, ""); }, {fromType});
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
        EXPECT_EQ(directory.Names(), std::vector<std::string>());
    }
}

INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkCombination, ::testing::ValuesIn(AllCombinations()),
                         NameOf);

TEST(LibsndfileSinkCombinations, AreThirtyOfWhichSixteenAreTaken) {
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

TEST(LibsndfileSinkCombinations, AreTakenWithUpTo1024Channels) {
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

TEST(LibsndfileSinkCombinations, AreNotTakenAtRatesThatLibsndfileCanNotCount) {
    for (const std::string type : {"WAVE", "BWAVE", "AIFF"}) {
        Layout layout;
        layout.rate = 0x80000000;
        EXPECT_EQ(MakeConfiguredSink(type)
                      ->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")
                      ->GetErrorType(),
                  kEncoding);
    }
}

} // namespace
} // namespace kel::test
