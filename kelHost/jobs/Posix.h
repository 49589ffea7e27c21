/// What working with other processes takes: descriptors, pipes, and the signals that end the work.
#pragma once

#include <csignal>
#include <cstddef>
#include <optional>
#include <utility>

namespace kel::host {

/// A file descriptor that closes itself.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    /// The number; negative for none.
    int Number() const { return m_number; }

private:
    int m_number = -1;
};

/// The two ends of a pipe.
struct Pipe {
    Descriptor in;  ///< to read from
    Descriptor out; ///< to write to
};

/// Makes a pipe that no program which is started later inherits.
/// @throws JobError when the system has none left
Pipe MakePipe();

/// Writes all bytes; false when the other side is gone.
bool WriteAll(int descriptor, const void* data, std::size_t size);

/// Fails because a process cannot be started.
/// @param error the system's number of the reason
/// @throws JobError always
[[noreturn]] void FailToStart(int error);

/// Thrown when SIGINT, SIGTERM or SIGHUP ended the work; nothing is left of it.
struct Interrupted {
    int signal;
};

/// While this lives, SIGINT, SIGTERM and SIGHUP are read from a descriptor and do nothing else.
/// Those that are ignored, as under nohup, stay ignored.
class SignalReader {
public:
    /// @throws JobError when the system has no descriptor left
    SignalReader();
    ~SignalReader();
    SignalReader(const SignalReader&) = delete;
    SignalReader& operator=(const SignalReader&) = delete;

    /// What to poll for a signal.
    int Number() const { return m_descriptor.Number(); }

    /// @throws Interrupted when there was a signal
    void Check() const;

private:
    sigset_t m_former{};
    Descriptor m_descriptor;
};

} // namespace kel::host
