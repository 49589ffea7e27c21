#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace {

const std::vector<std::string> kCommands{"copy",    "run",     "info",     "compare", "plot",
                                         "formats", "inspect", "validate", "demo"};

// The lines below "Examples:", without their explanations after two blanks.
std::vector<std::string> Examples(const std::string& help) {
    std::vector<std::string> examples;
    bool within = false;
    for (const std::string& line : LinesOf(help)) {
        const bool isExample = line.rfind("  kelhost ", 0) == 0;
        if (within && isExample) {
            examples.push_back(line.substr(2, line.find("  ", 2) - 2));
        }
        within = line == "Examples:" || (within && isExample);
    }
    return examples;
}

// Makes the files of the examples.
void MakeRecordings(const TemporaryDirectory& directory) {
    const std::vector<float> values(2U * 95 * 1000, 0.25F);
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 1000, values);
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 1000, values);
    WriteAudio(directory / "second.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 1000, {0.5F, 0.5F});
    std::filesystem::create_symlink(KEL_TEST_PLUGIN, directory / "libkelLibsndfile.so");
}

void RunExamples(const std::string& help) {
    const std::string programs = std::filesystem::path(KEL_TEST_HOST).parent_path();
    const char* path = std::getenv("PATH");
    for (const std::string& example : Examples(help)) {
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

} // namespace

TEST(Help, ShowsExamplesOfTheMainTasksThatWork) {
    const TemporaryDirectory directory;
    const std::string help = RunKelhost(directory, {"--help"}).out;
    EXPECT_EQ(Examples(help),
              (std::vector<std::string>{"kelhost copy take.flac take.wav",
                                        "kelhost copy *.flac --output-dir wave",
                                        "kelhost info *.wav", "kelhost info --measure take.wav",
                                        "kelhost compare take.flac take.wav",
                                        "kelhost plot take.wav", "kelhost copy --help"}));
    RunExamples(help);
}

class HelpOfCommand : public testing::TestWithParam<std::string> {};

TEST_P(HelpOfCommand, HasExamplesThatWork) {
    const TemporaryDirectory directory;
    const std::string help = RunKelhost(directory, {GetParam(), "--help"}).out;
    const std::vector<std::string> examples = Examples(help);
    EXPECT_GE(examples.size(), 2U);
    for (const std::string& example : examples) {
        EXPECT_EQ(example.rfind("kelhost " + GetParam(), 0), 0U) << example;
    }
    RunExamples(help);
}

INSTANTIATE_TEST_SUITE_P(Each, HelpOfCommand, testing::ValuesIn(kCommands),
                         [](const auto& test) { return test.param; });

} // namespace kel::test
