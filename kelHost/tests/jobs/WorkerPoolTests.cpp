#include "jobs/WorkerPool.h"

#include "Orphans.h"
#include "Program.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "jobs/WorkerMessage.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

using nlohmann::json;
using test::Orphans;
using test::SignalDisposition;
using test::TemporaryDirectory;
using test::WriteFile;

namespace {

// Keeps every event.
class Recorder final : public JobObserver {
public:
    explicit Recorder(std::size_t jobs) : m_outcomes(jobs) {}

    void OnProgress(std::size_t job, std::int64_t done, std::int64_t total,
                    std::uint32_t rate) override {
        events.push_back(std::to_string(job) + ": " + std::to_string(done) + " of " +
                         std::to_string(total) + " at " + std::to_string(rate));
    }
    void OnSpooled(std::size_t job, std::uint64_t bytes) override {
        events.push_back(std::to_string(job) + ": " + std::to_string(bytes) + " bytes");
    }
    void OnWaiting(std::size_t job, std::int64_t seconds) override {
        events.push_back(std::to_string(job) + ": waits for " + std::to_string(seconds) + " s");
    }
    void OnShow(std::size_t job, const std::string& line) override {
        events.push_back(std::to_string(job) + ": " + line);
        if (onShow != nullptr) {
            onShow();
        }
    }
    void OnPrinted(std::size_t job, const std::string& line) override {
        events.push_back(std::to_string(job) + " printed: " + line);
    }
    void OnFinished(std::size_t job, const JobOutcome& outcome) override {
        ++finished;
        m_outcomes.at(job) =
            outcome.succeeded ? "result " + outcome.result.document : outcome.error.message;
        if (onFinished != nullptr) {
            onFinished(outcome);
        }
    }

    const std::vector<std::string>& Outcomes() const { return m_outcomes; }

    std::vector<std::string> events;
    std::size_t finished = 0;
    std::function<void()> onShow;
    std::function<void(const JobOutcome&)> onFinished;

private:
    std::vector<std::string> m_outcomes;
};

using Work = std::function<json(Reporter&)>;

Job MakeJob(const std::string& file, Work run, const std::string& directory = "") {
    return {file, file, directory, [run = std::move(run)](Reporter& reporter) {
                return JobResult{DumpJSON(run(reporter)), "", ""};
            }};
}

const Work kSucceed = [](Reporter&) {
    return json(1);
};

constexpr std::chrono::milliseconds kLong{60000};

std::vector<std::string> OutcomesOf(const std::vector<Job>& jobs, unsigned workers,
                                    std::chrono::milliseconds openTimeout = kLong,
                                    std::chrono::milliseconds stallTimeout = kLong) {
    Recorder recorder(jobs.size());
    RunJobs(jobs, {workers, openTimeout, stallTimeout}, recorder);
    EXPECT_EQ(recorder.finished, jobs.size()) << "each job ends once";
    return recorder.Outcomes();
}

std::string Lost(const std::string& file, const std::string& how) {
    return file + ": the worker process ended with " + how + "; the file or the plug-in is damaged";
}

// True for the worker's end of the pipe for messages: not for that of the standard output, and not
// for what the test inherited, which exec has left open.
bool LeadsToHost(int descriptor) {
    struct stat status {};
    struct stat output {};
    return fstat(descriptor, &status) == 0 && fstat(STDOUT_FILENO, &output) == 0 &&
           S_ISFIFO(status.st_mode) && status.st_ino != output.st_ino &&
           (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_WRONLY &&
           (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

// Writes to the host as a damaged plug-in may.
void WriteToHost(const std::string& bytes) {
    for (int descriptor = 3; descriptor < 1000; ++descriptor) {
        if (LeadsToHost(descriptor)) {
            EXPECT_EQ(write(descriptor, bytes.data(), bytes.size()),
                      static_cast<ssize_t>(bytes.size()));
        }
    }
}

class Workers : public testing::Test {
protected:
    ~Workers() override { EXPECT_TRUE(Orphans::AreNone()) << "a worker is left"; }

private:
    Orphans m_orphans;
    // As kelhost does at its start: a worker that is gone is an error of the write.
    SignalDisposition m_pipe{SIGPIPE, SIG_IGN};
    SignalDisposition m_interrupt{SIGINT, SIG_DFL};
    SignalDisposition m_terminate{SIGTERM, SIG_DFL};
    SignalDisposition m_hangup{SIGHUP, SIG_DFL};
};

} // namespace

TEST_F(Workers, DoEveryJobOnceAndStayForTheNextOne) {
    EXPECT_EQ(OutcomesOf({}, 4), std::vector<std::string>{});
    for (const unsigned workers : {1U, 3U, 64U}) {
        SCOPED_TRACE(workers);
        constexpr int kJobs = 20;
        std::vector<Job> jobs;
        for (int i = 0; i < kJobs; ++i) {
            jobs.push_back(MakeJob("f", [i](Reporter&) { return json{i, getpid()}; }));
        }
        std::set<std::string> processes;
        const std::vector<std::string> outcomes = OutcomesOf(jobs, workers);
        for (int i = 0; i < kJobs; ++i) {
            const std::string begin = "result [" + std::to_string(i) + ",";
            const std::string& outcome = outcomes[static_cast<std::size_t>(i)];
            EXPECT_EQ(outcome.substr(0, begin.size()), begin);
            processes.insert(outcome.substr(begin.size()));
        }
        EXPECT_LE(processes.size(), workers);
        EXPECT_EQ(processes.count(std::to_string(getpid()) + "]"), 0U);
    }
}

TEST_F(Workers, ReportEveryKindOfFailureAndAreReplaced) {
    const Work isKilled = [](Reporter&) -> json {
        raise(SIGKILL);
        return {};
    };
    const std::vector<Job> jobs{
        MakeJob("a", [](Reporter&) -> json { throw JobError("as it is\\n"); }),
        MakeJob("b\n", [](Reporter&) -> json { throw std::runtime_error("two\nlines"); }),
        MakeJob("c\n", [](Reporter&) -> json { throw 42; }),
        MakeJob("d", [](Reporter&) { return json(); }),
        MakeJob("e\n", [](Reporter&) -> json { _exit(7); }),
        MakeJob("f", isKilled),
        MakeJob("g", kSucceed)};
    const std::vector<std::string> expected{
        "as it is\\n", "b\\n: two\\nlines",           "c\\n: an exception of an unknown type",
        "result null", Lost("e\\n", "exit status 7"), Lost("f", "signal 9 (Killed)"),
        "result 1"};
    for (const unsigned workers : {1U, 3U}) {
        EXPECT_EQ(OutcomesOf(jobs, workers), expected);
    }
}

TEST_F(Workers, ForwardLinesInOrderAndWhole) {
    const std::string longLine(300000, 'x'); // more than a pipe holds
    const std::vector<Job> jobs{MakeJob("a", [&longLine](Reporter& reporter) {
        reporter.Show("first\nline");
        reporter.Show(longLine);
        reporter.Show("");
        return json(longLine);
    })};
    Recorder recorder(1);
    RunJobs(jobs, {1, kLong}, recorder);
    EXPECT_EQ(recorder.events,
              (std::vector<std::string>{"0: first\nline", "0: " + longLine, "0: "}));
    EXPECT_EQ(recorder.Outcomes()[0], "result \"" + longLine + "\"");
}

TEST_F(Workers, ForwardLinesOfSeveralThreadsWhole) {
    constexpr int kLines = 20;
    const std::string longLine(100000, 'x'); // more than a pipe takes at once
    const std::vector<Job> jobs{MakeJob("a", [&longLine](Reporter& reporter) {
        const auto show = [&] {
            for (int i = 0; i < kLines; ++i) {
                reporter.Show(longLine);
            }
        };
        std::thread other(show);
        show();
        other.join();
        return json(1);
    })};
    Recorder recorder(1);
    RunJobs(jobs, {1, kLong}, recorder);
    EXPECT_EQ(recorder.events, std::vector<std::string>(std::size_t{2} * kLines, "0: " + longLine));
    EXPECT_EQ(recorder.Outcomes()[0], "result 1");
}

TEST_F(Workers, ForwardProgressButNotEveryStep) {
    const std::vector<Job> jobs{MakeJob("a", [](Reporter& reporter) {
        for (int i = 0; i <= 1000; ++i) {
            reporter.Progress(i, 1000, 48000);
        }
        return json();
    })};
    Recorder recorder(1);
    RunJobs(jobs, {1, kLong}, recorder);
    ASSERT_FALSE(recorder.events.empty());
    EXPECT_EQ(recorder.events.back(), "0: 1000 of 1000 at 48000");
    EXPECT_LT(recorder.events.size(), 500U);
}

TEST_F(Workers, AreEndedWhenOpeningTakesTooLong) {
    const Work hangs = [](Reporter& reporter) -> json {
        reporter.Opening("in\nner");
        test::SleepForever();
    };
    const std::vector<std::string> expected{
        "in\\nner: cannot open the file within 0.05 s; it is damaged, a pipe without a writer, or "
        "on "
        "a mount that does not respond (--open-timeout SECONDS allows more)",
        "result 1"};
    for (const unsigned workers : {1U, 2U}) {
        EXPECT_EQ(OutcomesOf({MakeJob("a", hangs), MakeJob("b", kSucceed)}, workers,
                             std::chrono::milliseconds(50)),
                  expected);
    }
}

TEST_F(Workers, AreEndedAtTheFirstOfSeveralDeadlines) {
    // The later deadline of the second file must not delay the end of the first one.
    constexpr std::chrono::milliseconds kTimeout{400};
    const TemporaryDirectory directory;
    const auto first = [&](Reporter& reporter) -> json {
        reporter.Opening("a");
        WriteFile(directory / std::to_string(getpid()), "");
        test::SleepForever();
    };
    const auto second = [&](Reporter& reporter) {
        std::vector<std::string> names;
        while ((names = directory.Names()).empty()) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(kTimeout * 3 / 4);
        reporter.Opening("b");
        while (kill(std::stoi(names.front()), 0) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return json(1);
    };
    EXPECT_EQ(OutcomesOf({MakeJob("a", first), MakeJob("b", second)}, 2, kTimeout)[1], "result 1");
}

TEST_F(Workers, HaveNoDeadlineExceptForOpening) {
    constexpr std::chrono::milliseconds kTimeout{100};
    const Work opens = [&](Reporter& reporter) {
        reporter.Opening("a");
        reporter.Opened();
        std::this_thread::sleep_for(2 * kTimeout);
        return json(1);
    };
    const Work failsToOpen = [](Reporter& reporter) -> json {
        reporter.Opening("b");
        throw JobError("no");
    };
    const Work opensNothing = [&](Reporter&) {
        std::this_thread::sleep_for(2 * kTimeout);
        return json(2);
    };
    EXPECT_EQ(
        OutcomesOf({MakeJob("a", opens), MakeJob("b", failsToOpen), MakeJob("c", opensNothing)}, 1,
                   kTimeout),
        (std::vector<std::string>{"result 1", "no", "result 2"}));
}

TEST_F(Workers, AreEndedWhenTheirInputDeliversNothing) {
    const Work hangs = [](Reporter& reporter) -> json {
        reporter.Opening("b");
        reporter.Opened();
        const ReadingScope reading(reporter);
        test::SleepForever();
    };
    const std::vector<std::string> expected{
        "in\\ner: cannot read the file: it delivered nothing for 0.05 s (--stall-timeout SECONDS "
        "allows more, 0 any time)",
        "result 1"};
    for (const unsigned workers : {1U, 2U}) {
        EXPECT_EQ(OutcomesOf({MakeJob("in\ner", hangs), MakeJob("b", kSucceed)}, workers, kLong,
                             std::chrono::milliseconds(50)),
                  expected);
    }
}

TEST_F(Workers, AreEndedWhenTheyAreStopped) {
    const Work isStopped = [](Reporter&) {
        raise(SIGSTOP);
        return json();
    };
    EXPECT_EQ(OutcomesOf({MakeJob("a", isStopped), MakeJob("b", kSucceed)}, 1, kLong,
                         std::chrono::milliseconds(50)),
              (std::vector<std::string>{
                  "a: cannot go on: the worker process was stopped for 0.05 s (--stall-timeout "
                  "SECONDS allows more, 0 any time)",
                  "result 1"}));
}

TEST_F(Workers, MayWorkForAnyTimeBetweenReads) {
    // Longer than the host needs to notice, which looks four times a second.
    constexpr std::chrono::milliseconds kTimeout{300};
    const Work works = [&](Reporter& reporter) {
        { const ReadingScope reading(reporter); }
        std::this_thread::sleep_for(3 * kTimeout);
        return json(1);
    };
    const Work readsOften = [&](Reporter& reporter) {
        for (int i = 0; i < 90; ++i) {
            const ReadingScope reading(reporter);
            std::this_thread::sleep_for(kTimeout / 30);
        }
        return json(2);
    };
    EXPECT_EQ(OutcomesOf({MakeJob("a", works), MakeJob("b", readsOften)}, 2, kLong, kTimeout),
              (std::vector<std::string>{"result 1", "result 2"}));
}

TEST_F(Workers, ReportHowLongTheyWaitForTheirInput) {
    const std::vector<Job> jobs{MakeJob("a", [](Reporter& reporter) {
        {
            const ReadingScope reading(reporter);
            std::this_thread::sleep_for(std::chrono::milliseconds(1600));
        }
        reporter.Show("goes on");
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        return json(1);
    })};
    for (const bool progress : {true, false}) {
        Recorder recorder(1);
        RunJobs(jobs, {1, kLong, std::chrono::milliseconds(0), progress}, recorder);
        EXPECT_EQ(recorder.events, progress
                                       ? (std::vector<std::string>{"0: waits for 1 s", "0: goes on",
                                                                   "0: waits for 0 s"})
                                       : std::vector<std::string>{"0: goes on"});
        EXPECT_EQ(recorder.Outcomes(), std::vector<std::string>{"result 1"}) << "0 is no limit";
    }
}

TEST_F(Workers, ReportHowLongTheyWaitForAFileToOpen) {
    const std::vector<Job> jobs{MakeJob("a", [](Reporter& reporter) {
        reporter.Opening("a");
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        reporter.Opened();
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        return json(1);
    })};
    Recorder recorder(1);
    RunJobs(jobs, {1, kLong}, recorder);
    EXPECT_EQ(recorder.events, (std::vector<std::string>{"0: waits for 1 s", "0: waits for 0 s"}));
}

TEST_F(Workers, AreNotEndedForTimeInWhichTheHostIsStopped) {
    // The host looks again within 250 ms, which count, before and after it is stopped.
    constexpr std::chrono::milliseconds kTimeout{900};
    const pid_t host = getpid();
    const Work stopsHost = [&](Reporter& reporter) {
        reporter.Opening("a");
        kill(host, SIGSTOP);
        std::this_thread::sleep_for(kTimeout);
        kill(host, SIGCONT);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return json(1);
    };
    EXPECT_EQ(OutcomesOf({MakeJob("a", stopsHost)}, 1, kTimeout),
              std::vector<std::string>{"result 1"});
}

TEST_F(Workers, ThatSendSomethingElseAreEnded) {
    struct Row {
        std::string name;
        std::string bytes;
    };
    for (const Row& row :
         {Row{"text", "terminate called\n"}, Row{"zeros", std::string(64, '\0')},
          Row{"a job that it does not do", Encode({WorkerMessage::Kind::Result, 1, {"1", "", ""}})},
          Row{"the beginning of a message",
              Encode({WorkerMessage::Kind::Show, 0, {""}}).substr(0, 9)}}) {
        SCOPED_TRACE(row.name);
        const Work writes = [&](Reporter& reporter) -> json {
            WriteToHost(row.bytes);
            reporter.Show("a line");
            reporter.Show("another");
            test::SleepForever();
        };
        EXPECT_EQ(OutcomesOf({MakeJob("a\n", writes), MakeJob("b", kSucceed)}, 1),
                  (std::vector<std::string>{
                      "a\\n: cannot understand a message of a worker process: the plug-in wrote "
                      "into a pipe of the host",
                      "result 1"}));
    }
}

TEST_F(Workers, ThatSendSomethingElseFailAllJobsThatTheyHaveNotReported) {
    const TemporaryDirectory directory;
    const Work writes = [](Reporter& reporter) {
        reporter.Show("the host is busy");
        WriteToHost("terminate called\n");
        return json(1);
    };
    const Work isNext = [&](Reporter&) -> json {
        WriteFile(directory / "next", "");
        test::SleepForever();
    };
    const std::vector<Job> jobs{MakeJob("a", writes), MakeJob("b", isNext), MakeJob("c", kSucceed)};
    Recorder recorder(jobs.size());
    recorder.onShow = [&] {
        while (directory.Names().empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    RunJobs(jobs, {1, kLong}, recorder);
    const std::string failure =
        "cannot understand a message of a worker process: the plug-in wrote "
        "into a pipe of the host";
    EXPECT_EQ(recorder.Outcomes(),
              (std::vector<std::string>{"a: " + failure, "b: " + failure, "result 1"}));
}

TEST_F(Workers, ThatEndAreNoticedWhileTheirPipeStaysOpen) {
    const TemporaryDirectory directory;
    const Work leavesProcess = [&](Reporter&) -> json {
        const pid_t process = fork();
        if (process == 0) {
            alarm(20); // else a test that fails would hang
            test::SleepForever();
        }
        WriteFile(directory / std::to_string(process), "");
        _exit(7);
    };
    EXPECT_EQ(OutcomesOf({MakeJob("a", leavesProcess)}, 1),
              std::vector<std::string>{Lost("a", "exit status 7")});
    const pid_t process = std::stoi(directory.Names().at(0));
    kill(process, SIGKILL);
    EXPECT_EQ(Orphans::WaitForSignalOf(process), SIGKILL) << "it ended before";
}

TEST_F(Workers, ThatDoNotEndAfterTheLastJobAreEnded) {
    const std::vector<Job> jobs{MakeJob("a", [](Reporter&) { return json(getpid()); })};
    Recorder recorder(1);
    recorder.onFinished = [](const JobOutcome& outcome) {
        kill(std::stoi(outcome.result.document), SIGSTOP);
    };
    RunJobs(jobs, {1, kLong}, recorder);
    EXPECT_TRUE(Orphans::AreNone());
}

TEST_F(Workers, ReportWhatLibrariesPrint) {
    const std::string longLine(4096, 'x');
    const auto prints = [&](Reporter&) {
        std::fputs("to stdout\n", stdout);
        std::fputs("\n\nto stderr\nand", stderr);
        std::fputs(" more", stderr);
        std::fputs((" and more\n" + longLine + "y\n").c_str(), stderr);
        return json(1);
    };
    const Work crashes = [](Reporter&) -> json {
        std::fputs("last words", stderr);
        _exit(1);
    };
    const Work throws = [](Reporter&) -> json {
        std::fputs("unfinished", stdout);
        throw JobError("no");
    };
    const std::vector<Job> jobs{MakeJob("a", prints), MakeJob("b", crashes), MakeJob("c", throws)};
    Recorder recorder(jobs.size());
    RunJobs(jobs, {1, kLong}, recorder);
    EXPECT_EQ(recorder.events, (std::vector<std::string>{
                                   "0 printed: to stderr", "0 printed: and more and more",
                                   "0 printed: " + longLine, "0 printed: y", "0 printed: to stdout",
                                   "1 printed: last words", "2 printed: unfinished"}));
    EXPECT_EQ(recorder.Outcomes(),
              (std::vector<std::string>{"result 1", Lost("b", "exit status 1"), "no"}));
}

TEST_F(Workers, ReportWhatLibrariesPrintWithTheJobThatTheyDo) {
    constexpr std::size_t kJobs = 200;
    std::vector<Job> jobs;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < kJobs; ++i) {
        const std::string line = "line of " + std::to_string(i);
        jobs.push_back(MakeJob("a", [line](Reporter&) {
            std::fputs(line.c_str(), stderr);
            return json(1);
        }));
        expected.push_back(std::to_string(i) + " printed: " + line);
    }
    Recorder recorder(jobs.size());
    RunJobs(jobs, {3, kLong}, recorder);
    std::sort(recorder.events.begin(), recorder.events.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(recorder.events, expected);
}

TEST_F(Workers, NeverWaitForTheHostToReadWhatLibrariesPrint) {
    const TemporaryDirectory directory;
    const std::vector<Job> jobs{MakeJob("a", [&](Reporter& reporter) {
        reporter.Show("the host is busy");
        const std::string line(1000, 'x');
        for (int i = 0; i < 1000; ++i) { // more than a pipe holds
            std::fputs((line + "\n").c_str(), stderr);
        }
        WriteFile(directory / "printed", "");
        return json(1);
    })};
    Recorder recorder(1);
    bool hasPrinted = false;
    recorder.onShow = [&] {
        for (int i = 0; i < 5000 && !hasPrinted; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            hasPrinted = !directory.Names().empty();
        }
    };
    RunJobs(jobs, {1, kLong}, recorder);
    EXPECT_TRUE(hasPrinted) << "it waits";
    EXPECT_EQ(recorder.Outcomes(), std::vector<std::string>{"result 1"});
}

TEST_F(Workers, ThatSurviveBeingKilledAreNotWaitedFor) {
    // A process that another one traces has not ended for its parent before the tracer has seen it:
    // like one that waits for a device that does not respond.
    const TemporaryDirectory directory;
    const Work isTraced = [&](Reporter& reporter) -> json {
        const pid_t worker = getpid();
        prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
        const pid_t tracer = fork();
        if (tracer == 0) {
            alarm(20); // else a test that fails would hang
            const bool traces = ptrace(PTRACE_SEIZE, worker, nullptr, nullptr) == 0;
            WriteFile(directory / (traces ? std::to_string(getpid()) : "cannot"), "");
            test::SleepForever();
        }
        while (directory.Names().empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (directory.Names().at(0) == "cannot") {
            kill(tracer, SIGKILL);
            waitpid(tracer, nullptr, 0);
            return json("cannot");
        }
        reporter.Opening("a");
        test::SleepForever();
    };
    const std::vector<std::string> outcomes = OutcomesOf(
        {MakeJob("a", isTraced), MakeJob("b", kSucceed)}, 1, std::chrono::milliseconds(50));
    EXPECT_EQ(outcomes.at(1), "result 1");
    if (outcomes.at(0) == "result \"cannot\"") {
        GTEST_SKIP() << "this system allows no process to trace another";
    }
    EXPECT_EQ(outcomes.at(0), "a: cannot open the file within 0.05 s; it is damaged, a pipe "
                              "without a writer, or on a mount that does not respond "
                              "(--open-timeout SECONDS allows more)");
    const pid_t tracer = std::stoi(directory.Names().at(0));
    kill(tracer, SIGKILL);
    // The worker, and its tracer, which the test inherits from it.
    EXPECT_GT(waitpid(-1, nullptr, 0), 0);
    EXPECT_GT(waitpid(-1, nullptr, 0), 0);
}

TEST_F(Workers, LeaveNoTemporaryFilesWhenTheyDie) {
    const TemporaryDirectory directory;
    WriteFile(directory / "other", "");
    const auto leave = [&directory] {
        WriteFile(directory / (TemporaryPrefix(getpid()) + "abcdef.part.wav"), "");
    };
    const Work exits = [&](Reporter&) -> json {
        leave();
        _exit(1);
    };
    const Work hangs = [&](Reporter& reporter) -> json {
        leave();
        reporter.Opening("b");
        test::SleepForever();
    };
    OutcomesOf({MakeJob("a", exits, directory.Path()), MakeJob("b", hangs, directory.Path())}, 2,
               std::chrono::milliseconds(50));
    EXPECT_EQ(directory.Names(), std::vector<std::string>{"other"});
}

TEST_F(Workers, AreEndedBySignalsToTheHostAndLeaveNothing) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        const TemporaryDirectory directory;
        const pid_t host = getpid();
        std::vector<Job> jobs;
        for (int i = 0; i < 3; ++i) {
            jobs.push_back(MakeJob(
                "a",
                [&directory, host, signal, i](Reporter&) -> json {
                    WriteFile(directory / (TemporaryPrefix(getpid()) + "abcdef.part"), "");
                    if (i == 2) {
                        kill(host, signal);
                    }
                    test::SleepForever();
                },
                directory.Path().string()));
        }
        Recorder recorder(jobs.size());
        int interruptedBy = 0;
        try {
            RunJobs(jobs, {3, kLong}, recorder);
        } catch (const Interrupted& interrupted) {
            interruptedBy = interrupted.signal;
        }
        EXPECT_EQ(interruptedBy, signal);
        EXPECT_EQ(recorder.finished, 0U);
        EXPECT_EQ(directory.Names(), std::vector<std::string>{});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST_F(Workers, GoOnThroughIgnoredSignalsAndLeaveTheirMask) {
    sigset_t before;
    sigprocmask(SIG_SETMASK, nullptr, &before);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        const SignalDisposition ignored(signal, SIG_IGN);
        const pid_t host = getpid();
        EXPECT_EQ(OutcomesOf({MakeJob("a",
                                      [host, signal](Reporter&) {
                                          kill(host, signal);
                                          kill(getpid(), signal);
                                          return json(1);
                                      })},
                             1),
                  std::vector<std::string>{"result 1"});
        sigset_t after;
        sigprocmask(SIG_SETMASK, nullptr, &after);
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal));
    }
}

std::string TextOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST_F(Workers, AreAsManyAsTheSystemHasRoomFor) {
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former), 0);
    const std::vector<Job> jobs(5, MakeJob("a", kSucceed));
    // Runs the jobs where no more than so many descriptors may be open; returns the error.
    const auto run = [&](rlim_t most, unsigned workers, Recorder& recorder) -> std::string {
        const rlimit few{most, former.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        std::exception_ptr failure;
        try {
            RunJobs(jobs, {workers, kLong}, recorder);
        } catch (const JobError&) {
            failure = std::current_exception();
        }
        // Looked at where there is room again: checkers of undefined behaviour need some.
        setrlimit(RLIMIT_NOFILE, &former);
        return failure != nullptr ? TextOf(failure) : "";
    };
    rlim_t enough = 3; // for one worker
    for (std::string error = "none"; !error.empty(); ++enough) {
        Recorder recorder(jobs.size());
        error = run(enough, 1, recorder);
        if (!error.empty()) {
            ASSERT_EQ(error, "cannot start a worker: Too many open files");
            ASSERT_EQ(recorder.finished, 0U);
        }
    }
    EXPECT_GT(enough, 4U) << "no run failed";
    for (rlim_t more = 0; more < 6; ++more) {
        SCOPED_TRACE(more);
        Recorder recorder(jobs.size());
        EXPECT_EQ(run(enough - 1 + more, 3, recorder), "");
        EXPECT_EQ(recorder.Outcomes(), std::vector<std::string>(jobs.size(), "result 1"));
    }
}

} // namespace kel::host
