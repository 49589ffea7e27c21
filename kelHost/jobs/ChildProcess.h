/// Work that may crash or hang, in a process of its own.
#pragma once

#include "jobs/Posix.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace kel::host {

/// The present activity of a child process. The parent reads it when the child has ended, in any
/// way.
class ChildNote {
public:
    /// @throws JobError when the system has no memory to share
    ChildNote();
    ~ChildNote();
    ChildNote(const ChildNote&) = delete;
    ChildNote& operator=(const ChildNote&) = delete;

    /// Replaces the text, of which the first few hundred bytes are kept.
    void Set(std::string_view text);

    /// The text.
    std::string Get() const;

private:
    char* m_text; // shared by both processes
};

/// End of the work of a child process.
enum class ChildEnd {
    Finished, ///< the work returned
    Exited,   ///< the process ended on its own
    Signal,   ///< a signal ended the process
    TimedOut, ///< it took too long and was killed
};

/// Outcome of the work of a child process.
struct ChildOutcome {
    ChildEnd end = ChildEnd::Finished;
    int code = 0;       ///< the exit status, or the number of the signal
    std::string result; ///< the result of the work, when it finished
    std::string output; ///< standard output and error, at most 64 KiB
    double seconds = 0; ///< lifetime of the process
    long peakKiB = 0;   ///< its maximum memory
};

/// Does work in a process of its own and waits for its end. Its output is collected, its standard
/// input is empty, and a crash dumps no core.
///
/// The process must have no other threads: the child is forked.
/// @param work returns its result; must not throw
/// @param directory the child's working directory
/// @param limit maximum time; then the child and the processes that it started are killed
/// @param signals interrupts the wait
/// @throws Interrupted when a signal arrived, JobError when no process can be started; no child is
/// left then
ChildOutcome RunInChild(const std::function<std::string()>& work, const std::string& directory,
                        std::chrono::milliseconds limit, const SignalReader& signals);

} // namespace kel::host
