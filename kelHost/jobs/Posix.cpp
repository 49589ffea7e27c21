#include "jobs/Posix.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kel::host {

namespace {

// The signals that end the work.
constexpr std::array<int, 3> kEndingSignals{SIGINT, SIGTERM, SIGHUP};

bool IsIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN;
}

// Set when a signal was reported.
bool& WasInterrupted() {
    static bool wasInterrupted = false;
    return wasInterrupted;
}

// Set when the reader of the results has gone.
bool& LostReader() {
    static bool lostReader = false;
    return lostReader;
}

} // namespace

bool OpenStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0) {
            continue;
        }
        // In the wrong direction, so that using them is still an error; a directory can neither be
        // read nor written. The lowest free number is this one.
        const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        int opened = open("/dev/null", direction | O_CLOEXEC);
        if (opened < 0) {
            opened = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        }
        if (opened != descriptor) {
            return false;
        }
    }
    return true;
}

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        FailToStart(errno);
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool HasUnreadBytes(const Descriptor& end) {
    int bytes = 0;
    return ioctl(end.Number(), FIONREAD, &bytes) == 0 && bytes > 0;
}

void UnmapMemory::operator()(void* memory) const {
    munmap(memory, bytes);
}

SharedMemory MakeSharedMemory(std::size_t bytes) {
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        FailToStart(errno);
    }
    return {memory, UnmapMemory{bytes}};
}

pid_t ForkChild() {
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process < 0) {
        FailToStart(errno);
    }
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(kFailure); // the parent ended before the line above
        }
    }
    return process;
}

std::optional<int> WaitForEnd(pid_t process, std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    // A process that is about to end has ended within some 50 us.
    constexpr std::chrono::microseconds kMinPause{20};
    constexpr std::chrono::microseconds kMaxPause{20000};
    const Clock::time_point end = Clock::now() + limit;
    for (std::chrono::microseconds pause = kMinPause;; pause = std::min(2 * pause, kMaxPause)) {
        int status = 0;
        if (waitpid(process, &status, WNOHANG) == process) {
            return status;
        }
        if (Clock::now() >= end) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(pause);
    }
}

int KillChild(pid_t process) {
    constexpr std::chrono::milliseconds kLimit{2000};
    kill(process, SIGKILL);
    return WaitForEnd(process, kLimit).value_or(SIGKILL);
}

bool WriteAll(int descriptor, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = write(descriptor, bytes, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

void FailToStart(int error) {
    throw JobError(fmt::format(
        "cannot start a worker: {}{}", std::strerror(error),
        error == EAGAIN ? "; the number of processes and threads is limited (ulimit -u)" : ""));
}

SignalReader::SignalReader() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kEndingSignals) {
        if (!IsIgnored(signal)) {
            sigaddset(&signals, signal);
        }
    }
    WasInterrupted() = false;
    sigprocmask(SIG_BLOCK, &signals, &m_former);
    m_descriptor = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (Number() < 0) {
        const int error = errno;
        sigprocmask(SIG_SETMASK, &m_former, nullptr);
        FailToStart(error);
    }
}

SignalReader::~SignalReader() {
    sigprocmask(SIG_SETMASK, &m_former, nullptr);
}

void SignalReader::NoteLostReader() {
    LostReader() = true;
}

bool SignalReader::HasLostReader() {
    return LostReader();
}

void SignalReader::Check() const {
    if (HasLostReader()) {
        throw Interrupted{SIGPIPE};
    }
    signalfd_siginfo info{};
    if (read(m_descriptor.Number(), &info, sizeof info) == sizeof info) {
        WasInterrupted() = true;
        throw Interrupted{static_cast<int>(info.ssi_signo)};
    }
}

bool SignalReader::IsInterrupted() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return WasInterrupted() ||
           std::any_of(kEndingSignals.begin(), kEndingSignals.end(), [&](int signal) {
               return sigismember(&pending, signal) == 1 && !IsIgnored(signal);
           });
}

} // namespace kel::host
