#include "base/OutputFile.h"

#include "base/Errors.h"
#include "base/Text.h"

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

// Tells the system, and the container in it, within which numbers of processes are unique.
std::uint32_t NumberOfMachine() {
    std::string text;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), text);
    std::error_code unknown;
    text += fs::read_symlink("/proc/self/ns/pid", unknown).string();
    return static_cast<std::uint32_t>(std::hash<std::string>()(text));
}

[[noreturn]] void FailWithErrno(const std::string& path, std::string_view what) {
    throw JobError(fmt::format("{}: {}: {}", Escape(path), what, std::strerror(errno)));
}

void CheckWritableName(const std::string& path, bool replace) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return; // nothing there, or something that making the temporary file will tell about
    }
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw JobError(fmt::format("{}: is not a regular file; name another output", Escape(path)));
    }
    if (!replace) {
        throw JobError(fmt::format("{}: exists already; use --force to replace it", Escape(path)));
    }
}

mode_t CurrentUmask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

// What a plain open would have given the file, or what the file had that it replaces.
mode_t ModeFor(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        return status.st_mode & 07777U;
    }
    return 0666U & ~CurrentUmask();
}

// How many bytes fit into a directory. Where that is not known, a full disk is told when it
// happens.
std::uint64_t FreeSpace(const std::string& directory) {
    struct statvfs status {};
    return statvfs(directory.c_str(), &status) == 0
               ? std::uint64_t{status.f_bavail} * status.f_frsize
               : std::numeric_limits<std::uint64_t>::max();
}

// Waits until the file, or a directory's list of names, is on disk.
bool Flush(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool flushed = fsync(descriptor) == 0;
    const int error = errno;
    close(descriptor);
    errno = error;
    return flushed;
}

// Renames; where nothing may be replaced, not even a file that has appeared meanwhile is.
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
    // File systems that cannot do it in one step.
    if (link(from.c_str(), to.c_str()) != 0) {
        return false;
    }
    unlink(from.c_str());
    return true;
}

} // namespace

std::string TemporaryPrefix(pid_t process) {
    static const std::uint32_t machine = NumberOfMachine();
    return fmt::format(".kelhost-{}-{:08x}-", process, machine);
}

std::string ParentDirectory(const std::string& path) {
    const fs::path directory = fs::path(path).parent_path();
    return directory.empty() ? "." : directory.string();
}

OutputFile::OutputFile(std::string path, bool replace)
    : m_path(std::move(path)), m_replace(replace) {
    if (m_path.size() > kMaxPathBytes) {
        throw JobError(
            fmt::format("{}: the path is longer than {} bytes; change to its directory or "
                        "use a shorter name",
                        Escape(m_path), kMaxPathBytes));
    }
    CheckWritableName(m_path, m_replace);
    const std::string suffix = ".part" + fs::path(m_path).extension().string();
    std::string pattern =
        (fs::path(m_path).parent_path() / (TemporaryPrefix(getpid()) + "XXXXXX" + suffix)).string();
    if (pattern.size() > kMaxPathBytes) {
        throw JobError(fmt::format("{}: is written under a temporary name first, whose path would "
                                   "be longer than {} bytes; change to its directory",
                                   Escape(m_path), kMaxPathBytes));
    }
    const int descriptor = mkostemps(pattern.data(), static_cast<int>(suffix.size()), O_CLOEXEC);
    if (descriptor < 0) {
        FailWithErrno(m_path, "cannot be created");
    }
    m_temporaryPath = std::move(pattern); // takes no memory, which might be missing
    close(descriptor);
}

OutputFile::~OutputFile() {
    if (!m_temporaryPath.empty()) {
        unlink(m_temporaryPath.c_str());
    }
}

void OutputFile::RequireSpace(std::uint64_t bytes) const {
    const std::uint64_t room = FreeSpace(ParentDirectory(m_path));
    if (bytes > room) {
        throw JobError(fmt::format("{}: needs {} bytes, and its disk has {} left; nothing was "
                                   "written",
                                   Escape(m_path), bytes, room));
    }
}

std::string OutputFile::DescribeShortage(std::uint64_t bytes) const {
    struct stat status {};
    const bool isThere = stat(m_temporaryPath.c_str(), &status) == 0;
    const std::uint64_t written = isThere ? static_cast<std::uint64_t>(status.st_size) : 0;
    if (written < bytes && bytes - written > FreeSpace(ParentDirectory(m_path))) {
        return "; its disk is full";
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && written >= limit.rlim_cur) {
        return fmt::format("; files may have {} bytes at most here (ulimit -f)", limit.rlim_cur);
    }
    return "";
}

void OutputFile::Commit() {
    if (!Flush(m_temporaryPath)) {
        FailWithErrno(m_path, "cannot be flushed to disk");
    }
    // Only now: the mode of a file that is replaced may forbid to write, or to read.
    if (chmod(m_temporaryPath.c_str(), ModeFor(m_path)) != 0) {
        FailWithErrno(m_path, "cannot be given its mode");
    }
    if (!Rename(m_temporaryPath, m_path, m_replace)) {
        FailWithErrno(m_path, "cannot be given its name");
    }
    m_temporaryPath.clear();
    // The file is whole by now; a directory that cannot be flushed is no reason to call it lost.
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

bool IsSameFile(const std::string& path1, const std::string& path2) {
    struct stat status1 {};
    struct stat status2 {};
    return stat(path1.c_str(), &status1) == 0 && stat(path2.c_str(), &status2) == 0 &&
           status1.st_dev == status2.st_dev && status1.st_ino == status2.st_ino;
}

} // namespace kel::host
