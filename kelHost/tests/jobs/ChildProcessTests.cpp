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

constexpr milliseconds kForever{600000};

class ChildProcess : public testing::Test {
protected:
    ChildOutcome Run(const std::function<std::string()>& work, milliseconds limit = kForever) {
        return RunInChild(work, m_directory.Path().string(), limit, m_signals);
    }

    const test::TemporaryDirectory& Directory() const { return m_directory; }

private:
    test::TemporaryDirectory m_directory;
    SignalReader m_signals;
};

[[noreturn]] void SleepForever() {
    for (;;) {
        pause();
    }
}

// Whatever a sanitizer would like to say about it.
[[noreturn]] void EndBySignal(int signal) {
    std::signal(signal, SIG_DFL);
    raise(signal);
    _exit(0);
}

} // namespace

TEST_F(ChildProcess, GivesItsResultItsTimeAndItsMemory) {
    const ChildOutcome outcome = Run([] { return std::string("done"); });
    EXPECT_EQ(outcome.end, ChildEnd::Finished);
    EXPECT_EQ(outcome.result, "done");
    EXPECT_EQ(outcome.output, "");
    EXPECT_GT(outcome.seconds, 0);
    EXPECT_GT(outcome.peakKiB, 0);
}

TEST_F(ChildProcess, HasTheMemoryThatItUsesCounted) {
    constexpr std::size_t kMuch = std::size_t{64} * 1024 * 1024;
    const ChildOutcome outcome = Run([] { return std::to_string(std::string(kMuch, 'x').size()); });
    EXPECT_EQ(outcome.result, std::to_string(kMuch));
    EXPECT_GE(outcome.peakKiB, static_cast<long>(kMuch / 1024));
}

TEST_F(ChildProcess, GivesAResultThatNoPipeHolds) {
    const std::string large(5000000, 'x');
    EXPECT_EQ(Run([&] { return large; }).result, large);
}

TEST_F(ChildProcess, WorksInItsDirectoryWithoutAnyInput) {
    const ChildOutcome outcome = Run(
        [] { return std::filesystem::current_path().string() + " " + std::to_string(getchar()); });
    EXPECT_EQ(outcome.result,
              std::filesystem::canonical(Directory().Path()).string() + " " + std::to_string(EOF));
}

TEST_F(ChildProcess, HasWhatItPrintsCollectedInItsOrder) {
    const ChildOutcome outcome = Run([] {
        std::cerr << "one\n";
        std::cout << "two\n" << std::flush;
        std::fputs("three\n", stdout);
        return std::string("done");
    });
    EXPECT_EQ(outcome.output, "one\ntwo\nthree\n");
    EXPECT_EQ(outcome.result, "done");
}

TEST_F(ChildProcess, MayPrintMoreThanIsKept) {
    const ChildOutcome outcome = Run([] {
        for (int i = 0; i < 100000; ++i) {
            std::fputs("0123456789\n", stderr);
        }
        return std::string("done");
    });
    EXPECT_EQ(outcome.output.size(), 65536U);
    EXPECT_EQ(outcome.result, "done");
}

TEST_F(ChildProcess, IsToldFromOneThatASignalEnded) {
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

TEST_F(ChildProcess, IsToldFromOneThatEndedOnItsOwn) {
    for (const int status : {0, 3}) {
        const ChildOutcome outcome = Run([&]() -> std::string { _exit(status); });
        EXPECT_EQ(outcome.end, ChildEnd::Exited);
        EXPECT_EQ(outcome.code, status);
    }
}

TEST_F(ChildProcess, HasNotFinishedWithoutGivingItsResult) {
    const ChildOutcome outcome = Run([] {
        for (int descriptor = 3; descriptor < 1000; ++descriptor) {
            close(descriptor);
        }
        return std::string("done");
    });
    EXPECT_EQ(outcome.end, ChildEnd::Exited);
    EXPECT_EQ(outcome.code, 1);
}

TEST_F(ChildProcess, IsEndedWhenItTakesTooLong) {
    const test::Orphans orphans;
    const ChildOutcome outcome = Run([]() -> std::string { SleepForever(); }, milliseconds(50));
    EXPECT_EQ(outcome.end, ChildEnd::TimedOut);
    EXPECT_TRUE(test::Orphans::AreNone());
}

TEST_F(ChildProcess, IsEndedWhenItHangsBehindItsPipe) {
    const ChildOutcome outcome = Run(
        []() -> std::string {
            for (int descriptor = 3; descriptor < 1000; ++descriptor) {
                close(descriptor);
            }
            SleepForever();
        },
        milliseconds(50));
    EXPECT_EQ(outcome.end, ChildEnd::TimedOut);
}

TEST_F(ChildProcess, TakesTheProcessesThatItStartedWithIt) {
    const test::Orphans orphans;
    const ChildOutcome outcome = Run([] {
        const pid_t process = fork();
        if (process == 0) {
            SleepForever();
        }
        return std::to_string(process);
    });
    EXPECT_EQ(outcome.end, ChildEnd::Finished);
    const pid_t grandchild = std::stoi(outcome.result);
    EXPECT_EQ(test::Orphans::WaitForSignalOf(grandchild), SIGKILL);
}

TEST_F(ChildProcess, GoesWithASignalThatInterruptsTheWait) {
    const test::Orphans orphans;
    const pid_t host = getpid();
    try {
        Run([&]() -> std::string {
            kill(host, SIGTERM);
            SleepForever();
        });
        ADD_FAILURE() << "not interrupted";
    } catch (const Interrupted& interrupted) {
        EXPECT_EQ(interrupted.signal, SIGTERM);
    }
    EXPECT_TRUE(test::Orphans::AreNone());
}

TEST_F(ChildProcess, SaysWhatItIsDoingUntilItsEnd) {
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
