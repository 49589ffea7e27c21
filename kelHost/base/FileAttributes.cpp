#include "base/FileAttributes.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

// See acl(5) and xattr(7).
constexpr const char* kAccessList = "system.posix_acl_access";
constexpr const char* kUserNamespace = "user.";

[[noreturn]] void FailWithErrno() {
    throw std::system_error(errno, std::generic_category());
}

struct stat StatusOf(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0) {
        FailWithErrno();
    }
    return status;
}

// The functions for extended attributes do not accept descriptors of O_PATH.
std::string PathOf(int file) {
    return fmt::format("/proc/self/fd/{}", file);
}

// Calls a function that fills a buffer of unknown size. None when it fails.
template <typename Function>
std::optional<std::string> ReadWhole(Function function) {
    for (;;) {
        const ssize_t size = function(nullptr, 0);
        if (size < 0) {
            return std::nullopt;
        }
        std::string value(static_cast<std::size_t>(size), '\0');
        const ssize_t count = function(value.data(), value.size());
        if (count >= 0) {
            value.resize(static_cast<std::size_t>(count));
            return value;
        }
        if (errno != ERANGE) {
            return std::nullopt;
        }
    }
}

std::optional<std::string> ReadAttribute(const std::string& path, const char* name) {
    return ReadWhole(
        [&](char* value, std::size_t size) { return getxattr(path.c_str(), name, value, size); });
}

bool WriteAttribute(int file, const char* name, const std::string& value) {
    return fsetxattr(file, name, value.data(), value.size(), 0) == 0;
}

bool CopyUserAttributes(const std::string& from, int to) {
    const auto names = ReadWhole(
        [&](char* list, std::size_t size) { return listxattr(from.c_str(), list, size); });
    if (!names.has_value()) {
        return errno == EOPNOTSUPP;
    }
    bool isComplete = true;
    for (std::size_t place = 0; place < names->size();) {
        const std::string name = names->c_str() + place;
        place += name.size() + 1;
        if (name.rfind(kUserNamespace, 0) == 0) {
            const auto value = ReadAttribute(from, name.c_str());
            isComplete =
                value.has_value() && WriteAttribute(to, name.c_str(), *value) && isComplete;
        }
    }
    return isComplete;
}

} // namespace

std::vector<std::string> CopyAttributes(int from, int to) {
    std::vector<std::string> lost;
    const struct stat before = StatusOf(from);
    const struct stat created = StatusOf(to);
    const std::string path = PathOf(from);
    // First, because the mode may forbid it.
    if (!CopyUserAttributes(path, to)) {
        lost.emplace_back("extended attributes");
    }
    mode_t mode = before.st_mode & 0777U;
    if (created.st_gid != before.st_gid && fchown(to, static_cast<uid_t>(-1), before.st_gid) != 0) {
        lost.emplace_back("group");
        mode &=
            ~static_cast<mode_t>(S_IRWXG) | (mode << 3U); // another group gets what all others get
    }
    if (created.st_uid != before.st_uid && fchown(to, before.st_uid, static_cast<gid_t>(-1)) != 0) {
        lost.emplace_back("owner");
    }
    // The directory may have given the file a list, which the mode alone would not remove.
    fremovexattr(to, kAccessList);
    const auto list = ReadAttribute(path, kAccessList);
    const bool hasNone = !list.has_value() && (errno == ENODATA || errno == EOPNOTSUPP);
    if (!hasNone && !(list.has_value() && WriteAttribute(to, kAccessList, *list))) {
        lost.emplace_back("access control list");
        mode &=
            ~static_cast<mode_t>(S_IRWXG); // with a list, these bits are those of all its entries
    }
    if ((StatusOf(to).st_mode & 07777U) != mode && fchmod(to, mode) != 0) {
        FailWithErrno();
    }
    return lost;
}

} // namespace kel::host
