#include "base/TemporaryFile.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace kel::host {

std::string DefaultTemporaryDirectory() {
    const char* directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != '\0' ? directory : "/tmp";
}

TemporaryFile::TemporaryFile(const std::string& directory)
    : m_descriptor(
          openat(AT_FDCWD, directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    if (Number() < 0) {
        // Some file systems do not support O_TMPFILE.
        std::string name = directory + "/kelhost-XXXXXX";
        m_descriptor = Descriptor(mkostemp(name.data(), O_CLOEXEC));
        if (Number() >= 0) {
            unlink(name.c_str());
        }
    }
}

std::string TemporaryFile::Path() const {
    return fmt::format("/proc/self/fd/{}", Number());
}

} // namespace kel::host
