#include "jobs/WorkerPool.h"

#include "Orphans.h"
#include "Program.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
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
    void OnShow(std::size_t job, const std::string& line) override {
        events.push_back(std::to_string(job) + ": " + line);
    }
    void OnFinished(std::size_t job, const JobOutcome& outcome) override {
        ++finished;
        m_outcomes.at(job) =
            outcome.succeeded ? "result " + outcome.result.document : outcome.error.message;
    }

    const std::vector<std::string>& Outcomes() const { return m_outcomes; }

    std::vector<std::string> events;
    std::size_t finished = 0;

private:
    std::vector<std::string> m_outcomes;
};

using Work = std::function<json(Reporter&)>;

Job MakeJob(const std::string& file, Work run, const std::string& directory = "") {
    return {file, directory, [run = std::move(run)](Reporter& reporter) {
                return JobResult{DumpJSON(run(reporter)), "", ""};
            }};
}

const Work kSucceed = [](Reporter&) {
    return json(1);
};

constexpr std::chrono::milliseconds kLong{60000};

std::vector<std::string> OutcomesOf(const std::vector<Job>& jobs, unsigned workers,
                                    std::chrono::milliseconds openTimeout = kLong) {
    Recorder recorder(jobs.size());
    RunJobs(jobs, {workers, openTimeout}, recorder);
    EXPECT_EQ(recorder.finished, jobs.size()) << "each job ends once";
    return recorder.Outcomes();
}

std::string Lost(const std::string& file, const std::string& how) {
    return file + ": the worker process ended with " + how + "; the file or the plug-in is damaged";
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
        "in\\nner: cannot open the file within 0.05 s; it is damaged, or a pipe without a writer "
        "(--open-timeout SECONDS allows more)",
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
