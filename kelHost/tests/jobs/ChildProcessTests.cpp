#include "jobs/ChildProcess.h"

#include "Orphans.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kel::host {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kNoLimit{600000};

class ChildProcess : public testing::Test {
protected:
    ChildOutcome Run(const std::function<std::string()>& work, milliseconds limit = kNoLimit) {
        // The child writes what is left in the buffers of this process, too.
        static_cast<void>(std::fflush(nullptr));
        std::cout.flush();
        return RunInChild(work, m_directory.Path().string(), limit, m_signals);
    }

    const test::TemporaryDirectory& Directory() const { return m_directory; }

private:
    test::TemporaryDirectory m_directory;
    test::SignalDisposition m_terminate{SIGTERM, SIG_DFL};
    SignalReader m_signals;
};

// Not caught by a sanitizer.
[[noreturn]] void EndBySignal(int signal) {
    std::signal(signal, SIG_DFL);
    raise(signal);
    _exit(0);
}

void CloseDescriptors() {
    for (int descriptor = 3; descriptor < 1000; ++descriptor) {
        close(descriptor);
    }
}

} // namespace

TEST_F(ChildProcess, ReturnsItsResultItsTimeAndItsMemory) {
    constexpr std::size_t kLarge = std::size_t{64} * 1024 * 1024; // more than any pipe holds
    const ChildOutcome outcome = Run([] { return std::string(kLarge, 'x'); });
    EXPECT_EQ(outcome.end, ChildEnd::Finished);
    EXPECT_TRUE(outcome.result == std::string(kLarge, 'x'));
    EXPECT_EQ(outcome.output, "");
    EXPECT_GT(outcome.seconds, 0);
    EXPECT_GE(outcome.peakKiB, static_cast<long>(kLarge / 1024));
}

TEST_F(ChildProcess, WorksInItsDirectoryWithoutAnyInput) {
    const ChildOutcome outcome = Run(
        [] { return std::filesystem::current_path().string() + " " + std::to_string(getchar()); });
    EXPECT_EQ(outcome.result,
              std::filesystem::canonical(Directory().Path()).string() + " " + std::to_string(EOF));
}

TEST_F(ChildProcess, HasItsOutputCollectedInOrderAsFarAsItIsKept) {
    const ChildOutcome outcome = Run([] {
        std::cerr << "one\n";
        std::cout << "two\n" << std::flush;
        std::fputs("three\n", stdout);
        std::fflush(stdout);
        std::fputs(std::string(100000, 'x').c_str(), stderr);
        return std::string("done");
    });
    EXPECT_EQ(outcome.output, "one\ntwo\nthree\n" + std::string(65536 - 14, 'x'));
    EXPECT_EQ(outcome.result, "done");
}

TEST_F(ChildProcess, ReportsTheSignalThatEndedIt) {
    const ChildOutcome outcome = Run([]() -> std::string {
        std::fputs("last words\n", stderr);
        EndBySignal(SIGSEGV);
    });
    EXPECT_EQ(outcome.end, ChildEnd::Signal);
    EXPECT_EQ(outcome.code, SIGSEGV);
    EXPECT_EQ(outcome.result, "");
    EXPECT_EQ(outcome.output, "last words\n");
}

TEST_F(ChildProcess, DumpsNoCore) {
    const ChildOutcome outcome = Run([] {
        rlimit limit{};
        getrlimit(RLIMIT_CORE, &limit);
        return std::to_string(limit.rlim_max);
    });
    EXPECT_EQ(outcome.result, "0");
}

TEST_F(ChildProcess, HasNotFinishedWithoutAResult) {
    struct Row {
        std::function<std::string()> work;
        int code;
    };
    for (const Row& row :
         {Row{[]() -> std::string { _exit(0); }, 0}, Row{[]() -> std::string { _exit(3); }, 3},
          Row{[] {
                  CloseDescriptors();
                  return std::string("done");
              },
              1}}) {
        const ChildOutcome outcome = Run(row.work);
        EXPECT_EQ(outcome.end, ChildEnd::Exited);
        EXPECT_EQ(outcome.code, row.code);
    }
}

TEST_F(ChildProcess, IsEndedWhenItTakesTooLong) {
    for (const bool closes : {false, true}) {
        const test::Orphans orphans;
        const ChildOutcome outcome = Run(
            [&]() -> std::string {
                if (closes) { // the pipe of its result, too
                    CloseDescriptors();
                }
                test::SleepForever();
            },
            milliseconds(50));
        EXPECT_EQ(outcome.end, ChildEnd::TimedOut);
        EXPECT_TRUE(test::Orphans::AreNone());
    }
}

TEST_F(ChildProcess, EndsTogetherWithTheProcessesThatItStarted) {
    const test::Orphans orphans;
    const ChildOutcome outcome = Run([] {
        const pid_t process = fork();
        if (process == 0) {
            alarm(5); // else a test that fails would hang
            test::SleepForever();
        }
        return std::to_string(process);
    });
    EXPECT_EQ(outcome.end, ChildEnd::Finished);
    const pid_t grandchild = std::stoi(outcome.result);
    EXPECT_EQ(test::Orphans::WaitForSignalOf(grandchild), SIGKILL);
}

TEST_F(ChildProcess, IsNotWaitedForAfterItsEnd) {
    const test::Orphans orphans;
    // In a session of its own, where it is not killed; it has the pipe of the result open.
    const ChildOutcome outcome = Run([] {
        const pid_t process = fork();
        if (process == 0) {
            setsid();
            alarm(10); // else a test that fails would hang
            test::SleepForever();
        }
        while (getsid(process) != process) {
            usleep(1000);
        }
        return std::to_string(process);
    });
    EXPECT_EQ(outcome.end, ChildEnd::Finished);
    const pid_t grandchild = std::stoi(outcome.result);
    kill(grandchild, SIGKILL);
    EXPECT_EQ(test::Orphans::WaitForSignalOf(grandchild), SIGKILL) << "it ended before";
}

TEST_F(ChildProcess, EndsWithASignalThatInterruptsTheWait) {
    const test::Orphans orphans;
    const pid_t host = getpid();
    try {
        Run([&]() -> std::string {
            kill(host, SIGTERM);
            test::SleepForever();
        });
        ADD_FAILURE() << "not interrupted";
    } catch (const Interrupted& interrupted) {
        EXPECT_EQ(interrupted.signal, SIGTERM);
    }
    EXPECT_TRUE(test::Orphans::AreNone());
}

TEST_F(ChildProcess, LeavesItsNote) {
    ChildNote note;
    EXPECT_EQ(note.Get(), "");
    Run([&]() -> std::string {
        note.Set("one thing");
        note.Set("another");
        EndBySignal(SIGKILL);
    });
    EXPECT_EQ(note.Get(), "another");
    Run([&] {
        note.Set(std::string(10000, 'x'));
        return std::string("done");
    });
    EXPECT_EQ(note.Get(), std::string(511, 'x'));
}

} // namespace kel::host
