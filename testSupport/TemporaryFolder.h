/// A folder for the files of one test.
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

/// Where a temporary folder lies.
enum class FolderPlace {
    Disk,  ///< where the system wants temporary files
    Memory ///< in memory, where the system offers that; for tests that make very many files
};

/// A new empty folder, removed with everything in it at the end.
class TemporaryFolder {
public:
    explicit TemporaryFolder(FolderPlace place = FolderPlace::Disk) {
        const std::filesystem::path memory = "/dev/shm";
        const bool inMemory =
            place == FolderPlace::Memory && access(memory.c_str(), R_OK | W_OK | X_OK) == 0;
        const auto parent = inMemory ? memory : std::filesystem::temp_directory_path();
        std::string pattern = (parent / "kel-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("can not make a folder like " + pattern);
        }
        m_path = pattern;
    }

    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    /// The path of a file in the folder.
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

    /// The names of what lies in the folder.
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

/// All bytes of a file.
inline std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("can not read " + path);
    }
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

/// Writes a file of these bytes.
inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream stream(path, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) {
        throw std::runtime_error("can not write " + path);
    }
}

} // namespace kel::test
