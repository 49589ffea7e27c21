#include "validation/WorkDirectory.h"

#include "base/Errors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace kel::host {

namespace fs = std::filesystem;

WorkDirectory::WorkDirectory()
    : m_path((fs::temp_directory_path() / "kelhost-validate-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr) {
        throw JobError(m_path, std::string("cannot create the directory: ") + std::strerror(errno));
    }
    fs::create_directory(Inputs());
}

WorkDirectory::~WorkDirectory() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string WorkDirectory::MakeEmpty() const {
    std::string directory = m_path + "/check";
    fs::remove_all(directory);
    fs::create_directory(directory);
    return directory;
}

} // namespace kel::host
