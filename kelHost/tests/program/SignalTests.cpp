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

bool HasUnfinishedOutput(const TemporaryDirectory& directory) {
    for (const std::string& name : directory.Names()) {
        if (name.rfind(".kelhost-", 0) == 0) {
            return true;
        }
    }
    return false;
}

// A copy whose source waits while the sink has the output open.
class WaitingCopy {
public:
    explicit WaitingCopy(const std::vector<int>& ignoredSignals = {},
                         const std::vector<std::string>& options = {},
                         const std::vector<std::string>& words = {"copy", "in.wav", "out.wav"}) {
        WriteFile(m_directory / "in.wav", "1000 2 48000\n");
        m_command = Kelhost(m_directory, {"--plugin", TestPlugin("kelFaultyElements")});
        m_command.arguments.insert(m_command.arguments.end(), words.begin(), words.end());
        m_command.arguments.insert(m_command.arguments.end(), options.begin(), options.end());
        m_command.environment["KEL_TEST_FAULT"] = "source waits while reading";
        m_command.environment["KEL_TEST_WAITING"] = m_signs / "waiting";
        m_command.environment["KEL_TEST_GO_ON"] = m_signs / "go on";
        m_command.ignoredSignals = ignoredSignals;
    }

    const TemporaryDirectory& Directory() const { return m_directory; }

    void ToStandardOutput(const std::string& path) { m_command.standardOutput = path; }

    // Starts it and waits until it waits.
    void Start() {
        m_process.emplace(m_command);
        WaitFor([this] { return fs::exists(m_signs / "waiting"); }, *m_process);
        ASSERT_TRUE(HasUnfinishedOutput(m_directory));
    }

    RunningProcess& Process() { return *m_process; }

    void GoOn() const { WriteFile(m_signs / "go on", ""); }

private:
    TemporaryDirectory m_directory;
    TemporaryDirectory m_signs;
    Command m_command;
    std::optional<RunningProcess> m_process;
};

// An open file.
class Descriptor {
public:
    Descriptor() = default;
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool Open(const std::string& path, int flags) {
        m_number = open(path.c_str(), flags | O_CLOEXEC);
        return m_number >= 0;
    }

    void Close() {
        if (m_number >= 0) {
            close(m_number);
        }
        m_number = -1;
    }

    void Write(const std::string& bytes) const {
        ASSERT_EQ(write(m_number, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

private:
    int m_number = -1;
};

// What is there under the names of the outputs, and is to be done with it.
enum class Before { Replaced, Nothing };

// A copy of three files: the first is whole at once, the sources of the others wait while their
// sinks have the outputs open. What stood under the names before is to be replaced; or nothing did,
// and the copy can be started again.
class WaitingBatch {
public:
    explicit WaitingBatch(const std::vector<int>& ignoredSignals = {},
                          Before before = Before::Replaced) {
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
        m_command.environment["KEL_TEST_WAITING"] = m_signs / "waiting";
        m_command.environment["KEL_TEST_GO_ON"] = m_signs / "go on";
        m_command.ignoredSignals = ignoredSignals;
        m_process.emplace(m_command);
        WaitFor(
            [this] {
                // In this order: the first is unfinished for a moment, too.
                return fs::exists(m_directory / "out/a.wav") &&
                       Content(m_directory / "out/a.wav") == kWhole && Unfinished().size() == 2;
            },
            *m_process);
    }

    // Starts the same command again.
    void Restart() { m_process.emplace(m_command); }

    std::string Output(const std::string& name) const { return m_directory / ("out/" + name); }

    RunningProcess& Process() { return *m_process; }

    // The names of the unfinished outputs.
    Names Unfinished() const {
        Names names;
        for (const auto& entry : fs::directory_iterator(m_directory / "out")) {
            if (entry.path().filename().string().rfind(".kelhost-", 0) == 0) {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
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

    // What is in the three outputs, and that nothing else is there.
    void ExpectOutputs(const std::vector<std::string>& contents) const {
        EXPECT_EQ(Unfinished(), Names{});
        std::vector<std::string> found;
        for (const char* name : {"out/a.wav", "out/b.wav", "out/c.wav"}) {
            found.push_back(Content(m_directory / name));
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

// What is said of a file that was copied.
std::string BatchLine(const std::string& name) {
    return name + " -> out/" + name +
           ": extensible WAVE, float32 little-endian, 2 channels, 48000 Hz, 1000 frames, "
           "0:00:00.021\n";
}

struct Ending {
    int signal;
    int status;
};

const std::string kInterrupted = "kelhost: interrupted; nothing is left of what was not finished\n";

const std::vector<Ending> kEndings{{SIGINT, 130}, {SIGTERM, 143}, {SIGHUP, 129}};

} // namespace

TEST(Signal, EndsACopyAndLeavesNothing) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingCopy copy;
        copy.Start();
        copy.Process().Signal(ending.signal);
        ExpectResult(copy.Process().Wait(), ending.status, "", kInterrupted);
        EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    }
}

TEST(Signal, EndsARunAndLeavesNothing) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingCopy copy({}, {},
                         {"run", "test.TextSource", "FilePath=in.wav", "!", "test.TextSink",
                          "FilePath=out.wav"});
        copy.Start();
        copy.Process().Signal(ending.signal);
        ExpectResult(copy.Process().Wait(), ending.status, "", kInterrupted);
        EXPECT_EQ(SortedNames(copy.Directory()), Names{"in.wav"});
    }
}

TEST(Signal, LeavesWhatStoodThereUntouched) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingCopy copy({}, {"--force"});
        WriteFile(copy.Directory() / "out.wav", "before");
        copy.Start();
        copy.Process().Signal(ending.signal);
        ExpectResult(copy.Process().Wait(), ending.status, "", kInterrupted);
        EXPECT_EQ(SortedNames(copy.Directory()), (Names{"in.wav", "out.wav"}));
        EXPECT_EQ(Content(copy.Directory() / "out.wav"), "before");
    }
}

TEST(Signal, EndsACopyOfAFifoThatDeliversNoMore) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav", 20000);
        ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
        // For both directions, so that it is open before there is a reader.
        Descriptor fifo;
        ASSERT_TRUE(fifo.Open(directory / "fifo.wav", O_RDWR));
        fifo.Write(Content(directory / "take.wav").substr(0, 20000));
        RunningProcess process(Kelhost(directory, {"copy", "fifo.wav", "out.wav"}));
        WaitFor([&] { return HasUnfinishedOutput(directory); }, process);
        process.Signal(ending.signal);
        ExpectResult(process.Wait(), ending.status, "", kInterrupted);
        EXPECT_EQ(SortedNames(directory), (Names{"fifo.wav", "take.wav"}));
    }
}

TEST(Signal, EndsAProgramThatHangsInAFifoThatNobodyWrites) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        const TemporaryDirectory directory;
        ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
        RunningProcess process(Kelhost(directory, {"copy", "fifo.wav", "out.wav"}));
        // There is a reader once the program has come to the FIFO.
        Descriptor writer;
        WaitFor([&] { return writer.Open(directory / "fifo.wav", O_WRONLY | O_NONBLOCK); },
                process);
        process.Signal(ending.signal);
        ExpectResult(process.Wait(), ending.status, "", kInterrupted);
        EXPECT_EQ(SortedNames(directory), Names{"fifo.wav"});
    }
}

TEST(Signal, ThatKillsLeavesOnlyAFileThatIsRecognisable) {
    WaitingCopy copy;
    copy.Start();
    copy.Process().Signal(SIGKILL);
    EXPECT_EQ(copy.Process().Wait().status, -SIGKILL);
    const Names names = SortedNames(copy.Directory());
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(WithoutRandomNames(names[0]), ".kelhost-XXXXXX.part.wav");
    EXPECT_EQ(names[1], "in.wav");
}

TEST(Signal, ThatTheCallerIgnoresDoesNotEndIt) {
    // What nohup does, and a shell with what it starts in the background.
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingCopy copy({ending.signal});
        copy.Start();
        copy.Process().Signal(ending.signal);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        copy.GoOn();
        EXPECT_EQ(copy.Process().Wait().status, 0);
        EXPECT_EQ(SortedNames(copy.Directory()), (Names{"in.wav", "out.wav"}));
    }
}

TEST(Signal, IsNotNeededForACopyToEnd) {
    WaitingCopy copy;
    copy.Start();
    copy.GoOn();
    ExpectResult(copy.Process().Wait(), 0,
                 "in.wav -> out.wav: extensible WAVE, float32 little-endian, 2 channels, 48000 Hz, "
                 "1000 frames, 0:00:00.021\n",
                 "");
    EXPECT_EQ(Content(copy.Directory() / "out.wav"), "1000 2 48000\n");
}

TEST(BatchSignal, EndsEveryWorkerAndLeavesWhatWasWholeAndWhatStoodThere) {
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingBatch batch;
        batch.Process().Signal(ending.signal);
        ExpectResult(batch.Process().Wait(), ending.status, BatchLine("a.wav"), kInterrupted);
        batch.ExpectOutputs({WaitingBatch::kWhole, "before", "before"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchSignal, ThatTheCallerIgnoresDoesNotEndIt) {
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

TEST(BatchSignal, ToAWorkerIsForItsHostToObey) {
    // A terminal sends them to all of them at once.
    for (const Ending& ending : kEndings) {
        SCOPED_TRACE(ending.signal);
        WaitingBatch batch;
        for (const pid_t worker : batch.Workers()) {
            kill(worker, ending.signal);
        }
        batch.Process().Signal(ending.signal);
        ExpectResult(batch.Process().Wait(), ending.status, BatchLine("a.wav"), kInterrupted);
        batch.ExpectOutputs({WaitingBatch::kWhole, "before", "before"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchSignal, ThatKillsAWorkerFailsItsFileAlone) {
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
        // Which of the two had which file is for them to know.
        const bool isFirst = result.err.rfind("kelhost: b.wav", 0) == 0;
        const std::string lost = isFirst ? "b.wav" : "c.wav";
        ExpectResult(result, 1,
                     BatchLine("a.wav") + BatchLine(isFirst ? "c.wav" : "b.wav") +
                         "3 files: 2 copied, 1 failed\n",
                     "kelhost: " + lost +
                         ": the process that worked on it was ended by signal 9 (Killed); the file "
                         "is damaged, or the plug-in is\n");
        batch.ExpectOutputs({WaitingBatch::kWhole, isFirst ? "before" : WaitingBatch::kWhole,
                             isFirst ? WaitingBatch::kWhole : "before"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchSignal, ThatKillsTheHostEndsItsWorkersAndLeavesRecognisableFiles) {
    WaitingBatch batch;
    const std::vector<pid_t> workers = batch.Workers();
    ASSERT_EQ(workers.size(), 2U);
    batch.Process().Signal(SIGKILL);
    EXPECT_EQ(batch.Process().Wait().status, -SIGKILL);
    for (const pid_t worker : workers) {
        EXPECT_EQ(Orphans::WaitForSignalOf(worker), SIGKILL);
    }
    EXPECT_TRUE(Orphans::AreNone());
    ASSERT_EQ(batch.Unfinished().size(), 2U);
    for (const std::string& name : batch.Unfinished()) {
        EXPECT_EQ(WithoutRandomNames(name), ".kelhost-XXXXXX.part.wav");
    }
}

TEST(BatchSignal, ThatKillsTheHostLeavesABatchThatGoesOnWhereItWas) {
    WaitingBatch batch({}, Before::Nothing);
    const std::vector<pid_t> workers = batch.Workers();
    batch.Process().Signal(SIGKILL);
    EXPECT_EQ(batch.Process().Wait().status, -SIGKILL);
    for (const pid_t worker : workers) {
        Orphans::WaitForSignalOf(worker);
    }
    const Names leftOver = batch.Unfinished();
    EXPECT_EQ(leftOver.size(), 2U);
    EXPECT_FALSE(fs::exists(batch.Output("b.wav")));
    EXPECT_FALSE(fs::exists(batch.Output("c.wav")));
    struct stat before {};
    ASSERT_EQ(stat(batch.Output("a.wav").c_str(), &before), 0);

    batch.GoOn();
    batch.Restart();
    ExpectResult(batch.Process().Wait(), 0,
                 "a.wav -> out/a.wav: exists already, skipped\n" + BatchLine("b.wav") +
                     BatchLine("c.wav") + "3 files: 2 copied, 1 skipped, 0 failed\n",
                 "");
    struct stat after {};
    ASSERT_EQ(stat(batch.Output("a.wav").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    // Nobody but who started them knows that those processes are gone.
    EXPECT_EQ(batch.Unfinished(), leftOver);
    for (const std::string& name : leftOver) {
        fs::remove(batch.Output(name));
    }
    batch.ExpectOutputs({WaitingBatch::kWhole, WaitingBatch::kWhole, WaitingBatch::kWhole});
}

TEST(Signal, OfAReaderThatIsGoneIsAnErrorOfStandardOutput) {
    const TemporaryDirectory pipe;
    ASSERT_EQ(mkfifo((pipe / "out").c_str(), 0600), 0);
    Descriptor reader;
    ASSERT_TRUE(reader.Open(pipe / "out", O_RDONLY | O_NONBLOCK));
    WaitingCopy copy;
    copy.ToStandardOutput(pipe / "out");
    copy.Start();
    reader.Close();
    copy.GoOn();
    ExpectResult(copy.Process().Wait(), 1, "", "kelhost: standard output cannot be written\n");
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
    ExpectResult(process.Wait(), 130, "",
                 "kelhost: interrupted; nothing is left of what was not finished\n");
    EXPECT_EQ(SortedNames(directory), (Names{"libkelBroken-hangs.so", "lines"}));
    EXPECT_EQ(SortedNames(temporary), Names{});
    EXPECT_TRUE(Orphans::AreNone());
}

} // namespace kel::test
