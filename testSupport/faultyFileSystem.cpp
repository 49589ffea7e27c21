// A file system that shows the files of a directory, and fails chosen operations on them.
//
// usage: faultyFileSystem [OPTION...] LOG DIRECTORY MOUNT_POINT [FAULT...]
//
// It mounts the directory, creates the log, and runs until it is killed or unmounted. The log
// receives a line "OPERATION PATH" for each operation that failed.
//
//   --direct      each read and write of a program is an operation; the kernel caches nothing
//   --keep-cache  the kernel keeps what it has cached when a file is opened again
//   --write-back  the kernel collects writes, and makes them later
//
// A FAULT is OPERATION[,path=TEXT][,from=NUMBER][,count=NUMBER][,offset=BYTES],EFFECT. It concerns
// operations on files in whose paths the text occurs: the NUMBER-th and those after it, at most
// COUNT. With an offset, only reads and writes of bytes at or after it are counted. Operations have
// the names that the kernel gives them (OPERATIONS below). "rename_noreplace" is only the renaming
// that must not replace a file. Effects:
//
//   error=NUMBER  the operation fails with this errno
//   lose          a write reports success and writes zeros
//   flip          a write reports success and writes bytes with one bit changed
//   zero          statfs reports zeros, as file systems in memory do
//   hang          the operation does not return until the file system has ended, and a program that
//                 waits for it cannot be killed: a server that is gone
//   wait          the operation does not return until the program receives a signal: a slow server

#define FUSE_USE_VERSION 31

#include <fuse.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <linux/fs.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace {

// OPERATIONS
constexpr std::initializer_list<const char*> kOperations{
    "access",   "chmod",    "chown",       "create",   "fallocate", "flush",
    "fsync",    "fsyncdir", "getattr",     "link",     "getxattr",  "listxattr",
    "lseek",    "mkdir",    "open",        "opendir",  "read",      "readdir",
    "readlink", "release",  "removexattr", "rename",   "rmdir",     "rename_noreplace",
    "setxattr", "statfs",   "symlink",     "truncate", "unlink",    "utimens",
    "write"};

enum class Effect { None, Error, Lose, Flip, Zero, Hang, Wait };

struct Fault {
    std::string operation;
    std::string path;
    int from = 1;
    int count = 0; // 0 for all
    off_t offset = 0;
    Effect effect = Effect::None;
    int error = 0;
    std::atomic<int> occurrences{0};
};

struct Settings {
    bool direct = false;
    bool keepsCache = false;
    bool writesBack = false;
    std::string log;
    int root = -1; // the directory
    std::deque<Fault> faults;
};

Settings& TheSettings() {
    static Settings settings;
    return settings;
}

// A fault in an operation. Only the effect counts, and the number of an error.
struct Outcome {
    Effect effect = Effect::None;
    int error = 0;
};

void Record(const std::string& line) {
    const int descriptor =
        open(TheSettings().log.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0 || dprintf(descriptor, "%s", line.c_str()) < 0) {
        abort();
    }
    close(descriptor);
}

// Looks for a fault in an operation. One that hangs does not return.
// @param end of the bytes that the operation reads or writes; 0 for other operations
Outcome FaultIn(const char* operation, const std::string& path, off_t end = 0) {
    for (Fault& fault : TheSettings().faults) {
        if (fault.operation != operation || path.find(fault.path) == std::string::npos ||
            (fault.offset > 0 && end <= fault.offset)) {
            continue;
        }
        const int occurrence = ++fault.occurrences;
        if (occurrence < fault.from ||
            (fault.count > 0 && occurrence >= fault.from + fault.count)) {
            continue;
        }
        Record(std::string(operation) + " " + path + "\n");
        while (fault.effect == Effect::Hang ||
               (fault.effect == Effect::Wait && fuse_interrupted() == 0)) {
            pause();
        }
        return fault.effect == Effect::Wait ? Outcome{Effect::Error, EINTR}
                                            : Outcome{fault.effect, fault.error};
    }
    return {};
}

// The path of a file below the directory; "." for the directory itself.
const char* Below(const char* path) {
    return path[1] != '\0' ? path + 1 : ".";
}

// The present path of an open file. The directory's own path is not part of it.
std::string PathOf(int descriptor) {
    std::array<char, 4096> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    std::array<char, 4096> root{};
    const std::string rootLink = "/proc/self/fd/" + std::to_string(TheSettings().root);
    if (readlink(link.c_str(), path.data(), path.size() - 1) < 0 ||
        readlink(rootLink.c_str(), root.data(), root.size() - 1) < 0) {
        return "";
    }
    const std::string text = path.data();
    const std::size_t length = std::strlen(root.data());
    return text.compare(0, length, root.data()) == 0 ? text.substr(length) : text;
}

int Descriptor(const fuse_file_info* file) {
    return static_cast<int>(file->fh);
}

// Returns the result of an operation: 0 or a count, or a negative errno.
template <typename Number>
int Result(Number result) {
    return result < 0 ? -errno : static_cast<int>(result);
}

// Performs an operation that has no fault.
template <typename Operation>
int Unless(const Outcome& fault, Operation operation) {
    return fault.effect == Effect::Error ? -fault.error : operation();
}

int Root() {
    return TheSettings().root;
}

// A path of the directory's files for calls that have no variant relative to a directory.
std::string AbsolutePath(const char* path) {
    return "/proc/self/fd/" + std::to_string(Root()) + path;
}

// A new file belongs to the user who creates it, not to the owner of this process.
int WithOwner(int result, const char* path) {
    const fuse_context* context = fuse_get_context();
    if (result >= 0 && geteuid() == 0 &&
        fchownat(Root(), Below(path), context->uid, context->gid, AT_SYMLINK_NOFOLLOW) != 0) {
        return -1;
    }
    return result;
}

int KeepOpen(int descriptor, fuse_file_info* file) {
    if (descriptor < 0) {
        return -errno;
    }
    file->fh = static_cast<std::uint64_t>(descriptor);
    file->direct_io = TheSettings().direct ? 1 : 0;
    file->keep_cache = TheSettings().keepsCache ? 1 : 0;
    return 0;
}

// The kernel itself appends, and opens what programs open; with write-back it also reads files that
// are open for writing only. A mount below a directory of another mount has no O_DIRECT of its own.
int Flags(int flags) {
    flags &= ~(O_APPEND | O_DIRECT | O_NOFOLLOW);
    if (TheSettings().writesBack && (flags & O_ACCMODE) == O_WRONLY) {
        flags = (flags & ~O_ACCMODE) | O_RDWR;
    }
    return flags | O_CLOEXEC;
}

void* Initialise(fuse_conn_info* connection, fuse_config* configuration) {
    configuration->attr_timeout = 0;
    configuration->entry_timeout = 0;
    configuration->negative_timeout = 0;
    configuration->hard_remove = 1;
    configuration->nullpath_ok = 1;
    configuration->use_ino = 1;
    configuration->intr = 1;
    if (TheSettings().keepsCache) {
        connection->want &= ~static_cast<unsigned>(FUSE_CAP_AUTO_INVAL_DATA);
    }
    if (TheSettings().writesBack) {
        connection->want |= connection->capable & static_cast<unsigned>(FUSE_CAP_WRITEBACK_CACHE);
    }
    Record("");
    return nullptr;
}

int GetAttributes(const char* path, struct stat* status, fuse_file_info* file) {
    const std::string name = file != nullptr ? PathOf(Descriptor(file)) : path;
    return Unless(FaultIn("getattr", name), [&] {
        return Result(file != nullptr ? fstat(Descriptor(file), status)
                                      : fstatat(Root(), Below(path), status, AT_SYMLINK_NOFOLLOW));
    });
}

int Access(const char* path, int mode) {
    return Unless(FaultIn("access", path),
                  [&] { return Result(faccessat(Root(), Below(path), mode, 0)); });
}

int ReadLink(const char* path, char* text, std::size_t size) {
    return Unless(FaultIn("readlink", path), [&] {
        const ssize_t length = readlinkat(Root(), Below(path), text, size - 1);
        if (length < 0) {
            return -errno;
        }
        text[length] = '\0';
        return 0;
    });
}

int OpenDirectory(const char* path, fuse_file_info* file) {
    return Unless(FaultIn("opendir", path), [&] {
        const int descriptor = openat(Root(), Below(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor < 0) {
            return -errno;
        }
        file->fh = static_cast<std::uint64_t>(descriptor);
        return 0;
    });
}

int ReadDirectory(const char* /*path*/, void* buffer, fuse_fill_dir_t fill, off_t /*offset*/,
                  fuse_file_info* file, fuse_readdir_flags /*flags*/) {
    return Unless(FaultIn("readdir", PathOf(Descriptor(file))), [&] {
        DIR* directory = fdopendir(openat(Descriptor(file), ".", O_RDONLY | O_CLOEXEC));
        if (directory == nullptr) {
            return -errno;
        }
        while (const dirent* entry = readdir(directory)) {
            fill(buffer, entry->d_name, nullptr, 0, fuse_fill_dir_flags{});
        }
        closedir(directory);
        return 0;
    });
}

int ReleaseDirectory(const char* /*path*/, fuse_file_info* file) {
    close(Descriptor(file));
    return 0;
}

int SynchronizeDirectory(const char* /*path*/, int /*dataOnly*/, fuse_file_info* file) {
    return Unless(FaultIn("fsyncdir", PathOf(Descriptor(file))),
                  [&] { return Result(fsync(Descriptor(file))); });
}

int MakeDirectory(const char* path, mode_t mode) {
    return Unless(FaultIn("mkdir", path),
                  [&] { return Result(WithOwner(mkdirat(Root(), Below(path), mode), path)); });
}

int RemoveDirectory(const char* path) {
    return Unless(FaultIn("rmdir", path),
                  [&] { return Result(unlinkat(Root(), Below(path), AT_REMOVEDIR)); });
}

int Unlink(const char* path) {
    return Unless(FaultIn("unlink", path),
                  [&] { return Result(unlinkat(Root(), Below(path), 0)); });
}

int SymbolicLink(const char* target, const char* path) {
    return Unless(FaultIn("symlink", path),
                  [&] { return Result(WithOwner(symlinkat(target, Root(), Below(path)), path)); });
}

int Rename(const char* from, const char* to, unsigned flags) {
    const Outcome fault =
        (flags & RENAME_NOREPLACE) != 0 ? FaultIn("rename_noreplace", from) : Outcome{};
    return Unless(fault.effect != Effect::None ? fault : FaultIn("rename", from),
                  [&] { return Result(renameat2(Root(), Below(from), Root(), Below(to), flags)); });
}

int Link(const char* from, const char* to) {
    return Unless(FaultIn("link", to),
                  [&] { return Result(linkat(Root(), Below(from), Root(), Below(to), 0)); });
}

int ChangeMode(const char* path, mode_t mode, fuse_file_info* file) {
    const std::string name = file != nullptr ? PathOf(Descriptor(file)) : path;
    return Unless(FaultIn("chmod", name), [&] {
        return Result(file != nullptr ? fchmod(Descriptor(file), mode)
                                      : fchmodat(Root(), Below(path), mode, 0));
    });
}

int ChangeOwner(const char* path, uid_t user, gid_t group, fuse_file_info* file) {
    const std::string name = file != nullptr ? PathOf(Descriptor(file)) : path;
    return Unless(FaultIn("chown", name), [&] {
        return Result(file != nullptr
                          ? fchown(Descriptor(file), user, group)
                          : fchownat(Root(), Below(path), user, group, AT_SYMLINK_NOFOLLOW));
    });
}

int Truncate(const char* path, off_t size, fuse_file_info* file) {
    const std::string name = file != nullptr ? PathOf(Descriptor(file)) : path;
    return Unless(FaultIn("truncate", name), [&] {
        return Result(file != nullptr ? ftruncate(Descriptor(file), size)
                                      : truncate(AbsolutePath(path).c_str(), size));
    });
}

int SetTimes(const char* path, const timespec* times, fuse_file_info* file) {
    const std::string name = file != nullptr ? PathOf(Descriptor(file)) : path;
    return Unless(FaultIn("utimens", name), [&] {
        return Result(file != nullptr ? futimens(Descriptor(file), times)
                                      : utimensat(Root(), Below(path), times, AT_SYMLINK_NOFOLLOW));
    });
}

int Create(const char* path, mode_t mode, fuse_file_info* file) {
    return Unless(FaultIn("create", path), [&] {
        return KeepOpen(WithOwner(openat(Root(), Below(path), Flags(file->flags), mode), path),
                        file);
    });
}

int Open(const char* path, fuse_file_info* file) {
    return Unless(FaultIn("open", path),
                  [&] { return KeepOpen(openat(Root(), Below(path), Flags(file->flags)), file); });
}

int Read(const char* /*path*/, char* bytes, std::size_t size, off_t offset, fuse_file_info* file) {
    const off_t end = offset + static_cast<off_t>(size);
    return Unless(FaultIn("read", PathOf(Descriptor(file)), end),
                  [&] { return Result(pread(Descriptor(file), bytes, size, offset)); });
}

int Write(const char* /*path*/, const char* bytes, std::size_t size, off_t offset,
          fuse_file_info* file) {
    const off_t end = offset + static_cast<off_t>(size);
    const Outcome fault = FaultIn("write", PathOf(Descriptor(file)), end);
    std::vector<char> other;
    if (fault.effect == Effect::Lose) {
        other.assign(size, '\0');
    } else if (fault.effect == Effect::Flip) {
        other.assign(bytes, bytes + size);
        std::for_each(other.begin(), other.end(),
                      [](char& byte) { byte = static_cast<char>(byte ^ 0x01); });
    }
    return Unless(fault, [&] {
        return Result(pwrite(Descriptor(file), other.empty() ? bytes : other.data(), size, offset));
    });
}

int Flush(const char* /*path*/, fuse_file_info* file) {
    return Unless(FaultIn("flush", PathOf(Descriptor(file))), [] { return 0; });
}

// The kernel ignores the result.
int Release(const char* /*path*/, fuse_file_info* file) {
    const Outcome fault = FaultIn("release", PathOf(Descriptor(file)));
    close(Descriptor(file));
    return Unless(fault, [] { return 0; });
}

int Synchronize(const char* /*path*/, int dataOnly, fuse_file_info* file) {
    return Unless(FaultIn("fsync", PathOf(Descriptor(file))), [&] {
        return Result(dataOnly != 0 ? fdatasync(Descriptor(file)) : fsync(Descriptor(file)));
    });
}

int Allocate(const char* /*path*/, int mode, off_t offset, off_t length, fuse_file_info* file) {
    return Unless(FaultIn("fallocate", PathOf(Descriptor(file))),
                  [&] { return Result(fallocate(Descriptor(file), mode, offset, length)); });
}

int Status(const char* path, struct statvfs* status) {
    const Outcome fault = FaultIn("statfs", path);
    return Unless(fault, [&] {
        const int result = Result(fstatvfs(Root(), status));
        if (fault.effect == Effect::Zero) {
            *status = {};
        }
        return result;
    });
}

int SetAttribute(const char* path, const char* name, const char* value, std::size_t size,
                 int flags) {
    return Unless(FaultIn("setxattr", path), [&] {
        return Result(lsetxattr(AbsolutePath(path).c_str(), name, value, size, flags));
    });
}

int GetAttribute(const char* path, const char* name, char* value, std::size_t size) {
    return Unless(FaultIn("getxattr", path),
                  [&] { return Result(lgetxattr(AbsolutePath(path).c_str(), name, value, size)); });
}

int ListAttributes(const char* path, char* names, std::size_t size) {
    return Unless(FaultIn("listxattr", path),
                  [&] { return Result(llistxattr(AbsolutePath(path).c_str(), names, size)); });
}

int RemoveAttribute(const char* path, const char* name) {
    return Unless(FaultIn("removexattr", path),
                  [&] { return Result(lremovexattr(AbsolutePath(path).c_str(), name)); });
}

off_t Seek(const char* /*path*/, off_t offset, int whence, fuse_file_info* file) {
    const Outcome fault = FaultIn("lseek", PathOf(Descriptor(file)));
    if (fault.effect == Effect::Error) {
        return -fault.error;
    }
    const off_t result = lseek(Descriptor(file), offset, whence);
    return result < 0 ? -errno : result;
}

fuse_operations Operations() {
    fuse_operations operations{};
    operations.init = Initialise;
    operations.getattr = GetAttributes;
    operations.access = Access;
    operations.readlink = ReadLink;
    operations.opendir = OpenDirectory;
    operations.readdir = ReadDirectory;
    operations.releasedir = ReleaseDirectory;
    operations.fsyncdir = SynchronizeDirectory;
    operations.mkdir = MakeDirectory;
    operations.rmdir = RemoveDirectory;
    operations.unlink = Unlink;
    operations.symlink = SymbolicLink;
    operations.rename = Rename;
    operations.link = Link;
    operations.chmod = ChangeMode;
    operations.chown = ChangeOwner;
    operations.truncate = Truncate;
    operations.utimens = SetTimes;
    operations.create = Create;
    operations.open = Open;
    operations.read = Read;
    operations.write = Write;
    operations.flush = Flush;
    operations.release = Release;
    operations.fsync = Synchronize;
    operations.fallocate = Allocate;
    operations.statfs = Status;
    operations.setxattr = SetAttribute;
    operations.getxattr = GetAttribute;
    operations.listxattr = ListAttributes;
    operations.removexattr = RemoveAttribute;
    operations.lseek = Seek;
    return operations;
}

void Require(bool isRight, const std::string& error) {
    if (!isRight) {
        throw std::runtime_error(error);
    }
}

void Apply(Fault& fault, const std::string& name, const std::string& value) {
    if (name == "path") {
        fault.path = value;
    } else if (name == "from") {
        fault.from = std::stoi(value);
    } else if (name == "count") {
        fault.count = std::stoi(value);
    } else if (name == "offset") {
        fault.offset = std::stoll(value);
    } else if (name == "error") {
        fault.effect = Effect::Error;
        fault.error = std::stoi(value);
    } else if (name == "lose") {
        fault.effect = Effect::Lose;
    } else if (name == "flip") {
        fault.effect = Effect::Flip;
    } else if (name == "zero") {
        fault.effect = Effect::Zero;
    } else if (name == "hang") {
        fault.effect = Effect::Hang;
    } else if (name == "wait") {
        fault.effect = Effect::Wait;
    } else {
        throw std::runtime_error("unknown setting of a fault: " + name);
    }
}

void AddFault(std::deque<Fault>& faults, const std::string& text) {
    Fault& fault = faults.emplace_back();
    std::istringstream settings(text);
    std::getline(settings, fault.operation, ',');
    Require(std::find(kOperations.begin(), kOperations.end(), fault.operation) != kOperations.end(),
            "unknown operation: " + fault.operation);
    for (std::string setting; std::getline(settings, setting, ',');) {
        const std::size_t sign = setting.find('=');
        Apply(fault, setting.substr(0, sign),
              sign != std::string::npos ? setting.substr(sign + 1) : "");
    }
    const bool changesBytes = fault.effect == Effect::Lose || fault.effect == Effect::Flip;
    Require(fault.effect != Effect::None && (!changesBytes || fault.operation == "write") &&
                (fault.effect != Effect::Zero || fault.operation == "statfs"),
            "an effect that the operation cannot have: " + text);
}

// Takes the options away.
void ReadOptions(std::deque<std::string>& arguments, Settings& settings) {
    for (; !arguments.empty() && arguments.front().rfind("--", 0) == 0; arguments.pop_front()) {
        const std::string& option = arguments.front();
        bool* const flag = option == "--direct"       ? &settings.direct
                           : option == "--keep-cache" ? &settings.keepsCache
                           : option == "--write-back" ? &settings.writesBack
                                                      : nullptr;
        Require(flag != nullptr, "unknown option: " + option);
        *flag = true;
    }
}

int Run(std::deque<std::string> arguments) {
    Settings& settings = TheSettings();
    ReadOptions(arguments, settings);
    Require(arguments.size() >= 3, "usage: faultyFileSystem [OPTION...] LOG DIRECTORY MOUNT_POINT "
                                   "[FAULT...]");
    // libfuse changes the working directory.
    settings.log = std::filesystem::absolute(arguments[0]);
    settings.root = open(arguments[1].c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Require(settings.root >= 0, arguments[1] + ": " + std::strerror(errno));
    std::for_each(arguments.begin() + 3, arguments.end(),
                  [&](const std::string& text) { AddFault(settings.faults, text); });
    // libfuse sends this signal to the thread whose operation a program no longer waits for.
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) {
    };
    sigaction(SIGUSR1, &action, nullptr);
    // The kernel has applied the mask of the creating process.
    umask(0);
    // The mount disappears with the process, whatever ends it. Each thread may hang.
    std::string options =
        "auto_unmount,default_permissions,max_threads=64,max_idle_threads=10,fsname=faulty";
    if (geteuid() == 0) {
        options += ",allow_other";
    }
    std::vector<std::string> words{"faultyFileSystem", "-f", "-o", options, arguments[2]};
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    const fuse_operations operations = Operations();
    return fuse_main(static_cast<int>(pointers.size()), pointers.data(), &operations, nullptr);
}

} // namespace

int main(int count, char** arguments) {
    try {
        return Run({arguments + 1, arguments + count});
    } catch (const std::exception& error) {
        std::cerr << "faultyFileSystem: " << error.what() << "\n";
        return 2;
    }
}
