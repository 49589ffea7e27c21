// What the host does when the system refuses what the real elements and the host itself ask for.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kFrames = 40001; // three samples of at most 16384 frames

const Names kOutputs{"out.wav", "out.rf64", "out.aiff"};

// A copy in whose way a system call fails, the number-th one on the unfinished output.
class FaultyCopy {
public:
    FaultyCopy(const std::string& output, const std::string& call, int number,
               const std::vector<std::string>& options = {})
        : m_output(output) {
        WriteTake(m_folder / "in.wav", kFrames);
        m_command = Kelhost(m_folder, {"copy", "in.wav", output});
        m_command.arguments.insert(m_command.arguments.end(), options.begin(), options.end());
        DisturbSystem(m_command);
        m_command.environment["KEL_TEST_FAULTY_CALL"] = call;
        m_command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(number);
        m_command.environment["KEL_TEST_FAULT_MARKER"] = m_marker / "marker";
    }

    ProcessResult Run() const { return RunCommand(m_command); }

    // Whether the call has failed.
    bool HasFailed() const { return fs::exists(m_marker / "marker"); }

    const TemporaryFolder& Folder() const { return m_folder; }

    void ExpectNothingLeft(const ProcessResult& result) const {
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("kelhost: " + m_output + ": ", 0), 0U) << result.err;
        EXPECT_EQ(SortedNames(m_folder), Names{"in.wav"});
    }

    void ExpectWhole(const ProcessResult& result) const {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(SortedNames(m_folder), (Names{"in.wav", m_output}));
        // libsndfile forgives headers that other readers do not.
        const TemporaryFolder undisturbed;
        WriteTake(undisturbed / "in.wav", kFrames);
        EXPECT_EQ(RunKelhost(undisturbed, {"copy", "in.wav", m_output}).status, 0);
        EXPECT_TRUE(WithoutTime(Content(m_folder / m_output)) ==
                    WithoutTime(Content(undisturbed / m_output)))
            << "it is not what an undisturbed copy gives";
    }

private:
    TemporaryFolder m_folder;
    TemporaryFolder m_marker;
    std::string m_output;
    Command m_command;
};

// Makes a call fail at its first occurrence, then at its second, until it has no more; returns how
// many it has.
int FailAtEach(const std::string& output, const std::string& call) {
    constexpr int kEnough = 200;
    for (int number = 1; number < kEnough; ++number) {
        SCOPED_TRACE(testing::Message() << call << " number " << number << " of " << output);
        const FaultyCopy copy(output, call, number);
        const ProcessResult result = copy.Run();
        if (!copy.HasFailed()) {
            copy.ExpectWhole(result);
            return number - 1;
        }
        copy.ExpectNothingLeft(result);
    }
    ADD_FAILURE() << "the call goes on and on";
    return kEnough;
}

class SystemFault : public testing::TestWithParam<std::string> {};

std::string FormatName(const testing::TestParamInfo<std::string>& info) {
    return info.param.substr(info.param.find('.') + 1);
}

} // namespace

TEST_P(SystemFault, InOneWriteLeavesNothing) {
    EXPECT_GE(FailAtEach(GetParam(), "write"), 4) << "a header, three samples, the header again";
}

TEST_P(SystemFault, InAllWritesFromOneOnLeavesNothing) {
    EXPECT_GE(FailAtEach(GetParam(), "writes"), 4);
}

TEST_P(SystemFault, InASeekLeavesNothingOrAWholeFile) {
    // The place may be right without the seek, so that what is written is whole all the same.
    int failed = 0;
    for (int number = 1; number < 200; ++number) {
        SCOPED_TRACE(testing::Message() << "lseek number " << number);
        const FaultyCopy copy(GetParam(), "lseek", number);
        const ProcessResult result = copy.Run();
        if (result.status == 0) {
            copy.ExpectWhole(result);
        } else {
            copy.ExpectNothingLeft(result);
        }
        if (!copy.HasFailed()) {
            break;
        }
        ++failed;
    }
    EXPECT_GE(failed, 1);
    EXPECT_LT(failed, 199);
}

TEST_P(SystemFault, InTheFlushLeavesNothing) {
    const FaultyCopy copy(GetParam(), "fsync", 1);
    ExpectResult(copy.Run(), 1, "",
                 "kelhost: " + GetParam() + ": can not be flushed to disk: Input/output error\n");
    EXPECT_EQ(SortedNames(copy.Folder()), Names{"in.wav"});
    EXPECT_TRUE(copy.HasFailed());
}

TEST_P(SystemFault, InTheRenameLeavesNothing) {
    const FaultyCopy copy(GetParam(), "rename", 1);
    ExpectResult(copy.Run(), 1, "",
                 "kelhost: " + GetParam() + ": can not be given its name: Read-only file system\n");
    EXPECT_EQ(SortedNames(copy.Folder()), Names{"in.wav"});
    EXPECT_TRUE(copy.HasFailed());
}

TEST_P(SystemFault, LeavesWhatStoodThereUntouched) {
    for (const char* call : {"write", "writes", "fsync", "rename"}) {
        SCOPED_TRACE(call);
        const FaultyCopy copy(GetParam(), call, 1, {"--force"});
        WriteFile(copy.Folder() / GetParam(), "before");
        EXPECT_EQ(copy.Run().status, 1);
        EXPECT_TRUE(copy.HasFailed());
        EXPECT_EQ(SortedNames(copy.Folder()), (Names{"in.wav", GetParam()}));
        EXPECT_EQ(Content(copy.Folder() / GetParam()), "before");
    }
}

TEST_P(SystemFault, InRenamingWithoutReplacingIsGotAround) {
    const FaultyCopy copy(GetParam(), "renameat2", 1);
    copy.ExpectWhole(copy.Run());
    EXPECT_TRUE(copy.HasFailed());
    EXPECT_EQ(fs::hard_link_count(copy.Folder() / GetParam()), 1U);
}

TEST_P(SystemFault, AtALimitOfTheFileSizeLeavesNothing) {
    for (const rlim_t bytes : {0U, 1U, 60U, 1000U, 100000U, 240000U}) {
        SCOPED_TRACE(bytes);
        const TemporaryFolder folder;
        WriteTake(folder / "in.wav", kFrames);
        Command command = Kelhost(folder, {"copy", "in.wav", GetParam()});
        command.mostFileBytes = bytes;
        const ProcessResult result = RunCommand(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("kelhost: " + GetParam() + ": ", 0), 0U) << result.err;
        EXPECT_EQ(SortedNames(folder), Names{"in.wav"});
    }
}

TEST_P(SystemFault, InStartingAThreadLeavesNothing) {
    // Untouched samples take one thread more, converted ones two.
    const int threads = GetParam() == "out.aiff" ? 2 : 1;
    for (int number = 1; number <= threads; ++number) {
        SCOPED_TRACE(number);
        const FaultyCopy copy(GetParam(), "thread", number);
        ExpectResult(copy.Run(), 1, "",
                     "kelhost: " + GetParam() + ": Resource temporarily unavailable\n");
        EXPECT_TRUE(copy.HasFailed());
        EXPECT_EQ(SortedNames(copy.Folder()), Names{"in.wav"});
    }
    const FaultyCopy copy(GetParam(), "thread", threads + 1);
    copy.ExpectWhole(copy.Run());
    EXPECT_FALSE(copy.HasFailed());
}

INSTANTIATE_TEST_SUITE_P(Formats, SystemFault, testing::ValuesIn(kOutputs), FormatName);

TEST(SystemFaultText, SaysWhatCouldNotBeWritten) {
    const TemporaryFolder folder;
    WriteTake(folder / "in.wav", kFrames);
    Command command = Kelhost(folder, {"copy", "in.wav", "out.wav"});
    command.mostFileBytes = 200000; // after the first sample, in the second
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: out.wav: Warning: tried to write 131072 bytes but could only write "
                 "68816\n");
    EXPECT_EQ(SortedNames(folder), Names{"in.wav"});
}

TEST(SystemFaultText, SaysSoWhenTheFileCanNotBeCreated) {
    const TemporaryFolder folder;
    WriteTake(folder / "in.wav", kFrames);
    Command command = Kelhost(folder, {"copy", "in.wav", "out.wav"});
    command.mostFileBytes = 0;
    const ProcessResult result = RunCommand(command);
    ExpectResult(result, 1, "",
                 "kelhost: out.wav: can not be written: [Unable to open file "
                 "\".kelhost-XXXXXX.part.wav\" with libsndfile. Error is:\"System error : File too "
                 "large.\"]\n");
}

TEST(SystemFaultInDemonstration, LeavesNothing) {
    const TemporaryFolder folder;
    Command command = Kelhost(folder, {"demo", "d"});
    command.mostFileBytes = 100000;
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: d/tone.wav: Warning: tried to write 1536000 bytes but could only write "
                 "99888\n");
    EXPECT_TRUE(fs::is_empty(folder / "d"));
}

} // namespace kel::test
