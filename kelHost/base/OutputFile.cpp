#include "base/OutputFile.h"

#include "base/Errors.h"
#include "base/FileAttributes.h"
#include "base/FileName.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kExists = "exists already; use --force to replace it";
constexpr const char* kIsDirectory = "is a directory; name a file in it";
constexpr std::string_view kTemporaryBeginning = ".kelhost-";
constexpr std::string_view kTemporaryEnd = ".part";
constexpr mode_t kNewFileMode = 0666; // less the umask, or as the directory's default list says

// Types of file systems on which a write may fail after it was accepted, see statfs(2).
constexpr std::uint32_t kLateFileSystems[] = {
    0x65735546, // FUSE
    0x6969,     // NFS
    0xFF534D42, // SMB, by the driver cifs
    0xFE534D42, // SMB 2 and later
    0x517B,     // SMB, by the driver smbfs
    0x01021997, // 9P
    0x5346414F, // AFS
    0x6B414653, // AFS, by the kernel's own driver
    0x73757245, // Coda
    0x00C36400, // Ceph
    0x0BD00BD0, // Lustre
    0x47504653, // IBM Storage Scale
    0x19830326, // BeeGFS
    0x786F4256, // directories shared by VirtualBox
};

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

// The path of an open file. It leads to this file even when another user has replaced its name.
std::string DescriptorPath(const Descriptor& file) {
    return fmt::format("/proc/self/fd/{}", file.Number());
}

bool HasDescriptorPaths() {
    return access("/proc/self/fd", X_OK) == 0;
}

// Opens the directory of an output. Without permission to list it, its names are not flushed.
Descriptor OpenDirectory(const std::string& path) {
    constexpr int kFlags = O_DIRECTORY | O_CLOEXEC;
    Descriptor directory(open(path.c_str(), O_RDONLY | kFlags));
    if (directory.Number() < 0 && errno == EACCES) {
        directory = Descriptor(open(path.c_str(), O_PATH | kFlags));
    }
    return directory;
}

// Returns true when users other than this one and root can change the names in a directory.
bool IsShared(const Descriptor& directory) {
    struct stat status {};
    return fstat(directory.Number(), &status) != 0 ||
           ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0) ||
           (status.st_uid != geteuid() && status.st_uid != 0);
}

// Follows a symbolic link as the name of an output, unless another user may have chosen its target.
std::string ResolveLink(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return path;
    }
    const bool isForeign = status.st_uid != geteuid() && status.st_uid != 0;
    if (isForeign || IsShared(OpenDirectory(ParentDirectory(path)))) {
        throw JobError(path, "is a symbolic link that another user can change; name its target");
    }
    std::error_code error;
    std::string target = fs::canonical(path, error).string();
    if (error) {
        throw JobError(path, fmt::format("cannot follow the symbolic link: {}; remove it or name "
                                         "another output",
                                         error.message()));
    }
    return target;
}

void RequireWritableName(const std::string& path, bool replace) {
    const std::string name = fs::path(path).filename().string();
    if (name.empty() || name == "." || name == "..") {
        throw JobError(path, kIsDirectory);
    }
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            FailWithErrno(path, "cannot create the file");
        }
        return; // missing, or an obstacle that opening the directory meets as well
    }
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            throw JobError(path, kIsDirectory);
        }
        if (!S_ISREG(status.st_mode)) {
            throw JobError(path, "is not a regular file; name another output");
        }
    }
    if (!replace) {
        throw JobError(path, kExists);
    }
}

// Bytes that fit into the file system of a file. Where that is not known, a full disk is noticed
// when it fills: some file systems report zeros.
std::uint64_t FreeSpace(const Descriptor& file) {
    struct statvfs status {};
    return fstatvfs(file.Number(), &status) == 0 && status.f_blocks != 0
               ? std::uint64_t{status.f_bavail} * status.f_frsize
               : std::numeric_limits<std::uint64_t>::max();
}

// Returns true for the errors of an operation that the file system does not have.
bool IsUnsupported(int error) {
    return error == EINVAL || error == EOPNOTSUPP || error == ENOSYS || error == EPERM;
}

// Closes a second descriptor of a file, which reports what a file system could not store. EINTR
// says nothing about the data.
bool ReportsNoLoss(int file) {
    const int second = fcntl(file, F_DUPFD_CLOEXEC, 0);
    return second >= 0 && (close(second) == 0 || errno == EINTR);
}

// Returns six characters that no other process can know before.
std::string RandomCharacters() {
    constexpr std::string_view kCharacters = "abcdefghijklmnopqrstuvwxyz012345";
    std::random_device device;
    std::string text(6, ' ');
    for (char& character : text) {
        character = kCharacters[device() % kCharacters.size()];
    }
    return text;
}

// Removes a file, or a private directory with the files in it.
void RemoveUnfinished(int parent, const char* name) {
    if (unlinkat(parent, name, 0) == 0 || unlinkat(parent, name, AT_REMOVEDIR) == 0) {
        return;
    }
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(openat(parent, name, kFlags)),
                                                      closedir);
    struct stat status {};
    if (entries != nullptr && fstat(dirfd(entries.get()), &status) == 0 &&
        status.st_uid == geteuid()) {
        // The C++ library's own iterator ends the process where memory runs out.
        while (const dirent* entry = readdir(entries.get())) {
            unlinkat(dirfd(entries.get()), entry->d_name, 0);
        }
    }
    unlinkat(parent, name, AT_REMOVEDIR);
}

} // namespace

void RequireCreatable(const std::string& path, bool replace, bool makesDirectory) {
    RequirePathFits(path);
    RequireWritableName(path, replace);
    const std::string directory = ParentDirectory(ResolveLink(path));
    if (makesDirectory) {
        RequireDirectory(directory);
    }
    const bool isWritable = faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
    if (!isWritable && !(makesDirectory && errno == ENOENT)) {
        FailWithErrno(path, "cannot create the file");
    }
}

std::string TemporaryPrefix(pid_t process) {
    static const std::uint32_t machine = MachineNumber();
    return fmt::format("{}{}-{:08x}-", kTemporaryBeginning, process, machine);
}

bool IsTemporaryName(std::string_view name) {
    return name.size() > kTemporaryBeginning.size() + kTemporaryEnd.size() &&
           name.substr(0, kTemporaryBeginning.size()) == kTemporaryBeginning &&
           name.substr(name.size() - kTemporaryEnd.size()) == kTemporaryEnd;
}

OutputFile::OutputFile(std::string path, bool replace, TemporaryName naming)
    : m_path(std::move(path)), m_replace(replace) {
    RequirePathFits(m_path);
    RequireWritableName(m_path, m_replace);
    const std::string target = ResolveLink(m_path);
    m_name = fs::path(target).filename().string();
    m_directory = OpenDirectory(ParentDirectory(target));
    if (m_directory.Number() < 0) {
        FailWithErrno(m_path, "cannot create the file");
    }
    try {
        if (naming == TemporaryName::None && HasDescriptorPaths()) {
            CreateUnnamed();
        }
        if (m_file.Number() < 0) {
            CreateInPrivateDirectory();
        }
    } catch (...) {
        RemovePrivateDirectory();
        throw;
    }
}

OutputFile::OutputFile(const FileName& unnamed)
    : m_path(unnamed.shown), m_replace(false),
      m_file(open(unnamed.path.c_str(), O_RDWR | O_CLOEXEC)), m_temporaryPath(unnamed.path) {
    if (m_file.Number() < 0) {
        FailWithErrno(m_path, "cannot create the file");
    }
}

OutputFile::~OutputFile() {
    RemovePrivateDirectory();
}

// Creates the file without a name, or leaves that to others where the file system cannot.
void OutputFile::CreateUnnamed() {
    m_file =
        Descriptor(openat(m_directory.Number(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kNewFileMode));
    if (m_file.Number() >= 0) {
        m_temporaryPath = DescriptorPath(m_file);
        MakeWritable();
    }
}

void OutputFile::CreateInPrivateDirectory() {
    if (!HasDescriptorPaths() && IsShared(m_directory)) {
        throw JobError(m_path, "cannot create the file safely: other users can change its "
                               "directory, and /proc is not mounted");
    }
    MakePrivateDirectory();
    m_file = Descriptor(openat(m_privateDirectory.Number(), m_name.c_str(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kNewFileMode));
    if (m_file.Number() < 0) {
        FailWithErrno(m_path, "cannot create the file");
    }
    m_isNamed = true;
    m_temporaryPath = (HasDescriptorPaths() ? fs::path(DescriptorPath(m_privateDirectory))
                                            : fs::path(m_path).parent_path() / m_privateName) /
                      m_name;
    RequirePathFits({m_temporaryPath, m_path});
    MakeWritable();
}

// The writer opens the file again, for which a strict umask may leave no permission.
void OutputFile::MakeWritable() {
    struct stat status {};
    if (fstat(m_file.Number(), &status) != 0) {
        FailWithErrno(m_path, "cannot create the file");
    }
    constexpr mode_t kOwner = S_IRUSR | S_IWUSR;
    if ((status.st_mode & kOwner) != kOwner) {
        m_mode = status.st_mode & 07777U;
        fchmod(m_file.Number(), *m_mode | kOwner);
    }
}

void OutputFile::MakePrivateDirectory() {
    const std::string prefix = TemporaryPrefix(getpid());
    while (m_privateName.empty()) {
        const std::string name = fmt::format("{}{}{}", prefix, RandomCharacters(), kTemporaryEnd);
        if (mkdirat(m_directory.Number(), name.c_str(), S_IRWXU) == 0) {
            m_privateName = name;
        } else if (errno != EEXIST) {
            FailWithErrno(m_path, "cannot create the file");
        }
    }
    m_privateDirectory = Descriptor(openat(m_directory.Number(), m_privateName.c_str(),
                                           O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (m_privateDirectory.Number() < 0 || fstat(m_privateDirectory.Number(), &status) != 0) {
        FailWithErrno(m_path, "cannot create the file");
    }
    constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
    if (status.st_uid != geteuid() || (status.st_mode & kOthers) != 0) {
        throw JobError(m_path, "cannot create the file safely: another user has changed its "
                               "directory at the same time");
    }
}

void OutputFile::RemovePrivateDirectory() {
    if (m_isNamed) {
        unlinkat(m_privateDirectory.Number(), m_name.c_str(), 0);
        m_isNamed = false;
    }
    if (!m_privateName.empty()) {
        RemoveUnfinished(m_directory.Number(), m_privateName.c_str());
        m_privateName.clear();
    }
}

void OutputFile::RequireSpace(std::uint64_t bytes) const {
    const std::uint64_t space = FreeSpace(m_file);
    if (bytes > space && !GetsName()) {
        throw JobError(m_path, fmt::format("needs {} bytes, and its temporary directory has {} "
                                           "left (--temp-dir DIRECTORY names another place)",
                                           bytes, space));
    }
    if (bytes > space) {
        throw JobError(m_path, fmt::format("needs {} bytes, and its disk has {} left; nothing was "
                                           "written",
                                           bytes, space));
    }
}

std::string OutputFile::DescribeShortage(std::uint64_t bytes, std::string_view error) const {
    struct stat status {};
    const bool exists = fstat(m_file.Number(), &status) == 0;
    const std::uint64_t written = exists ? static_cast<std::uint64_t>(status.st_size) : 0;
    if (written < bytes && bytes - written > FreeSpace(m_file)) {
        const std::string_view known = std::strerror(ENOSPC);
        const bool isKnown =
            error.size() >= known.size() && error.substr(error.size() - known.size()) == known;
        return GetsName() ? (isKnown ? "" : "; its disk is full")
                          : "; its temporary directory is full (--temp-dir DIRECTORY names another "
                            "place)";
    }
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && written >= limit.rlim_cur) {
        return fmt::format("; files are limited to {} bytes (ulimit -f)", limit.rlim_cur);
    }
    return "";
}

bool OutputFile::MayFailLate() const {
    struct statfs status {};
    if (fstatfs(m_file.Number(), &status) != 0) {
        return true;
    }
    const auto type = static_cast<std::uint32_t>(status.f_type);
    return std::find(std::begin(kLateFileSystems), std::end(kLateFileSystems), type) !=
           std::end(kLateFileSystems);
}

std::vector<std::string> OutputFile::Flush() {
    if (!GetsName()) {
        return {};
    }
    if (m_isNamed) {
        FollowReplacement();
    }
    std::vector<std::string> warnings;
    if (fsync(m_file.Number()) != 0) {
        if (!IsUnsupported(errno)) {
            FailWithErrno(m_path, "cannot flush the file to disk");
        }
        warnings.push_back(fmt::format("{}: cannot flush the file to disk: {}; a power failure "
                                       "may lose it",
                                       m_path, std::strerror(errno)));
    }
    if (!ReportsNoLoss(m_file.Number())) {
        FailWithErrno(m_path, "cannot close the file");
    }
    posix_fadvise(m_file.Number(), 0, 0, POSIX_FADV_DONTNEED);
    return warnings;
}

// Opens the file that the writer has put in the place of this one, if it did.
void OutputFile::FollowReplacement() {
    Descriptor present(openat(m_privateDirectory.Number(), m_name.c_str(),
                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat presentStatus {};
    struct stat status {};
    if (present.Number() < 0 || fstat(present.Number(), &presentStatus) != 0 ||
        fstat(m_file.Number(), &status) != 0) {
        FailWithErrno(m_path, "cannot flush the file to disk");
    }
    if (presentStatus.st_ino != status.st_ino) {
        m_file = std::move(present);
    }
}

std::vector<std::string> OutputFile::KeepAttributes() {
    if (!GetsName()) {
        return {};
    }
    const Descriptor replaced(
        openat(m_directory.Number(), m_name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!m_replace || replaced.Number() < 0) {
        return {};
    }
    if (fstat(replaced.Number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw JobError(m_path, "is not a regular file any more; name another output");
    }
    try {
        const std::vector<std::string> lost = CopyAttributes(replaced.Number(), m_file.Number());
        m_mode.reset();
        if (lost.empty()) {
            return {};
        }
        return {fmt::format("{}: cannot preserve of the replaced file: {}", m_path,
                            fmt::join(lost, ", "))};
    } catch (const std::system_error& error) {
        throw JobError(m_path,
                       fmt::format("cannot set the mode of the file: {}", error.code().message()));
    }
}

std::vector<std::string> OutputFile::Finish() {
    std::vector<std::string> warnings = Flush();
    for (std::string& warning : KeepAttributes()) {
        warnings.push_back(std::move(warning));
    }
    return warnings;
}

void OutputFile::Commit() {
    if (!GetsName()) {
        return;
    }
    if (m_mode.has_value() && fchmod(m_file.Number(), *m_mode) != 0) {
        FailWithErrno(m_path, "cannot set the mode of the file");
    }
    if (!TakeName()) {
        if (errno == EEXIST && !m_replace) {
            throw JobError(m_path, kExists);
        }
        if (errno != EEXIST || !ReplaceName()) {
            FailWithErrno(m_path, "cannot give the file its name");
        }
    }
    RemovePrivateDirectory();
    // The file is complete by now; a directory that cannot be flushed does not make it lost.
    fsync(m_directory.Number());
}

// Gives the file its name if no file has it.
bool OutputFile::TakeName() {
    if (!m_isNamed) {
        return linkat(AT_FDCWD, m_temporaryPath.c_str(), m_directory.Number(), m_name.c_str(),
                      AT_SYMLINK_FOLLOW) == 0;
    }
    const int from = m_privateDirectory.Number();
    const int to = m_directory.Number();
    if (renameat2(from, m_name.c_str(), to, m_name.c_str(), RENAME_NOREPLACE) == 0) {
        m_isNamed = false;
        return true;
    }
    // Some file systems cannot rename without replacing. The second name goes with the directory.
    return (errno == EINVAL || errno == ENOSYS) &&
           linkat(from, m_name.c_str(), to, m_name.c_str(), 0) == 0;
}

// Gives the file its name in place of the file that has it.
bool OutputFile::ReplaceName() {
    if (!m_isNamed) {
        MakePrivateDirectory();
        m_isNamed = linkat(AT_FDCWD, m_temporaryPath.c_str(), m_privateDirectory.Number(),
                           m_name.c_str(), AT_SYMLINK_FOLLOW) == 0;
        if (!m_isNamed) {
            return false;
        }
    }
    const bool isRenamed = renameat(m_privateDirectory.Number(), m_name.c_str(),
                                    m_directory.Number(), m_name.c_str()) == 0;
    m_isNamed = !isRenamed;
    return isRenamed;
}

void RemoveTemporaryFiles(const std::string& directory, pid_t process) {
    const std::string prefix = TemporaryPrefix(process);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (const dirent* entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        if (std::string_view(entry->d_name).substr(0, prefix.size()) == prefix) {
            RemoveUnfinished(dirfd(entries.get()), entry->d_name);
        }
    }
}

} // namespace kel::host
