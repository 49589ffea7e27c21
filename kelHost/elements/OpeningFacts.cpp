#include "elements/OpeningFacts.h"

#include "base/Descriptor.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

// Returns the lowest free numbers for descriptors; more than a source opens for one file.
std::vector<int> FreeNumbers() {
    constexpr int kMaxOpened = 4;
    std::vector<int> numbers;
    const Descriptor lowest(eventfd(0, EFD_CLOEXEC));
    if (lowest.Number() >= 0) {
        numbers.push_back(lowest.Number());
        for (int i = 1; i < kMaxOpened; ++i) {
            if (fcntl(lowest.Number() + i, F_GETFD) < 0) {
                numbers.push_back(lowest.Number() + i);
            }
        }
    }
    return numbers;
}

} // namespace

std::string Describe(const OpeningFacts& facts) {
    std::string text = fmt::format("{}, {} and {} Hz",
                                   facts.frames.has_value()
                                       ? Count(static_cast<std::uint64_t>(*facts.frames), "frame")
                                       : "an unknown number of frames",
                                   Count(facts.channels, "channel"), facts.rate);
    for (const std::uint64_t position : facts.positions) {
        text += fmt::format(" from byte {}", position);
    }
    return text;
}

OpenPositions::OpenPositions(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        m_bytes = static_cast<std::uint64_t>(status.st_size);
        m_device = status.st_dev;
        m_inode = status.st_ino;
        m_free = FreeNumbers();
    }
}

std::vector<std::uint64_t> OpenPositions::New() const {
    std::vector<std::uint64_t> positions;
    for (const int descriptor : m_free) {
        struct stat status {};
        const bool isNew = fstat(descriptor, &status) == 0 && status.st_dev == m_device &&
                           status.st_ino == m_inode;
        const off_t position = isNew ? lseek(descriptor, 0, SEEK_CUR) : -1;
        if (position >= 0) {
            positions.push_back(static_cast<std::uint64_t>(position));
        }
    }
    return positions;
}

} // namespace kel::host
