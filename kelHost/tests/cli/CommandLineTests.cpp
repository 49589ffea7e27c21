#include "AudioFiles.h"
#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace {

constexpr const char* kRunHelp = "Run with --help for more information.\n";

struct Usage {
    std::vector<std::string> arguments;
    std::string err;
};

// "LEVEL|MESSAGE|FILE|CONTEXT" of a line that shows a record. Times, threads and lines change from
// run to run and from version to version, so that only their form is looked at.
std::string WithoutChangingParts(const std::string& line) {
    EXPECT_THAT(line, testing::MatchesRegex(
                          "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                          "[A-Z][a-z]+ \\[[0-9]+\\] .* \\([A-Za-z/]+\\.[a-z]+:[0-9]+\\) in .*"));
    const std::size_t level = line.find(' ') + 1;
    const std::size_t thread = line.find(" [", level);
    const std::size_t message = line.find("] ", thread) + 2;
    const std::size_t file = line.rfind(" (") + 2;
    const std::size_t number = line.find(':', file);
    const std::size_t context = line.find(") in ", number) + 5;
    if (context > line.size()) {
        return line;
    }
    return line.substr(level, thread - level) + "|" + line.substr(message, file - 2 - message) +
           "|" + line.substr(file, number - file) + "|" + line.substr(context);
}

// Expects that commands fail when standard output takes nothing.
void ExpectStandardOutputIsNeeded(const std::vector<std::vector<std::string>>& commands) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const auto& arguments : commands) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Command full = Kelhost(directory, arguments);
        full.standardOutput = "/dev/full";
        ExpectResult(RunCommand(full), 1, "", "kelhost: standard output cannot be written\n");

        Command closed = Kelhost(directory, arguments);
        closed.closedDescriptors = {STDOUT_FILENO};
        ExpectResult(RunCommand(closed), 1, "", "kelhost: standard output cannot be written\n");
    }
}

} // namespace

TEST(CommandLine, ShowsHelpOnStandardOutput) {
    const TemporaryDirectory directory;
    for (const char* option : {"--help", "-h"}) {
        ExpectResult(
            RunKelhost(directory, {option}), 0,
            "Copies, converts and describes audio files through the elements of a media-workflow "
            "framework.\n"
            "Usage: kelhost [OPTIONS] SUBCOMMAND\n"
            "\n"
            "Options:\n"
            "  -h,--help                   Print this help message and exit\n"
            "  --version                   Display program version information and exit\n"
            "  --plugin FILE ...           Load this plug-in instead of those in KEL_PLUGIN_PATH "
            "or beside the program; may be given several times\n"
            "  --json                      Results, errors and log records as JSON\n"
            "  --quiet                     No progress, no reports of what was written\n"
            "  --progress STYLE:{auto,none,json}=auto\n"
            "                              auto (on a terminal), none, or json: lines of JSON on "
            "standard error\n"
            "  --jobs N:UINT in [1 - 256]  Files worked on at once; else as many as processors\n"
            "  --open-timeout SECONDS:FLOAT in [0.001 - 86400]=10\n"
            "                              Seconds that opening a file may take\n"
            "  --verbose                   Show all log records; KEL_LOG=none, error, warning, "
            "milestone or info shows some\n"
            "\n"
            "Subcommands:\n"
            "  copy                        Copy and convert audio files\n"
            "  run                         Run any source into any sink\n"
            "  info                        Show what is in audio files\n"
            "  plot                        Draw the waveform of an audio file\n"
            "  formats                     Show which encodings go into which containers\n"
            "  inspect                     Show the elements that are registered\n"
            "  validate                    Check that a plug-in does what the framework demands\n"
            "  demo                        Write a short tone and copy it into every format\n"
            "\n"
            "Examples:\n"
            "  kelhost copy take.flac take.wav                   convert a recording\n"
            "  kelhost copy *.flac --output-dir wave             convert a directory of them\n"
            "  kelhost info *.wav                                what is in these files?\n"
            "  kelhost info --measure take.wav                   its levels and loudness\n"
            "  kelhost plot take.wav                             look at it\n"
            "  kelhost copy --help                               more about a command\n"
            "\n"
            "Results go to standard output, everything else to standard error.\n"
            "Exit status: 0 all of it worked, 1 the job failed, 2 the command line was wrong, 130 "
            "interrupted, 143 terminated.\n",
            "");
    }
}

TEST(CommandLine, ShowsTheHelpOfEachCommandOnStandardOutput) {
    const TemporaryDirectory directory;
    struct Row {
        std::string command;
        std::string usage;
    };
    for (const Row& row :
         {Row{"copy", "Copy and convert audio files\nUsage: kelhost copy [OPTIONS] FILE...\n"},
          Row{"info", "Show what is in audio files\nUsage: kelhost info [OPTIONS] FILE...\n"},
          Row{"inspect", "Show the elements that are registered\n"
                         "Usage: kelhost inspect [OPTIONS] [IMPLEMENTATION]\n"},
          Row{"demo", "Write a short tone and copy it into every format\n"
                      "Usage: kelhost demo [OPTIONS] [DIRECTORY]\n"}}) {
        SCOPED_TRACE(row.command);
        const ProcessResult result = RunKelhost(directory, {row.command, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out.substr(0, row.usage.size()), row.usage);
        EXPECT_EQ(result.err, "");
    }
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(CommandLine, ShowsTheVersionOnStandardOutput) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"--version"}), 0, "kelhost " KEL_TEST_VERSION "\n", "");
}

TEST(CommandLine, IsRefusedWithStatus2WhenItIsWrong) {
    const TemporaryDirectory directory;
    const std::vector<Usage> cases{
        {{}, "a command is missing: copy, run, info, plot, formats, inspect, validate, demo\n"},
        {{"frobnicate"},
         "there is no command \"frobnicate\"; choose from copy, run, info, plot, formats, inspect, "
         "validate, demo\n"},
        {{"fro\nb", "a.wav"},
         "there is no command \"fro\\nb\"; choose from copy, run, info, plot, formats, inspect, "
         "validate, demo\n"},
        {{"--frobnicate"}, "there is no option --frobnicate before a command\n"},
        {{"info", "--fro\x1B[2J", "a.wav"},
         "The following argument was not expected: --fro\\x1B[2J\n"},
        {{"copy"}, "FILE is required\n"},
        {{"copy", "--frobnicate", "a.wav", "b.wav"},
         "The following argument was not expected: --frobnicate\n"},
        {{"copy", "a.wav", "b.wav", "--format"}, "--format: 1 required FORMAT missing\n"},
        {{"info"}, "FILE is required\n"},
        {{"inspect", "a", "b"}, "The following argument was not expected: b\n"},
        {{"demo", "a", "b"}, "The following argument was not expected: b\n"},
        {{"info", "a.wav", "--plugin"}, "--plugin: 1 required FILE missing\n"},
    };
    for (const Usage& entry : cases) {
        SCOPED_TRACE(testing::PrintToString(entry.arguments));
        ExpectResult(RunKelhost(directory, entry.arguments), 2, "", entry.err + kRunHelp);
    }
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(CommandLine, NeedsAnInputAndAnOutputToCopy) {
    const TemporaryDirectory directory;
    for (const std::vector<std::string>& files :
         {std::vector<std::string>{"take.wav"}, {"a.wav", "b.wav", "c.wav"}}) {
        std::vector<std::string> arguments{"copy"};
        arguments.insert(arguments.end(), files.begin(), files.end());
        ExpectResult(RunKelhost(directory, arguments), 2, "",
                     "kelhost: copy takes one INPUT and one OUTPUT, or several inputs with "
                     "--output-dir\n");
    }
}

TEST(CommandLine, TakesTheGeneralOptionsBeforeAndAfterTheCommand) {
    const TemporaryDirectory directory;
    const std::string plugin = TestPlugin("kelFaultyElements");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--plugin", plugin, "inspect"},
          std::vector<std::string>{"inspect", "--plugin", plugin},
          std::vector<std::string>{"inspect", "--plugin=" + plugin}}) {
        ExpectResult(RunKelhost(directory, arguments), 0,
                     "Implementation   Kind                  Types              Registered by\n"
                     "kel              MemoryBlockAllocator  Recycler           kelCore\n"
                     "test.TextSource  AudioSource           WAVE, AIFF, BWAVE  " +
                         plugin + "\n" +
                         "test.TextSink    AudioSink             WAVE, AIFF, BWAVE  " + plugin +
                         "\n",
                     "");
    }
}

TEST(CommandLine, KnowsEveryCommandThatItsMessagesName) {
    const TemporaryDirectory directory;
    for (const char* command : {"copy", "inspect", "formats"}) {
        const std::string usage = std::string("\nUsage: kelhost ") + command + " [OPTIONS]";
        EXPECT_NE(RunKelhost(directory, {command, "--help"}).out.find(usage), std::string::npos)
            << command;
    }
}

TEST(CommandLineVerbose, ShowsEveryRecordWithItsPlace) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const ProcessResult result =
        RunKelhost(directory, {"copy", "--verbose", "take.wav", "copy.wav"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "take.wav -> copy.wav: extensible WAVE, float32 little-endian, 2 "
                          "channels, 48000 Hz, 1000 frames, 0:00:00.021\n");

    const std::string step = "kelCore/include/WorkflowStepImplementation.h|copy take.wav";
    const std::string source = "kelLibsndfile/LibsndfileSource.cpp|copy take.wav";
    const std::string sink = "kelLibsndfile/LibsndfileSink.cpp|copy take.wav";
    const std::vector<std::string> expected{
        "Milestone|[MILESTONE][ImplementElement AudioSource.kel.LibsndfileSource.WAVE]|" + step,
        "Info|Successfully opened \"take.wav\" -- nb channels: 2 nb samples (in each channel): "
        "1000 format: 65538|" +
            source,
        "Milestone|[MILESTONE][ImplementElement MemoryBlockAllocator.kel.Recycler]|" + step,
        "Milestone|[MILESTONE][ImplementElement AudioSink.kel.LibsndfileSink.WAVE]|" + step,
        "Info|Read the following WrapperFormat from both extension and type: WAVE|" + sink,
        "Milestone|[MILESTONE][ImplementElement AudioSource.kel.LibsndfileSource.WAVE]|" + step,
        "Info|Successfully opened \".kelhost-XXXXXX.part.wav\" -- nb channels: 2 nb samples (in "
        "each channel): 1000 format: 1245190|" +
            source,
        "Milestone|[MILESTONE][ImplementElement MemoryBlockAllocator.kel.Recycler]|" + step,
    };
    std::vector<std::string> records;
    std::istringstream lines(WithoutRandomNames(result.err));
    for (std::string line; std::getline(lines, line);) {
        records.push_back(WithoutChangingParts(line));
    }
    EXPECT_EQ(records, expected);
}

// The levels of the records that are shown, in their order, each as often as it comes.
std::vector<std::string> LevelsShown(const std::string& err) {
    std::vector<std::string> levels;
    std::istringstream lines(err);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t level = line.find(' ') + 1;
        levels.push_back(line.substr(level, line.find(' ', level) - level));
    }
    return levels;
}

TEST(CommandLineVerbose, ShowsTheRecordsThatKEL_LOGNames) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", "no audio at all, but a text of some length\n");
    using Levels = std::vector<std::string>;
    struct Row {
        std::optional<std::string> level;
        Levels good; // of a file that can be opened
        Levels bad;  // of one that cannot
    };
    for (const Row& row :
         std::vector<Row>{{std::nullopt, {}, {}},
                          {"", {}, {}},
                          {"none", {}, {}},
                          {"error", {}, {"Error"}},
                          {"warning", {}, {"Error"}},
                          {"milestone", {"Milestone", "Milestone"}, {"Milestone", "Error"}},
                          {"info", {"Milestone", "Info", "Milestone"}, {"Milestone", "Error"}}}) {
        SCOPED_TRACE(row.level.value_or("not set"));
        Command command = Kelhost(directory, {"info", "take.wav"});
        command.environment["KEL_LOG"] = row.level;
        const ProcessResult good = RunCommand(command);
        EXPECT_EQ(good.status, 0);
        EXPECT_EQ(LevelsShown(good.err), row.good);
        command.arguments = {"info", "text.wav"};
        const ProcessResult bad = RunCommand(command);
        EXPECT_EQ(bad.status, 1);
        const std::string message =
            "kelhost: text.wav: cannot be read: [Unable to open file \"text.wav\" with "
            "libsndfile. Error is:\"Format not recognised.\"]\n";
        ASSERT_GE(bad.err.size(), message.size());
        EXPECT_EQ(bad.err.substr(bad.err.size() - message.size()), message);
        EXPECT_EQ(LevelsShown(bad.err.substr(0, bad.err.size() - message.size())), row.bad);
    }
}

TEST(CommandLineVerbose, OutdoesKEL_LOG) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    Command command = Kelhost(directory, {"info", "--verbose", "take.wav"});
    command.environment["KEL_LOG"] = "none";
    EXPECT_EQ(LevelsShown(RunCommand(command).err),
              (std::vector<std::string>{"Milestone", "Info", "Milestone"}));
}

TEST(CommandLineVerbose, RefusesALevelThatKEL_LOGDoesNotKnow) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const std::string level : {"loud", "Info", "errors", " info"}) {
        Command command = Kelhost(directory, {"info", "take.wav"});
        command.environment["KEL_LOG"] = level;
        ExpectResult(RunCommand(command), 2, "",
                     "kelhost: KEL_LOG knows no level \"" + level +
                         "\"; choose from none, error, warning, milestone, info\n");
    }
}

TEST(CommandLineOutput, MustNotBeFullOrClosedForResults) {
    ExpectStandardOutputIsNeeded({{"info", "take.wav"},
                                  {"inspect"},
                                  {"inspect", "kel"},
                                  {"copy", "--force", "take.wav", "copy.wav"},
                                  {"demo"}});
}

TEST(CommandLineOutput, MustNotBeFullOrClosedForHelpAndVersion) {
    ExpectStandardOutputIsNeeded({{"--help"}, {"copy", "--help"}, {"--version"}});
}

TEST(CommandLineOutput, DoesNotGoIntoTheFilesWhenTheStandardStreamsAreClosed) {
    for (const std::string extension : {"wav", "rf64", "aiff"}) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        const std::string before = Content(directory / "take.wav");
        Command command = Kelhost(
            directory, {"copy", "--verbose", "--format", "wave", "take.wav", "copy." + extension});
        command.closedDescriptors = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
        EXPECT_EQ(RunCommand(command).status, 1);
        EXPECT_EQ(Content(directory / "take.wav"), before);
        EXPECT_EQ(ReadAudio(directory / ("copy." + extension)).values,
                  ReadAudio(directory / "take.wav").values);
    }
}

TEST(CommandLineOutput, SaysNothingOnStandardErrorThatCouldNotBeSaid) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    Command command = Kelhost(directory, {"copy", "--verbose", "take.wav", "copy.wav"});
    command.closedDescriptors = {STDERR_FILENO};
    ExpectResult(RunCommand(command), 0,
                 "take.wav -> copy.wav: extensible WAVE, float32 little-endian, 2 channels, 48000 "
                 "Hz, 1000 frames, 0:00:00.021\n",
                 "");
    EXPECT_EQ(ReadAudio(directory / "copy.wav").values, ReadAudio(directory / "take.wav").values);
}

TEST(CommandLineOutput, IsTheSameFromAnyDirectoryAndWithAnyLocale) {
    const TemporaryDirectory directory;
    WriteTake(directory / "t\xC3\xA4ke.wav");
    for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8", "nonsense"}) {
        Command command = Kelhost(directory, {"info", "t\xC3\xA4ke.wav"});
        command.environment["LC_ALL"] = locale;
        ExpectResult(RunCommand(command), 0,
                     "File      Channels      Rate  Frames     Duration  Delivered as\n"
                     "t\xC3\xA4ke.wav         2  48000 Hz    1000  0:00:00.021  32-bit float "
                     "little-endian\n",
                     "");
    }
}

} // namespace kel::test
