#include "jobs/JobClaims.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace kel::host {

// The system's memory consists of zeros.
JobClaims::JobClaims(std::size_t jobs)
    : m_jobs(jobs), m_memory(MakeSharedMemory((jobs + 1) * sizeof(Number))),
      m_first(static_cast<Number*>(m_memory.get())), m_workers(m_first + 1) {}

// Jobs are taken in their order, so that those that are taken have no gap.
std::optional<std::size_t> JobClaims::Take(std::uint32_t worker) {
    for (std::size_t job = *m_first; job < m_jobs; ++job) {
        std::uint32_t none = 0;
        if (m_workers[job].compare_exchange_strong(none, worker)) {
            *m_first = static_cast<std::uint32_t>(job + 1);
            return job;
        }
    }
    return std::nullopt;
}

bool JobClaims::AreLeft() const {
    return m_jobs > 0 && m_workers[m_jobs - 1] == 0;
}

std::optional<std::size_t> JobClaims::LastOf(std::uint32_t worker) const {
    std::size_t end = *m_first;
    while (end < m_jobs && m_workers[end] != 0) {
        ++end; // a worker that was killed has not counted it
    }
    while (end-- > 0) {
        if (m_workers[end] == worker) {
            return end;
        }
    }
    return std::nullopt;
}

bool JobClaims::IsOf(std::size_t job, std::uint32_t worker) const {
    return job < m_jobs && m_workers[job] == worker;
}

} // namespace kel::host
