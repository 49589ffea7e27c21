// What the host does when the system refuses what the real elements and the host itself ask for.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
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

constexpr std::size_t kFrames = 40001; // three samples of at most 16384 frames

const Names kOutputs{"out.wav", "out.rf64", "out.aiff"};

// What goes wrong: a call on a file in whose path a text occurs, the number-th one, or that and all
// that follow.
struct Fault {
    std::string call;
    int number = 1;
    bool lasts = false;
    std::string file = ".kelhost-"; // an unfinished output
};

// The bytes of a file without the time of writing, which a PEAK chunk holds behind its name, size
// and version.
std::string WithoutTime(std::string bytes) {
    const std::size_t peak = bytes.find("PEAK");
    return peak == std::string::npos ? bytes : bytes.replace(peak + 12, 4, 4, '\0');
}

// What an undisturbed copy gives.
const std::string& Undisturbed(const std::string& output) {
    static std::map<std::string, std::string> bytes;
    const auto [place, isNew] = bytes.emplace(output, "");
    if (isNew) {
        const TemporaryDirectory directory;
        WriteTake(directory / "in.wav", kFrames);
        EXPECT_EQ(RunKelhost(directory, {"copy", "in.wav", output}).status, 0);
        place->second = WithoutTime(Content(directory / output));
    }
    return place->second;
}

// A run of the host, mostly a copy, in whose way a system call fails.
class FaultyRun {
public:
    FaultyRun(const std::string& output, const Fault& fault,
              const std::vector<std::string>& options = {})
        : FaultyRun(fault, {"copy", "in.wav", output}) {
        m_output = output;
        m_command.arguments.insert(m_command.arguments.end(), options.begin(), options.end());
    }

    FaultyRun(const Fault& fault, const std::vector<std::string>& arguments)
        : m_command(Kelhost(m_directory, arguments)) {
        WriteTake(m_directory / "in.wav", kFrames);
        DisturbSystem(m_command);
        m_command.environment["KEL_TEST_FAULTY_CALL"] = fault.call;
        m_command.environment["KEL_TEST_FAULTY_FILE"] = fault.file;
        m_command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(fault.number);
        m_command.environment["KEL_TEST_FAULT_LASTS"] = fault.lasts ? "1" : "";
        m_command.environment["KEL_TEST_FAULT_MARKER"] = m_marker / "marker";
        m_command.environment["KEL_TEST_STRAY_CLOSE_MARKER"] = m_marker / "stray";
    }

    ProcessResult Run() const { return RunCommand(m_command); }

    // Whether the call has failed.
    bool HasFailed() const { return fs::exists(m_marker / "marker"); }

    // Whether a descriptor was closed that was not open.
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
        EXPECT_EQ(SortedNames(m_directory), Names{"in.wav"});
    }

    // Expects a success, and the output bit for bit: libsndfile forgives headers that other readers
    // do not.
    void ExpectWhole(const ProcessResult& result) const {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(SortedNames(m_directory), (Names{"in.wav", m_output}));
        EXPECT_TRUE(WithoutTime(Content(m_directory / m_output)) == Undisturbed(m_output))
            << "it is not what an undisturbed copy gives";
    }

private:
    TemporaryDirectory m_directory;
    TemporaryDirectory m_marker;
    std::string m_output;
    Command m_command;
};

// The number of the first call that reads samples. A read of the input's header that fails is not
// told by libsndfile, which takes zeros instead.
int FirstReadOfSamples() {
    Fault fault{"read", 1, false, "in.wav"};
    for (bool hasFailed = true; hasFailed; ++fault.number) {
        const FaultyRun run(fault, {"info", "in.wav"});
        run.Run();
        hasFailed = run.HasFailed();
    }
    return fault.number - 1;
}

// How often a call failed, and how many of the copies came to nothing.
struct Tally {
    int faults = 0;
    int failures = 0;
};

// Makes a call fail at its first occurrence, then at its second, until it has no more. Each copy
// must come to a whole output or to none.
Tally FailAtEach(const std::string& output, Fault fault,
                 const std::vector<std::string>& options = {}) {
    constexpr int kEnough = 400;
    // What is wrong with reading may be told of either.
    const Names culprits = fault.file == "in.wav" ? Names{"in.wav", output} : Names{output};
    fault.number = fault.file == "in.wav" && fault.call == "read" ? FirstReadOfSamples() : 1;
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

// A call that is made to fail at each of its occurrences in a copy to a format.
struct Case {
    std::string output;
    std::string call;
    std::string file;
};

void PrintTo(const Case& value, std::ostream* stream) {
    *stream << value.call << " on " << value.file << ", copying to " << value.output;
}

std::vector<Case> EveryCase() {
    std::vector<Case> cases;
    for (const std::string& output : kOutputs) {
        for (const char* call : {"open", "close", "fstat", "lseek", "read", "write", "ftruncate",
                                 "fsync", "chmod", "renameat2", "rename"}) {
            cases.push_back({output, call, ".kelhost-"});
        }
        for (const char* call : {"open", "close", "fstat", "lseek", "read"}) {
            cases.push_back({output, call, "in.wav"});
        }
    }
    return cases;
}

std::string CaseName(const testing::TestParamInfo<Case>& info) {
    std::string name = info.param.call + (info.param.file == "in.wav" ? "_input_" : "_output_") +
                       info.param.output.substr(info.param.output.find('.') + 1);
    return name;
}

class EachSystemCall : public testing::TestWithParam<Case> {};
class SystemFault : public testing::TestWithParam<std::string> {};

std::string FormatName(const testing::TestParamInfo<std::string>& info) {
    return info.param.substr(info.param.find('.') + 1);
}

} // namespace

TEST_P(EachSystemCall, ThatFailsOnceLeavesNothingOrAWholeFile) {
    FailAtEach(GetParam().output, {GetParam().call, 1, false, GetParam().file}, {"--verify"});
}

TEST_P(EachSystemCall, ThatFailsFromThenOnLeavesNothingOrAWholeFile) {
    FailAtEach(GetParam().output, {GetParam().call, 1, true, GetParam().file});
}

INSTANTIATE_TEST_SUITE_P(Calls, EachSystemCall, testing::ValuesIn(EveryCase()), CaseName);

TEST_P(SystemFault, InAnyWriteLeavesNothing) {
    for (const bool lasts : {false, true}) {
        const Tally tally = FailAtEach(GetParam(), {"write", 1, lasts});
        EXPECT_GE(tally.faults, 4) << "a header, three samples, the header again";
        EXPECT_EQ(tally.failures, tally.faults);
    }
}

TEST_P(SystemFault, InTheFlushLeavesNothing) {
    const FaultyRun copy(GetParam(), {"fsync"});
    ExpectResult(copy.Run(), 1, "",
                 "kelhost: " + GetParam() + ": cannot be flushed to disk: Input/output error\n");
    EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    EXPECT_TRUE(copy.HasFailed());
}

TEST_P(SystemFault, InTheRenameLeavesNothing) {
    const FaultyRun copy(GetParam(), {"rename"});
    ExpectResult(copy.Run(), 1, "",
                 "kelhost: " + GetParam() + ": cannot be given its name: Read-only file system\n");
    EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    EXPECT_TRUE(copy.HasFailed());
}

TEST_P(SystemFault, LeavesWhatStoodThereUntouched) {
    const std::vector<Fault> faults{{"open"},  {"fstat"}, {"write"}, {"write", 1, true},
                                    {"fsync"}, {"chmod"}, {"rename"}};
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.call);
        const FaultyRun copy(GetParam(), fault, {"--force"});
        WriteFile(copy.Directory() / GetParam(), "before");
        EXPECT_EQ(copy.Run().status, 1);
        EXPECT_TRUE(copy.HasFailed());
        EXPECT_EQ(SortedNames(copy.Directory()), (Names{"in.wav", GetParam()}));
        EXPECT_EQ(Content(copy.Directory() / GetParam()), "before");
    }
}

TEST_P(SystemFault, InRenamingWithoutReplacingIsGotAround) {
    const FaultyRun copy(GetParam(), {"renameat2"});
    copy.ExpectWhole(copy.Run());
    EXPECT_TRUE(copy.HasFailed());
    EXPECT_EQ(fs::hard_link_count(copy.Directory() / GetParam()), 1U);
}

TEST_P(SystemFault, AtALimitOfTheFileSizeLeavesNothing) {
    for (const rlim_t bytes : {0U, 1U, 60U, 1000U, 100000U, 240000U}) {
        SCOPED_TRACE(bytes);
        const TemporaryDirectory directory;
        WriteTake(directory / "in.wav", kFrames);
        Command command = Kelhost(directory, {"copy", "in.wav", GetParam()});
        command.mostFileBytes = bytes;
        const ProcessResult result = RunCommand(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("kelhost: " + GetParam() + ": ", 0), 0U) << result.err;
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    }
}

TEST_P(SystemFault, InStartingAThreadLeavesNothing) {
    // Untouched samples take one thread more, and so do converted ones where there are no more than
    // two processors; elsewhere these take two.
    const bool hasConverter = GetParam() == "out.aiff" && std::thread::hardware_concurrency() > 2;
    const int threads = hasConverter ? 2 : 1;
    for (int number = 1; number <= threads; ++number) {
        SCOPED_TRACE(number);
        const FaultyRun copy(GetParam(), {"thread", number});
        ExpectResult(copy.Run(), 1, "",
                     "kelhost: " + GetParam() + ": Resource temporarily unavailable\n");
        EXPECT_TRUE(copy.HasFailed());
        EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    }
    const FaultyRun copy(GetParam(), {"thread", threads + 1});
    copy.ExpectWhole(copy.Run());
    EXPECT_FALSE(copy.HasFailed());
}

INSTANTIATE_TEST_SUITE_P(Formats, SystemFault, testing::ValuesIn(kOutputs), FormatName);

TEST(SystemFaultText, SaysWhatCouldNotBeWritten) {
    const TemporaryDirectory directory;
    WriteTake(directory / "in.wav", kFrames);
    Command command = Kelhost(directory, {"copy", "in.wav", "out.wav"});
    command.mostFileBytes = 200000; // after the first sample, in the second
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: out.wav: Warning: tried to write 131072 bytes but could only write "
                 "68816; files may have 200000 bytes at most here (ulimit -f)\n");
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
}

TEST(SystemFaultText, SaysSoWhenTheFileCanNotBeCreated) {
    const TemporaryDirectory directory;
    WriteTake(directory / "in.wav", kFrames);
    Command command = Kelhost(directory, {"copy", "in.wav", "out.wav"});
    command.mostFileBytes = 0;
    const ProcessResult result = RunCommand(command);
    ExpectResult(result, 1, "",
                 "kelhost: out.wav: cannot be written: [Unable to open file "
                 "\".kelhost-XXXXXX.part.wav\" with libsndfile. Error is:\"System error : File too "
                 "large.\"]; files may have 0 bytes at most here (ulimit -f)\n");
}

TEST(SystemFaultText, SaysSoWhenTheHeaderCanNotBeReadBack) {
    for (const std::string& output : kOutputs) {
        for (const bool lasts : {false, true}) {
            const FaultyRun copy(output, {"read", 1, lasts});
            ExpectResult(copy.Run(), 1, "",
                         "kelhost: " + output + ": cannot be read back: Input/output error\n");
            EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
        }
    }
}

TEST(SystemFaultInDemonstration, LeavesNothing) {
    const TemporaryDirectory directory;
    Command command = Kelhost(directory, {"demo", "d"});
    command.mostFileBytes = 100000;
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: d/tone.wav: Warning: tried to write 1536000 bytes but could only write "
                 "99888\n");
    EXPECT_TRUE(fs::is_empty(directory / "d"));
}

} // namespace kel::test
