/// A file in memory with a path.
/// One thread at a time.
#pragma once

#include "Fuzz.h"

#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace kel::fuzz {

class MemoryFile {
public:
    explicit MemoryFile(const std::string& content = "")
        : m_descriptor(memfd_create("kel-fuzz", MFD_CLOEXEC)) {
        KEL_FUZZ_REQUIRE(m_descriptor >= 0);
        const auto size = static_cast<ssize_t>(content.size());
        KEL_FUZZ_REQUIRE(write(m_descriptor, content.data(), content.size()) == size);
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

    bool IsEmpty() const { return lseek(m_descriptor, 0, SEEK_END) == 0; }

private:
    int m_descriptor;
};

} // namespace kel::fuzz
