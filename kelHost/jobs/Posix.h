/// Pipes, child processes and signals. Used by one thread.
#pragma once

#include "base/Descriptor.h"

#include <csignal>
#include <cstddef>
#include <string>
#include <sys/types.h>

namespace kel::host {

/// The two ends of a pipe.
struct Pipe {
    Descriptor in;  ///< to read from
    Descriptor out; ///< to write to
};

/// Creates a pipe that programs started later do not inherit.
/// @throws JobError when the system has none left
Pipe MakePipe();

/// Forks a child process, which the system kills when this process ends.
/// @return the child's number; 0 in the child
/// @throws JobError when the system cannot start one
pid_t ForkChild();

/// Writes all bytes. Returns false when the other side is gone.
bool WriteAll(int descriptor, const void* data, std::size_t size);

/// Reports that a process cannot be started.
/// @param error the system's error number
/// @throws JobError always
[[noreturn]] void FailToStart(int error);

/// Thrown when SIGINT, SIGTERM or SIGHUP ended the work, of which nothing is left.
struct Interrupted {
    int signal;
};

/// During its lifetime, SIGINT, SIGTERM and SIGHUP are read from a descriptor and have no other
/// effect. Ignored signals, as under nohup, stay ignored.
class SignalReader {
public:
    /// @throws JobError when the system has no descriptor left
    SignalReader();
    ~SignalReader();
    SignalReader(const SignalReader&) = delete;
    SignalReader& operator=(const SignalReader&) = delete;

    /// The descriptor to poll for a signal.
    int Number() const { return m_descriptor.Number(); }

    /// @throws Interrupted when a signal has arrived
    void Check() const;

private:
    sigset_t m_former{};
    Descriptor m_descriptor;
};

} // namespace kel::host
