/// Jobs that workers have taken.
#pragma once

#include "jobs/Posix.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace kel::host {

/// The worker of each job, in memory that all workers share with the host. A worker that has ended
/// a job takes the next one without waiting for the host, and one that is killed at any moment
/// leaves its jobs known. Any number of processes may use it at the same time.
class JobClaims {
public:
    /// @param jobs number of jobs
    /// @throws JobError when the system has no memory to share
    explicit JobClaims(std::size_t jobs);

    /// Takes the first job that no worker has taken.
    /// @param worker number of the worker, from 1; no other process has it
    /// @return none when all are taken
    std::optional<std::size_t> Take(std::uint32_t worker);

    /// True when no worker has taken the last job.
    bool AreLeft() const;

    /// The job that a worker has taken last; none when it has not taken any.
    std::optional<std::size_t> LastOf(std::uint32_t worker) const;

    /// True when that worker has taken the job.
    bool IsOf(std::size_t job, std::uint32_t worker) const;

private:
    using Number = std::atomic<std::uint32_t>;
    static_assert(Number::is_always_lock_free, "a lock does not work between processes");

    std::size_t m_jobs;
    SharedMemory m_memory;
    Number* m_first;   // all jobs before this one are taken
    Number* m_workers; // of each job; 0: none
};

} // namespace kel::host
