#include "elements/OpeningFacts.h"

#include "base/Numbers.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

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
        const off_t position = lseek(descriptor, 0, SEEK_CUR);
        if (position >= 0 &&
            std::find(m_former.begin(), m_former.end(), descriptor) == m_former.end()) {
            positions.push_back(static_cast<std::uint64_t>(position));
        }
    }
    return positions;
}

std::vector<int> OpenPositions::Descriptors() const {
    std::vector<int> descriptors;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", missing)) {
        const auto descriptor = ParseInteger<int>(entry.path().filename().string());
        struct stat status {};
        if (descriptor.has_value() && fstat(*descriptor, &status) == 0 &&
            status.st_dev == m_device && status.st_ino == m_inode) {
            descriptors.push_back(*descriptor);
        }
    }
    std::sort(descriptors.begin(), descriptors.end());
    return descriptors;
}

} // namespace kel::host
