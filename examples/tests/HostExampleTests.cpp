#include "Examples.h"

#include <AudioFiles.h>
#include <Patterns.h>
#include <Process.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

ProcessResult RunCopy(const TemporaryDirectory& directory, std::vector<std::string> arguments) {
    Command command;
    command.program = KEL_TEST_PREFIX "/bin/kelCopy";
    command.arguments = std::move(arguments);
    command.directory = directory.Path();
    return RunCommand(command);
}

const std::string kPlugin = InstalledPlugin("kelLibsndfile");

void ExpectError(const ProcessResult& result, int status, const std::string& error) {
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, error);
}

} // namespace

TEST(TheHostExample, CopiesAFile) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 5000);
    ExpectError(RunCopy(directory, {kPlugin, "take.wav", "copy.wav"}), 0, "");
    const Audio copy = ReadAudio(directory / "copy.wav");
    const Audio take = ReadAudio(directory / "take.wav");
    EXPECT_EQ(copy.values, take.values);
    EXPECT_EQ(copy.rate, take.rate);
    EXPECT_EQ(copy.channels, take.channels);
    EXPECT_EQ(copy.format, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT);
    // An unfinished file can be read, but its header has no size.
    const std::string bytes = ReadFile(directory / "copy.wav");
    EXPECT_EQ(bytes.substr(bytes.find("data"), 8), "data" + LittleEndian(5000 * 2 * 4, 4));
}

TEST(TheHostExample, CopiesAFileOfAnyFormat) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 48000,
               {0.5F, -0.25F});
    ExpectError(RunCopy(directory, {kPlugin, "take.flac", "copy.wav"}), 0, "");
    EXPECT_EQ(ReadAudio(directory / "copy.wav").values, (std::vector<float>{0.5F, -0.25F}));
}

TEST(TheHostExample, ReportsTheFailure) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 100000);
    ExpectError(RunCopy(directory, {kPlugin, "missing.wav", "copy.wav"}), 1,
                "kelCopy: missing.wav: cannot open with any audio source\n"
                "kel.LibsndfileSource for WAVE, AIFF, BWAVE: [Unable to open file \"missing.wav\" "
                "with libsndfile. Error is:\"System error : No such file or directory.\"]\n");
    const std::string plugin = directory / "missing.so";
    ExpectError(RunCopy(directory, {"missing.so", "take.wav", "copy.wav"}), 1,
                "kelCopy: " + plugin + ": cannot load the plug-in: " + plugin +
                    ": cannot open shared object file: No such file or directory\n");
    const std::string core = KEL_TEST_PREFIX "/lib/libkelCore.so";
    ExpectError(RunCopy(directory, {core, "take.wav", "copy.wav"}), 1,
                "kelCopy: " + core +
                    ": the plug-in has no entry point RegisterAll: " KEL_TEST_PREFIX
                    "/bin/../lib/libkelCore.so.0: undefined symbol: RegisterAll\n");
    ExpectError(RunCopy(directory, {kPlugin, "take.wav"}), 2,
                "usage: kelCopy PLUGIN INPUT OUTPUT\n");
}

TEST(TheHostExample, ReportsAnElementThatIsMissingInThePlugin) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectError(RunCopy(directory, {InstalledPlugin("kelTone"), "take.wav", "copy.wav"}), 1,
                "kelCopy: take.wav: cannot open with any audio source\n"
                "example.ToneSource for Unknown: it has no setting FilePath\n");
}

TEST(TheHostExample, ReportsAFailedWriteThatIsOnlyInTheLog) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 1024);
    Command command;
    command.program = KEL_TEST_PREFIX "/bin/kelCopy";
    command.arguments = {kPlugin, "take.wav", "copy.wav"};
    command.directory = directory.Path();
    command.mostFileBytes = 4096;
    command.ignoredSignals = {SIGXFSZ};
    ProcessResult result = RunCommand(command);
    result.err = ReplaceMatches(result.err, "^[^ ]+ Error \\[[0-9]+\\]", "TIME Error [THREAD]");
    result.err = ReplaceMatches(result.err, ":[0-9]+\\)", ":LINE)");
    ExpectError(result, 1,
                "TIME Error [THREAD] Warning: tried to write 8192 bytes but could only write 3984 "
                "(kelLibsndfile/LibsndfileSink.cpp:LINE)\n");
}

} // namespace kel::test
