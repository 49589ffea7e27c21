#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr const char* kExtensions = ".wav, .wave, .rf64, .bwav, .bwave, .aiff, .aif";

// What a format of the host comes out as.
struct Target {
    std::string extension;
    std::string format; // what --format takes
    std::string report; // container, encoding and byte order
    int sndfileFormat;
};

const std::vector<Target>& Targets() {
    static const std::vector<Target> targets{
        {".wav", "wave", "extensible WAVE, float32 little-endian",
         SF_FORMAT_WAVEX | SF_FORMAT_FLOAT},
        {".rf64", "bwave", "RF64, float32 little-endian", SF_FORMAT_RF64 | SF_FORMAT_FLOAT},
        {".aiff", "aiff", "AIFF-C, int24 big-endian", SF_FORMAT_AIFF | SF_FORMAT_PCM_24},
    };
    return targets;
}

// A message about one file.
std::string Error(const std::string& name, const std::string& what) {
    return "kelhost: " + name + ": " + what + "\n";
}

std::string OverriddenBy(const std::string& extensionFormat, const std::string& format) {
    return "kelhost: warning: The file extension suggests the following wrapper format: " +
           extensionFormat + " but it has been overriden with the type wrapper format:" + format +
           "\n";
}

// Expects that a format is refused, with its name shown like this.
void ExpectUnknownFormat(const std::string& format, const std::string& shown) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--format", format, "take.wav", "copy.wav"}), 2, "",
                 "kelhost: there is no format \"" + shown + "\"; choose from wave, bwave, aiff\n");
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

// Expects an audio file with the content of another.
void ExpectSameAudio(const std::string& path, int format, const Audio& expected) {
    const Audio audio = ReadAudio(path);
    EXPECT_EQ(audio.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK), format);
    EXPECT_EQ(audio.channels, expected.channels);
    EXPECT_EQ(audio.rate, expected.rate);
    EXPECT_EQ(audio.values.size(), expected.values.size());
    EXPECT_TRUE(audio.values == expected.values) << "the samples differ";
}

} // namespace

TEST(Copy, KeepsTheAudioInEveryFormat) {
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.format);
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        const std::string output = "copy" + target.extension;
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", output}), 0,
                     "take.wav -> " + output + ": " + target.report +
                         ", 2 channels, 48000 Hz, 1000 frames, 0:00:00.021\n",
                     "");
        ExpectSameAudio(directory / output, target.sndfileFormat,
                        ReadAudio(directory / "take.wav"));
        EXPECT_EQ(SortedNames(directory), (Names{output, "take.wav"}));
    }
}

TEST(Copy, ReadsWhatLibsndfileReads) {
    struct Row {
        std::string name;
        int format;
    };
    const std::vector<Row> rows{
        {"take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8},
        {"take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
        {"take.wav", SF_FORMAT_WAV | SF_FORMAT_ULAW},
        {"take.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
        {"take.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
        {"take.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"take.AIF", SF_FORMAT_AIFF | SF_FORMAT_PCM_24},
        {"take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"take.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
        {"take", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"take.wav", SF_FORMAT_AIFF | SF_FORMAT_PCM_16}, // the content decides
    };
    for (const Row& row : rows) {
        for (const Target& target : Targets()) {
            SCOPED_TRACE(testing::Message()
                         << row.name << " of " << row.format << " into " << target.format);
            const TemporaryDirectory directory;
            WriteAudio(directory / row.name, row.format, 2, 44100, MakeValues(2000));
            const std::string output = "copy" + target.extension;
            ExpectResult(RunKelhost(directory, {"copy", row.name, output}), 0,
                         row.name + " -> " + output + ": " + target.report +
                             ", 2 channels, 44100 Hz, 1000 frames, 0:00:00.023\n",
                         "");
            ExpectSameAudio(directory / output, target.sndfileFormat,
                            ReadAudio(directory / row.name));
        }
    }
}

TEST(Copy, TakesAnyNumberOfFramesAndChannels) {
    struct Row {
        int channels;
        std::size_t frames;
        std::string report;
    };
    const std::vector<Row> rows{
        {1, 0, "1 channel, 8000 Hz, 0 frames, 0:00:00.000"},
        {1, 1, "1 channel, 8000 Hz, 1 frames, 0:00:00.000"},
        {1, 16383, "1 channel, 8000 Hz, 16383 frames, 0:00:02.048"},
        {2, 16384, "2 channels, 8000 Hz, 16384 frames, 0:00:02.048"},
        {6, 16385, "6 channels, 8000 Hz, 16385 frames, 0:00:02.048"},
        {1, 50001, "1 channel, 8000 Hz, 50001 frames, 0:00:06.250"},
        {1024, 50, "1024 channels, 8000 Hz, 50 frames, 0:00:00.006"},
    };
    for (const Row& row : rows) {
        for (const Target& target : Targets()) {
            SCOPED_TRACE(testing::Message() << row.report << " into " << target.format);
            const TemporaryDirectory directory;
            WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, row.channels, 8000,
                       MakeValues(row.frames * static_cast<std::size_t>(row.channels)));
            const std::string output = "copy" + target.extension;
            ExpectResult(RunKelhost(directory, {"copy", "take.wav", output}), 0,
                         "take.wav -> " + output + ": " + target.report + ", " + row.report + "\n",
                         "");
            ExpectSameAudio(directory / output, target.sndfileFormat,
                            ReadAudio(directory / "take.wav"));
        }
    }
}

TEST(Copy, KeepsFloatsBeyondFullScaleWhereTheFormatTakesFloats) {
    const TemporaryDirectory directory;
    const std::vector<float> values{0.0F, 1.5F, -2.25F, 1e-20F, 1e20F, -0.5F};
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000, values);
    for (const char* output : {"copy.wav", "copy.rf64"}) {
        EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", output}).status, 0);
        EXPECT_EQ(ReadAudio(directory / output).values, values);
    }
}

TEST(CopyClipping, IsCountedAndReportedChannelByChannel) {
    const TemporaryDirectory directory;
    const float infinity = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 3, 48000,
               {0.5F, 1.25F, nan,        //
                -0.5F, -1.5F, infinity,  //
                0.25F, -1.0F, -infinity, //
                0.75F, 1.0F, 4.0F});
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.aiff"}), 0,
                 "take.wav -> copy.aiff: AIFF-C, int24 big-endian, 3 channels, 48000 Hz, 4 frames, "
                 "0:00:00.000\n"
                 "channel 2: 3 values clipped, the loudest 1.5 times full scale\n"
                 "channel 3: 1 values clipped, the loudest 4 times full scale\n"
                 "channel 3: 3 values were no finite numbers\n",
                 "");
    const float top = 8388607.0F / 8388608.0F;
    EXPECT_EQ(ReadAudio(directory / "copy.aiff").values, (std::vector<float>{0.5F, top, 0.0F,     //
                                                                             -0.5F, -1.0F, top,   //
                                                                             0.25F, -1.0F, -1.0F, //
                                                                             0.75F, top, top}));
}

TEST(CopyClipping, RoundsToTheNearest24BitValue) {
    const TemporaryDirectory directory;
    std::vector<float> values;
    std::vector<float> expected;
    for (int i = -1000; i < 1000; ++i) {
        const float value = static_cast<float>(i) * 0.00097F + 1e-9F;
        values.push_back(value);
        expected.push_back(static_cast<float>(std::nearbyint(value * 8388608.0F)) / 8388608.0F);
    }
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000, values);
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", "copy.aiff"}).status, 0);
    EXPECT_EQ(ReadAudio(directory / "copy.aiff").values, expected);
}

TEST(CopyFormat, ComesFromTheExtensionInAnyCase) {
    struct Row {
        std::string name;
        int format;
    };
    for (const Row& row : {Row{"copy.WAV", SF_FORMAT_WAVEX}, Row{"copy.wave", SF_FORMAT_WAVEX},
                           Row{"copy.Rf64", SF_FORMAT_RF64}, Row{"copy.bwav", SF_FORMAT_RF64},
                           Row{"copy.bwave", SF_FORMAT_RF64}, Row{"copy.AIF", SF_FORMAT_AIFF},
                           Row{"copy.aiff", SF_FORMAT_AIFF}, Row{"a.wav.aif", SF_FORMAT_AIFF}}) {
        SCOPED_TRACE(row.name);
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        const ProcessResult result = RunKelhost(directory, {"copy", "take.wav", row.name});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(ReadAudio(directory / row.name).format & SF_FORMAT_TYPEMASK, row.format);
    }
}

TEST(CopyFormat, CanBeForcedAgainstTheExtensionWithAWarning) {
    struct Row {
        std::string output;
        std::size_t target;
        std::string warning;
    };
    const std::vector<Row> rows{
        {"copy.wav", 2, OverriddenBy("WAVE", "AIFF")},
        {"copy.wav", 1, OverriddenBy("WAVE", "BWAVE")},
        {"copy.aiff", 0, OverriddenBy("AIFF", "WAVE")},
        {"copy.rf64", 0, OverriddenBy("BWAVE", "WAVE")},
        {"copy.raw", 0, OverriddenBy("RAW", "WAVE")},
        {"copy.wav", 0, ""},
        {"copy.xyz", 0, ""},
        {"copy", 1, ""},
        {"copy", 2, ""},
    };
    for (const Row& row : rows) {
        const Target& target = Targets()[row.target];
        SCOPED_TRACE(row.output + " as " + target.format);
        const TemporaryDirectory directory;
        WriteTake(directory / "take.flac"); // a WAVE file: names of inputs mean nothing
        ExpectResult(
            RunKelhost(directory, {"copy", "--format", target.format, "take.flac", row.output}), 0,
            "take.flac -> " + row.output + ": " + target.report +
                ", 2 channels, 48000 Hz, 1000 frames, 0:00:00.021\n",
            row.warning);
        EXPECT_EQ(ReadAudio(directory / row.output).format & SF_FORMAT_TYPEMASK,
                  target.sndfileFormat & SF_FORMAT_TYPEMASK);
    }
}

TEST(CopyFormat, MustBeOneThatTheExtensionMeans) {
    for (const char* output : {"copy.xyz", "copy", "copy.", ".wav", "copy.raw", "copy.wav/"}) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", output}), 2, "",
                     Error(output, std::string("the extension means no format; use one of ") +
                                       kExtensions + ", or --format"));
        EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
    }
}

TEST(CopyFormat, MustBeOneThatIsKnown) {
    ExpectUnknownFormat("mp3", "mp3");
    ExpectUnknownFormat("WAVE", "WAVE");
}

TEST(CopyFormat, MustNotBeEmptyWhenItIsNamed) {
    ExpectUnknownFormat("", "");
}

TEST(CopyFormat, IsShownOnOneLineWhenItIsNotKnown) {
    ExpectUnknownFormat("a\nb\x1B", "a\\nb\\x1B");
}

TEST(CopyInput, MustBeThere) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav"}), 1, "",
                 Error("take.wav", "No such file or directory"));
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(CopyInput, MustNotBeADirectory) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav"}), 1, "",
                 Error("take.wav", "is a directory; name the audio files in it"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyInput, MustBeAudio) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "no audio at all, but a text of some length\n");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav"}), 1, "",
                 Error("take.wav", "cannot be read: [Unable to open file \"take.wav\" with "
                                   "libsndfile. Error is:\"Format not recognised.\"]"));
    WriteFile(directory / "empty.wav", "");
    ExpectResult(RunKelhost(directory, {"copy", "empty.wav", "copy.wav"}), 1, "",
                 Error("empty.wav", "cannot be read: [Unable to open file \"empty.wav\" with "
                                    "libsndfile. Error is:\"Format not recognised.\"]"));
    EXPECT_EQ(SortedNames(directory), (Names{"empty.wav", "take.wav"}));
}

TEST(CopyInput, MustBeReadable) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::permissions(directory / "take.wav", fs::perms::none);
    Command command = Kelhost(directory, {"copy", "take.wav", "copy.wav"});
    command.obeysPermissions = true;
    ExpectResult(RunCommand(command), 1, "",
                 Error("take.wav", "cannot be read: [Unable to open file \"take.wav\" with "
                                   "libsndfile. Error is:\"System error : Permission denied.\"]"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyInput, IsUntouched) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string before = Content(directory / "take.wav");
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", "copy.wav"}).status, 0);
    EXPECT_EQ(Content(directory / "take.wav"), before);
}

TEST(CopyOutput, IsNotReplacedWithoutForce) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "copy.wav", "before");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav"}), 1, "",
                 Error("copy.wav", "exists already; use --force to replace it"));
    EXPECT_EQ(Content(directory / "copy.wav"), "before");
    EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
}

TEST(CopyOutput, IsReplacedWithForceAndKeepsItsMode) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "copy.wav", "before");
    fs::permissions(directory / "copy.wav", fs::perms(0640));
    ExpectResult(RunKelhost(directory, {"copy", "--force", "take.wav", "copy.wav"}), 0,
                 "take.wav -> copy.wav: extensible WAVE, float32 little-endian, 2 channels, 48000 "
                 "Hz, 1000 frames, 0:00:00.021\n",
                 "");
    EXPECT_EQ(ReadAudio(directory / "copy.wav").values, ReadAudio(directory / "take.wav").values);
    EXPECT_EQ(fs::status(directory / "copy.wav").permissions(), fs::perms(0640));
    EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
}

TEST(CopyOutput, IsReplacedWithForceEvenIfItCanOnlyBeRead) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "copy.wav", "before");
    fs::permissions(directory / "copy.wav", fs::perms(0444));
    Command command = Kelhost(directory, {"copy", "--force", "take.wav", "copy.wav"});
    command.obeysPermissions = true;
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(WithoutRandomNames(result.err), "");
    EXPECT_EQ(fs::status(directory / "copy.wav").permissions(), fs::perms(0444));
    EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
}

TEST(CopyOutput, HasTheModeThatTheUmaskLeaves) {
    for (const mode_t mask : {0002U, 0077U}) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        Command command = Kelhost(directory, {"copy", "take.wav", "copy.wav"});
        command.fileMask = mask;
        EXPECT_EQ(RunCommand(command).status, 0);
        EXPECT_EQ(fs::status(directory / "copy.wav").permissions(), fs::perms(0666U & ~mask));
    }
}

TEST(CopyOutput, MustNotBeTheInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string before = Content(directory / "take.wav");
    fs::create_hard_link(directory / "take.wav", directory / "hard.wav");
    fs::create_symlink("take.wav", directory / "soft.wav");
    struct Row {
        std::string input;
        std::string output;
    };
    for (const Row& row : {Row{"take.wav", "take.wav"}, Row{"take.wav", "hard.wav"},
                           Row{"hard.wav", "take.wav"}, Row{"take.wav", "soft.wav"},
                           Row{"soft.wav", "take.wav"}, Row{"take.wav", "./take.wav"}}) {
        for (const bool force : {false, true}) {
            std::vector<std::string> arguments{"copy", row.input, row.output};
            if (force) {
                arguments.emplace_back("--force");
            }
            ExpectResult(RunKelhost(directory, arguments), 1, "",
                         Error(row.output, "is the same file as the input " + row.input +
                                               "; name another output"));
        }
    }
    EXPECT_EQ(Content(directory / "take.wav"), before);
    EXPECT_EQ(SortedNames(directory), (Names{"hard.wav", "soft.wav", "take.wav"}));
    EXPECT_TRUE(fs::is_symlink(directory / "soft.wav"));
}

TEST(CopyOutput, NeedsItsDirectory) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "missing/copy.wav"}), 1, "",
                 Error("missing/copy.wav", "cannot be created: No such file or directory"));
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "take.wav/copy.wav"}), 1, "",
                 Error("take.wav/copy.wav", "cannot be created: Not a directory"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyOutput, NeedsADirectoryThatCanBeWritten) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::create_directory(directory / "locked");
    fs::permissions(directory / "locked", fs::perms(0555));
    Command command = Kelhost(directory, {"copy", "take.wav", "locked/copy.wav"});
    command.obeysPermissions = true;
    ExpectResult(RunCommand(command), 1, "",
                 Error("locked/copy.wav", "cannot be created: Permission denied"));
    EXPECT_TRUE(fs::is_empty(directory / "locked"));
}

TEST(CopyOutput, MustBeARegularFile) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::create_directory(directory / "directory.wav");
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    fs::create_symlink("/dev/full", directory / "device.wav");
    for (const char* output : {"directory.wav", "fifo.wav", "device.wav"}) {
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", output}), 1, "",
                     Error(output, "is not a regular file; name another output"));
        ExpectResult(RunKelhost(directory, {"copy", "--force", "take.wav", output}), 1, "",
                     Error(output, "is not a regular file; name another output"));
    }
    ExpectResult(RunKelhost(directory, {"copy", "--format", "wave", "take.wav", "/dev/null"}), 1,
                 "", Error("/dev/null", "is not a regular file; name another output"));
    EXPECT_EQ(SortedNames(directory),
              (Names{"device.wav", "fifo.wav", "directory.wav", "take.wav"}));
    EXPECT_TRUE(fs::is_empty(directory / "directory.wav"));
    EXPECT_TRUE(fs::is_fifo(directory / "fifo.wav"));
}

TEST(CopyOutput, MayGoThroughAPathInAnotherDirectory) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::create_directories(directory / "a.b/c");
    ExpectResult(RunKelhost(directory, {"copy", directory / "take.wav", "a.b/c/copy.wav"}), 0,
                 (directory / "take.wav") +
                     " -> a.b/c/copy.wav: extensible WAVE, float32 little-endian, 2 channels, "
                     "48000 Hz, 1000 frames, 0:00:00.021\n",
                 "");
    EXPECT_EQ(ReadAudio(directory / "a.b/c/copy.wav").values,
              ReadAudio(directory / "take.wav").values);
    EXPECT_EQ(SortedNames(directory), (Names{"a.b", "take.wav"}));
}

} // namespace kel::test
