#include "AudioFiles.h"
#include "Orphans.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// Waits until something has happened, or the process has ended.
void WaitFor(const std::function<bool()>& happened, const RunningProcess& process) {
    while (!happened() && !process.HasEnded()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_TRUE(happened()) << "the process has ended before";
}

// Has a command run on a file system where every file needs a name, so that tests see unfinished
// outputs and the processes that write them.
void NeedNames(Command& command) {
    DisturbSystem(command);
    command.environment["KEL_TEST_NAMED_FILES"] = "1";
}

bool HasUnfinishedOutput(const TemporaryDirectory& directory) {
    for (const std::string& name : directory.Names()) {
        if (name.rfind(".kelhost-", 0) == 0) {
            return true;
        }
    }
    return false;
}

// A copy or a run whose source waits while the sink has the output open.
class WaitingCopy {
public:
    explicit WaitingCopy(const Arguments& words = {"copy", "in.wav", "out.wav"}) {
        WriteFile(m_directory / "in.wav", "1000 2 48000\n");
        command =
            Kelhost(m_directory, Arguments{"--plugin", TestPlugin("kelFaultyElements")} + words);
        NeedNames(command);
        command.environment["KEL_TEST_FAULT"] = "source waits while reading";
        command.environment["KEL_TEST_WAITING"] = m_signs / "waiting";
        command.environment["KEL_TEST_GO_ON"] = m_signs / "go on";
    }

    const TemporaryDirectory& Directory() const { return m_directory; }

    // Starts it and waits until it waits.
    void Start() {
        m_process.emplace(command);
        WaitFor([this] { return fs::exists(m_signs / "waiting"); }, *m_process);
        const bool needsNames = command.environment["KEL_TEST_NAMED_FILES"] != "";
        ASSERT_EQ(HasUnfinishedOutput(m_directory), needsNames);
    }

    RunningProcess& Process() { return *m_process; }

    void GoOn() const { WriteFile(m_signs / "go on", ""); }

    Command command;

private:
    TemporaryDirectory m_directory;
    TemporaryDirectory m_signs;
    std::optional<RunningProcess> m_process;
};

// A pipe that is full and not read.
class FullPipe {
public:
    FullPipe() {
        EXPECT_EQ(mkfifo(Path().c_str(), 0600), 0);
        m_descriptor = open(Path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        const std::string bytes(4096, 'x');
        while (write(m_descriptor, bytes.data(), bytes.size()) > 0) {
        }
    }
    ~FullPipe() { close(m_descriptor); }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;

    std::string Path() const { return m_directory / "pipe"; }

private:
    TemporaryDirectory m_directory;
    int m_descriptor = -1;
};

// Existing outputs are replaced; without them the copy can be started again.
enum class Before { Replaced, Nothing };

// A copy of three files: the first is whole at once, the sources of the others wait while their
// sinks have the outputs open.
class WaitingBatch {
public:
    explicit WaitingBatch(const std::vector<int>& ignoredSignals = {},
                          Before before = Before::Replaced,
                          const std::string& standardOutput = "") {
        fs::create_directory(m_directory / "out");
        WriteFile(m_directory / "a.wav", "1000 2 48000\n");
        for (const char* name : {"b.wav", "c.wav"}) {
            WriteFile(m_directory / name, "1000 2 48000 waits while reading\n");
        }
        if (before == Before::Replaced) {
            for (const char* name : {"out/a.wav", "out/b.wav", "out/c.wav"}) {
                WriteFile(m_directory / name, "before");
            }
        }
        m_command =
            Kelhost(m_directory, {"copy", "--plugin", TestPlugin("kelFaultyElements"), "a.wav",
                                  "b.wav", "c.wav", "--output-dir", "out", "--jobs", "2",
                                  before == Before::Replaced ? "--force" : "--skip-existing"});
        NeedNames(m_command);
        m_command.environment["KEL_TEST_WAITING"] = m_signs / "waiting";
        m_command.environment["KEL_TEST_GO_ON"] = m_signs / "go on";
        m_command.ignoredSignals = ignoredSignals;
        m_command.standardOutput = standardOutput;
        m_process.emplace(m_command);
        WaitFor(
            [this] {
                return fs::exists(m_directory / "out/a.wav") &&
                       ReadFile(m_directory / "out/a.wav") == kWhole && IsBegun("b.wav") &&
                       IsBegun("c.wav");
            },
            *m_process);
    }

    // Starts the same command again.
    void Restart() { m_process.emplace(m_command); }

    std::string Output(const std::string& name) const { return m_directory / ("out/" + name); }

    RunningProcess& Process() { return *m_process; }

    // True when an output is unfinished.
    bool IsBegun(const std::string& output) const {
        const Names names = Unfinished();
        return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return fs::exists(Output(name) + "/" + output);
        });
    }

    // The names of the private directories of unfinished outputs. That of a finished one exists for
    // a moment.
    Names Unfinished() const {
        Names names = SortedNames(m_directory / "out");
        names.erase(
            std::remove_if(names.begin(), names.end(),
                           [](const std::string& name) { return name.rfind(".kelhost-", 0) != 0; }),
            names.end());
        return names;
    }

    // The processes that write them.
    std::vector<pid_t> Workers() const {
        std::vector<pid_t> processes;
        for (const std::string& name : Unfinished()) {
            processes.push_back(std::stoi(name.substr(std::string(".kelhost-").size())));
        }
        return processes;
    }

    // Expects three outputs and no other files.
    void ExpectOutputs(const std::vector<std::string>& contents) const {
        EXPECT_EQ(Unfinished(), Names{});
        std::vector<std::string> found;
        for (const char* name : {"out/a.wav", "out/b.wav", "out/c.wav"}) {
            found.push_back(ReadFile(m_directory / name));
        }
        EXPECT_EQ(found, contents);
    }

    void GoOn() const { WriteFile(m_signs / "go on", ""); }

    static constexpr const char* kWhole = "1000 2 48000\n";

private:
    Orphans m_orphans;
    TemporaryDirectory m_directory;
    TemporaryDirectory m_signs;
    Command m_command;
    std::optional<RunningProcess> m_process;
};

std::string BatchLine(const std::string& name) {
    // The encoding of an input that is no audio file is unknown.
    return CopyReport(name, "out/" + name, "extensible WAVE, float32 little-endian");
}

struct Ending {
    int signal;
    int status;
};

const std::string kInterrupted = "kelhost: interrupted; no unfinished output is left\n";

const std::vector<Ending> kEndings{{SIGINT, 130}, {SIGTERM, 143}, {SIGHUP, 129}};

} // namespace

TEST(Signal, EndsACopyOrARunAndLeavesExistingFilesAsTheyAre) {
    for (const Arguments& words : {Arguments{"copy", "in.wav", "out.wav", "--force"},
                                   Arguments{"run", "test.TextSource", "FilePath=in.wav", "!",
                                             "test.TextSink", "FilePath=out.wav", "--force"}}) {
        for (const Ending& ending : kEndings) {
            SCOPED_TRACE(testing::Message() << words[0] << ", signal " << ending.signal);
            WaitingCopy copy(words);
            WriteFile(copy.Directory() / "out.wav", "before");
            copy.Start();
            copy.Process().Signal(ending.signal);
            ExpectResult(copy.Process().Wait(), ending.status, "", kInterrupted);
            EXPECT_EQ(SortedNames(copy.Directory()), (Names{"in.wav", "out.wav"}));
            EXPECT_EQ(ReadFile(copy.Directory() / "out.wav"), "before");
        }
    }
}

TEST(Signal, ThatKillsTheHostLeavesNothingWhereFilesNeedNoNames) {
    WaitingCopy copy;
    const int unnamed = open(copy.Directory().Path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (unnamed < 0) {
        GTEST_SKIP() << "this file system needs a name for every file";
    }
    close(unnamed);
    copy.command.environment["KEL_TEST_NAMED_FILES"] = "";
    copy.Start();
    copy.Process().Signal(SIGKILL);
    EXPECT_EQ(copy.Process().Wait().status, -SIGKILL);
    EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
}

TEST(Signal, EndsACopyOfAFifoThatDeliversNoMore) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 20000);
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    // For both directions, so that it is open before there is a reader.
    const int fifo = open((directory / "fifo.wav").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(write(fifo, ReadFile(directory / "take.wav").data(), 20000), 20000);
    RunningProcess process(
        Kelhost(directory, {"copy", "fifo.wav", "out.wav", "--temp-dir", directory / ""}));
    int unread = 0;
    WaitFor([&] { return ioctl(fifo, FIONREAD, &unread) == 0 && unread == 0; }, process);
    process.Signal(SIGINT);
    ExpectResult(process.Wait(), 130, "", kInterrupted);
    EXPECT_EQ(SortedNames(directory), (Names{"fifo.wav", "take.wav"}));
    close(fifo);
}

TEST(Signal, EndsACopyOrAComparisonOfAFifoWithoutAWriter) {
    for (const char* name : {"copy", "compare"}) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
        RunningProcess process(Kelhost(directory, {name, "fifo.wav", "out.wav"}));
        // There is a reader once the program has come to the FIFO.
        int writer = -1;
        WaitFor(
            [&] {
                writer = open((directory / "fifo.wav").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
                return writer >= 0;
            },
            process);
        process.Signal(SIGTERM);
        ExpectResult(process.Wait(), 143, "", kInterrupted);
        close(writer);
        EXPECT_EQ(SortedNames(directory), Names{"fifo.wav"});
    }
}

TEST(BatchSignal, EndsEveryWorkerAndLeavesWholeAndExistingFiles) {
    for (const bool toAll : {false, true}) { // as a terminal does
        for (const Ending& ending : kEndings) {
            SCOPED_TRACE(testing::Message() << ending.signal << (toAll ? " to all" : ""));
            WaitingBatch batch;
            if (toAll) {
                for (const pid_t worker : batch.Workers()) {
                    kill(worker, ending.signal);
                }
            }
            batch.Process().Signal(ending.signal);
            ExpectResult(batch.Process().Wait(), ending.status, BatchLine("a.wav"), kInterrupted);
            batch.ExpectOutputs({WaitingBatch::kWhole, "before", "before"});
            EXPECT_TRUE(Orphans::AreNone());
        }
    }
}

TEST(BatchSignal, EndsABatchWhoseOutputIsNotRead) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        const FullPipe pipe;
        WaitingBatch batch({}, Before::Replaced, pipe.Path());
        // The host waits for the pipe now or in a moment.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        batch.Process().Signal(ending.signal);
        ExpectResult(batch.Process().Wait(), ending.status, "", kInterrupted);
        batch.ExpectOutputs({WaitingBatch::kWhole, "before", "before"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(Signal, EndsACopyIntoAPipeThatIsNotRead) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        const FullPipe pipe;
        WaitingCopy copy({"copy", "in.wav", "-", "--format", "wave"});
        copy.command.environment["KEL_TEST_NAMED_FILES"] = "";
        copy.command.standardOutput = pipe.Path();
        copy.Start();
        copy.GoOn();
        // The host waits for the pipe now or in a moment.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        copy.Process().Signal(ending.signal);
        ExpectResult(copy.Process().Wait(), ending.status, "", kInterrupted);
        EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    }
}

TEST(Signal, EndsACopyWhoseLogIsNotRead) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        const FullPipe pipe;
        WaitingCopy copy;
        copy.command.standardError = pipe.Path();
        copy.command.environment["KEL_LOG"] = "info";
        copy.Start();
        copy.Process().Signal(ending.signal);
        ExpectResult(copy.Process().Wait(), ending.status, "", "");
        EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    }
}

TEST(BatchSignal, ThatTheCallerIgnoresDoesNotEndTheBatch) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingBatch batch({ending.signal});
        batch.Process().Signal(ending.signal);
        for (const pid_t worker : batch.Workers()) {
            kill(worker, ending.signal);
        }
        batch.GoOn();
        ExpectResult(batch.Process().Wait(), 0,
                     BatchLine("a.wav") + BatchLine("b.wav") + BatchLine("c.wav") +
                         "3 files: 3 copied, 0 failed\n",
                     "");
        batch.ExpectOutputs({WaitingBatch::kWhole, WaitingBatch::kWhole, WaitingBatch::kWhole});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchSignal, ThatKillsAWorkerFailsOnlyItsFile) {
    for (const std::size_t place : {0U, 1U}) {
        WaitingBatch batch;
        ASSERT_EQ(batch.Workers().size(), 2U);
        const pid_t killed = batch.Workers()[place];
        const pid_t other = batch.Workers()[1 - place];
        kill(killed, SIGKILL);
        // Its temporary file goes with it, before the other has ended.
        WaitFor([&batch] { return batch.Unfinished().size() == 1; }, batch.Process());
        EXPECT_EQ(batch.Workers(), std::vector<pid_t>{other});
        batch.GoOn();
        const ProcessResult result = batch.Process().Wait();
        // Either worker may have had either file.
        const bool isFirst = result.err.rfind("kelhost: b.wav", 0) == 0;
        const std::string lost = isFirst ? "b.wav" : "c.wav";
        ExpectResult(
            result, 1,
            BatchLine("a.wav") + BatchLine(isFirst ? "c.wav" : "b.wav") +
                "3 files: 2 copied, 1 failed\n",
            "kelhost: " + lost +
                ": the worker process ended with signal 9 (Killed); the file or the plug-in "
                "is damaged\n");
        batch.ExpectOutputs({WaitingBatch::kWhole, isFirst ? "before" : WaitingBatch::kWhole,
                             isFirst ? WaitingBatch::kWhole : "before"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchSignal, ThatKillsTheHostEndsItsWorkersAndLeavesABatchThatCanBeContinued) {
    WaitingBatch batch({}, Before::Nothing);
    const std::vector<pid_t> workers = batch.Workers();
    ASSERT_EQ(workers.size(), 2U);
    batch.Process().Signal(SIGKILL);
    EXPECT_EQ(batch.Process().Wait().status, -SIGKILL);
    for (const pid_t worker : workers) {
        EXPECT_EQ(Orphans::WaitForSignalOf(worker), SIGKILL);
    }
    EXPECT_TRUE(Orphans::AreNone());
    const Names unfinished = batch.Unfinished();
    ASSERT_EQ(unfinished.size(), 2U);
    for (const std::string& name : unfinished) {
        EXPECT_EQ(WithoutRandomNames(name), ".kelhost-XXXXXX.part");
    }
    EXPECT_FALSE(fs::exists(batch.Output("b.wav")));
    const auto written = fs::last_write_time(batch.Output("a.wav"));

    batch.GoOn();
    batch.Restart();
    ExpectResult(batch.Process().Wait(), 0,
                 "a.wav -> out/a.wav: exists already, skipped\n" + BatchLine("b.wav") +
                     BatchLine("c.wav") + "3 files: 2 copied, 1 skipped, 0 failed\n",
                 "");
    EXPECT_EQ(fs::last_write_time(batch.Output("a.wav")), written);
    // The second host cannot know that the processes of the first are gone.
    EXPECT_EQ(batch.Unfinished(), unfinished);
    for (const std::string& name : unfinished) {
        fs::remove_all(batch.Output(name));
    }
    batch.ExpectOutputs({WaitingBatch::kWhole, WaitingBatch::kWhole, WaitingBatch::kWhole});
}

TEST(Signal, OfAClosedPipeEndsTheProgramQuietly) {
    const TemporaryDirectory pipe;
    ASSERT_EQ(mkfifo((pipe / "out").c_str(), 0600), 0);
    const int reader = open((pipe / "out").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    WaitingCopy copy;
    copy.command.standardOutput = pipe / "out";
    copy.Start();
    close(reader);
    copy.GoOn();
    ExpectResult(copy.Process().Wait(), 128 + SIGPIPE, "", "");
}

TEST(Signal, EndsAValidationThatHangsAndLeavesNothing) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    const TemporaryDirectory temporary;
    const std::string plugin = directory / "libkelBroken-hangs.so";
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    const std::string lines = directory / "lines";
    WriteFile(lines, "");
    Command command =
        Kelhost(directory, {"validate", plugin, "--check", "source.seek-to-each-edge", "--check",
                            "source.seek-outside", "--junit", "report.xml"});
    command.environment["TMPDIR"] = temporary.Path().string();
    command.standardOutput = lines;
    RunningProcess process(command);
    WaitFor([&] { return !ReadFile(lines).empty(); }, process);
    process.Signal(SIGINT);
    ExpectResult(process.Wait(), 130, "", kInterrupted);
    EXPECT_EQ(SortedNames(directory), (Names{"libkelBroken-hangs.so", "lines"}));
    EXPECT_EQ(SortedNames(temporary), Names{});
    EXPECT_TRUE(Orphans::AreNone());
}

} // namespace kel::test
