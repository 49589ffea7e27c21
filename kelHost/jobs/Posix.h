/// Pipes, shared memory, child processes and signals. Used by one thread.
#pragma once

#include "base/Descriptor.h"

#include <chrono>
#include <csignal>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace kel::host {

/// Opens those of the descriptors 0, 1 and 2 that are closed, so that no other file gets their
/// numbers. Reading from and writing to them still fails. Called before anything else is opened.
/// @return false when the system has no descriptor left
bool OpenStandardDescriptors();

/// The two ends of a pipe.
struct Pipe {
    Descriptor in;  ///< to read from
    Descriptor out; ///< to write to
};

/// Creates a pipe that programs started later do not inherit.
/// @throws JobError when the system has none left
Pipe MakePipe();

/// Returns true when a pipe, of which this is one of the ends, holds bytes that were not read.
bool HasUnreadBytes(const Descriptor& end);

/// Returns memory to the system.
struct UnmapMemory {
    std::size_t bytes = 0;
    void operator()(void* memory) const;
};

/// Memory that processes forked later share with this one.
using SharedMemory = std::unique_ptr<void, UnmapMemory>;

/// Creates shared memory that consists of zeros.
/// @throws JobError when the system has none left
SharedMemory MakeSharedMemory(std::size_t bytes);

/// Forks a child process, which the system kills when this process ends.
/// @return the child's number; 0 in the child
/// @throws JobError when the system cannot start one
pid_t ForkChild();

/// Waits for the end of a child process.
/// @param limit maximum time
/// @return the status that waitpid reports; none when the child has not ended in time
std::optional<int> WaitForEnd(pid_t process, std::chrono::milliseconds limit);

/// Kills a child process and waits for its end. A process that waits for a device or a mount that
/// does not respond may survive; it is left to the kernel after two seconds.
/// @return the status that waitpid reports; a child that was ending anyway keeps its own
int KillChild(pid_t process);

/// Writes all bytes. Returns false, and errno has the reason, when that fails.
bool WriteAll(int descriptor, const void* data, std::size_t size);

/// Reports that a process cannot be started.
/// @param error the system's error number
/// @throws JobError always
[[noreturn]] void FailToStart(int error);

/// Thrown when SIGINT, SIGTERM or SIGHUP ended the work, of which nothing is left. SIGPIPE means
/// that the reader of the results has gone.
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

    /// @throws Interrupted when a signal has arrived, or with SIGPIPE after NoteLostReader
    void Check() const;

    /// Notes that the reader of the program's results has gone. Further work has no purpose.
    static void NoteLostReader();

    /// True after NoteLostReader.
    static bool HasLostReader();

    /// True when a signal has arrived that Check will report, or has reported since a SignalReader
    /// was last created. Nothing may wait any longer then.
    static bool IsInterrupted();

private:
    sigset_t m_former{};
    Descriptor m_descriptor;
};

} // namespace kel::host
