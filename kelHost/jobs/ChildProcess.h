/// Work that may crash or hang, in a process of its own.
#pragma once

#include "jobs/Posix.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace kel::host {

/// What a child process is doing. The parent reads it when the child has ended, however it did.
class ChildNote {
public:
    /// @throws JobError when the system has no memory to share
    ChildNote();
    ~ChildNote();
    ChildNote(const ChildNote&) = delete;
    ChildNote& operator=(const ChildNote&) = delete;

    /// Replaces the text; the end of one that is longer than a few hundred bytes is left out.
    void Set(std::string_view text);

    /// The text.
    std::string Get() const;

private:
    char* m_text; // shared by both processes
};

/// How the work of a child process ended.
enum class ChildEnd {
    Finished, ///< it returned
    Exited,   ///< the process ended on its own
    Signal,   ///< a signal ended the process
    TimedOut, ///< it took too long, and was ended
};

/// What became of the work of a child process.
struct ChildOutcome {
    ChildEnd end = ChildEnd::Finished;
    int code = 0;       ///< the exit status, or the number of the signal
    std::string result; ///< what the work returned, when it finished
    std::string output; ///< what was written to standard output and error, 64 KiB at most
    double seconds = 0; ///< how long the process lived
    long peakKiB = 0;   ///< the most memory that it had
};

/// Does work in a process of its own and waits for its end. What the work prints is collected; its
/// standard input is empty; when it crashes, no core is dumped.
///
/// Called where the process has no other threads: the child is forked.
/// @param work returns its result; must not throw
/// @param directory the child's working directory
/// @param limit how long it may take; the child and the processes that it started are ended then
/// @param signals what interrupts the wait
/// @throws Interrupted when a signal came, JobError when no process can be started; the child is
/// gone then
ChildOutcome RunInChild(const std::function<std::string()>& work, const std::string& directory,
                        std::chrono::milliseconds limit, const SignalReader& signals);

} // namespace kel::host
