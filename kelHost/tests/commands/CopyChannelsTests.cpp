// Which channels are copied, and in how large pieces.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::test {

namespace {

constexpr std::size_t kFrames = 1000;

// Three channels that differ.
std::vector<float> ThreeChannels() {
    return MakeValues(3 * kFrames);
}

// What a pick of channels, counted from 1, is to give.
std::vector<float> Pick(const std::vector<float>& values, std::size_t channels,
                        const std::vector<std::size_t>& picked) {
    std::vector<float> result;
    for (std::size_t frame = 0; frame < values.size() / channels; ++frame) {
        for (const std::size_t channel : picked) {
            result.push_back(values[frame * channels + channel - 1]);
        }
    }
    return result;
}

std::string Repeat(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += (i == 0 ? "" : ",") + text;
    }
    return result;
}

std::string NotUnderstood(const std::string& text) {
    return "kelhost: --channels does not understand \"" + text +
           "\"; it lists channels counted from 1, at most 1024: 2,1\n";
}

} // namespace

TEST(CopyChannels, ArePickedOrderedAndRepeated) {
    struct Row {
        std::string list;
        std::vector<std::size_t> picked;
    };
    const std::vector<Row> rows{{"1", {1}},
                                {"3", {3}},
                                {"2,1", {2, 1}},
                                {"1,2,3", {1, 2, 3}},
                                {"3,2,1", {3, 2, 1}},
                                {"2,2", {2, 2}},
                                {"3,1,3,1,2", {3, 1, 3, 1, 2}},
                                {"03", {3}}};
    for (const Row& row : rows) {
        for (const std::string output : {"copy.wav", "copy.rf64", "copy.aiff"}) {
            SCOPED_TRACE(row.list + " into " + output);
            const TemporaryDirectory directory;
            WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3, 48000,
                       ThreeChannels());
            const ProcessResult result = RunKelhost(
                directory, {"copy", "take.wav", output, "--channels", row.list, "--verify"});
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(result.err, "");
            const Audio audio = ReadAudio(directory / output);
            EXPECT_EQ(audio.channels, static_cast<int>(row.picked.size()));
            EXPECT_TRUE(audio.values == Pick(ThreeChannels(), 3, row.picked));
        }
    }
}

TEST(CopyChannels, CanBeNamedAnywhereOnTheCommandLine) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"copy", "--channels", "2,1", "take.wav", "copy.wav"},
          std::vector<std::string>{"copy", "take.wav", "--channels", "2,1", "copy.wav"},
          std::vector<std::string>{"copy", "--channels=2,1", "take.wav", "copy.wav"},
          std::vector<std::string>{"copy", "take.wav", "copy.wav", "--channels", "2,1"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        ExpectResult(RunKelhost(directory, arguments), 0,
                     "take.wav -> copy.wav: extensible WAVE, float32 little-endian, 2 channels, "
                     "48000 Hz, 1000 frames, 0:00:00.021\n",
                     "");
        EXPECT_TRUE(ReadAudio(directory / "copy.wav").values ==
                    Pick(MakeValues(2 * kFrames), 2, {2, 1}));
    }
}

TEST(CopyChannels, KeepTheirCountsOfClippingInTheOrderOfTheOutput) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 3, 48000,
               {2.0F, 0.5F, 3.0F, 0.25F, 0.5F, -4.0F});
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.aiff", "--channels", "3,2,1"}), 0,
                 "take.wav -> copy.aiff: AIFF-C, int24 big-endian, 3 channels, 48000 Hz, 2 frames, "
                 "0:00:00.000\n"
                 "channel 1: 2 values clipped, the loudest 4 times full scale\n"
                 "channel 3: 1 values clipped, the loudest 2 times full scale\n",
                 "");
}

TEST(CopyChannels, AreNotMissedWhereTheyAreNotCopied) {
    // What is beyond full scale in a channel that is left out is nobody's concern.
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, {2.0F, 0.5F});
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.aiff", "--channels", "2",
                                        "--on-clip", "fail"}),
                 0,
                 "take.wav -> copy.aiff: AIFF-C, int24 big-endian, 1 channel, 48000 Hz, 1 frames, "
                 "0:00:00.000\n",
                 "");
}

TEST(CopyChannels, MustExistInTheInput) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3, 48000, ThreeChannels());
    for (const std::string list : {"4", "1,4", "4,1"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--channels", list}), 1,
                     "", "kelhost: take.wav: has no channel 4, only 3\n");
    }
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--channels", "1024"}), 1,
                 "", "kelhost: take.wav: has no channel 1024, only 3\n");
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyChannels, MayBeAsManyAsAFileHolds) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 20);
    EXPECT_EQ(
        RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--channels", Repeat("2", 1024)})
            .status,
        0);
    const Audio audio = ReadAudio(directory / "copy.wav");
    EXPECT_EQ(audio.channels, 1024);
    EXPECT_TRUE(audio.values == Pick(MakeValues(2 * 20), 2, std::vector<std::size_t>(1024, 2)));
}

TEST(CopyChannels, AreRefusedInEveryTextThatIsNoList) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const std::string list :
         {"", "0", "a", "1,", ",1", "1,,2", "1 2", "1.5", "-1", "+1", "1-2", "1;2", "0x1", "1025",
          "4294967297", "99999999999999999999"}) {
        SCOPED_TRACE(list);
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--channels", list}), 2,
                     "", NotUnderstood(list));
    }
    const std::string tooMany = Repeat("1", 1025);
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--channels", tooMany}), 2,
                 "", NotUnderstood(tooMany));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyBlock, MakesNoDifferenceToTheOutput) {
    const std::vector<std::vector<std::string>> choices{
        {"copy.wav"},
        {"copy.aiff"},
        {"copy.rf64", "--encoding", "int16", "--dither", "tpdf"},
        {"copy.wav", "--channels", "2,1"},
        {"copy.wav", "--start", "3f", "--duration", "4000f"}};
    for (const std::vector<std::string>& choice : choices) {
        std::string expected;
        for (const std::string block : {"16384", "1", "7", "65536", "1048576"}) {
            SCOPED_TRACE(testing::PrintToString(choice) + " in blocks of " + block);
            const TemporaryDirectory directory;
            WriteTake(directory / "take.wav", 5001);
            std::vector<std::string> arguments{"copy", "take.wav", "--block", block};
            arguments.insert(arguments.end(), choice.begin(), choice.end());
            EXPECT_EQ(RunKelhost(directory, arguments).status, 0);
            const std::string bytes = WithoutTime(Content(directory / choice[0]));
            if (expected.empty()) {
                expected = bytes;
            }
            EXPECT_TRUE(bytes == expected);
        }
    }
}

TEST(CopyBlock, MayBeAnythingBesideTheNumberOfFrames) {
    // Less than a block, a block, one frame more; what goes through on one thread and what does
    // not, both converted and untouched.
    for (const std::size_t frames : {0U, 1U, 6U, 7U, 8U, 13U, 14U, 15U, 16U, 20U, 21U, 22U}) {
        for (const std::string output : {"copy.wav", "copy.aiff"}) {
            SCOPED_TRACE(testing::Message() << frames << " frames into " << output);
            const TemporaryDirectory directory;
            WriteTake(directory / "take.wav", frames);
            EXPECT_EQ(
                RunKelhost(directory, {"copy", "take.wav", output, "--block", "7", "--verify"})
                    .status,
                0);
            EXPECT_EQ(ReadAudio(directory / output).values, MakeValues(2 * frames));
        }
    }
}

TEST(CopyBlock, MustBeANumberOfFrames) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const std::string block : {"0", "-1", "1048577", "7x", "1.5", "many"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--block", block}), 2,
                     "",
                     "--block: Value " + block +
                         " not in range 1 to 1048576\nRun with --help for more information.\n");
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyBlock, MustNotBeLargerThanASampleCanSay) {
    // 2^32 bytes are one too many, before the conversion and after it.
    const TemporaryDirectory directory;
    WriteAudio(directory / "wide.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1024, 48000,
               MakeValues(1024 * 2));
    WriteAudio(directory / "narrow.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 512, 48000,
               MakeValues(512 * 2));
    const std::string refusal = ": blocks of 1048576 frames are too large for its channels; use "
                                "--block 1048575 or less\n";
    ExpectResult(RunKelhost(directory, {"copy", "wide.wav", "copy.wav", "--block", "1048576"}), 1,
                 "", "kelhost: wide.wav" + refusal);
    ExpectResult(RunKelhost(directory, {"copy", "narrow.wav", "copy.wav", "--block", "1048576",
                                        "--encoding", "float64"}),
                 1, "", "kelhost: narrow.wav" + refusal);
    EXPECT_EQ(SortedNames(directory), (Names{"narrow.wav", "wide.wav"}));
}

} // namespace kel::test
