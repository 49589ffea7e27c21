#include "jobs/WorkerState.h"

#include <cstdint>
#include <string>

namespace kel::host {

// The system's memory consists of zeros.
WorkerState::WorkerState()
    : m_shared(MakeSharedMemory(sizeof(Memory))), m_memory(static_cast<Memory*>(m_shared.get())) {}

void WorkerState::BeginOpening(const std::string& file) {
    const std::size_t length = file.copy(m_memory->file.data(), m_memory->file.size() - 1);
    m_memory->file[length] = '\0';
    const std::uint32_t before = Openings();
    m_memory->openings.store((before + 2) | 1U, std::memory_order_release);
}

void WorkerState::EndOpening() {
    const std::uint32_t before = Openings();
    m_memory->openings.store(before + before % 2, std::memory_order_release);
}

} // namespace kel::host
