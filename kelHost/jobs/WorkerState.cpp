#include "jobs/WorkerState.h"

#include "jobs/Posix.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <sys/mman.h>

namespace kel::host {

// The system's memory consists of zeros.
WorkerState::WorkerState() {
    void* memory =
        mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        FailToStart(errno);
    }
    m_memory.reset(static_cast<Memory*>(memory));
}

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

void WorkerState::Unmap::operator()(Memory* memory) const {
    munmap(memory, sizeof(Memory));
}

} // namespace kel::host
