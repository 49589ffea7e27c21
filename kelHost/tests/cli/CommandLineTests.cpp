#include "AudioFiles.h"
#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace {

// The levels of the records that are shown, in order.
std::vector<std::string> LevelsShown(const std::string& err) {
    std::vector<std::string> levels;
    for (const std::string& line : LinesOf(err)) {
        const std::size_t level = line.find(' ') + 1;
        levels.push_back(line.substr(level, line.find(' ', level) - level));
    }
    return levels;
}

} // namespace

TEST(CommandLine, ShowsTheVersion) {
    const TemporaryDirectory directory;
    for (const Arguments& arguments : {Arguments{"--version"}, {"copy", "a.wav", "--version"}}) {
        ExpectResult(RunKelhost(directory, arguments), 0, "kelhost " KEL_TEST_VERSION "\n", "");
    }
}

TEST(CommandLine, IsRefusedWithStatus2WhenItIsWrong) {
    struct Usage {
        Arguments arguments;
        std::string err;
    };
    const TemporaryDirectory directory;
    const std::string commands =
        "copy, info, compare, plot, formats, run, inspect, validate or demo\n";
    for (const Usage& usage :
         {Usage{{"--json=", "copy"}, "--json has no value; leave out =; see kelhost copy --help\n"},
          Usage{{"--quiet"}, "a command is missing; see kelhost --help\n"},
          Usage{{"fro\nb", "a.wav"}, "there is no command \"fro\\nb\"; use " + commands},
          Usage{{"fro\nb", "--help"}, "there is no command \"fro\\nb\"; use " + commands},
          Usage{{"help", "fro\nb"}, "there is no command \"fro\\nb\"; use " + commands},
          Usage{{"help", "copy", "run"}, "help expects one command: kelhost help copy\n"},
          Usage{{"cpy", "a.wav"}, "there is no command \"cpy\"; did you mean copy?\n"},
          Usage{{"copy", "--encodin", "int24", "a.wav", "b.wav"},
                "there is no option --encodin; did you mean --encoding? See kelhost copy --help\n"},
          Usage{{"copy", "-skip_existing=1", "a.wav", "b.wav"},
                "there is no option -skip_existing; did you mean --skip-existing? See kelhost copy "
                "--help\n"},
          Usage{{"--vresion"},
                "there is no option --vresion; did you mean --version? See kelhost --help\n"},
          Usage{{"--frobnicate"}, "there is no option --frobnicate; see kelhost --help\n"},
          Usage{{"--", "copy"}, "unexpected argument \"copy\"; see kelhost --help\n"},
          Usage{{"info", "--fro\x1B[2J", "a.wav"},
                "there is no option --fro\\x1B[2J; see kelhost info --help\n"},
          Usage{{"copy"}, "FILE is missing; name audio files, or use --files-from LIST\n"},
          Usage{{"copy", "a.wav"},
                "OUTPUT is missing; name it after the input: kelhost copy a.wav out.wav\n"},
          Usage{{"copy", "a.wav", "b.wav", "c"},
                "copy expects one INPUT and one OUTPUT; to copy 2 files into the directory c, use "
                "--output-dir c\n"},
          Usage{{"copy", "a.wav", "-verbose", "b.wav"},
                "there is no option -verbose; did you mean --verbose? See kelhost copy --help\n"},
          Usage{{"copy", "a.wav", "-oout"},
                "there is no option -oout; did you mean -o out? See kelhost copy --help\n"},
          Usage{{"copy", "a.wav", "b.wav", "--format"},
                "--format needs a value: FORMAT; see kelhost copy --help\n"},
          Usage{{"plot", "a.wav", "--size"},
                "--size needs a value: WxH; see kelhost plot --help\n"},
          Usage{{"copy", "a.wav", "b.wav", "--start", "1", "--start=1"},
                "--start is given twice; see kelhost copy --help\n"},
          Usage{{"copy", "a.wav", "b.wav", "--seed", "3"},
                "--seed requires --dither; see kelhost copy --help\n"},
          Usage{{"formats", "wave"}, "unexpected argument \"wave\"; see kelhost formats --help\n"},
          Usage{{"demo", "a", "b"}, "unexpected argument \"b\"; see kelhost demo --help\n"}}) {
        SCOPED_TRACE(testing::PrintToString(usage.arguments));
        ExpectResult(RunKelhost(directory, usage.arguments), 2, "", "kelhost: " + usage.err);
    }
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(CommandLine, HasNoOptionsAfterTwoHyphens) {
    const TemporaryDirectory directory;
    WriteTake(directory / "-v");
    ExpectResult(RunKelhost(directory, {"copy", "-q", "--", "-v", "--help"}), 2, "",
                 "kelhost: --help: cannot tell the format from the extension; use --format or one "
                 "of .wav, .wave, .rf64, .bwav, .bwave, .bwf, .aiff, .aif, .aifc\n");
    ExpectResult(RunKelhost(directory, {"copy", "--format=wave", "--", "-v", "--version"}), 0,
                 CopyReport("-v", "--version"), "");
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames", "--", "--version"}), 0,
                 "1000\n", "");
}

TEST(CommandLine, HasShortNamesForFrequentOptions) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (int i = 0; i < 2; ++i) {
        ExpectResult(RunKelhost(directory, {"-j2", "copy", "take.wav", "-qf", "-o", "out"}), 0, "",
                     "");
    }
    EXPECT_EQ(SortedNames(directory / "out"), Names{"take.wav"});
    EXPECT_EQ(LevelsShown(RunKelhost(directory, {"info", "-v", "take.wav"}).err),
              (std::vector<std::string>{"Milestone", "Info", "Milestone"}));
}

TEST(CommandLine, RefusesTimesThatAreNoTimes) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    struct Row {
        Arguments arguments;
        std::string option;
        std::string expected;
    };
    for (const Row& row :
         {Row{{"info", "take.wav"}, "--open-timeout", "seconds from 0.001 to 86400"},
          Row{{"info", "take.wav"}, "--stall-timeout", "seconds from 0.001 to 86400, or 0"},
          Row{{"validate", "missing.so"}, "--timeout", "seconds from 0.001 to 86400"}}) {
        for (const std::string value :
             {"nan", "NAN", "-nan", "inf", "-inf", "infinity", "-1", "-0.001", "0.0009", "86400.1",
              "1e999", "1e-999", "", "1s", " 1", "0x10", "1,5"}) {
            SCOPED_TRACE(testing::Message() << row.option << "=" << value);
            ExpectResult(RunKelhost(directory, row.arguments + Arguments{row.option + "=" + value}),
                         2, "",
                         "kelhost: invalid value \"" + value + "\" for " + row.option +
                             ": expected " + row.expected + "\n");
        }
    }
    for (const Arguments& accepted :
         {Arguments{"--open-timeout=1e1"}, Arguments{"--stall-timeout=0"},
          Arguments{"--stall-timeout=86400"}}) {
        EXPECT_EQ(RunKelhost(directory, Arguments{"info", "take.wav"} + accepted).status, 0);
    }
}

TEST(CommandLine, AcceptsGeneralOptionsBeforeAndAfterTheCommand) {
    const TemporaryDirectory directory;
    const std::string plugin = TestPlugin("kelFaultyElements");
    const std::string expected = RunKelhost(directory, {"--plugin", plugin, "inspect"}).out;
    EXPECT_NE(expected.find("test.TextSource"), std::string::npos);
    for (const Arguments& arguments :
         {Arguments{"inspect", "--plugin", plugin}, Arguments{"inspect", "--plugin=" + plugin}}) {
        ExpectResult(RunKelhost(directory, arguments), 0, expected, "");
    }
}

TEST(CommandLineVerbose, ShowsEveryRecordWithItsPlaceAndContext) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const ProcessResult result =
        RunKelhost(directory, {"copy", "--verbose", "take.wav", "copy.wav"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, CopyReport("take.wav", "copy.wav"));
    for (const std::string& line : LinesOf(result.err)) {
        EXPECT_THAT(line, testing::MatchesRegex(
                              "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                              "[A-Z][a-z]+ \\[[0-9]+\\] .* \\([A-Za-z/]+\\.[a-z]+:[0-9]+\\) in "
                              "copy take\\.wav.*"));
    }
    // A source, a converter, a sink, and a source that reads the output back, each with an
    // allocator or a format.
    EXPECT_EQ(LevelsShown(result.err),
              (std::vector<std::string>{"Milestone", "Info", "Milestone", "Milestone", "Milestone",
                                        "Info", "Milestone", "Info", "Milestone"}));
}

TEST(CommandLineVerbose, ShowsTheRecordsThatKEL_LOGNames) {
    using Levels = std::vector<std::string>;
    struct Row {
        std::optional<std::string> level;
        Levels good; // of a file that can be opened
        Levels bad;  // of one that cannot
    };
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", kNoAudio);
    for (const Row& row :
         {Row{std::nullopt, {}, {}}, Row{"", {}, {}}, Row{"none", {}, {}},
          Row{"error", {}, {"Error"}},
          Row{"milestone", {"Milestone", "Milestone"}, {"Milestone", "Error"}},
          Row{"info", {"Milestone", "Info", "Milestone"}, {"Milestone", "Error"}}}) {
        SCOPED_TRACE(row.level.value_or("not set"));
        Command command = Kelhost(directory, {"info", "take.wav"});
        command.environment["KEL_LOG"] = row.level;
        EXPECT_EQ(LevelsShown(RunCommand(command).err), row.good);
        command.arguments = {"info", "text.wav"};
        const std::string err = RunCommand(command).err;
        const std::string message = NoAudioError("text.wav");
        ASSERT_GE(err.size(), message.size());
        EXPECT_EQ(err.substr(err.size() - message.size()), message);
        EXPECT_EQ(LevelsShown(err.substr(0, err.size() - message.size())), row.bad);
    }
    Command command = Kelhost(directory, {"info", "--verbose", "take.wav"});
    command.environment["KEL_LOG"] = "none";
    EXPECT_EQ(LevelsShown(RunCommand(command).err), (Levels{"Milestone", "Info", "Milestone"}));
    command.arguments = {"info", "take.wav"};
    command.environment["KEL_LOG"] = "Info";
    ExpectResult(RunCommand(command), 2, "",
                 "kelhost: invalid value \"Info\" for KEL_LOG: expected none, error, warning, "
                 "milestone or info; did you mean info?\n");
}

TEST(CommandLineOutput, MustNotBeFullOrClosed) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const Arguments& arguments :
         {Arguments{"info", "take.wav"}, Arguments{"inspect"}, Arguments{"--help"},
          Arguments{"--version"}, Arguments{"copy", "--force", "take.wav", "copy.wav"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Command full = Kelhost(directory, arguments);
        full.standardOutput = "/dev/full";
        ExpectResult(RunCommand(full), 1, "", "kelhost: cannot write to standard output\n");

        Command closed = Kelhost(directory, arguments);
        closed.closedDescriptors = {STDOUT_FILENO};
        ExpectResult(RunCommand(closed), 1, "", "kelhost: cannot write to standard output\n");
    }
}

TEST(CommandLineOutput, EndsTheProgramQuietlyWhenItsReaderHasGone) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const Arguments& arguments :
         {Arguments{"info", "take.wav"}, Arguments{"info", "--json", "take.wav"},
          Arguments{"compare", "take.wav", "take.wav"}, Arguments{"plot", "take.wav"},
          Arguments{"copy", "--force", "take.wav", "copy.wav"}, Arguments{"formats"},
          Arguments{"inspect"}, Arguments{"--help"}, Arguments{"--version"},
          Arguments{"validate", KEL_TEST_PLUGIN, "--junit", "report.xml"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Command command = Kelhost(directory, {});
        command.program = "/bin/sh";
        // A pipe that is open for writing and no more for reading.
        command.arguments = Arguments{"-c",
                                      "rm -f pipe && mkfifo pipe && exec 3<>pipe 4>pipe 3<&- && "
                                      "exec \"$0\" \"$@\" >&4",
                                      KEL_TEST_HOST} +
                            arguments;
        ExpectResult(RunCommand(command), 128 + SIGPIPE, "", "");
    }
    // The copy was complete before it was reported. The validation ended after its first line.
    EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "pipe", "take.wav"}));
}

TEST(CommandLineOutput, DoesNotGoIntoTheFilesWhenTheStandardStreamsAreClosed) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string before = ReadFile(directory / "take.wav");
    Command command = Kelhost(directory, {"copy", "--verbose", "take.wav", "copy.wav"});
    command.closedDescriptors = {STDERR_FILENO};
    ExpectResult(RunCommand(command), 0, CopyReport("take.wav", "copy.wav"), "");
    command.arguments.emplace_back("--force");
    command.closedDescriptors = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    EXPECT_EQ(RunCommand(command).status, 1);
    EXPECT_EQ(ReadFile(directory / "take.wav"), before);
    EXPECT_EQ(ReadAudio(directory / "copy.wav").values, MakeValues(2000));
}

TEST(CommandLineOutput, IsNoJobWhenTheStandardStreamsAreClosed) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.wav");
    Command command = Kelhost(
        directory, {"copy", "missing.wav", "a.wav", "b.wav", "--output-dir", "out", "--jobs", "1"});
    for (const std::vector<int>& closed :
         {std::vector<int>{0, 1, 2}, {0, 2}, {1, 2}, {0, 1}, {0}, {1}, {2}}) {
        SCOPED_TRACE(testing::PrintToString(closed));
        command.closedDescriptors = closed;
        const auto isOpen = [&closed](int descriptor) {
            return std::find(closed.begin(), closed.end(), descriptor) == closed.end();
        };
        ExpectResult(
            RunCommand(command), 1,
            isOpen(1) ? CopyReport("a.wav", "out/a.wav") + CopyReport("b.wav", "out/b.wav") +
                            "3 files: 2 copied, 1 failed\n"
                      : "",
            isOpen(2) ? Error("missing.wav", "cannot open for reading: No such file or directory") +
                            (isOpen(1) ? "" : "kelhost: cannot write to standard output\n")
                      : "");
        EXPECT_EQ(SortedNames(directory / "out"), (Names{"a.wav", "b.wav"}));
        std::filesystem::remove_all(directory / "out");
    }
}

TEST(CommandLineOutput, IsTheSameInAnyLocale) {
    const TemporaryDirectory directory;
    WriteTake(directory / "t\xC3\xA4ke.wav");
    for (const char* locale : {"C", "C.UTF-8", "nonsense"}) {
        Command command = Kelhost(directory, {"info", "t\xC3\xA4ke.wav"});
        command.environment["LC_ALL"] = locale;
        ExpectResult(RunCommand(command), 0,
                     "File                 t\xC3\xA4ke.wav\n"
                     "Format               WAVE 16-bit integer\n"
                     "Size                 4044 bytes\n"
                     "Channels             2, no layout\n"
                     "Rate                 48000 Hz\n"
                     "Frames               1000\n"
                     "Duration             0:00:00.021\n",
                     "");
    }
}

} // namespace kel::test
