/// Changes of files that other programs make. Any thread.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace kel::host {

/// Identity, size and time of modification of the file under a name.
class FileState {
public:
    /// Notes the state of a file. That of a missing file is noted as well.
    explicit FileState(const std::string& path);

    /// Notes the state of the file of a descriptor, as that of a missing file when it is closed.
    explicit FileState(int descriptor);

    /// False for a missing file.
    bool Exists() const { return m_exists; }

    /// Size in bytes.
    std::uint64_t Bytes() const { return m_bytes; }

    /// True when both files exist and are the same one.
    bool IsSameFileAs(const FileState& other) const;

    /// Describes what has changed since: "grew from 10 to 20 bytes".
    /// @return empty when nothing has, and for what is not a regular file
    std::string DescribeChange(const FileState& since) const;

private:
    void Note(const struct stat& status);

    bool m_exists = false;
    bool m_isRegular = false;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    std::uint64_t m_bytes = 0;
    timespec m_modified{};
};

} // namespace kel::host
