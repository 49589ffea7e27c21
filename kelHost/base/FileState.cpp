#include "base/FileState.h"

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace kel::host {

FileState::FileState(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        Note(status);
    }
}

FileState::FileState(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0) {
        Note(status);
    }
}

void FileState::Note(const struct stat& status) {
    m_exists = true;
    m_isRegular = S_ISREG(status.st_mode);
    m_device = status.st_dev;
    m_inode = status.st_ino;
    m_bytes = static_cast<std::uint64_t>(status.st_size);
    m_modified = status.st_mtim;
}

bool FileState::IsSameFileAs(const FileState& other) const {
    return m_exists && other.m_exists && m_device == other.m_device && m_inode == other.m_inode;
}

std::string FileState::DescribeChange(const FileState& since) const {
    if (!since.m_isRegular) {
        return "";
    }
    if (!m_exists) {
        return "was removed";
    }
    if (!IsSameFileAs(since)) {
        return "was replaced by another file";
    }
    if (m_bytes != since.m_bytes) {
        return fmt::format("{} from {} to {} bytes", m_bytes > since.m_bytes ? "grew" : "shrank",
                           since.m_bytes, m_bytes);
    }
    const bool isModified = m_modified.tv_sec != since.m_modified.tv_sec ||
                            m_modified.tv_nsec != since.m_modified.tv_nsec;
    return isModified ? "was written to" : "";
}

} // namespace kel::host
