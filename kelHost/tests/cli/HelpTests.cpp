#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kel::test {

namespace {

const std::vector<std::string> kCommands{"copy", "info",    "compare",  "plot", "formats",
                                         "run",  "inspect", "validate", "demo"};

// The lines to type below "Examples:", without their explanations after two blanks. A backslash
// continues a line.
std::vector<std::string> Examples(const std::string& help) {
    std::vector<std::string> examples;
    bool within = false;
    bool continues = false;
    for (const std::string& line : LinesOf(help)) {
        within = line == "Examples:" || (within && !line.empty());
        const std::string text = line.substr(std::min(line.size(), line.find_first_not_of(' ')));
        if (continues) {
            examples.back() += text;
        } else if (within && text.rfind("kelhost ", 0) == 0) {
            examples.push_back(text.substr(0, text.find("  ")));
        } else {
            continue;
        }
        continues = examples.back().back() == '\\';
        if (continues) {
            examples.back().pop_back();
        }
    }
    return examples;
}

// Makes the files of the examples.
void MakeRecordings(const TemporaryDirectory& directory) {
    const std::vector<float> values(2U * 95 * 1000, 0.25F);
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 1000, values);
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 1000, values);
    WriteAudio(directory / "second.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 1000, {0.5F, 0.5F});
    for (const char* name : {"recordings", "copies"}) {
        std::filesystem::create_directory(directory / name);
        std::filesystem::copy(directory / "take.wav", directory / name);
    }
    std::filesystem::create_symlink(KEL_TEST_PLUGIN, directory / "libkelLibsndfile.so");
}

void RunExamples(const std::vector<std::string>& examples) {
    const std::string programs = std::filesystem::path(KEL_TEST_HOST).parent_path();
    const char* path = std::getenv("PATH");
    for (const std::string& example : examples) {
        SCOPED_TRACE(example);
        const TemporaryDirectory directory;
        MakeRecordings(directory);
        // The output of this example.
        if (example == "kelhost copy take.flac take.wav") {
            std::filesystem::remove(directory / "take.wav");
        }
        Command command;
        command.program = "/bin/sh";
        // Checks of a whole plug-in take seconds.
        const bool validates = example.rfind("kelhost validate ", 0) == 0;
        command.arguments = {"-c", example + (validates ? " --check plugin.loads" : "")};
        command.directory = directory.Path();
        command.environment["PATH"] = programs + ":" + (path != nullptr ? path : "");
        command.environment["KEL_PLUGIN_PATH"] = std::nullopt;
        const ProcessResult result = RunCommand(command);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
    }
}

// The help as it is shown in lines of a number of characters.
std::string HelpOfWidth(const TemporaryDirectory& directory, const std::string& columns,
                        const Arguments& arguments) {
    Command command = Kelhost(directory, arguments);
    command.environment["COLUMNS"] = columns;
    return RunCommand(command).out;
}

std::size_t LongestLine(const std::string& text) {
    std::size_t longest = 0;
    for (const std::string& line : LinesOf(text)) {
        longest = std::max(longest, line.size());
    }
    return longest;
}

} // namespace

TEST(Help, ShowsExamplesCommandsAndGeneralOptions) {
    const TemporaryDirectory directory;
    const std::string help =
        "kelhost copies, converts, measures and plots audio files.\n"
        "\n"
        "Examples:\n"
        "  kelhost copy take.flac take.wav        Convert a recording\n"
        "  kelhost copy *.flac --output-dir wave  Convert several\n"
        "  kelhost info take.wav                  Show facts about a file\n"
        "  kelhost info --measure *.wav           Measure levels and loudness\n"
        "  kelhost compare take.flac take.wav     Compare the audio of two files\n"
        "  kelhost plot take.wav                  Draw the waveform\n"
        "  kelhost help copy                      Show the options of a command\n"
        "\n"
        "Usage:\n"
        "  kelhost COMMAND [OPTION...] [ARGUMENT...]\n"
        "\n"
        "Commands:\n"
        "  copy      Copy and convert audio files\n"
        "  info      Show facts about audio files, or measure them\n"
        "  compare   Compare the audio of two files\n"
        "  plot      Draw the waveform of an audio file\n"
        "  formats   Show which encodings each container supports\n"
        "  run       Run any source into any sink\n"
        "  inspect   Show the elements of the plug-ins\n"
        "  validate  Check that a plug-in meets the framework's rules\n"
        "  demo      Write a short tone and copy it into every format\n"
        "  help      Show the help of the program or of a command\n"
        "\n"
        "General options:\n"
        "      --plugin FILE     Load this plug-in instead of those in KEL_PLUGIN_PATH or\n"
        "                        next to the program; repeatable\n"
        "      --json            Write results, errors and log records as JSON\n"
        "  -q, --quiet           Show no progress and no reports of written files\n"
        "      --progress STYLE  auto (on a terminal), none, or json: lines of JSON on\n"
        "                        standard error (default: auto)\n"
        "  -j, --jobs N          Work on N files at once (default: the number of\n"
        "                        processors)\n"
        "      --open-timeout SECONDS\n"
        "                        Maximum time for opening a file (default: 10)\n"
        "      --stall-timeout SECONDS\n"
        "                        Maximum time without data from a file that is read; 0:\n"
        "                        no limit (default: 60)\n"
        "  -v, --verbose         Show all log records; KEL_LOG=none, error, warning,\n"
        "                        milestone or info selects some\n"
        "      --version         Show the version\n"
        "  -h, --help            Show the help of the program or of a command\n"
        "\n"
        "Results go to standard output, everything else to standard error.\n"
        "Exit status: 0 success, 1 the job failed, 2 usage error, 130 interrupted, 143\n"
        "terminated.\n";
    for (const Arguments& arguments :
         {Arguments{}, {"help"}, {"--help"}, {"-h"}, {"-q", "--help", "--frobnicate"}}) {
        ExpectResult(RunKelhost(directory, arguments), 0, help, "");
    }
    RunExamples(Examples(help));
}

TEST(Help, ShowsTheExamplesAndOptionsOfACommand) {
    const TemporaryDirectory directory;
    const std::string help =
        "Compare the audio of two files.\n"
        "\n"
        "Examples:\n"
        "  Find the first difference:\n"
        "    kelhost compare take.wav take.flac\n"
        "  Ignore differences that cannot be heard:\n"
        "    kelhost compare take.wav take.flac --tolerance -90dB\n"
        "  Compare two directories:\n"
        "    kelhost compare -r recordings copies\n"
        "  Use the exit status:\n"
        "    kelhost compare -q take.wav take.flac && echo same\n"
        "\n"
        "Usage:\n"
        "  kelhost compare [OPTION...] A B\n"
        "\n"
        "Arguments:\n"
        "  A                         The first file; - is standard input; with\n"
        "                            --recursive, a directory\n"
        "  B                         The second file, or -\n"
        "\n"
        "Comparison:\n"
        "      --tolerance VALUE     Largest accepted difference of two values: 0.001 of\n"
        "                            full scale, or -60dB (default: 0)\n"
        "      --start-a TIME        Beginning of the part of A: seconds (12.5),\n"
        "                            h:mm:ss.mmm or frames (48000f)\n"
        "      --start-b TIME        Beginning of the part of B\n"
        "      --duration TIME       Duration of both parts\n"
        "\n"
        "Damaged inputs and pipes:\n"
        "      --allow-truncated     Accept an input that ends early, with the frames\n"
        "                            that exist\n"
        "      --repair              Read an input with a wrong header through a copy in\n"
        "                            the temporary directory\n"
        "      --temp-dir DIRECTORY  Directory for temporary copies (default: TMPDIR, or\n"
        "                            /tmp)\n"
        "      --max-spool SIZE      Maximum size of the temporary copy of a pipe: 500M,\n"
        "                            16G; 0: no limit (default: 8G)\n"
        "\n"
        "Directories:\n"
        "  -r, --recursive           Accept directories, and use all files in them\n"
        "      --include PATTERN     Use only the files in directories whose names match:\n"
        "                            *.wav; with \"/\" the path is compared: 2024/*.wav;\n"
        "                            repeatable (only with --recursive)\n"
        "      --exclude PATTERN     Leave out the files and directories whose names\n"
        "                            match; repeatable (only with --recursive)\n"
        "      --follow-links        Follow symbolic links in directories (only with\n"
        "                            --recursive)\n"
        "\n"
        "General options, see kelhost help: --plugin, --json, --quiet, --progress,\n"
        "--jobs, --open-timeout, --stall-timeout, --verbose\n"
        "\n"
        "Exit status: 0 the audio is the same, 1 it is different, 2 failure: a file\n"
        "cannot be read, or the command line is wrong.\n";
    for (const Arguments& arguments : {Arguments{"help", "compare"},
                                       {"compare", "--help"},
                                       {"compare", "a.wav", "--frobnicate", "-h"}}) {
        ExpectResult(RunKelhost(directory, arguments), 0, help, "");
    }
}

class HelpOfCommand : public testing::TestWithParam<std::string> {};

TEST_P(HelpOfCommand, HasTwoToFourExamplesThatWork) {
    const TemporaryDirectory directory;
    const std::string help = RunKelhost(directory, {"help", GetParam()}).out;
    const std::vector<std::string> examples = Examples(help);
    EXPECT_GE(examples.size(), 2U);
    EXPECT_LE(examples.size(), 4U);
    for (const std::string& example : examples) {
        EXPECT_EQ(example.rfind("kelhost " + GetParam(), 0), 0U) << example;
    }
    RunExamples(examples);
}

TEST_P(HelpOfCommand, IsAsWideAsTheTerminalWithinLimits) {
    const TemporaryDirectory directory;
    const Arguments arguments{"help", GetParam()};
    const std::string help = RunKelhost(directory, arguments).out;
    EXPECT_LE(LongestLine(help), 80U);
    EXPECT_EQ(HelpOfWidth(directory, "0", arguments), help);
    EXPECT_EQ(HelpOfWidth(directory, "wide", arguments), help);
    const std::string wide = HelpOfWidth(directory, "100", arguments);
    EXPECT_LE(LongestLine(wide), 100U);
    EXPECT_EQ(HelpOfWidth(directory, "1000", arguments), wide);
    const std::string narrow = HelpOfWidth(directory, "60", arguments);
    EXPECT_LE(LongestLine(narrow), 60U);
    EXPECT_EQ(HelpOfWidth(directory, "5", arguments), HelpOfWidth(directory, "40", arguments));
}

INSTANTIATE_TEST_SUITE_P(Each, HelpOfCommand, testing::ValuesIn(kCommands),
                         [](const auto& test) { return test.param; });

} // namespace kel::test
