/// Processes that outlive their parent, and signals in a test's own process.
#pragma once

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kel::test {

/// While it lives, the test becomes the parent of every process that outlives the program which
/// started it.
class Orphans {
public:
    Orphans() { prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); }
    ~Orphans() { prctl(PR_SET_CHILD_SUBREAPER, 0, 0, 0, 0); }
    Orphans(const Orphans&) = delete;
    Orphans& operator=(const Orphans&) = delete;

    /// True when no process is left, not even a zombie. The test must have waited for its own.
    static bool AreNone() { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }

    /// Waits until an orphan has ended; returns the signal that ended it, 0 for none.
    static int WaitForSignalOf(pid_t process) {
        int status = 0;
        return waitpid(process, &status, 0) == process && WIFSIGNALED(status) ? WTERMSIG(status)
                                                                              : 0;
    }
};

/// The disposition of a signal in a scope, whatever the test was started with.
class SignalDisposition {
public:
    SignalDisposition(int signal, void (*disposition)(int))
        : m_signal(signal), m_former(std::signal(signal, disposition)) {}
    ~SignalDisposition() { std::signal(m_signal, m_former); }
    SignalDisposition(const SignalDisposition&) = delete;
    SignalDisposition& operator=(const SignalDisposition&) = delete;

private:
    int m_signal;
    void (*m_former)(int);
};

/// Waits for a signal that is not caught.
[[noreturn]] inline void SleepForever() {
    for (;;) {
        pause();
    }
}

} // namespace kel::test
