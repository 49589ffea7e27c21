// kelhost validate --debug.

#include "Program.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr const char* kOne = "1 check: ";
constexpr const char* kSeed = "; --seed 7 repeats the random calls\n";

std::string Faulty(const TemporaryDirectory& directory, const std::string& fault) {
    std::string path = directory / ("libkelBroken-" + fault + ".so");
    fs::create_symlink(TestPlugin("kelBroken"), path);
    return path;
}

// Runs a check with seed 7; times and sizes are 0 in its output.
ProcessResult Debug(const TemporaryDirectory& directory, const std::string& plugin,
                    const std::string& check, const Arguments& others = {}) {
    ProcessResult result = RunKelhost(
        directory, Arguments{"validate", plugin, "--debug", check, "--seed", "7"} + others);
    result.out = ReplaceMatches(ReplaceMatches(result.out, " +[0-9]+ ms", " 0 ms"), " +[0-9.]+ MiB",
                                " 0 MiB");
    return result;
}

} // namespace

TEST(ValidateDebug, ReportsTheResultOfOneCheck) {
    const TemporaryDirectory directory;
    const std::string plugin = Faulty(directory, "frames-short");
    ExpectResult(Debug(directory, plugin, "source.frames-equal-limits"), 1,
                 "FAILED  source.frames-equal-limits  test.Tone:WAVE 0 ms 0 MiB  it delivered 2999 "
                 "frames, and its limits declare 3000\n" +
                     std::string(kOne) + "0 passed, 1 failed, 0 not applicable" + kSeed,
                 "");
    ExpectResult(Debug(directory, plugin, "source.opens", {"--quiet"}), 0, "", "");
    ExpectResult(Debug(directory, plugin, "plugin.unloads"), 0,
                 "passed  plugin.unloads 0 ms 0 MiB\n" + std::string(kOne) +
                     "1 passed, 0 failed, 0 not applicable" + kSeed,
                 "");
    ExpectResult(Debug(directory, plugin, "source.opens", {"--element", "test.Heap"}), 0,
                 "n/a     source.opens 0 ms 0 MiB  there is no element to which it applies\n" +
                     std::string(kOne) + "0 passed, 0 failed, 1 not applicable" + kSeed,
                 "");
    ExpectResult(
        Debug(directory, TestPlugin("kelUndefinedSymbol"), "source.opens"), 0,
        "n/a     source.opens 0 ms 0 MiB  no element is known, because the plug-in cannot be "
        "loaded or does not register\n" +
            std::string(kOne) + "0 passed, 0 failed, 1 not applicable" + kSeed,
        "");
}

TEST(ValidateDebug, UsesTheConditionsOfTheRequest) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        Debug(directory, Faulty(directory, "frames-short"), "source.frames-equal-limits",
              {"--set", "Frames=17", "--element", "test.Tone:WAVE"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(LinesOf(result.out).at(0),
              "FAILED  source.frames-equal-limits  test.Tone:WAVE 0 ms 0 MiB  it delivered 16 "
              "frames, and its limits declare 17");
    // Its type decides which recording it opens.
    EXPECT_EQ(Debug(directory, KEL_TEST_PLUGIN, "source.frames-equal-limits",
                    {"--element", "kel.LibsndfileSource:AIFF"})
                  .status,
              0);
}

TEST(ValidateDebug, LetsACrashEndTheProgram) {
    const TemporaryDirectory directory;
    const TemporaryDirectory temporary;
    Command command = Kelhost(
        directory, {"validate", Faulty(directory, "crashes"), "--debug", "source.seek-outside"});
    command.environment["TMPDIR"] = temporary.Path().string();
    ExpectResult(RunCommand(command), -SIGSEGV, "", "");
    EXPECT_EQ(SortedNames(temporary).size(), 1U) << "the directory of the check";
}

TEST(ValidateDebug, CatchesNoSignal) {
    const TemporaryDirectory directory;
    const TemporaryDirectory temporary;
    const std::string plugin = Faulty(directory, "hangs");
    Command command = Kelhost(directory, {"validate", plugin, "--debug", "source.seek-outside"});
    command.environment["TMPDIR"] = temporary.Path().string();
    RunningProcess process(command);
    while (SortedNames(temporary).empty() && !process.HasEnded()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    process.Signal(SIGINT);
    ExpectResult(process.Wait(), -SIGINT, "", "");
}

TEST(ValidateDebug, RemovesItsDirectory) {
    const TemporaryDirectory directory;
    const TemporaryDirectory temporary;
    Command command = Kelhost(directory, {"validate", Faulty(directory, "source-leaves-files"),
                                          "--debug", "source.leaves-no-files"});
    command.environment["TMPDIR"] = temporary.Path().string();
    EXPECT_EQ(RunCommand(command).status, 1);
    EXPECT_EQ(SortedNames(directory), Names{"libkelBroken-source-leaves-files.so"});
    EXPECT_EQ(SortedNames(temporary), Names{});
}

TEST(ValidateDebug, ShowsRecordsAtOnce) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        Debug(directory, Faulty(directory, "logs-an-error"), "sink.reports-errors", {"--verbose"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(" something went wrong ("), std::string::npos) << result.err;
}

TEST(ValidateDebug, RefusesWhatItCannotBeCombinedWith) {
    const TemporaryDirectory directory;
    struct Row {
        std::string check;
        Arguments arguments;
        std::string error;
    };
    const std::string ofPlugin = "plugin.loads is a check of the plug-in, not of an element; ";
    const std::vector<Row> rows{
        {"source.opens",
         {"--check", "source.opens"},
         "--check excludes --debug; see kelhost validate --help"},
        {"source.opens",
         {"--timeout", "5"},
         "--timeout excludes --debug; see kelhost validate --help"},
        {"source.opens",
         {"--junit", "report.xml"},
         "--junit excludes --debug; see kelhost validate --help"},
        {"source.opens", {"--force"}, "--force excludes --debug; see kelhost validate --help"},
        {"source.open", {}, "there is no check \"source.open\"; did you mean source.opens?"},
        {"source.opens",
         {},
         "--debug makes one check of one element; add --element kel.LibsndfileSource:AIFF, "
         "kel.LibsndfileSource:WAVE or kel.LibsndfileSource:BWAVE"},
        {"source.opens",
         {"--element", "kel.LibsndfileSource:RAW"},
         "there is no element \"kel.LibsndfileSource:RAW\"; did you mean "
         "kel.LibsndfileSource:WAVE?"},
        {"plugin.loads", {"--element", "kel.LibsndfileSource"}, ofPlugin + "remove --element"},
        {"plugin.loads", {"--set", "FilePath=x"}, ofPlugin + "remove --set"},
        {"plugin.loads", {"--input", KEL_TEST_PLUGIN}, ofPlugin + "remove --input"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        ExpectResult(Debug(directory, KEL_TEST_PLUGIN, row.check, row.arguments), 2, "",
                     "kelhost: " + row.error + "\n");
    }
    ExpectResult(
        Debug(directory, KEL_TEST_PLUGIN, "plugin.loads", {"--json"}), 2, "",
        "{\"document\":\"kelhost.error\",\"file\":\"\",\"message\":\"--debug prints text, "
        "between the output of the plug-in; remove --json\",\"path\":null,\"version\":1}\n");
    ExpectResult(Debug(directory, "missing.so", "plugin.loads"), 1, "",
                 Error("missing.so", "cannot load the plug-in: No such file or directory"));
}

} // namespace kel::test
