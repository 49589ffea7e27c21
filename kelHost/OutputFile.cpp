#include "OutputFile.h"

#include "Errors.h"
#include "Text.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

// libsndfile cuts longer names and would write to another file.
constexpr std::size_t kLongestPath = 1023;

// The temporary files that exist now.
struct Unfinished {
    std::mutex mutex;
    std::set<std::string> paths;
};

Unfinished& TheUnfinished() {
    static Unfinished& unfinished = *new Unfinished;
    return unfinished;
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

// Waits until the file, or a folder's list of names, is on disk.
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

std::string FolderOf(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
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
    // File systems that can not do it in one step.
    if (link(from.c_str(), to.c_str()) != 0) {
        return false;
    }
    unlink(from.c_str());
    return true;
}

} // namespace

OutputFile::OutputFile(std::string path, bool replace)
    : m_path(std::move(path)), m_replace(replace) {
    CheckWritableName(m_path, m_replace);
    const std::string extension = fs::path(m_path).extension().string();
    std::string pattern =
        (fs::path(m_path).parent_path() / (".kelhost-XXXXXX.part" + extension)).string();
    if (m_path.size() > kLongestPath || pattern.size() > kLongestPath) {
        throw JobError(fmt::format("{}: the path is longer than {} bytes; change to its folder or "
                                   "use a shorter name",
                                   Escape(m_path), kLongestPath));
    }
    Unfinished& unfinished = TheUnfinished();
    const std::lock_guard<std::mutex> lock(unfinished.mutex);
    const int descriptor =
        mkostemps(pattern.data(), static_cast<int>(extension.size() + 5), O_CLOEXEC);
    if (descriptor < 0) {
        FailWithErrno(m_path, "can not be created");
    }
    m_temporaryPath = pattern;
    unfinished.paths.insert(m_temporaryPath);
    fchmod(descriptor, ModeFor(m_path));
    close(descriptor);
}

OutputFile::~OutputFile() {
    if (m_temporaryPath.empty()) {
        return;
    }
    Unfinished& unfinished = TheUnfinished();
    const std::lock_guard<std::mutex> lock(unfinished.mutex);
    unlink(m_temporaryPath.c_str());
    unfinished.paths.erase(m_temporaryPath);
}

void OutputFile::Commit() {
    if (!Flush(m_temporaryPath)) {
        FailWithErrno(m_path, "can not be flushed to disk");
    }
    {
        Unfinished& unfinished = TheUnfinished();
        const std::lock_guard<std::mutex> lock(unfinished.mutex);
        if (!Rename(m_temporaryPath, m_path, m_replace)) {
            FailWithErrno(m_path, "can not be given its name");
        }
        unfinished.paths.erase(m_temporaryPath);
        m_temporaryPath.clear();
    }
    // The file is whole by now; a folder that can not be flushed is no reason to call it lost.
    Flush(FolderOf(m_path));
}

void AbandonOutputs() {
    Unfinished& unfinished = TheUnfinished();
    unfinished.mutex.lock(); // and never unlocked: whoever wants to commit now is too late
    for (const std::string& path : unfinished.paths) {
        unlink(path.c_str());
    }
}

bool IsSameFile(const std::string& path1, const std::string& path2) {
    struct stat status1 {};
    struct stat status2 {};
    return stat(path1.c_str(), &status1) == 0 && stat(path2.c_str(), &status2) == 0 &&
           status1.st_dev == status2.st_dev && status1.st_ino == status2.st_ino;
}

} // namespace kel::host
