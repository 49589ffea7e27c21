// `kelhost run`: any source into any sink.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// `kelhost run` with the elements of the example, of the plug-in and of the tests.
Command MakeRun(const TemporaryDirectory& directory, const Arguments& words) {
    return Kelhost(directory,
                   Arguments{"--plugin", TestPlugin("kelTone"), "--plugin", KEL_TEST_PLUGIN,
                             "--plugin", TestPlugin("kelFaultyElements"), "run"} +
                       words);
}

ProcessResult RunElements(const TemporaryDirectory& directory, const Arguments& words) {
    return RunCommand(MakeRun(directory, words));
}

// A wrong command line, and its error.
struct Wrong {
    Arguments words;
    std::string error;
};

// Expects errors of a status, and that no file is made.
void ExpectErrors(int status, const std::vector<Wrong>& rows) {
    const TemporaryDirectory directory;
    for (const Wrong& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        ExpectResult(RunElements(directory, row.words), status, "", "kelhost: " + row.error + "\n");
        EXPECT_EQ(SortedNames(directory), Names{});
    }
}

// The report of floats in stereo at 48 kHz.
std::string Line(const std::string& input, const std::string& output, const std::string& length) {
    return input + " -> " + output + ": 32-bit float little-endian, 2 channels, 48000 Hz, " +
           length + "\n";
}

const std::string kOneSecond = "48000 frames, 0:00:01.000";
const std::string kLevels = "channel 1: peak -20.00 dB, RMS -23.01 dB\n"
                            "channel 2: peak -20.00 dB, RMS -23.01 dB\n";

} // namespace

TEST(Run, MeasuresAFileAndReplacesTheResultOnlyWithForce) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000,
               {0.5F, 0.25F, -0.5F, 0.0F, 0.5F, 0.0F, -0.5F, 0.0F});
    WriteFile(directory / "levels.txt", "before");
    const std::string levels = "channel 1: peak -6.02 dB, RMS -6.02 dB\n"
                               "channel 2: peak -12.04 dB, RMS -18.06 dB\n";
    const Arguments words{"kel.LibsndfileSource", "FilePath=take.flac", "!",
                          "example.LevelMeterSink", "FilePath=levels.txt"};
    ExpectResult(RunElements(directory, words), 1, "",
                 Error("levels.txt", "exists already; use --force to replace it"));
    EXPECT_EQ(ReadFile(directory / "levels.txt"), "before");
    ExpectResult(RunElements(directory, words + Arguments{"--force"}), 0,
                 Line("take.flac", "levels.txt", "4 frames, 0:00:00.000") + levels, "");
    EXPECT_EQ(ReadFile(directory / "levels.txt"), levels);
    ExpectResult(
        RunElements(directory, {"kel.LibsndfileSource", "FilePath=take.flac", "!",
                                "kel.LibsndfileSink:WAVE", "FilePath=./take.flac", "--force"}),
        1, "",
        Error("./take.flac", "is the same file as the input take.flac; name another output"));
    EXPECT_EQ(SortedNames(directory), (Names{"levels.txt", "take.flac"}));
}

TEST(Run, NeedsNoFileAndShowsTheFindingsOfTheSinkEvenWhenItIsQuiet) {
    const TemporaryDirectory directory;
    const Arguments words{"example.ToneSource", "!", "example.LevelMeterSink", "FilePath="};
    ExpectResult(RunElements(directory, words), 0,
                 Line("example.ToneSource", "example.LevelMeterSink", kOneSecond) + kLevels, "");
    ExpectResult(RunElements(directory, words + Arguments{"--quiet"}), 0, kLevels, "");
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(Run, WritesTheVeryFileThatACopyWrites) {
    for (const std::size_t frames : {1000U, 100000U}) { // on one thread, and on several
        const TemporaryDirectory directory;
        // With the speakers that the sink assumes.
        WriteAudio(directory / "in.wav", SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 2, 48000,
                   MakeValues(2 * frames));
        EXPECT_EQ(RunKelhost(directory, {"copy", "in.wav", "copy.rf64"}).status, 0);
        EXPECT_EQ(RunElements(directory, {"kel.LibsndfileSource", "FilePath=in.wav", "!",
                                          "kel.LibsndfileSink", "FilePath=run.rf64"})
                      .status,
                  0);
        EXPECT_EQ(WithoutTime(ReadFile(directory / "run.rf64")),
                  WithoutTime(ReadFile(directory / "copy.rf64")));
    }
}

TEST(Run, UsesTheTypeThatIsNamedElseTheExtensions) {
    struct Row {
        std::string source;
        std::string input;
        std::string sink;
        std::string output;
        std::string sinkType;
    };
    for (const Row& row :
         {Row{"kel.LibsndfileSource", "take", "kel.LibsndfileSink", "out.rf64", "BWAVE"},
          Row{"kel.LibsndfileSource", "take.aiff", "kel.LibsndfileSink", "OUT.WAV", "WAVE"},
          Row{"kel.LibsndfileSource:AIFF", "take.wav", "kel.LibsndfileSink:BWAVE", "out.wav",
              "BWAVE"},
          Row{"kel.LibsndfileSource:BWAVE", "take.wav", "kel.LibsndfileSink:WAVE", "out", "WAVE"},
          Row{"kel.LibsndfileSource", "take.wav", "example.LevelMeterSink:Unknown", "out",
              "Unknown"}}) {
        SCOPED_TRACE(row.source + " " + row.sink + " " + row.output);
        const TemporaryDirectory directory;
        WriteTake(directory / row.input);
        const ProcessResult result =
            RunElements(directory, {row.source, "FilePath=" + row.input, "!", row.sink,
                                    "FilePath=" + row.output, "--json"});
        ASSERT_EQ(result.status, 0);
        EXPECT_EQ(json::parse(result.out)["results"][0]["sink"]["type"], row.sinkType);
        if (row.sinkType != "Unknown") {
            EXPECT_EQ(ReadAudio(directory / row.output).format & SF_FORMAT_TYPEMASK,
                      row.sinkType == "BWAVE" ? SF_FORMAT_RF64 : SF_FORMAT_WAVEX);
        }
    }
}

TEST(Run, OpensFilesOfAnyName) {
    for (const char* name : {"a b=c\n\xFF.wav", "./-", "!.wav"}) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        fs::create_directory(directory / "out");
        const std::string output = std::string("out/") + name + (*name == '.' ? ".wav" : "");
        WriteTake(directory / name);
        EXPECT_EQ(RunElements(directory, {"kel.LibsndfileSource", std::string("FilePath=") + name,
                                          "!", "kel.LibsndfileSink", "FilePath=" + output})
                      .status,
                  0);
        EXPECT_EQ(ReadAudio(directory / output).values, MakeValues(2000));
    }
}

TEST(Run, WritesADocument) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const ProcessResult result = RunElements(
        directory, {"--json", "kel.LibsndfileSource", "FilePath=take.wav", "MaxSamplesPerBuffer=7",
                    "!", "kel.LibsndfileSink", "FilePath=copy.wav"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.run"}, result.out);
    EXPECT_EQ(json::parse(result.out), (json{{"document", "kelhost.run"},
                                             {"version", 1},
                                             {"failures", json::array()},
                                             {"results",
                                              {{{"source",
                                                 {{"implementation", "kel.LibsndfileSource"},
                                                  {"type", "WAVE"},
                                                  {"file", "take.wav"},
                                                  {"path", "take.wav"}}},
                                                {"sink",
                                                 {{"implementation", "kel.LibsndfileSink"},
                                                  {"type", "WAVE"},
                                                  {"file", "copy.wav"},
                                                  {"path", "copy.wav"}}},
                                                {"encoding", "32-bit float little-endian"},
                                                {"channels", 2},
                                                {"rate", 48000},
                                                {"frames", 1000},
                                                {"reports", json::array()},
                                                {"warnings", json::array()}}}}}));
}

TEST(Run, WritesADocumentOfFindingsAndFailures) {
    const TemporaryDirectory directory;
    const Arguments words{"--json", "example.ToneSource", "Channels=1", "!",
                          "example.LevelMeterSink"};
    const ProcessResult good = RunElements(directory, words);
    const json run = json::parse(good.out)["results"][0];
    EXPECT_EQ(run["reports"], json{"channel 1: peak -20.00 dB, RMS -23.01 dB"});
    EXPECT_EQ(run["source"]["file"], "");
    EXPECT_EQ(run["source"]["path"], json());
    const ProcessResult bad = RunElements(
        directory, {"--json", "example.ToneSource", "Level=1", "!", "example.LevelMeterSink"});
    EXPECT_EQ(bad.status, 1);
    ExpectDocuments({"kelhost.run", "kelhost.error", "kelhost.run"}, good.out + bad.err + bad.out);
    const std::string message =
        "example.ToneSource: cannot open for reading: [ToneSource: Level is 1, not "
        "from -200 to 0] [ Condition is not true ]";
    EXPECT_EQ(json::parse(bad.out), (json{{"document", "kelhost.run"},
                                          {"version", 1},
                                          {"results", json::array()},
                                          {"failures",
                                           {{{"file", "example.ToneSource"},
                                             {"path", "example.ToneSource"},
                                             {"message", message}}}}}));
}

TEST(RunErrors, ShowTheFormOfTheCommandLine) {
    const std::string usage = ": run SOURCE key=value ... ! SINK key=value ...";
    const std::string one = "run expects a source and a sink with one \"!\" between them, not ";
    ExpectErrors(2, {
                        {{"example.ToneSource"}, one + "0" + usage},
                        {{"a", "!", "b", "!", "c"}, one + "2" + usage},
                        {{"!", "b"}, "the source before the \"!\" is missing" + usage},
                        {{"a", "b=1", "!"}, "the sink after the \"!\" is missing" + usage},
                    });
    const TemporaryDirectory directory;
    ExpectResult(RunElements(directory, {}), 2, "",
                 "kelhost: ELEMENT is missing; see kelhost run --help\n");
}

TEST(RunErrors, NameTheChoiceOfElements) {
    const std::string sources = "; use example.ToneSource, kel.LibsndfileSource or "
                                "test.TextSource";
    const std::string sinks = "; use example.LevelMeterSink, example.NullSink, "
                              "example.ChecksumSink, kel.LibsndfileSink or test.TextSink";
    ExpectErrors(2, {
                        {{"kel.Nothing", "!", "kel.LibsndfileSink"},
                         "there is no AudioSource \"kel.Nothing\"" + sources},
                        {{"kel.LibsndfileSink", "!", "kel.LibsndfileSink"},
                         "there is no AudioSource \"kel.LibsndfileSink\"; did you mean "
                         "kel.LibsndfileSource?"},
                        {{"a\n\xFF", "!", "kel.LibsndfileSink"},
                         "there is no AudioSource \"a\\n\\xFF\"" + sources},
                        {{"example.ToneSource", "!", "example.ToneSource"},
                         "there is no AudioSink \"example.ToneSource\"" + sinks},
                    });
    const TemporaryDirectory directory;
    ExpectResult(
        RunKelhost(directory, {"--plugin", TestPlugin("kelNoElements"), "run", "a", "!", "b"}), 2,
        "", "kelhost: there is no AudioSource \"a\"; none is registered\n");
}

TEST(RunErrors, NameTheChoiceOfTypes) {
    const std::string several =
        "kel.LibsndfileSink is registered for several types; name one as kel.LibsndfileSink:TYPE: "
        "Unknown, AIFF, WAVE, BWAVE or RAW";
    ExpectErrors(2,
                 {
                     {{"kel.LibsndfileSource", "!", "example.LevelMeterSink"},
                      "kel.LibsndfileSource is registered for several types; name one as "
                      "kel.LibsndfileSource:TYPE: AIFF, WAVE or BWAVE"},
                     {{"example.ToneSource", "!", "kel.LibsndfileSink"}, several},
                     {{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=a.mp3"}, several},
                     {{"kel.LibsndfileSource:MP3", "FilePath=a.wav", "!", "example.LevelMeterSink"},
                      "kel.LibsndfileSource is not registered for the type \"MP3\"; use AIFF, "
                      "WAVE or BWAVE"},
                 });
}

TEST(RunErrors, NameTheChoiceOfSettings) {
    const auto withSetting = [](const std::vector<std::string>& settings) {
        std::vector<std::string> words{"example.ToneSource"};
        words.insert(words.end(), settings.begin(), settings.end());
        words.insert(words.end(), {"!", "example.LevelMeterSink"});
        return words;
    };
    const std::string keys = "; it has SampleRate, Channels, Frequency, Level, Length or "
                             "MaxSamplesPerBuffer";
    const auto noNumber = [](const std::string& value) {
        return "invalid value \"" + value +
               "\" for Level of example.ToneSource: expected an integer from -2147483648 to "
               "2147483647";
    };
    ExpectErrors(
        2, {
               {withSetting({"Volume=1"}), "example.ToneSource has no setting \"Volume\"" + keys},
               {withSetting({"=1"}), "example.ToneSource has no setting \"\"" + keys},
               {withSetting({"Level"}), "\"Level\", after example.ToneSource, has no "
                                        "value; settings are key=value"},
               {withSetting({"Level=-1", "Length=5", "Level=-1"}),
                "\"Level\" of example.ToneSource is set twice"},
               {withSetting({"Level="}), noNumber("")},
               {withSetting({"Level=-1dB"}), noNumber("-1dB")},
               {withSetting({"Level=2147483648"}), noNumber("2147483648")},
               {withSetting({"Level=-2147483649"}), noNumber("-2147483649")},
               {withSetting({"Level=\n"}), noNumber("\\n")},
           });
    ExpectErrors(
        2, {
               {{"test.TextSource:WAVE", "Details=all", "!", "example.LevelMeterSink"},
                "invalid value \"all\" for Details of test.TextSource: expected a collection, "
                "which has no text form"},
               {{"example.ToneSource", "!", "example.LevelMeterSink", "Path=a"},
                "example.LevelMeterSink has no setting \"Path\"; did you mean FilePath?"},
           });
}

TEST(RunErrors, NameTheFileOrTheElement) {
    ExpectErrors(
        1, {
               {{"example.ToneSource", "!", "kel.LibsndfileSink:RAW", "FilePath=a.raw"},
                "a.raw: cannot open for writing: the plug-in failed (--verbose shows more)"},
               {{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=a.aiff"},
                "a.aiff: kel.LibsndfileSink:AIFF does not accept 32-bit float little-endian"},
               {{"kel.LibsndfileSource", "FilePath=a.wav", "!", "example.LevelMeterSink"},
                "a.wav: cannot open for reading: No such file or directory"},
               {{"kel.LibsndfileSource", "FilePath=.", "!", "example.LevelMeterSink"},
                ".: is a directory; copy, info and compare accept it with --recursive"},
               {{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=out/a.wav"},
                "out/a.wav: cannot create the file: No such file or directory"},
               {{"example.ToneSource", "!", "example.LevelMeterSink", "FilePath=/dev/null"},
                "/dev/null: is not a regular file; name another output"},
               {{"example.ToneSource", "Length=600000000", "!", "kel.LibsndfileSink",
                 "FilePath=a.wav"},
                "a.wav: would have 4800000000 bytes of samples, and extensible WAVE holds at most "
                "4 GiB; use the type BWAVE"},
           });
}

TEST(RunErrors, ReportADiskThatIsTooSmall) {
    const TemporaryDirectory directory;
    const Arguments words{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=a.wav"};
    Command foreseen = MakeRun(directory, words);
    DisturbSystem(foreseen);
    foreseen.environment["KEL_TEST_DISK_ROOM"] = "1000";
    ExpectResult(RunCommand(foreseen), 1, "",
                 Error("a.wav", "needs 384544 bytes, and its disk has 1000 left; nothing was "
                                "written"));
    Command limited = MakeRun(directory, words);
    limited.mostFileBytes = 100000;
    ExpectResult(RunCommand(limited), 1, "",
                 Error("a.wav", "cannot write the audio: File too large; files are limited to "
                                "100000 bytes (ulimit -f)"));
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(RunErrors, ReportASourceThatHangsWhileItOpens) {
    const TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    ExpectResult(RunElements(directory, {"kel.LibsndfileSource", "FilePath=fifo.wav", "!",
                                         "example.LevelMeterSink", "--open-timeout", "0.2"}),
                 1, "",
                 Error("fifo.wav", "cannot open the file within 0.2 s; it is damaged, a pipe "
                                   "without a writer, or on a mount that does not respond "
                                   "(--open-timeout SECONDS allows more)"));
}

TEST(RunErrors, ReportAnElementThatCrashesAndLeaveNothing) {
    const TemporaryDirectory directory;
    WriteFile(directory / "in.wav", "40000 2 48000 crashes while reading\n");
    ExpectResult(RunCommand(MakeRun(directory, {"test.TextSource", "FilePath=in.wav", "!",
                                                "kel.LibsndfileSink", "FilePath=out.wav"})),
                 1, "",
                 "kelhost: in.wav: the worker process ended with signal 11 (Segmentation fault); "
                 "the file or the plug-in is damaged\n");
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
}

TEST(RunErrors, OfASinkWithoutAFileNameTheSink) {
    const TemporaryDirectory directory;
    Command command = MakeRun(directory, {"example.ToneSource", "!", "test.TextSink:WAVE"});
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "marker";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: test.TextSink: cannot open for writing: [the file cannot be created] [ "
                 "Condition is not true ]\n");
    EXPECT_EQ(SortedNames(directory), Names{});
}

} // namespace kel::test
