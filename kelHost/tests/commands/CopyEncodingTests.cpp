// Every combination of container, encoding and byte order, as it is written or refused.

#include "AudioFiles.h"
#include "Program.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

namespace {

struct ContainerFacts {
    std::string name;
    std::string title;
    std::string extension;
    int format;
    std::string choices; // what is offered when something else is asked for
};

struct EncodingFacts {
    std::string name;
    std::size_t width;
    int format;
};

struct Combination {
    ContainerFacts container;
    EncodingFacts encoding;
    std::string byteOrder; // little or big
    bool accepted;
    std::string readers;
};

const std::vector<EncodingFacts>& Encodings() {
    static const std::vector<EncodingFacts> encodings{{"int16", 2, SF_FORMAT_PCM_16},
                                                      {"int24", 3, SF_FORMAT_PCM_24},
                                                      {"int32", 4, SF_FORMAT_PCM_32},
                                                      {"float32", 4, SF_FORMAT_FLOAT},
                                                      {"float64", 8, SF_FORMAT_DOUBLE}};
    return encodings;
}

const std::vector<ContainerFacts>& Containers() {
    const std::string little = "int16 little-endian, int24 little-endian, int32 little-endian, "
                               "float32 little-endian or float64 little-endian";
    static const std::vector<ContainerFacts> containers{
        {"wave", "extensible WAVE", ".wav", SF_FORMAT_WAVEX, little},
        {"bwave", "RF64", ".rf64", SF_FORMAT_RF64, little},
        {"aiff", "AIFF-C", ".aiff", SF_FORMAT_AIFF,
         "int16 little-endian, int16 big-endian, int24 little-endian, int24 big-endian, int32 "
         "little-endian or int32 big-endian"}};
    return containers;
}

bool IsInteger(const EncodingFacts& encoding) {
    return encoding.name.rfind("int", 0) == 0;
}

std::string ReadersOf(const ContainerFacts& container, const EncodingFacts& encoding,
                      const std::string& byteOrder) {
    if (container.name != "aiff" || encoding.name == "int16") {
        return "libsndfile, sox, ffmpeg";
    }
    return byteOrder == "big" ? "libsndfile, ffmpeg" : "libsndfile";
}

std::vector<Combination> Combinations() {
    std::vector<Combination> combinations;
    for (const ContainerFacts& container : Containers()) {
        for (const EncodingFacts& encoding : Encodings()) {
            for (const std::string byteOrder : {"little", "big"}) {
                const bool accepted =
                    container.name == "aiff" ? IsInteger(encoding) : byteOrder == "little";
                combinations.push_back({container, encoding, byteOrder, accepted,
                                        accepted ? ReadersOf(container, encoding, byteOrder) : ""});
            }
        }
    }
    return combinations;
}

// Values that need each of 16 bits, and both ends of the range.
std::vector<std::int16_t> Values() {
    std::vector<std::int16_t> values{-32768, 32767, 0, -1, 1, 0x1234, -0x1234, 0x00FF};
    for (int i = 0; i < 32768; i += 101) {
        values.push_back(static_cast<std::int16_t>(i));
        values.push_back(static_cast<std::int16_t>(-i));
    }
    return values;
}

// Encodes values without the host.
std::string Encode(const std::vector<std::int16_t>& values, const EncodingFacts& encoding,
                   const std::string& byteOrder) {
    std::string bytes;
    for (const std::int16_t value : values) {
        std::string one(encoding.width, '\0');
        if (encoding.name == "float32") {
            const float number = static_cast<float>(value) / 32768.0F;
            std::memcpy(one.data(), &number, sizeof number);
        } else if (encoding.name == "float64") {
            const double number = static_cast<double>(value) / 32768.0;
            std::memcpy(one.data(), &number, sizeof number);
        } else {
            // The lower bytes are 0.
            std::memcpy(one.data() + encoding.width - sizeof value, &value, sizeof value);
        }
        if (byteOrder == "big") {
            std::reverse(one.begin(), one.end());
        }
        bytes += one;
    }
    return bytes;
}

void PrintTo(const Combination& combination, std::ostream* stream) {
    *stream << combination.container.name << " " << combination.encoding.name << " "
            << combination.byteOrder;
}

std::string NameOf(const testing::TestParamInfo<Combination>& info) {
    return info.param.container.name + info.param.encoding.name + info.param.byteOrder;
}

std::string Refusal(const Combination& combination) {
    return "kelhost: " + combination.container.title + " does not support " +
           combination.encoding.name + " " + combination.byteOrder + "-endian; use " +
           combination.container.choices + "\n";
}

class CopyEncoding : public testing::TestWithParam<Combination> {};

} // namespace

TEST_P(CopyEncoding, IsWrittenExactlyAndVerifiedOrRefusedWithTheChoices) {
    const Combination& combination = GetParam();
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000,
                  BytesOf(Values()));
    const std::string output = "copy" + combination.container.extension;
    Arguments arguments{"copy",     "take.wav",   output,
                        "--verify", "--encoding", combination.encoding.name};
    // The byte order of the container is the default.
    if ((combination.byteOrder == "big") != (combination.container.name == "aiff")) {
        arguments = arguments + Arguments{"--byte-order", combination.byteOrder};
    }
    if (!combination.accepted) {
        ExpectResult(RunKelhost(directory, arguments), 2, "", Refusal(combination));
        EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
        return;
    }
    ExpectResult(RunKelhost(directory, arguments), 0,
                 CopyReport("take.wav", output,
                            combination.container.title + ", " + combination.encoding.name + " " +
                                combination.byteOrder + "-endian",
                            "329 frames, 0:00:00.007, verified"),
                 "");
    const Audio audio = ReadAudio(directory / output);
    EXPECT_EQ(audio.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK),
              combination.container.format | combination.encoding.format);
    EXPECT_EQ(audio.channels, 2);
    EXPECT_EQ(audio.rate, 48000);
    EXPECT_TRUE(ReadRawAudio(directory / output, combination.encoding.width) ==
                Encode(Values(), combination.encoding, combination.byteOrder));
    EXPECT_EQ(SortedNames(directory), (Names{output, "take.wav"}));
}

INSTANTIATE_TEST_SUITE_P(Combinations, CopyEncoding, testing::ValuesIn(Combinations()), NameOf);

TEST(CopyByteOrder, NeedsNoEncoding) {
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000,
                  BytesOf(Values()));
    EXPECT_EQ(
        RunKelhost(directory, {"copy", "take.wav", "copy.aiff", "--byte-order", "little"}).status,
        0);
    EXPECT_TRUE(ReadRawAudio(directory / "copy.aiff", 2) ==
                Encode(Values(), {"int16", 2, SF_FORMAT_PCM_16}, "little"));
}

TEST(Formats, AreListedAsTheyAreWritten) {
    auto expected = nlohmann::json::array();
    for (const Combination& combination : Combinations()) {
        expected.push_back({combination.container.name, combination.encoding.name,
                            combination.byteOrder + "-endian", combination.accepted,
                            combination.readers});
    }
    const TemporaryDirectory directory;
    const auto formats =
        nlohmann::json::parse(RunKelhost(directory, {"formats", "--json"}).out).at("formats");
    auto listed = nlohmann::json::array();
    for (const nlohmann::json& format : formats) {
        listed.push_back({format.at("format"), format.at("encoding"), format.at("byte_order"),
                          format.at("written"), format.at("readers")});
    }
    EXPECT_EQ(listed, expected);
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(Formats, AreAMatrix) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"formats"}), 0,
                 "Byte orders of the encodings in each format, the default in front:\n"
                 "\n"
                 "Format  int16        int24        int32        float32  float64\n"
                 "wave    little       little       little       little   little\n"
                 "bwave   little       little       little       little   little\n"
                 "aiff    big, little  big, little  big, little  -        -\n"
                 "\n"
                 "Format  Container        Extensions\n"
                 "wave    extensible WAVE  .wav, .wave\n"
                 "bwave   RF64             .rf64, .bwav, .bwave, .bwf\n"
                 "aiff    AIFF-C           .aiff, .aif, .aifc\n"
                 "\n"
                 "Format  Byte order  Encodings     Read by\n"
                 "wave    little      all           libsndfile, sox, ffmpeg\n"
                 "bwave   little      all           libsndfile, sox, ffmpeg\n"
                 "aiff    little      int16         libsndfile, sox, ffmpeg\n"
                 "aiff    big         int16         libsndfile, sox, ffmpeg\n"
                 "aiff    little      int24, int32  libsndfile\n"
                 "aiff    big         int24, int32  libsndfile, ffmpeg\n",
                 "");
}

} // namespace kel::test
