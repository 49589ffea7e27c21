#include "jobs/WorkerPool.h"

#include "Orphans.h"
#include "Program.h"
#include "base/Errors.h"
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
using test::TemporaryDirectory;
using test::WriteFile;

namespace {

// Keeps everything that it is told.
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
        m_outcomes.at(job) = outcome.succeeded ? "result " + outcome.result : outcome.error;
    }

    const std::vector<std::string>& Outcomes() const { return m_outcomes; }

    std::vector<std::string> events;
    std::size_t finished = 0;

private:
    std::vector<std::string> m_outcomes;
};

using Run = std::function<json(Reporter&)>;

Job MakeJob(const std::string& file, Run run, const std::string& directory = "") {
    return {file, directory, std::move(run)};
}

constexpr std::chrono::milliseconds kLong{60000};

std::vector<std::string> OutcomesOf(const std::vector<Job>& jobs, unsigned workers,
                                    std::chrono::milliseconds openTimeout = kLong) {
    Recorder recorder(jobs.size());
    RunJobs(jobs, {workers, openTimeout}, recorder);
    EXPECT_EQ(recorder.finished, jobs.size()) << "each job ends once";
    return recorder.Outcomes();
}

[[noreturn]] void SleepForEver() {
    for (;;) {
        pause();
    }
}

std::string Lost(const std::string& file, const std::string& how) {
    return file + ": the process that worked on it was ended " + how +
           "; the file is damaged, or the plug-in is";
}

class Workers : public testing::Test {
protected:
    // What kelhost does at its start: a worker that is gone is an error of the write.
    Workers() : m_former(std::signal(SIGPIPE, SIG_IGN)) {}
    ~Workers() override {
        std::signal(SIGPIPE, m_former);
        EXPECT_TRUE(Orphans::AreNone()) << "a worker is left";
    }

private:
    Orphans m_orphans;
    void (*m_former)(int);
};

} // namespace

TEST_F(Workers, HaveNothingToDoWithoutJobs) {
    EXPECT_EQ(OutcomesOf({}, 4), std::vector<std::string>{});
}

TEST_F(Workers, DoEveryJobOnceHoweverManyTheyAre) {
    for (const unsigned workers : {1U, 2U, 5U, 64U}) {
        SCOPED_TRACE(workers);
        std::vector<Job> jobs;
        std::vector<std::string> expected;
        for (int i = 0; i < 20; ++i) {
            jobs.push_back(MakeJob("f", [i](Reporter&) { return json{{"number", i}}; }));
            expected.push_back("result {\"number\":" + std::to_string(i) + "}");
        }
        EXPECT_EQ(OutcomesOf(jobs, workers), expected);
    }
}

TEST_F(Workers, AreNoMoreThanAllowedAndStayForTheNextJob) {
    std::vector<Job> jobs;
    for (int i = 0; i < 12; ++i) {
        jobs.push_back(MakeJob("f", [](Reporter&) { return json(getpid()); }));
    }
    for (const unsigned workers : {1U, 3U}) {
        const std::vector<std::string> outcomes = OutcomesOf(jobs, workers);
        const std::set<std::string> processes(outcomes.begin(), outcomes.end());
        EXPECT_LE(processes.size(), workers);
        EXPECT_EQ(processes.count("result " + std::to_string(getpid())), 0U);
    }
}

TEST_F(Workers, TellOfEveryKindOfFailure) {
    const std::vector<Job> jobs{
        MakeJob("a", [](Reporter&) -> json { throw JobError("as it is\\n"); }),
        MakeJob("b\n", [](Reporter&) -> json { throw std::runtime_error("two\nlines"); }),
        MakeJob("c\n", [](Reporter&) -> json { throw 42; }),
        MakeJob("d", [](Reporter&) { return json(); }),
        MakeJob("e\n", [](Reporter&) -> json { _exit(7); }),
        MakeJob("f", [](Reporter&) -> json {
            raise(SIGKILL);
            return {};
        })};
    const std::vector<std::string> expected{
        "as it is\\n", "b\\n: two\\nlines",           "c\\n: an exception of an unknown type",
        "result null", Lost("e\\n", "with status 7"), Lost("f", "by signal 9 (Killed)")};
    for (const unsigned workers : {1U, 3U}) {
        EXPECT_EQ(OutcomesOf(jobs, workers), expected);
    }
}

TEST_F(Workers, AreReplacedAsOftenAsTheyDie) {
    std::vector<Job> jobs;
    std::vector<std::string> expected;
    for (int i = 0; i < 10; ++i) {
        jobs.push_back(MakeJob("dies", [](Reporter&) -> json { _exit(1); }));
        expected.push_back(Lost("dies", "with status 1"));
        jobs.push_back(MakeJob("lives", [](Reporter&) { return json(1); }));
        expected.emplace_back("result 1");
    }
    for (const unsigned workers : {1U, 3U}) {
        EXPECT_EQ(OutcomesOf(jobs, workers), expected);
    }
}

TEST_F(Workers, PassOnWhatTheyShowInItsOrderAndWhole) {
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

TEST_F(Workers, PassOnProgressButNotEveryStepOfIt) {
    const std::vector<Job> jobs{MakeJob("a", [](Reporter& reporter) {
        for (int i = 0; i < 1000; ++i) {
            reporter.Progress(i, 1000, 48000);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(110));
        reporter.Progress(1000, 1000, 48000);
        return json();
    })};
    Recorder recorder(1);
    RunJobs(jobs, {1, kLong}, recorder);
    ASSERT_FALSE(recorder.events.empty());
    EXPECT_EQ(recorder.events.back(), "0: 1000 of 1000 at 48000");
    EXPECT_LT(recorder.events.size(), 500U);
}

TEST_F(Workers, AreEndedWhenOpeningTakesTooLong) {
    const std::vector<Job> jobs{MakeJob("a",
                                        [](Reporter& reporter) -> json {
                                            reporter.Opening("in\nner");
                                            SleepForEver();
                                        }),
                                MakeJob("b", [](Reporter&) { return json(1); })};
    const std::vector<std::string> expected{
        "in\\nner: could not be opened within 0.05 s; it is damaged, or nobody writes into it "
        "(--open-timeout SECONDS allows more)",
        "result 1"};
    for (const unsigned workers : {1U, 2U}) {
        EXPECT_EQ(OutcomesOf(jobs, workers, std::chrono::milliseconds(50)), expected);
    }
}

TEST_F(Workers, MayTakeAnyTimeForWhatIsNotOpening) {
    const std::vector<Job> jobs{MakeJob("a", [](Reporter& reporter) {
        reporter.Opening("a");
        reporter.Opened();
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        return json(1);
    })};
    EXPECT_EQ(OutcomesOf(jobs, 1, std::chrono::milliseconds(500)),
              std::vector<std::string>{"result 1"});
}

TEST_F(Workers, AreForgivenAnOpeningThatFails) {
    // The next job has its own time.
    const std::vector<Job> jobs{MakeJob("a",
                                        [](Reporter& reporter) -> json {
                                            reporter.Opening("a");
                                            throw JobError("no");
                                        }),
                                MakeJob("b", [](Reporter&) {
                                    std::this_thread::sleep_for(std::chrono::milliseconds(700));
                                    return json(1);
                                })};
    EXPECT_EQ(OutcomesOf(jobs, 1, std::chrono::milliseconds(500)),
              (std::vector<std::string>{"no", "result 1"}));
}

TEST_F(Workers, LeaveNoTemporaryFilesWhenTheyDie) {
    const TemporaryDirectory directory;
    WriteFile(directory / "other", "");
    const auto leave = [&directory] {
        WriteFile(directory / (TemporaryPrefix(getpid()) + "abcdef.part.wav"), "");
    };
    const std::vector<Job> jobs{MakeJob(
                                    "a",
                                    [&](Reporter&) -> json {
                                        leave();
                                        _exit(1);
                                    },
                                    directory.Path().string()),
                                MakeJob(
                                    "b",
                                    [&](Reporter& reporter) -> json {
                                        leave();
                                        reporter.Opening("b");
                                        SleepForEver();
                                    },
                                    directory.Path().string())};
    OutcomesOf(jobs, 2, std::chrono::milliseconds(50));
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
                    SleepForEver();
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

TEST_F(Workers, GoOnThroughSignalsThatAreIgnored) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        auto* former = std::signal(signal, SIG_IGN);
        const pid_t host = getpid();
        EXPECT_EQ(OutcomesOf({MakeJob("a",
                                      [host, signal](Reporter&) {
                                          kill(host, signal);
                                          kill(getpid(), signal);
                                          return json(1);
                                      })},
                             1),
                  std::vector<std::string>{"result 1"});
        std::signal(signal, former);
    }
}

TEST_F(Workers, LeaveTheSignalMaskOfTheirHostAsItWas) {
    sigset_t before;
    sigprocmask(SIG_SETMASK, nullptr, &before);
    OutcomesOf({MakeJob("a", [](Reporter&) { return json(1); })}, 1);
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &after);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
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
    const std::vector<Job> jobs(5, MakeJob("a", [](Reporter&) { return json(1); }));
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
    EXPECT_GT(enough, 4U) << "there was never too little";
    for (rlim_t more = 0; more < 6; ++more) {
        SCOPED_TRACE(more);
        Recorder recorder(jobs.size());
        EXPECT_EQ(run(enough - 1 + more, 3, recorder), "");
        EXPECT_EQ(recorder.Outcomes(), std::vector<std::string>(jobs.size(), "result 1"));
    }
}

} // namespace kel::host
