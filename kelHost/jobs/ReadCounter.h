/// Reads of a job's input, counted where the host sees them while the worker waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace kel::host {

/// Counts the beginnings and the ends of reads, in memory that a worker shares with the host: odd
/// while a read is in progress. Two processes, or two threads, may use it at the same time.
class ReadCounter {
public:
    /// @throws JobError when the system has no memory to share
    ReadCounter();

    /// A read begins or ends.
    void Step() { m_count->fetch_add(1, std::memory_order_relaxed); }

    /// The number of beginnings and ends.
    std::uint32_t Value() const { return m_count->load(std::memory_order_relaxed); }

private:
    using Count = std::atomic<std::uint32_t>;
    static_assert(Count::is_always_lock_free, "a lock does not work between processes");

    struct Unmap {
        void operator()(Count* count) const;
    };

    std::unique_ptr<Count, Unmap> m_count;
};

} // namespace kel::host
