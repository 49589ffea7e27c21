// Copies of whole files, of some channels, and in blocks of any size.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// A container, and the default encoding of a copy of 16-bit integers.
struct Target {
    std::string output;
    std::string format; // for --format
    std::string report; // container, encoding and byte order
    int sndfileFormat;
};

const std::vector<Target> kTargets{
    {"copy.wav", "wave", "extensible WAVE, int16 little-endian",
     SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
    {"copy.rf64", "bwave", "RF64, int16 little-endian", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
    {"copy.aiff", "aiff", "AIFF-C, int16 big-endian", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
};

std::string OverriddenBy(const std::string& extensionFormat, const std::string& format) {
    return "kelhost: warning: The file extension suggests the following wrapper format: " +
           extensionFormat + " but it has been overriden with the type wrapper format:" + format +
           "\n";
}

void ExpectSameAudio(const std::string& path, int format, const Audio& expected) {
    const Audio audio = ReadAudio(path);
    EXPECT_EQ(audio.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK), format);
    EXPECT_EQ(audio.channels, expected.channels);
    EXPECT_EQ(audio.rate, expected.rate);
    EXPECT_EQ(audio.values.size(), expected.values.size());
    EXPECT_TRUE(audio.values == expected.values) << "the samples differ";
}

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

std::string RepeatInList(const std::string& text, std::size_t times) {
    std::string result = text;
    for (std::size_t i = 1; i < times; ++i) {
        result += "," + text;
    }
    return result;
}

} // namespace

TEST(Copy, ReadsEveryFormatIntoEveryFormat) {
    struct Row {
        std::string name;
        int format;
        std::size_t target;
    };
    for (const Row& row : {
             Row{"take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 0},
             Row{"take.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 1},
             Row{"take.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 2},
             Row{"take.AIF", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 0},
             Row{"take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1},
             Row{"take", SF_FORMAT_W64 | SF_FORMAT_PCM_16, 2},
             Row{"take.wav", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 0}, // the content decides
         }) {
        const Target& target = kTargets[row.target];
        SCOPED_TRACE(testing::Message()
                     << row.name << " of " << row.format << " into " << target.format);
        const TemporaryDirectory directory;
        WriteAudio(directory / row.name, row.format, 2, 48000, MakeValues(2000));
        const std::string before = ReadFile(directory / row.name);
        ExpectResult(RunKelhost(directory, {"copy", row.name, target.output}), 0,
                     CopyReport(row.name, target.output, target.report), "");
        ExpectSameAudio(directory / target.output, target.sndfileFormat,
                        ReadAudio(directory / row.name));
        EXPECT_EQ(ReadFile(directory / row.name), before);
        EXPECT_EQ(SortedNames(directory), (Names{target.output, row.name}));
    }
}

TEST(Copy, AcceptsAnyNumberOfFramesAndChannels) {
    struct Row {
        int channels;
        std::size_t frames;
        std::string report;
    };
    for (const Row& row : {Row{1, 0, "1 channel, 8000 Hz, 0 frames, 0:00:00.000"},
                           Row{1, 16383, "1 channel, 8000 Hz, 16383 frames, 0:00:02.048"},
                           Row{2, 16384, "2 channels, 8000 Hz, 16384 frames, 0:00:02.048"},
                           Row{6, 50001, "6 channels, 8000 Hz, 50001 frames, 0:00:06.250"},
                           Row{1024, 50, "1024 channels, 8000 Hz, 50 frames, 0:00:00.006"}}) {
        for (const Target& target : kTargets) {
            SCOPED_TRACE(testing::Message() << row.report << " into " << target.format);
            const TemporaryDirectory directory;
            WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, row.channels, 8000,
                       MakeValues(row.frames * static_cast<std::size_t>(row.channels)));
            ExpectResult(RunKelhost(directory, {"copy", "take.wav", target.output}), 0,
                         "take.wav -> " + target.output + ": " + target.report + ", " + row.report +
                             "\n",
                         "");
            ExpectSameAudio(directory / target.output, target.sndfileFormat,
                            ReadAudio(directory / "take.wav"));
        }
    }
}

TEST(CopyFormat, CanBeForcedAgainstTheExtensionWithAWarning) {
    struct Row {
        std::string output;
        std::size_t target;
        std::string warning;
    };
    for (const Row& row : {Row{"copy.wav", 2, OverriddenBy("WAVE", "AIFF")},
                           Row{"copy.aiff", 0, OverriddenBy("AIFF", "WAVE")},
                           Row{"copy.rf64", 0, OverriddenBy("BWAVE", "WAVE")},
                           Row{"copy.raw", 0, OverriddenBy("RAW", "WAVE")}, Row{"copy.wav", 0, ""},
                           Row{"copy", 1, ""}}) {
        const Target& target = kTargets[row.target];
        SCOPED_TRACE(row.output + " as " + target.format);
        const TemporaryDirectory directory;
        WriteTake(directory / "take.flac"); // a WAVE file: names of inputs mean nothing
        ExpectResult(
            RunKelhost(directory, {"copy", "--format", target.format, "take.flac", row.output}), 0,
            CopyReport("take.flac", row.output, target.report), row.warning);
        EXPECT_EQ(ReadAudio(directory / row.output).format & SF_FORMAT_TYPEMASK,
                  target.sndfileFormat & SF_FORMAT_TYPEMASK);
    }
}

TEST(CopyOptions, AreRefusedBeforeAnythingIsWritten) {
    const std::string help = "; see kelhost copy --help\n";
    const auto noFormat = [](const std::string& output) {
        return Error(output,
                     "cannot tell the format from the extension; use --format or one of .wav, "
                     ".wave, .rf64, .bwav, .bwave, .bwf, .aiff, .aif, .aifc");
    };
    const auto noList = [](const std::string& text) {
        return "kelhost: invalid value \"" + text +
               "\" for --channels: expected at most 1024 channels, counted from 1: 2,1\n";
    };
    struct Row {
        Arguments arguments;
        std::string error;
        int status = 2;
    };
    std::vector<Row> rows{
        {{"take.wav", "copy.raw"}, noFormat("copy.raw")},
        {{"take.wav", "copy.wav/"},
         "kelhost: copy.wav/: is a directory; use --output-dir copy.wav\n"},
        {{"take.wav", "a.wav", "--format", "a\nb"},
         "kelhost: invalid value \"a\\nb\" for --format: expected wave, bwave or aiff\n"},
        {{"take.wav", "a.wav", "--encoding", ""},
         "kelhost: invalid value \"\" for --encoding: expected keep, int16, int24, int32, "
         "float32 or float64\n"},
        {{"take.wav", "a.wav", "--byte-order", "BIG"},
         "kelhost: invalid value \"BIG\" for --byte-order: expected little or big; did you mean "
         "big?\n"},
        {{"take.wav", "a.wav", "--on-clip", "ignore"},
         "kelhost: invalid value \"ignore\" for --on-clip: expected warn or fail\n"},
        {{"take.wav", "a.aiff", "--dither", "white"},
         "kelhost: invalid value \"white\" for --dither: expected tpdf\n"},
        {{"take.wav", "a.aiff", "--seed", "1"}, "kelhost: --seed requires --dither" + help},
        {{"take.wav", "a.aiff", "--encoding", "s24le", "--byte-order", "big"},
         "kelhost: --encoding s24le is little-endian, and --byte-order is big; leave out one of "
         "the two\n"},
        {{"take.wav", "a.wav", "--byte-order", "big"},
         "kelhost: extensible WAVE does not support big-endian; use int16 little-endian, int24 "
         "little-endian, int32 little-endian, float32 little-endian or float64 little-endian\n"},
        {{"take.wav", "a.wav", "--encoding", "float32", "--dither", "tpdf"},
         "kelhost: --dither needs an integer encoding, and a.wav is written as float32; add "
         "--encoding "
         "int16, int24 or int32\n"},
        {{"take.wav", "a.wav", "--channels", "1,3"},
         Error("take.wav", "has no channel 3, only 2"),
         1},
    };
    for (const std::string seed : {"-1", "1.5", "x", "18446744073709551616", " 1"}) {
        rows.push_back({{"take.wav", "a.aiff", "--dither", "tpdf", "--seed", seed},
                        "kelhost: invalid value \"" + seed +
                            "\" for --seed: expected an integer from 0 to 18446744073709551615\n"});
    }
    for (const std::string list : {"", "0", "a", "1,", ",1", "1,,2", "1 2", "1.5", "-1", "+1",
                                   "1-2", "0x1", "1025", "4294967297", "99999999999999999999"}) {
        rows.push_back({{"take.wav", "a.wav", "--channels", list}, noList(list)});
    }
    rows.push_back({{"take.wav", "a.wav", "--channels", RepeatInList("1", 1025)},
                    noList(RepeatInList("1", 1025))});
    for (const std::string block : {"0", "-1", "1048577", "7x"}) {
        rows.push_back({{"take.wav", "a.wav", "--block", block},
                        "kelhost: invalid value \"" + block +
                            "\" for --block: expected an integer from 1 to 1048576\n"});
    }
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        ExpectResult(RunKelhost(directory, Arguments{"copy"} + row.arguments), row.status, "",
                     row.error);
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyInput, MustBeReadable) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::permissions(directory / "take.wav", fs::perms::none);
    Command command = Kelhost(directory, {"copy", "take.wav", "copy.wav"});
    command.obeysPermissions = true;
    ExpectResult(RunCommand(command), 1, "",
                 Error("take.wav", "cannot open for reading: Permission denied"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyOutput, IsReplacedOnlyWithForceAndKeepsItsMode) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "copy.wav", "before");
    fs::permissions(directory / "copy.wav", fs::perms(0440));
    Command command = Kelhost(directory, {"copy", "take.wav", "copy.wav"});
    command.obeysPermissions = true;
    ExpectResult(RunCommand(command), 1, "",
                 Error("copy.wav", "exists already; use --force to replace it"));
    EXPECT_EQ(ReadFile(directory / "copy.wav"), "before");
    command.arguments.emplace_back("--force");
    ExpectResult(RunCommand(command), 0, CopyReport("take.wav", "copy.wav"), "");
    EXPECT_EQ(fs::status(directory / "copy.wav").permissions(), fs::perms(0440));
    EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
}

TEST(CopyOutput, IsNeverTheInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string before = ReadFile(directory / "take.wav");
    fs::create_symlink("take.wav", directory / "soft.wav");
    for (const std::string output : {"take.wav", "soft.wav"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", output, "--force"}), 1, "",
                     Error(output, "is the same file as the input take.wav; name another output"));
    }
    EXPECT_EQ(ReadFile(directory / "take.wav"), before);
    EXPECT_EQ(SortedNames(directory), (Names{"soft.wav", "take.wav"}));
}

TEST(CopyChannels, ArePickedOrderedAndRepeated) {
    struct Row {
        std::string list;
        std::vector<std::size_t> picked;
        std::string output;
    };
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3, 48000,
               MakeValues(3000));
    for (const Row& row :
         {Row{"3", {3}, "copy.wav"}, Row{"2,1", {2, 1}, "copy.aiff"},
          Row{"3,1,3,1,2", {3, 1, 3, 1, 2}, "copy.rf64"},
          Row{RepeatInList("02", 1024), std::vector<std::size_t>(1024, 2), "many.wav"}}) {
        SCOPED_TRACE(row.list + " into " + row.output);
        EXPECT_EQ(RunKelhost(directory,
                             {"copy", "take.wav", row.output, "--channels", row.list, "--verify"})
                      .status,
                  0);
        const Audio audio = ReadAudio(directory / row.output);
        EXPECT_EQ(audio.channels, static_cast<int>(row.picked.size()));
        EXPECT_TRUE(audio.values == Pick(MakeValues(3000), 3, row.picked));
    }
}

TEST(CopyChannels, HaveTheirClippingReportedInTheOrderOfTheOutput) {
    const TemporaryDirectory directory;
    const float infinity = std::numeric_limits<float>::infinity();
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 3, 48000,
               {2.0F, 9.0F, -3.0F,      //
                0.25F, 0.5F, -infinity, //
                -1.0F, 0.5F, 4.0F});
    ExpectResult(
        RunKelhost(directory,
                   {"copy", "take.wav", "copy.aiff", "--channels", "3,1", "--encoding", "int24"}),
        0, CopyReport("take.wav", "copy.aiff", "AIFF-C, int24 big-endian", "3 frames, 0:00:00.000"),
        "kelhost: warning: copy.aiff: channel 1: 2 values clipped, the loudest 4 times full scale\n"
        "kelhost: warning: copy.aiff: channel 1: 1 value not finite\n"
        "kelhost: warning: copy.aiff: channel 2: 1 value clipped, the loudest 2 times full "
        "scale\n");
    const float top = 8388607.0F / 8388608.0F;
    EXPECT_EQ(ReadAudio(directory / "copy.aiff").values,
              (std::vector<float>{-1.0F, top, -1.0F, 0.25F, top, -1.0F}));
}

TEST(CopyBlock, MakesNoDifferenceToTheOutput) {
    for (const Arguments& choice :
         {Arguments{"copy.wav", "--encoding", "float32"},
          Arguments{"copy.aiff", "--channels", "2,1"},
          Arguments{"copy.rf64", "--encoding", "int16", "--dither", "tpdf"},
          Arguments{"copy.wav", "--start", "3f", "--duration", "4000f"}}) {
        std::string expected;
        for (const std::string block : {"16384", "7", "1048576"}) {
            SCOPED_TRACE(testing::PrintToString(choice) + " in blocks of " + block);
            const TemporaryDirectory directory;
            WriteTake(directory / "take.wav", 5001);
            EXPECT_EQ(
                RunKelhost(directory, Arguments{"copy", "take.wav", "--block", block} + choice)
                    .status,
                0);
            const std::string bytes = WithoutTime(ReadFile(directory / choice[0]));
            if (expected.empty()) {
                expected = bytes;
            }
            EXPECT_TRUE(bytes == expected);
        }
    }
}

TEST(CopyBlock, MayBeAnyShareOfTheFrames) {
    // Up to and from two blocks on: on one thread and on several, converted and untouched.
    for (const std::size_t frames : {6U, 7U, 8U, 14U, 15U, 22U}) {
        for (const std::string encoding : {"float32", "int24"}) {
            SCOPED_TRACE(testing::Message() << frames << " frames as " << encoding);
            const TemporaryDirectory directory;
            WriteTake(directory / "take.wav", frames);
            EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--block", "7",
                                             "--verify", "--encoding", encoding})
                          .status,
                      0);
            EXPECT_EQ(ReadAudio(directory / "copy.wav").values, MakeValues(2 * frames));
        }
    }
}

TEST(CopyBlock, MustFitIntoTheSizeOfASample) {
    // 2^32 bytes are one too many, before the conversion and after it.
    const TemporaryDirectory directory;
    WriteAudio(directory / "wide.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1024, 48000,
               MakeValues(1024 * 2));
    WriteAudio(directory / "narrow.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 512, 48000,
               MakeValues(512 * 2));
    const std::string refusal = "blocks of 1048576 frames are too large for its channels; use "
                                "--block 1048575 or less";
    ExpectResult(RunKelhost(directory, {"copy", "wide.wav", "copy.wav", "--block", "1048576"}), 1,
                 "", Error("wide.wav", refusal));
    ExpectResult(RunKelhost(directory, {"copy", "narrow.wav", "copy.wav", "--block", "1048576",
                                        "--encoding", "float64"}),
                 1, "", Error("narrow.wav", refusal));
    EXPECT_EQ(SortedNames(directory), (Names{"narrow.wav", "wide.wav"}));
}

} // namespace kel::test
