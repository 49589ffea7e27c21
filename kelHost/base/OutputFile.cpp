#include "base/OutputFile.h"

#include "base/Descriptor.h"
#include "base/Errors.h"
#include "base/FileName.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

// Identifies the system and the container in which process numbers are unique.
std::uint32_t MachineNumber() {
    std::string text;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), text);
    std::error_code unknown;
    text += fs::read_symlink("/proc/self/ns/pid", unknown).string();
    return static_cast<std::uint32_t>(std::hash<std::string>()(text));
}

[[noreturn]] void FailWithErrno(const std::string& path, std::string_view what) {
    throw JobError(path, fmt::format("{}: {}", what, std::strerror(errno)));
}

void RequireWritableName(const std::string& path, bool replace) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return; // missing, or an obstacle that creating the temporary file meets as well
    }
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw JobError(path, "is not a regular file; name another output");
    }
    if (!replace) {
        throw JobError(path, "exists already; use --force to replace it");
    }
}

mode_t CurrentUmask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

// Mode of the file that is replaced; for a new file, the mode that a plain open would have set.
mode_t ModeFor(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        return status.st_mode & 07777U;
    }
    return 0666U & ~CurrentUmask();
}

// Bytes that fit into a directory's file system. Where that is not known, a full disk is noticed
// when it fills.
std::uint64_t FreeSpace(const std::string& directory) {
    struct statvfs status {};
    return statvfs(directory.c_str(), &status) == 0
               ? std::uint64_t{status.f_bavail} * status.f_frsize
               : std::numeric_limits<std::uint64_t>::max();
}

// Waits until a file, or a directory's list of names, is on disk.
bool Flush(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.Number() >= 0 && fsync(file.Number()) == 0;
}

// Renames a file. Unless replacing is allowed, a file that has appeared meanwhile is not replaced.
bool Rename(const std::string& from, const std::string& to, bool replace) {
    if (replace) {
        return rename(from.c_str(), to.c_str()) == 0;
    }
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // For file systems without RENAME_NOREPLACE.
    if (link(from.c_str(), to.c_str()) != 0) {
        return false;
    }
    unlink(from.c_str());
    return true;
}

} // namespace

std::string TemporaryPrefix(pid_t process) {
    static const std::uint32_t machine = MachineNumber();
    return fmt::format(".kelhost-{}-{:08x}-", process, machine);
}

OutputFile::OutputFile(std::string path, bool replace)
    : m_path(std::move(path)), m_replace(replace) {
    RequirePathFits(m_path);
    RequireWritableName(m_path, m_replace);
    const std::string suffix = ".part" + fs::path(m_path).extension().string();
    std::string pattern =
        (fs::path(m_path).parent_path() / (TemporaryPrefix(getpid()) + "XXXXXX" + suffix)).string();
    if (pattern.size() > kMaxPathBytes) {
        throw JobError(m_path, fmt::format("the path of its temporary file would be longer than {} "
                                           "bytes; change to its directory",
                                           kMaxPathBytes));
    }
    const Descriptor file(mkostemps(pattern.data(), static_cast<int>(suffix.size()), O_CLOEXEC));
    if (file.Number() < 0) {
        FailWithErrno(m_path, "cannot create the file");
    }
    m_temporaryPath = std::move(pattern); // allocates no memory, so that it cannot fail
}

OutputFile::~OutputFile() {
    if (!m_temporaryPath.empty()) {
        unlink(m_temporaryPath.c_str());
    }
}

void OutputFile::RequireSpace(std::uint64_t bytes) const {
    const std::uint64_t space = FreeSpace(ParentDirectory(m_path));
    if (bytes > space) {
        throw JobError(m_path, fmt::format("needs {} bytes, and its disk has {} left; nothing was "
                                           "written",
                                           bytes, space));
    }
}

std::string OutputFile::DescribeShortage(std::uint64_t bytes) const {
    struct stat status {};
    const bool exists = stat(m_temporaryPath.c_str(), &status) == 0;
    const std::uint64_t written = exists ? static_cast<std::uint64_t>(status.st_size) : 0;
    if (written < bytes && bytes - written > FreeSpace(ParentDirectory(m_path))) {
        return "; its disk is full";
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && written >= limit.rlim_cur) {
        return fmt::format("; files are limited to {} bytes (ulimit -f)", limit.rlim_cur);
    }
    return "";
}

void OutputFile::Commit() {
    if (!Flush(m_temporaryPath)) {
        FailWithErrno(m_path, "cannot flush the file to disk");
    }
    // Not earlier: the mode of the replaced file may forbid to write, or to read.
    if (chmod(m_temporaryPath.c_str(), ModeFor(m_path)) != 0) {
        FailWithErrno(m_path, "cannot set the mode of the file");
    }
    if (!Rename(m_temporaryPath, m_path, m_replace)) {
        FailWithErrno(m_path, "cannot rename the file from its temporary name");
    }
    m_temporaryPath.clear();
    // The file is complete by now; a directory that cannot be flushed does not make it lost.
    Flush(ParentDirectory(m_path));
}

void RemoveTemporaryFiles(const std::string& directory, pid_t process) {
    const std::string prefix = TemporaryPrefix(process);
    // The C++ library's own iterator ends the process where memory runs out.
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (const dirent* entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        if (std::string_view(entry->d_name).substr(0, prefix.size()) == prefix) {
            unlinkat(dirfd(entries.get()), entry->d_name, 0);
        }
    }
}

} // namespace kel::host
