// Values on their way through a copy.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace kel::test {

namespace {

void WriteFloats(const std::string& path, int channels, const std::vector<float>& values) {
    WriteRawAudio(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, 48000, BytesOf(values));
}

// The bytes of the samples of a copy with noise.
std::string Dithered(const TemporaryDirectory& directory, const Arguments& options) {
    const Arguments arguments{"copy",       "take.wav", "copy.wav", "--force",
                              "--encoding", "int16",    "--dither", "tpdf"};
    EXPECT_EQ(RunKelhost(directory, arguments + options).status, 0);
    return ReadRawAudio(directory / "copy.wav", 2);
}

} // namespace

TEST(CopyIdentity, HoldsForEvery16BitValueThroughEveryEncoding) {
    std::vector<std::int16_t> values;
    for (int value = -32768; value <= 32767; ++value) {
        values.push_back(static_cast<std::int16_t>(value));
    }
    const std::string every = BytesOf(values);
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, every);
    for (const std::string encoding : {"int16", "int24", "int32", "float32", "float64"}) {
        SCOPED_TRACE(encoding);
        EXPECT_EQ(RunKelhost(directory,
                             {"copy", "take.wav", "way.wav", "--force", "--encoding", encoding})
                      .status,
                  0);
        EXPECT_EQ(RunKelhost(directory, {"copy", "way.wav", "back.wav", "--force", "--encoding",
                                         "int16", "--on-clip", "fail"})
                      .status,
                  0);
        EXPECT_TRUE(ReadRawAudio(directory / "back.wav", 2) == every);
    }
}

TEST(CopyFloats, AreKeptBitForBit) {
    // Signed zeros, denormals, infinities and NaNs of every kind, and every exponent.
    std::vector<std::uint32_t> bits{0x00000000, 0x80000000, 0x00000001, 0x807FFFFF, 0x7F800000,
                                    0xFF800000, 0x7FC12345, 0xFFFFFFFF, 0x7F800001, 0xFFA54321};
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent) {
        bits.push_back((exponent << 23U) | 0x80654321U);
    }
    for (const std::string output : {"copy.wav", "copy.rf64"}) {
        for (const Arguments& options : {Arguments{}, Arguments{"--channels", "1"}}) {
            SCOPED_TRACE(output + " " + testing::PrintToString(options));
            const TemporaryDirectory directory;
            WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000,
                          BytesOf(bits));
            EXPECT_EQ(
                RunKelhost(directory, Arguments{"copy", "take.wav", output, "--verify"} + options)
                    .status,
                0);
            EXPECT_TRUE(ReadRawAudio(directory / output, 4) == BytesOf(bits));
        }
    }
}

TEST(CopyOnClip, WarnsUnlessItIsToFail) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    struct Row {
        std::vector<float> frame;
        std::string report;
    };
    for (const Row& row :
         {Row{{0.5F, 1.0F}, "channel 2: 1 value clipped, the loudest 1 times full scale\n"},
          Row{{kNaN, 0.5F}, "channel 1: 1 value not finite\n"},
          Row{{0.5F, -kInfinity}, "channel 2: 1 value not finite\n"}}) {
        SCOPED_TRACE(row.report);
        const TemporaryDirectory directory;
        WriteFloats(directory / "take.wav", 2, row.frame);
        const Arguments copy{"copy", "take.wav", "copy.wav", "--force"};
        const std::string warning = "kelhost: warning: copy.wav: " + row.report;
        for (const Arguments& warn : {Arguments{}, Arguments{"--on-clip", "warn"}}) {
            ExpectResult(RunKelhost(directory, copy + Arguments{"--encoding", "int16"} + warn), 0,
                         CopyReport("take.wav", "copy.wav", "extensible WAVE, int16 little-endian",
                                    "1 frame, 0:00:00.000"),
                         warning);
        }
        ExpectResult(RunKelhost(directory, copy + Arguments{"--encoding", "int16", "--quiet"}), 0,
                     "", warning);
        WriteFile(directory / "copy.wav", "before");
        const Arguments fail{"--on-clip", "fail"};
        ExpectResult(RunKelhost(directory, copy + Arguments{"--encoding", "int16"} + fail), 1, "",
                     "kelhost: take.wav: has values beyond full scale, and --on-clip is fail; "
                     "--encoding float32 keeps them\n");
        EXPECT_EQ(ReadFile(directory / "copy.wav"), "before");
        EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
        for (const std::string encoding : {"float32", "float64"}) {
            EXPECT_EQ(RunKelhost(directory, copy + Arguments{"--encoding", encoding} + fail).status,
                      0);
        }
    }
}

TEST(CopyDither, IsReproducedByItsSeedAndOffUnlessItIsAskedFor) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 20000);
    const std::string seven = Dithered(directory, {"--seed", "7"});
    EXPECT_TRUE(Dithered(directory, {"--seed", "7", "--verify"}) == seven);
    EXPECT_FALSE(Dithered(directory, {"--seed", "18446744073709551615"}) == seven);
    EXPECT_TRUE(Dithered(directory, {}) == Dithered(directory, {"--seed", "1"}));
    EXPECT_FALSE(ReadRawAudio(directory / "take.wav", 2) == seven);
    EXPECT_EQ(
        RunKelhost(directory, {"copy", "take.wav", "plain.wav", "--encoding", "int16"}).status, 0);
    EXPECT_TRUE(ReadRawAudio(directory / "plain.wav", 2) ==
                ReadRawAudio(directory / "take.wav", 2));
}

TEST(CopyVerify, NoticesValuesThatTheDiskHasChanged) {
    struct Row {
        std::string output;
        std::string encoding;
        std::size_t width;
    };
    for (const Row& row : {Row{"copy.wav", "float32", 4}, Row{"copy.rf64", "float64", 8},
                           Row{"copy.wav", "int16", 2}, Row{"copy.aiff", "int24", 3},
                           Row{"copy.rf64", "int32", 4}}) {
        for (const bool verify : {true, false}) {
            SCOPED_TRACE(row.encoding + (verify ? " verified" : " not verified"));
            const TemporaryDirectory directory;
            const TemporaryDirectory marker;
            WriteTake(directory / "take.wav", 40001);
            const Arguments arguments{"copy", "take.wav", row.output, "--encoding", row.encoding};
            EXPECT_EQ(RunKelhost(directory, arguments).status, 0);
            const std::string right = ReadRawAudio(directory / row.output, row.width);

            Command command = Kelhost(directory, arguments + Arguments{"--force"});
            DisturbSystem(command);
            command.environment["KEL_TEST_FAULTY_CALL"] = "flip";
            command.environment["KEL_TEST_FAULTY_NUMBER"] = "3"; // the second sample
            command.environment["KEL_TEST_FAULT_MARKER"] = marker / "marker";
            if (verify) {
                command.arguments.emplace_back("--verify");
                ExpectResult(RunCommand(command), 1, "",
                             Error(row.output, "differs from the written samples when it is read "
                                               "back; do not trust this disk"));
            } else {
                EXPECT_EQ(RunCommand(command).status, 0);
            }
            EXPECT_EQ(ReadRawAudio(directory / row.output, row.width) == right, verify);
            EXPECT_EQ(SortedNames(directory), (Names{row.output, "take.wav"}));
            EXPECT_EQ(SortedNames(marker), Names{"marker"});
        }
    }
}

} // namespace kel::test
