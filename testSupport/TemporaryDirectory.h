/// A directory for the files of one test.
/// One thread at a time.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kel::test {

/// Place of a temporary directory.
enum class DirectoryPlace {
    Disk,  ///< the directory of the system for temporary files
    Memory ///< in memory if the system supports that; for tests that make very many files
};

/// A new empty directory; the destructor removes it with its contents.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(DirectoryPlace place = DirectoryPlace::Disk) {
        const std::filesystem::path memory = "/dev/shm";
        const bool inMemory =
            place == DirectoryPlace::Memory && access(memory.c_str(), R_OK | W_OK | X_OK) == 0;
        const auto parent = inMemory ? memory : std::filesystem::temp_directory_path();
        std::string pattern = (parent / "kel-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a directory like " + pattern);
        }
        m_path = pattern;
    }

    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    /// Returns the path of a file in the directory.
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

    /// Returns the names of the files in the directory.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

private:
    std::filesystem::path m_path;
};

/// Returns all bytes of a file.
inline std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

/// Writes a file with these bytes.
inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream stream(path, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace kel::test
