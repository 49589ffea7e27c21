/// The state of a worker that the host sees while the worker waits for its input.
#pragma once

#include "jobs/Posix.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kel::host {

/// The wait of a worker, in memory that it shares with the host: a worker that hangs sends no
/// messages, and messages about each file would cost more than short files do. Two processes, or
/// two threads, may use it at the same time.
class WorkerState {
public:
    /// @throws JobError when the system has no memory to share
    WorkerState();

    /// A read begins or ends.
    void StepReading() { m_memory->reads.fetch_add(1, std::memory_order_relaxed); }

    /// The number of beginnings and ends of reads: odd while a read is in progress.
    std::uint32_t Reads() const { return m_memory->reads.load(std::memory_order_relaxed); }

    /// The worker begins to open a file, perhaps instead of another one.
    void BeginOpening(const std::string& file);

    /// The file is open, or is not opened after all.
    void EndOpening();

    /// A number that changes with each beginning and each end: odd while a file is being opened.
    std::uint32_t Openings() const { return m_memory->openings.load(std::memory_order_acquire); }

    /// The host has read what was printed before a job ended.
    void NoteLinesRead(std::size_t job) {
        m_memory->jobOfLines = static_cast<std::uint32_t>(job) + 1;
    }

    /// True once the host has read what was printed before the worker's last job ended.
    bool AreLinesRead(std::size_t job) const { return m_memory->jobOfLines == job + 1; }

    /// The host is about to end the worker, which must not begin another job any more.
    void Hold() { m_memory->isHeld = true; }

    /// The worker goes on after all.
    void Release() { m_memory->isHeld = false; }

    /// True between Hold and Release.
    bool IsHeld() const { return m_memory->isHeld; }

    /// The file that was opened last; cut off where it is too long for the system.
    std::string File() const { return m_memory->file.data(); }

private:
    using Count = std::atomic<std::uint32_t>;
    static_assert(Count::is_always_lock_free, "a lock does not work between processes");

    struct Memory {
        Count reads;
        Count openings;
        Count jobOfLines; // plus one; 0: none
        std::atomic<bool> isHeld;
        std::array<char, 4096> file; // ends with a zero
    };

    SharedMemory m_shared;
    Memory* m_memory;
};

} // namespace kel::host
