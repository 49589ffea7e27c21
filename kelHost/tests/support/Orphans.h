/// Processes that a program leaves behind.
#pragma once

#include <cerrno>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>

namespace kel::test {

/// While it lives, the test becomes the parent of every process that outlives the program which
/// started it.
class Orphans {
public:
    Orphans() { prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); }
    ~Orphans() { prctl(PR_SET_CHILD_SUBREAPER, 0, 0, 0, 0); }
    Orphans(const Orphans&) = delete;
    Orphans& operator=(const Orphans&) = delete;

    /// True when no process is left, not even one that has ended without anybody taking note. The
    /// test must have waited for its own.
    static bool AreNone() { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }

    /// Waits until an orphan has ended; returns the signal that ended it, 0 for none.
    static int WaitForSignalOf(pid_t process) {
        int status = 0;
        return waitpid(process, &status, 0) == process && WIFSIGNALED(status) ? WTERMSIG(status)
                                                                              : 0;
    }
};

} // namespace kel::test
