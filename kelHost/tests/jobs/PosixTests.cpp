#include "jobs/Posix.h"

#include "base/Errors.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kel::host {

namespace {

// Forks a child that does something and ends with a status.
pid_t Fork(const std::function<int()>& work) {
    const pid_t process = ForkChild();
    if (process == 0) {
        _exit(work());
    }
    return process;
}

// Waits until a child has ended or is stopped, and leaves its status for waitpid.
void WaitFor(pid_t process, int event) {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(process), &info, event | WNOWAIT);
}

std::string TextOfFailToStart(int error) {
    try {
        FailToStart(error);
    } catch (const JobError& failure) {
        return failure.what();
    }
}

} // namespace

TEST(StandardDescriptors, AreOpenedWhenTheyAreClosedAndCannotBeUsed) {
    const pid_t process = Fork([] {
        std::array<char, 1> byte{};
        for (const int descriptor : {0, 1, 2}) {
            close(descriptor);
        }
        if (!OpenStandardDescriptors() || open("/dev/null", O_RDONLY) < 3) {
            return 1;
        }
        const bool reads = read(0, byte.data(), 1) >= 0 || errno != EBADF;
        const bool writes = write(1, "x", 1) >= 0 || errno != EBADF;
        const bool reports = write(2, "x", 1) >= 0 || errno != EBADF;
        return reads ? 2 : writes ? 3 : reports ? 4 : 0;
    });
    int status = 0;
    waitpid(process, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(StandardDescriptors, StayAsTheyAreWhenTheyAreOpen) {
    const pid_t process = Fork([] {
        const Pipe pipe = MakePipe();
        dup2(pipe.in.Number(), 0);
        dup2(pipe.out.Number(), 1);
        std::array<char, 1> byte{};
        const bool works = OpenStandardDescriptors() && write(1, "x", 1) == 1 &&
                           read(0, byte.data(), 1) == 1 && byte[0] == 'x';
        return works ? 0 : 1;
    });
    int status = 0;
    waitpid(process, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(WaitForEnd, ReturnsTheStatusOrGivesUp) {
    const pid_t ended = Fork([] { return 3; });
    const std::optional<int> status = WaitForEnd(ended, std::chrono::minutes(1));
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(WEXITSTATUS(*status), 3);
    const pid_t waiting = Fork([] { return pause(); });
    EXPECT_EQ(WaitForEnd(waiting, std::chrono::milliseconds(20)), std::nullopt);
    KillChild(waiting);
}

TEST(KillChild, EndsAProcessThatIsStopped) {
    const pid_t process = Fork([] { return raise(SIGSTOP); });
    WaitFor(process, WSTOPPED);
    const int status = KillChild(process);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(waitpid(process, nullptr, WNOHANG), -1) << "it was waited for";
}

TEST(KillChild, ReturnsTheStatusOfAProcessThatHasEnded) {
    const pid_t process = Fork([] { return 3; });
    WaitFor(process, WEXITED);
    const int status = KillChild(process);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(FailToStart, NamesTheLimitOfProcesses) {
    EXPECT_EQ(TextOfFailToStart(EAGAIN),
              "cannot start a worker: Resource temporarily unavailable; the number of processes "
              "and threads is limited (ulimit -u)");
    EXPECT_EQ(TextOfFailToStart(EMFILE), "cannot start a worker: Too many open files");
}

} // namespace kel::host
