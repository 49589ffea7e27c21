#include "elements/OpeningFacts.h"

#include "base/Numbers.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <dirent.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

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
        m_isRegular = S_ISREG(status.st_mode);
        m_bytes = static_cast<std::uint64_t>(status.st_size);
        m_device = status.st_dev;
        m_inode = status.st_ino;
        m_former = Descriptors();
    }
}

std::vector<std::uint64_t> OpenPositions::New() const {
    std::vector<std::uint64_t> positions;
    for (const int descriptor : Descriptors()) {
        struct stat status {};
        const bool isNew =
            std::find(m_former.begin(), m_former.end(), descriptor) == m_former.end() &&
            fstat(descriptor, &status) == 0 && status.st_dev == m_device &&
            status.st_ino == m_inode;
        const off_t position = isNew ? lseek(descriptor, 0, SEEK_CUR) : -1;
        if (position >= 0) {
            positions.push_back(static_cast<std::uint64_t>(position));
        }
    }
    return positions;
}

// Returns all descriptors of the process, in their order.
std::vector<int> OpenPositions::Descriptors() {
    std::vector<int> descriptors;
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/proc/self/fd"));
    const dirent* entry = nullptr;
    while (directory != nullptr && (entry = readdir(directory.get())) != nullptr) {
        const auto descriptor = ParseInteger<int>(static_cast<const char*>(entry->d_name));
        if (descriptor.has_value() && *descriptor != dirfd(directory.get())) {
            descriptors.push_back(*descriptor);
        }
    }
    std::sort(descriptors.begin(), descriptors.end());
    return descriptors;
}

} // namespace kel::host
