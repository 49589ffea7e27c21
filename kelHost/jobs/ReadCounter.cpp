#include "jobs/ReadCounter.h"

#include "jobs/Posix.h"

#include <cerrno>
#include <new>
#include <sys/mman.h>

namespace kel::host {

ReadCounter::ReadCounter() {
    void* memory =
        mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        FailToStart(errno);
    }
    m_count.reset(new (memory) Count(0));
}

void ReadCounter::Unmap::operator()(Count* count) const {
    munmap(count, sizeof(Count));
}

} // namespace kel::host
