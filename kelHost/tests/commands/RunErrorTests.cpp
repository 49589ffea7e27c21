// What `kelhost run` refuses, and what it says when it fails.

#include "AudioFiles.h"
#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace {

// `kelhost run` with the elements of the example, of the plug-in and of the tests.
Command MakeRun(const TemporaryDirectory& directory, const std::vector<std::string>& words) {
    std::vector<std::string> arguments;
    for (const std::string& plugin :
         {TestPlugin("kelTone"), std::string(KEL_TEST_PLUGIN), TestPlugin("kelFaultyElements")}) {
        arguments.insert(arguments.end(), {"--plugin", plugin});
    }
    arguments.emplace_back("run");
    arguments.insert(arguments.end(), words.begin(), words.end());
    return Kelhost(directory, arguments);
}

struct Row {
    std::vector<std::string> words;
    std::string error;
};

// Expects errors of a status, and that no file is made.
void ExpectErrors(int status, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const TemporaryDirectory directory;
        ExpectResult(RunCommand(MakeRun(directory, row.words)), status, "",
                     "kelhost: " + row.error + "\n");
        EXPECT_EQ(SortedNames(directory), Names{});
    }
}

} // namespace

TEST(RunErrors, TellHowSourceAndSinkAreWritten) {
    const std::string usage = ": run SOURCE key=value ... ! SINK key=value ...";
    const std::string one =
        "run takes one source and one sink with one \"!\" between them, and got ";
    ExpectErrors(2, {
                        {{"example.ToneSource"}, one + "none" + usage},
                        {{"example.ToneSource", "example.LevelMeterSink"}, one + "none" + usage},
                        {{"example.ToneSource!example.LevelMeterSink"}, one + "none" + usage},
                        {{"a", "!", "b", "!", "c"}, one + "2" + usage},
                        {{"!", "!"}, one + "2" + usage},
                        {{"!"}, "there is no source before the \"!\"" + usage},
                        {{"!", "b"}, "there is no source before the \"!\"" + usage},
                        {{"a", "!"}, "there is no sink behind the \"!\"" + usage},
                        {{"a", "b=1", "!"}, "there is no sink behind the \"!\"" + usage},
                    });
    const TemporaryDirectory directory;
    ExpectResult(RunCommand(MakeRun(directory, {})), 2, "",
                 "ELEMENT is required\nRun with --help for more information.\n");
}

TEST(RunErrors, NameTheElementsThatThereAre) {
    const std::string sources = "; choose from example.ToneSource, kel.LibsndfileSource, "
                                "test.TextSource";
    const std::string sinks = "; choose from example.LevelMeterSink, kel.LibsndfileSink, "
                              "test.TextSink";
    ExpectErrors(
        2,
        {
            {{"kel.Nothing", "!", "kel.LibsndfileSink"},
             "there is no AudioSource \"kel.Nothing\"" + sources},
            {{"kel.LibsndfileSink", "!", "kel.LibsndfileSink"},
             "there is no AudioSource \"kel.LibsndfileSink\"" + sources},
            {{"kel", "!", "kel.LibsndfileSink"}, "there is no AudioSource \"kel\"" + sources},
            {{"a\n\xFF", "!", "kel.LibsndfileSink"},
             "there is no AudioSource \"a\\n\\xFF\"" + sources},
            {{"", "!", "kel.LibsndfileSink"}, "there is no AudioSource \"\"" + sources},
            {{"example.ToneSource", "!", "example.ToneSource"},
             "there is no AudioSink \"example.ToneSource\"" + sinks},
            {{"example.ToneSource", "!", "Level=3"}, "there is no AudioSink \"Level=3\"" + sinks},
        });
    const TemporaryDirectory directory;
    ExpectResult(
        RunKelhost(directory, {"--plugin", TestPlugin("kelNoElements"), "run", "a", "!", "b"}), 2,
        "", "kelhost: there is no AudioSource \"a\"; none is registered\n");
}

TEST(RunErrors, NameTheTypesThatThereAre) {
    const std::string several =
        "kel.LibsndfileSink is registered for several types; say which, kel.LibsndfileSink:TYPE, "
        "with one of Unknown, AIFF, WAVE, BWAVE, RAW";
    ExpectErrors(
        2, {
               {{"kel.LibsndfileSource", "!", "example.LevelMeterSink"},
                "kel.LibsndfileSource is registered for several types; say which, "
                "kel.LibsndfileSource:TYPE, with one of AIFF, WAVE, BWAVE"},
               {{"example.ToneSource", "!", "kel.LibsndfileSink"}, several},
               {{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=a.mp3"}, several},
               {{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath="}, several},
               {{"kel.LibsndfileSource:MP3", "FilePath=a.wav", "!", "example.LevelMeterSink"},
                "kel.LibsndfileSource is not registered for the type \"MP3\"; choose from AIFF, "
                "WAVE, BWAVE"},
               {{"example.ToneSource:WAVE", "!", "example.LevelMeterSink"},
                "example.ToneSource is not registered for the type \"WAVE\"; choose from Unknown"},
               {{"example.ToneSource:", "!", "example.LevelMeterSink"},
                "example.ToneSource is not registered for the type \"\"; choose from Unknown"},
           });
}

TEST(RunErrors, NameTheSettingsThatThereAre) {
    const auto withSetting = [](const std::vector<std::string>& settings) {
        std::vector<std::string> words{"example.ToneSource"};
        words.insert(words.end(), settings.begin(), settings.end());
        words.insert(words.end(), {"!", "example.LevelMeterSink"});
        return words;
    };
    const std::string keys = "; it has SampleRate, Channels, Frequency, Level, Length, "
                             "MaxSamplesPerBuffer";
    const auto noNumber = [](const std::string& value) {
        return "\"Level\" of example.ToneSource cannot be \"" + value +
               "\"; it is a whole number from -2147483648 to 2147483647";
    };
    ExpectErrors(
        2, {
               {withSetting({"Volume=1"}), "example.ToneSource has no setting \"Volume\"" + keys},
               {withSetting({"level=1"}), "example.ToneSource has no setting \"level\"" + keys},
               {withSetting({"=1"}), "example.ToneSource has no setting \"\"" + keys},
               {withSetting({"Level"}), "\"Level\", behind example.ToneSource, has no "
                                        "value; settings are key=value"},
               {withSetting({"Level=-1", "Length=5", "Level=-1"}),
                "\"Level\" of example.ToneSource is set twice"},
               {withSetting({"Level="}), noNumber("")},
               {withSetting({"Level=loud"}), noNumber("loud")},
               {withSetting({"Level=-1dB"}), noNumber("-1dB")},
               {withSetting({"Level= -1"}), noNumber(" -1")},
               {withSetting({"Level=+1"}), noNumber("+1")},
               {withSetting({"Level=-1.5"}), noNumber("-1.5")},
               {withSetting({"Level=0x1"}), noNumber("0x1")},
               {withSetting({"Level=2147483648"}), noNumber("2147483648")},
               {withSetting({"Level=-2147483649"}), noNumber("-2147483649")},
               {withSetting({"Level=\n"}), noNumber("\\n")},
           });
    ExpectErrors(2, {
                        {{"test.TextSource:WAVE", "Details=all", "!", "example.LevelMeterSink"},
                         "\"Details\" of test.TextSource cannot be \"all\"; it is a collection, "
                         "which has no text"},
                        {{"example.ToneSource", "!", "example.LevelMeterSink", "Path=a"},
                         "example.LevelMeterSink has no setting \"Path\"; it has FilePath"},
                    });
}

TEST(RunErrors, AreThoseOfTheElementWhereItRefusesAValue) {
    ExpectErrors(1, {
                        {{"example.ToneSource", "Level=2147483647", "!", "example.LevelMeterSink"},
                         "example.ToneSource: cannot be read: [Level is 2147483647, not from -200 "
                         "to 0] [ Condition is not true ]"},
                        {{"example.ToneSource", "!", "kel.LibsndfileSink:RAW", "FilePath=a.raw"},
                         "a.raw: cannot be written: [Only AIFF and WAVE/BWAVE wrapper formats (or "
                         "extensions) are supported]"},
                    });
}

TEST(RunErrors, TellOfSamplesThatTheSinkDoesNotTake) {
    ExpectErrors(1, {{{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=a.aiff"},
                      "a.aiff: kel.LibsndfileSink:AIFF does not take 32-bit float little-endian"}});
}

TEST(RunErrors, TellOfFilesThatCanNotBeReadOrWritten) {
    ExpectErrors(1,
                 {
                     {{"kel.LibsndfileSource", "FilePath=a.wav", "!", "example.LevelMeterSink"},
                      "a.wav: No such file or directory"},
                     {{"kel.LibsndfileSource", "FilePath=.", "!", "example.LevelMeterSink"},
                      ".: is a directory; name the audio files in it"},
                     {{"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=out/a.wav"},
                      "out/a.wav: cannot be created: No such file or directory"},
                     {{"example.ToneSource", "!", "example.LevelMeterSink", "FilePath=/dev/null"},
                      "/dev/null: is not a regular file; name another output"},
                 });
}

TEST(RunErrors, TellOfATypeThatIsTooSmallBeforeAnythingIsWritten) {
    ExpectErrors(1, {{{"example.ToneSource", "Length=600000000", "!", "kel.LibsndfileSink",
                       "FilePath=a.wav"},
                      "a.wav: would have 4800000000 bytes of samples, and extensible WAVE holds 4 "
                      "GiB at most; use the type BWAVE"}});
}

TEST(RunErrors, TellOfADiskThatIsTooSmallBeforeAnythingIsWritten) {
    const TemporaryDirectory directory;
    Command command =
        MakeRun(directory, {"example.ToneSource", "Channels=1000", "Length=2147483647", "!",
                            "kel.LibsndfileSink", "FilePath=a.rf64"});
    command.mostFileBytes = 1U << 20U; // else the disk of who breaks this would be full
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, testing::MatchesRegex(
                                "kelhost: a\\.rf64: needs 8589934[0-9]+ bytes, and its disk has "
                                "[0-9]+ left; nothing was written\n"));
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(RunErrors, TellOfAFileThatMayNotGrow) {
    const TemporaryDirectory directory;
    Command command =
        MakeRun(directory, {"example.ToneSource", "!", "kel.LibsndfileSink", "FilePath=a.wav"});
    command.mostFileBytes = 100000;
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: a.wav: Warning: tried to write 8192 bytes but could only write 1584; "
                 "files may have 100000 bytes at most here (ulimit -f)\n");
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(RunErrors, TellOfASourceThatHangsWhileItOpens) {
    const TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    ExpectResult(
        RunCommand(MakeRun(directory, {"kel.LibsndfileSource", "FilePath=fifo.wav", "!",
                                       "example.LevelMeterSink", "--open-timeout", "0.2"})),
        1, "",
        "kelhost: fifo.wav: could not be opened within 0.2 s; it is damaged, or nobody "
        "writes into it (--open-timeout SECONDS allows more)\n");
}

TEST(RunErrors, TellOfAnElementThatCrashesAndLeaveNothing) {
    const TemporaryDirectory directory;
    WriteFile(directory / "in.wav", "40000 2 48000 crashes while reading\n");
    ExpectResult(RunCommand(MakeRun(directory, {"test.TextSource", "FilePath=in.wav", "!",
                                                "kel.LibsndfileSink", "FilePath=out.wav"})),
                 1, "",
                 "kelhost: in.wav: the process that worked on it was ended by signal 11 "
                 "(Segmentation fault); the file is damaged, or the plug-in is\n");
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
}

TEST(RunErrors, OfASinkWithoutAFileNameTheSink) {
    const TemporaryDirectory directory;
    Command command = MakeRun(directory, {"example.ToneSource", "!", "test.TextSink:WAVE"});
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "marker";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: test.TextSink: cannot be written: [the file cannot be created] [ "
                 "Condition is not true ]\n");
    EXPECT_EQ(SortedNames(directory), Names{});
}

} // namespace kel::test
