// What becomes of the values themselves on their way through a copy.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace kel::test {

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Every value that 16 bits can hold.
std::string Every16BitValue() {
    std::vector<std::int16_t> values;
    for (int value = -32768; value <= 32767; ++value) {
        values.push_back(static_cast<std::int16_t>(value));
    }
    return BytesOf(values);
}

// Every value that 24 bits can hold.
std::string Every24BitValue() {
    std::string bytes;
    bytes.reserve(std::size_t{3} << 24U);
    for (std::uint32_t value = 0; value < (1U << 24U); ++value) {
        bytes.push_back(static_cast<char>(value));
        bytes.push_back(static_cast<char>(value >> 8U));
        bytes.push_back(static_cast<char>(value >> 16U));
    }
    return bytes;
}

// Reverses the bytes of each value.
std::string Swapped(std::string bytes, std::size_t width) {
    for (std::size_t start = 0; start < bytes.size(); start += width) {
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(start);
        std::reverse(first, first + static_cast<std::ptrdiff_t>(width));
    }
    return bytes;
}

// Floats that a careless copy would change: signed zeros, denormals, infinities, NaNs that are
// quiet, signalling, negative and carry a payload, and a value of every exponent.
std::vector<std::uint32_t> FloatBits() {
    std::vector<std::uint32_t> bits{0x00000000, 0x80000000, 0x00000001, 0x80000001, 0x007FFFFF,
                                    0x807FFFFF, 0x00800000, 0x3F800000, 0xBF800000, 0x3F7FFFFF,
                                    0x7F7FFFFF, 0xFF7FFFFF, 0x7F800000, 0xFF800000, 0x7FC00000,
                                    0xFFC00000, 0x7FC12345, 0xFFFFFFFF, 0x7F800001, 0xFFA54321};
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent) {
        bits.push_back((exponent << 23U) | 0x00234567U);
        bits.push_back((exponent << 23U) | 0x80654321U);
    }
    return bits;
}

// The same floats as 64-bit ones. A signalling NaN becomes a quiet one, as whenever a float is
// widened; the rest of it stays.
std::vector<std::uint64_t> WidenedBits() {
    std::vector<std::uint64_t> wide;
    for (const std::uint32_t bits : FloatBits()) {
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        std::uint64_t result = 0;
        if (std::isnan(value)) {
            result = (std::uint64_t{bits >> 31U} << 63U) | 0x7FF8000000000000U |
                     (std::uint64_t{bits & 0x007FFFFFU} << 29U);
        } else {
            const auto number = static_cast<double>(value);
            std::memcpy(&result, &number, sizeof result);
        }
        wide.push_back(result);
    }
    return wide;
}

void WriteFloats(const std::string& path, int channels, const std::vector<float>& values) {
    WriteRawAudio(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, 48000, BytesOf(values));
}

std::vector<std::int16_t> Read16Bit(const std::string& path) {
    const std::string bytes = ReadRawAudio(path, 2);
    std::vector<std::int16_t> values(bytes.size() / 2);
    std::memcpy(values.data(), bytes.data(), bytes.size());
    return values;
}

// The bytes of the samples of a copy with noise.
std::string Dithered(const TemporaryDirectory& directory, const std::vector<std::string>& options) {
    std::vector<std::string> arguments{"copy",       "take.wav", "copy.wav", "--force",
                                       "--encoding", "int16",    "--dither", "tpdf"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProcessResult result = RunKelhost(directory, arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return ReadRawAudio(directory / "copy.wav", 2);
}

} // namespace

TEST(CopyIdentity, HoldsForEvery16BitValue) {
    struct Row {
        std::vector<std::string> arguments;
        bool isSwapped;
    };
    const std::string every = Every16BitValue();
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000, every);
    for (const Row& row : {Row{{"copy.wav"}, false}, Row{{"copy.rf64"}, false},
                           Row{{"copy.aiff", "--byte-order", "little"}, false},
                           Row{{"copy.aiff", "--byte-order", "big"}, true}}) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        std::vector<std::string> arguments{"copy",      "take.wav", "--encoding", "int16",
                                           "--on-clip", "fail",     "--force"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        EXPECT_EQ(RunKelhost(directory, arguments).status, 0);
        EXPECT_TRUE(ReadRawAudio(directory / row.arguments[0], 2) ==
                    (row.isSwapped ? Swapped(every, 2) : every));
    }
}

TEST(CopyIdentity, HoldsForEvery24BitValue) {
    const std::string every = Every24BitValue();
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 48000, every);
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", "copy.rf64", "--encoding", "int24",
                                     "--on-clip", "fail"})
                  .status,
              0);
    EXPECT_TRUE(ReadRawAudio(directory / "copy.rf64", 3) == every);
}

TEST(CopyIdentity, HoldsThroughFloatsAndBack) {
    const std::string every = Every16BitValue();
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, every);
    for (const std::string encoding : {"int24", "int32", "float32", "float64"}) {
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
    const std::string floats = BytesOf(FloatBits());
    for (const std::string output : {"copy.wav", "copy.rf64"}) {
        for (const std::vector<std::string>& options :
             {std::vector<std::string>{}, std::vector<std::string>{"--channels", "1"},
              std::vector<std::string>{"--block", "7"}}) {
            SCOPED_TRACE(output + " " + testing::PrintToString(options));
            const TemporaryDirectory directory;
            WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000,
                          floats);
            std::vector<std::string> arguments{"copy", "take.wav", output, "--verify"};
            arguments.insert(arguments.end(), options.begin(), options.end());
            const ProcessResult result = RunKelhost(directory, arguments);
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(result.err, "");
            EXPECT_TRUE(ReadRawAudio(directory / output, 4) == floats);
        }
    }
}

TEST(CopyFloats, AreWidenedExactly) {
    for (const std::string output : {"copy.wav", "copy.rf64"}) {
        const TemporaryDirectory directory;
        WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000,
                      BytesOf(FloatBits()));
        const ProcessResult result = RunKelhost(
            directory, {"copy", "take.wav", output, "--encoding", "float64", "--verify"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(ReadRawAudio(directory / output, 8) == BytesOf(WidenedBits()));
    }
}

TEST(CopyRounding, GoesToTheNearestAndToTheEvenOneOfTwo) {
    std::vector<float> values;
    std::vector<std::int16_t> expected;
    for (int value = -32768; value < 32767; value += 17) {
        const auto add = [&](float fraction, int integer) {
            values.push_back((static_cast<float>(value) + fraction) / 32768.0F);
            expected.push_back(static_cast<std::int16_t>(integer));
        };
        add(0.0F, value);
        add(0.25F, value);
        add(0.5F, value % 2 == 0 ? value : value + 1);
        add(0.75F, value + 1);
    }
    const TemporaryDirectory directory;
    WriteFloats(directory / "take.wav", 1, values);
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--encoding", "int16",
                                     "--on-clip", "fail"})
                  .status,
              0);
    EXPECT_EQ(Read16Bit(directory / "copy.wav"), expected);
}

TEST(CopyOnClip, WarnsUnlessItIsToFail) {
    struct Row {
        std::vector<float> frame;
        std::string report;
    };
    for (const Row& row :
         {Row{{0.5F, 1.0F}, "channel 2: 1 values clipped, the loudest 1 times full scale\n"},
          Row{{-2.5F, 0.5F}, "channel 1: 1 values clipped, the loudest 2.5 times full scale\n"},
          Row{{kNaN, 0.5F}, "channel 1: 1 values were no finite numbers\n"},
          Row{{0.5F, kInfinity}, "channel 2: 1 values were no finite numbers\n"},
          Row{{0.5F, -kInfinity}, "channel 2: 1 values were no finite numbers\n"}}) {
        SCOPED_TRACE(row.report);
        const TemporaryDirectory directory;
        WriteFloats(directory / "take.wav", 2, row.frame);
        for (const std::vector<std::string>& warn :
             {std::vector<std::string>{}, std::vector<std::string>{"--on-clip", "warn"}}) {
            std::vector<std::string> arguments{"copy",    "take.wav",   "copy.wav",
                                               "--force", "--encoding", "int16"};
            arguments.insert(arguments.end(), warn.begin(), warn.end());
            ExpectResult(RunKelhost(directory, arguments), 0,
                         "take.wav -> copy.wav: extensible WAVE, int16 little-endian, 2 channels, "
                         "48000 Hz, 1 frames, 0:00:00.000\n" +
                             row.report,
                         "");
        }
        WriteFile(directory / "copy.wav", "before");
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--force", "--encoding",
                                            "int16", "--on-clip", "fail"}),
                     1, "",
                     "kelhost: take.wav: has values beyond full scale, and --on-clip fail was "
                     "given; --encoding float32 keeps them\n");
        EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
        EXPECT_EQ(Content(directory / "copy.wav"), "before");
    }
}

TEST(CopyOnClip, HasNothingToDoWhereFloatsAreKept) {
    const TemporaryDirectory directory;
    WriteFloats(directory / "take.wav", 1, {2.5F, kNaN, -kInfinity});
    for (const std::string encoding : {"float32", "float64"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--force", "--encoding",
                                            encoding, "--on-clip", "fail"}),
                     0,
                     "take.wav -> copy.wav: extensible WAVE, " + encoding +
                         " little-endian, 1 channel, 48000 Hz, 3 frames, 0:00:00.000\n",
                     "");
    }
}

TEST(CopyOnClip, MustBeWarnOrFail) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const std::string action : {"ignore", "WARN"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--on-clip", action}),
                     2, "",
                     "--on-clip: " + action +
                         " not in {warn,fail}\nRun with --help for more "
                         "information.\n");
    }
}

TEST(CopyDither, IsReproducedByItsSeedWhateverTheBlocks) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 20000);
    const std::string seven = Dithered(directory, {"--seed", "7"});
    EXPECT_TRUE(Dithered(directory, {"--seed", "7"}) == seven);
    EXPECT_TRUE(Dithered(directory, {"--seed", "7", "--block", "1"}) == seven);
    EXPECT_TRUE(Dithered(directory, {"--seed", "7", "--block", "65536"}) == seven);
    EXPECT_FALSE(Dithered(directory, {"--seed", "8"}) == seven);
    EXPECT_FALSE(Dithered(directory, {"--seed", "18446744073709551615"}) == seven);
    EXPECT_TRUE(Dithered(directory, {}) == Dithered(directory, {"--seed", "1"}));
    EXPECT_TRUE(Dithered(directory, {"--seed", "7", "--verify"}) == seven);
    EXPECT_FALSE(ReadRawAudio(directory / "take.wav", 2) == seven);
}

TEST(CopyDither, IsHeardInSilence) {
    const TemporaryDirectory directory;
    constexpr std::size_t kFrames = 100000;
    WriteFloats(directory / "take.wav", 1, std::vector<float>(kFrames, 0.0F));
    Dithered(directory, {});
    std::size_t down = 0;
    std::size_t up = 0;
    for (const std::int16_t value : Read16Bit(directory / "copy.wav")) {
        ASSERT_LE(std::abs(value), 1);
        down += value < 0 ? 1U : 0U;
        up += value > 0 ? 1U : 0U;
    }
    // An eighth each, within five times what chance makes of it.
    EXPECT_NEAR(static_cast<double>(down), kFrames / 8.0, 523);
    EXPECT_NEAR(static_cast<double>(up), kFrames / 8.0, 523);
}

TEST(CopyDither, IsOffUnlessItIsAskedFor) {
    const TemporaryDirectory directory;
    WriteFloats(directory / "take.wav", 1, std::vector<float>(1000, 0.25F / 32768.0F));
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--encoding", "int16"}).status,
              0);
    EXPECT_EQ(Read16Bit(directory / "copy.wav"), std::vector<std::int16_t>(1000, 0));
}

TEST(CopyDither, IsForIntegersAlone) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    struct Row {
        std::vector<std::string> options;
        std::string encoding;
    };
    for (const Row& row : {Row{{}, "float32"}, Row{{"--encoding", "float32"}, "float32"},
                           Row{{"--encoding", "float64"}, "float64"}}) {
        std::vector<std::string> arguments{"copy", "take.wav", "copy.wav", "--dither", "tpdf"};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        ExpectResult(RunKelhost(directory, arguments), 2, "",
                     "kelhost: --dither is for integers, and copy.wav is written as " +
                         row.encoding + "; add --encoding int16, int24 or int32\n");
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyDither, IsRefusedInOtherWords) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string help = "Run with --help for more information.\n";
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.aiff", "--dither", "white"}), 2,
                 "", "--dither: white not in {tpdf}\n" + help);
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.aiff", "--seed", "1"}), 2, "",
                 "--seed requires --dither\n" + help);
    for (const std::string seed : {"-1", "1.5", "x", "18446744073709551616", " 1"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.aiff", "--dither", "tpdf",
                                            "--seed", seed}),
                     2, "",
                     "kelhost: --seed does not understand \"" + seed +
                         "\"; it is a whole number from 0 to 18446744073709551615\n");
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyVerify, NoticesWhatTheDiskHasChanged) {
    struct Row {
        std::string output;
        std::string encoding;
        std::size_t width;
    };
    std::vector<Row> rows;
    for (const std::string output : {"copy.wav", "copy.rf64", "copy.aiff"}) {
        rows.insert(rows.end(), {{output, "int16", 2}, {output, "int24", 3}, {output, "int32", 4}});
        if (output != "copy.aiff") {
            rows.insert(rows.end(), {{output, "float32", 4}, {output, "float64", 8}});
        }
    }
    for (const Row& row : rows) {
        for (const bool verify : {true, false}) {
            SCOPED_TRACE(row.encoding + " in " + row.output +
                         (verify ? " verified" : " not verified"));
            const TemporaryDirectory directory;
            const TemporaryDirectory marker;
            WriteTake(directory / "take.wav", 40001);
            const std::vector<std::string> arguments{"copy", "take.wav", row.output, "--encoding",
                                                     row.encoding};
            EXPECT_EQ(RunKelhost(directory, arguments).status, 0);
            const std::string right = ReadRawAudio(directory / row.output, row.width);

            Command command = Kelhost(directory, arguments);
            command.arguments.emplace_back("--force");
            DisturbSystem(command);
            command.environment["KEL_TEST_FAULTY_CALL"] = "flip";
            command.environment["KEL_TEST_FAULTY_NUMBER"] = "3"; // the second sample
            command.environment["KEL_TEST_FAULT_MARKER"] = marker / "marker";
            if (verify) {
                command.arguments.emplace_back("--verify");
                ExpectResult(RunCommand(command), 1, "",
                             "kelhost: " + row.output +
                                 ": what was read back is not what was written; do not trust this "
                                 "disk\n");
                EXPECT_TRUE(ReadRawAudio(directory / row.output, row.width) == right)
                    << "what stood there is gone";
            } else {
                EXPECT_EQ(RunCommand(command).status, 0);
                EXPECT_FALSE(ReadRawAudio(directory / row.output, row.width) == right)
                    << "nothing was changed";
            }
            EXPECT_EQ(SortedNames(directory), (Names{row.output, "take.wav"}));
            EXPECT_EQ(SortedNames(marker), Names{"marker"});
        }
    }
}

} // namespace kel::test
