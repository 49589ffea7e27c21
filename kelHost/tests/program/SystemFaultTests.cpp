// Copies while system calls of the host and of the real elements fail.

#include "AudioFiles.h"
#include "Orphans.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kFrames = 70001; // so many that threads read and write them

// Untouched and converted samples: AIFF has no floats.
const Names kOutputs{"out.wav", "out.aiff"};

void WriteFloats(const std::string& path) {
    WriteAudio(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, MakeValues(2 * kFrames));
}

// A call that fails on a file in whose path a text occurs: the number-th one, or that and all that
// follow.
struct Fault {
    std::string call;
    int number = 1;
    bool lasts = false;
    std::string file = "unfinished";
    bool isNamed = false; // the output has a temporary name
};

// The bytes of an undisturbed copy.
const std::string& Undisturbed(const std::string& output) {
    static std::map<std::string, std::string> bytes;
    const auto [place, isNew] = bytes.emplace(output, "");
    if (isNew) {
        const TemporaryDirectory directory;
        WriteFloats(directory / "in.wav");
        EXPECT_EQ(RunKelhost(directory, {"copy", "in.wav", output}).status, 0);
        place->second = WithoutTime(ReadFile(directory / output));
    }
    return place->second;
}

// A run of the host during which a system call fails.
class FaultyRun {
public:
    FaultyRun(const std::string& output, const Fault& fault, const Arguments& options = {})
        : FaultyRun(fault, Arguments{"copy", "in.wav", output} + options) {
        m_output = output;
    }

    FaultyRun(const Fault& fault, const Arguments& arguments)
        : m_command(Kelhost(m_directory, arguments)) {
        WriteFloats(m_directory / "in.wav");
        DisturbSystem(m_command);
        m_command.environment["KEL_TEST_FAULTY_CALL"] = fault.call;
        m_command.environment["KEL_TEST_FAULTY_FILE"] = fault.file;
        m_command.environment["KEL_TEST_NAMED_FILES"] = fault.isNamed ? "1" : "";
        m_command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(fault.number);
        m_command.environment["KEL_TEST_FAULT_LASTS"] = fault.lasts ? "1" : "";
        m_command.environment["KEL_TEST_FAULT_MARKER"] = m_marker / "marker";
        m_command.environment["KEL_TEST_STRAY_CLOSE_MARKER"] = m_marker / "stray";
    }

    ProcessResult Run() const { return RunCommand(m_command); }

    // True when the call has failed.
    bool HasFailed() const { return fs::exists(m_marker / "marker"); }

    // True when a descriptor was closed that was not open.
    bool HasClosedTooMuch() const { return fs::exists(m_marker / "stray"); }

    const TemporaryDirectory& Directory() const { return m_directory; }

    // Expects one line of error about one of these files, and no trace of the output.
    void ExpectNothingLeft(const ProcessResult& result, const Names& culprits) const {
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        const bool isNamed =
            std::any_of(culprits.begin(), culprits.end(), [&result](const std::string& culprit) {
                return result.err.rfind("kelhost: " + culprit + ": ", 0) == 0;
            });
        EXPECT_TRUE(isNamed) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
        EXPECT_EQ(result.err.find("libsndfile"), std::string::npos) << result.err;
        EXPECT_EQ(SortedNames(m_directory), Names{"in.wav"});
    }

    // Expects a success, and the output bit for bit: libsndfile forgives headers that other readers
    // do not. The read after the last frame may fail with a warning.
    void ExpectWhole(const ProcessResult& result) const {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(ReplaceMatches(result.err,
                                 "kelhost: warning: in\\.wav: all declared frames were delivered, "
                                 "and then reading failed: Input/output error\n",
                                 ""),
                  "");
        EXPECT_EQ(SortedNames(m_directory), (Names{"in.wav", m_output}));
        EXPECT_TRUE(WithoutTime(ReadFile(m_directory / m_output)) == Undisturbed(m_output))
            << "it is not what an undisturbed copy gives";
    }

private:
    TemporaryDirectory m_directory;
    TemporaryDirectory m_marker;
    std::string m_output;
    Command m_command;
};

// Failed calls and failed copies.
struct Tally {
    int faults = 0;
    int failures = 0;
};

// Makes a call fail at its first occurrence, then at its second, until it has no more. Each copy
// must come to a whole output or to none.
Tally FailAtEach(const std::string& output, Fault fault, const Arguments& options = {}) {
    constexpr int kEnough = 400;
    // Errors of reading may be about either.
    const Names culprits = fault.file == "in.wav" ? Names{"in.wav", output} : Names{output};
    Tally tally;
    for (; fault.number < kEnough; ++fault.number) {
        SCOPED_TRACE(testing::Message() << fault.call << " number " << fault.number << " on "
                                        << fault.file << (fault.lasts ? " and all after it" : ""));
        const FaultyRun copy(output, fault, options);
        const ProcessResult result = copy.Run();
        EXPECT_FALSE(copy.HasClosedTooMuch());
        if (result.status == 0) {
            copy.ExpectWhole(result);
        } else {
            copy.ExpectNothingLeft(result, culprits);
            ++tally.failures;
        }
        if (!copy.HasFailed()) {
            EXPECT_EQ(result.status, 0);
            return tally;
        }
        ++tally.faults;
    }
    ADD_FAILURE() << "the call goes on and on";
    return tally;
}

// A call that fails at each of its occurrences in a copy.
struct Case {
    std::string call;
    std::string file;
    bool isNamed = false;

    Fault First(bool lasts) const { return {call, 1, lasts, file, isNamed}; }
};

void PrintTo(const Case& value, std::ostream* stream) {
    *stream << value.call << " on " << (value.isNamed ? "named " : "") << value.file;
}

std::vector<Case> EveryCase() {
    std::vector<Case> cases;
    for (const char* call : {"open", "close", "fstat", "lseek", "read", "write", "ftruncate",
                             "fsync", "openat", "linkat"}) {
        cases.push_back({call, "unfinished"});
    }
    for (const char* call : {"mkdirat", "openat", "fstat", "renameat2"}) {
        cases.push_back({call, "unfinished", true});
    }
    for (const char* call : {"open", "close", "fstat", "lseek", "read"}) {
        cases.push_back({call, "in.wav"});
    }
    return cases;
}

class EachSystemCall : public testing::TestWithParam<Case> {};
class SystemFault : public testing::TestWithParam<std::string> {};

} // namespace

TEST_P(EachSystemCall, ThatFailsOnceLeavesNothingOrAWholeFile) {
    FailAtEach("out.wav", GetParam().First(false), {"--verify"});
}

TEST_P(EachSystemCall, ThatFailsFromThenOnLeavesNothingOrAWholeFile) {
    FailAtEach("out.aiff", GetParam().First(true));
}

INSTANTIATE_TEST_SUITE_P(Calls, EachSystemCall, testing::ValuesIn(EveryCase()),
                         [](const auto& test) {
                             return test.param.call + (test.param.file == "in.wav" ? "_input"
                                                       : test.param.isNamed        ? "_named"
                                                                                   : "_output");
                         });

TEST_P(SystemFault, InAnyWriteLeavesNothing) {
    const Tally tally = FailAtEach(GetParam(), {"write", 1, false});
    EXPECT_GE(tally.faults, 4) << "a header, three samples, the header again";
    EXPECT_EQ(tally.failures, tally.faults);
}

TEST_P(SystemFault, IsReportedAndLeavesExistingFilesAsTheyAre) {
    struct Row {
        Fault fault;
        std::string error; // its beginning
    };
    for (const Row& row :
         {Row{{"open"}, ""}, Row{{"fstat"}, ""}, Row{{"write", 1, true}, ""},
          Row{{"fsync"}, "cannot flush the file to disk: Input/output error\n"},
          Row{{"fchmod"}, "cannot set the mode of the file: Operation not permitted\n"},
          Row{{"linkat"}, "cannot give the file its name: Read-only file system\n"},
          Row{{"renameat", 1, false, "unfinished", true},
              "cannot give the file its name: Read-only file system\n"},
          Row{{"read"}, "cannot complete its header: Input/output error\n"}}) {
        SCOPED_TRACE(row.fault.call);
        const FaultyRun copy(GetParam(), row.fault, {"--force"});
        WriteFile(copy.Directory() / GetParam(), "before");
        fs::permissions(copy.Directory() / GetParam(), fs::perms::owner_all);
        const ProcessResult result = copy.Run();
        EXPECT_EQ(result.status, 1);
        const std::string begin = "kelhost: " + GetParam() + ": " + row.error;
        EXPECT_EQ(result.err.substr(0, begin.size()), begin);
        EXPECT_TRUE(copy.HasFailed());
        EXPECT_EQ(SortedNames(copy.Directory()), (Names{"in.wav", GetParam()}));
        EXPECT_EQ(ReadFile(copy.Directory() / GetParam()), "before");
    }
}

TEST_P(SystemFault, InRenamingWithoutReplacingHasAFallback) {
    const FaultyRun copy(GetParam(), {"renameat2", 1, false, "unfinished", true});
    copy.ExpectWhole(copy.Run());
    EXPECT_TRUE(copy.HasFailed());
    EXPECT_EQ(fs::hard_link_count(copy.Directory() / GetParam()), 1U);
}

TEST_P(SystemFault, InStartingAThreadLeavesNothing) {
    // Converted samples need a second thread where there are more than two processors.
    const bool hasConverter = GetParam() == "out.aiff" && std::thread::hardware_concurrency() > 2;
    const int threads = hasConverter ? 2 : 1;
    for (int number = 1; number <= threads; ++number) {
        SCOPED_TRACE(number);
        const FaultyRun copy(GetParam(), {"thread", number});
        ExpectResult(copy.Run(), 1, "",
                     Error(GetParam(), "cannot start a thread: Resource temporarily unavailable; "
                                       "the number of processes and threads is limited (ulimit "
                                       "-u)"));
        EXPECT_TRUE(copy.HasFailed());
        EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    }
    const FaultyRun copy(GetParam(), {"thread", threads + 1});
    copy.ExpectWhole(copy.Run());
    EXPECT_FALSE(copy.HasFailed());
}

INSTANTIATE_TEST_SUITE_P(Formats, SystemFault, testing::ValuesIn(kOutputs),
                         [](const auto& test) { return test.param.substr(4); });

TEST(SystemFaultText, NamesTheLimitOfProcesses) {
    const std::string error =
        "kelhost: cannot start a worker: Resource temporarily unavailable; the number of processes "
        "and threads is limited (ulimit -u)\n";
    for (const Arguments& arguments :
         {Arguments{"copy", "in.wav", "out.wav"}, Arguments{"validate", KEL_TEST_PLUGIN}}) {
        SCOPED_TRACE(arguments[0]);
        const FaultyRun run({"fork", 1, true}, arguments);
        ExpectResult(run.Run(), 1, "", error);
        EXPECT_EQ(SortedNames(run.Directory()), Names{"in.wav"});
    }
}

// A source that waits, so that its worker does not end by itself. Its log records are messages.
TEST(SystemFaultInAPipe, EndsTheWorkerThatCannotBeReached) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    WriteFile(directory / "in.wav", "1000 2 48000 waits while reading\n");
    Command command = Kelhost(directory, {"copy", "in.wav", "out.wav", "--verbose", "--plugin",
                                          TestPlugin("kelFaultyElements")});
    DisturbSystem(command);
    command.environment["KEL_TEST_FAULTY_CALL"] = "read";
    command.environment["KEL_TEST_FAULTY_FILE"] = "pipe:";
    command.environment["KEL_TEST_FAULTY_NUMBER"] = "1";
    command.environment["KEL_TEST_FAULT_ERROR"] = std::to_string(EIO);
    command.environment["KEL_TEST_FAULT_IN_PARENT"] = "1";
    command.environment["KEL_TEST_WAITING"] = directory / "in.wav";
    command.environment["KEL_TEST_GO_ON"] = directory / "never";
    ExpectResult(RunCommand(command), 1, "",
                 Error("in.wav", "cannot receive from a worker process: Input/output error"));
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    EXPECT_TRUE(Orphans::AreNone());
}

TEST(SystemFaultText, NamesTheLimitOfTheFileSize) {
    const TemporaryDirectory directory;
    WriteFloats(directory / "in.wav");
    Command command = Kelhost(directory, {"copy", "in.wav", "out.wav"});
    command.mostFileBytes = 200000; // after the first sample, in the second
    ExpectResult(RunCommand(command), 1, "",
                 Error("out.wav",
                       "cannot write the audio: File too large; files are limited to 200000 bytes "
                       "(ulimit -f)"));
    command.mostFileBytes = 0;
    ExpectResult(RunCommand(command), 1, "",
                 Error("out.wav", "cannot open for writing: File too large; files are limited to 0 "
                                  "bytes (ulimit -f)"));
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
}

TEST(SystemFaultInDemonstration, LeavesNothing) {
    const TemporaryDirectory directory;
    Command command = Kelhost(directory, {"demo", "d"});
    command.mostFileBytes = 100000;
    ExpectResult(RunCommand(command), 1, "",
                 Error("d/tone.wav", "cannot write the audio: File too large"));
    EXPECT_TRUE(fs::is_empty(directory / "d"));
}

} // namespace kel::test
