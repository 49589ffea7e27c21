#include "jobs/Posix.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/types.h>
#include <unistd.h>

namespace kel::host {

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        FailToStart(errno);
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
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
    throw JobError(fmt::format("cannot start a worker: {}", std::strerror(error)));
}

SignalReader::SignalReader() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&signals, signal);
        }
    }
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

void SignalReader::Check() const {
    signalfd_siginfo info{};
    if (read(m_descriptor.Number(), &info, sizeof info) == sizeof info) {
        throw Interrupted{static_cast<int>(info.ssi_signo)};
    }
}

} // namespace kel::host
