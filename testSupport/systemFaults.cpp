// A library for LD_PRELOAD that makes calls of the system fail. A program may also link it and set
// the variables itself.
//
// - KEL_TEST_FAULTY_CALL: name of the call. "flip" is a write that succeeds with its last bytes
//   changed, as on a bad disk; "thread" is a thread that cannot be started.
// - KEL_TEST_FAULTY_FILE: text in the paths of the files on which the call fails; "unfinished" is
// an
//   output that has not yet got its name
// - KEL_TEST_FAULTY_NUMBER: number of the occurrence that fails
// - KEL_TEST_FAULT_LASTS: if set, all later occurrences fail too
// - KEL_TEST_FAULT_ERROR: error number, instead of the usual one of the call
// - KEL_TEST_FAULT_HANGS: if set, the call does not fail, but never returns
// - KEL_TEST_FAULT_IN_PARENT: if set, calls fail only in the program that was started, not in the
//   processes that it forks
// - KEL_TEST_FAULT_SHORT: if set, reads and writes do not fail, but transfer half of the bytes
// - KEL_TEST_FAULT_MARKER: path of a file that is made when the call fails
// - KEL_TEST_STRAY_CLOSE_MARKER: path of a file that is made when an unknown descriptor is
//   closed
// - KEL_TEST_NAMED_FILES: if set, every file needs a name from the start, as on some file systems
// - KEL_TEST_DISK_ROOM: free bytes of every disk; "unknown" has zeros reported for everything,
//   as by file systems in memory
// - KEL_TEST_SPARSE: if set, zeros in an unfinished output become holes, so that large outputs of
//   silence take no space
// - KEL_TEST_RAISED_RIGHTS: if set, secure_getenv returns nothing and getauxval reports it, as in a
//   process with more rights than the user who started it

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace {

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

const char* Variable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? value : "";
}

// True for an output that has not yet got its name, by its path as /proc shows it.
bool IsUnfinished(const char* path) {
    constexpr const char* kEnd = " (deleted)";
    const size_t length = strlen(path);
    return strstr(path, ".kelhost-") != nullptr ||
           (*path == '/' && strncmp(path, "/memfd:", 7) != 0 && length > strlen(kEnd) &&
            strcmp(path + length - strlen(kEnd), kEnd) == 0);
}

bool Matches(const char* path, const char* text) {
    return strcmp(text, "unfinished") == 0 ? IsUnfinished(path) : strstr(path, text) != nullptr;
}

// A descriptor's path in /proc is that of its file.
bool IsFaulty(const char* path) {
    char file[4096] = {};
    if (strncmp(path, "/proc/self/fd/", 14) == 0 && readlink(path, file, sizeof file - 1) > 0) {
        path = file;
    }
    return Matches(path, Variable("KEL_TEST_FAULTY_FILE"));
}

constexpr size_t kFlippedBytes = 16; // at least one value of every width

struct AnyFile {};

bool IsFaulty(AnyFile /*file*/) {
    return true;
}

// Returns true if a text occurs in the path of an open file.
bool PathHas(int descriptor, const char* text) {
    char link[64];
    char path[4096] = {};
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    return readlink(link, path, sizeof path - 1) > 0 && Matches(path, text);
}

bool IsFaulty(int descriptor) {
    return PathHas(descriptor, Variable("KEL_TEST_FAULTY_FILE"));
}

// A name in a directory.
struct Place {
    int directory;
    const char* name;
};

bool IsFaulty(const Place& place) {
    return IsFaulty(place.name) || (place.directory != AT_FDCWD && IsFaulty(place.directory));
}

// Makes the empty file that a variable names.
void Leave(const char* variable) {
    const int error = errno;
    const int descriptor =
        Next<decltype(open)>("open")(Variable(variable), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    if (descriptor >= 0) {
        Next<decltype(close)>("close")(descriptor);
    }
    errno = error;
}

const pid_t kParent = getpid();

// Returns true if this occurrence of a call must fail.
template <typename File>
bool Fails(const char* call, File file) {
    static std::atomic<int> occurrences{0};
    if (strcmp(Variable("KEL_TEST_FAULTY_CALL"), call) != 0 || !IsFaulty(file)) {
        return false;
    }
    if (*Variable("KEL_TEST_FAULT_IN_PARENT") != '\0' && getpid() != kParent) {
        return false;
    }
    const int occurrence = ++occurrences;
    const int number = atoi(Variable("KEL_TEST_FAULTY_NUMBER"));
    const bool lasts = *Variable("KEL_TEST_FAULT_LASTS") != '\0';
    if (occurrence != number && !(lasts && occurrence > number)) {
        return false;
    }
    Leave("KEL_TEST_FAULT_MARKER");
    while (*Variable("KEL_TEST_FAULT_HANGS") != '\0') {
        pause();
    }
    return true;
}

// Sets the error number: KEL_TEST_FAULT_ERROR, or else the given one.
int Fail(int error) {
    const int other = atoi(Variable("KEL_TEST_FAULT_ERROR"));
    errno = other != 0 ? other : error;
    return -1;
}

bool IsShort() {
    return *Variable("KEL_TEST_FAULT_SHORT") != '\0';
}

// Returns half of a count, but at least 1.
size_t Half(size_t count) {
    return count - count / 2;
}

// Returns true for a large number of bytes that are all 0.
bool IsSilence(const void* bytes, size_t count) {
    constexpr size_t kMany = 4096;
    const auto* first = static_cast<const char*>(bytes);
    return count >= kMany && *first == 0 && memcmp(first, first + 1, count - 1) == 0;
}

ssize_t WriteHole(int descriptor, size_t count) {
    const off_t end = lseek(descriptor, static_cast<off_t>(count), SEEK_CUR);
    return end >= 0 && ftruncate(descriptor, end) == 0 ? static_cast<ssize_t>(count) : -1;
}

// The bytes, the last ones changed.
std::vector<char> Flip(const void* bytes, size_t count) {
    const auto* first = static_cast<const char*>(bytes);
    std::vector<char> flipped(first, first + count);
    for (size_t i = count > kFlippedBytes ? count - kFlippedBytes : 0; i < count; ++i) {
        flipped[i] = static_cast<char>(flipped[i] ^ 0x01);
    }
    return flipped;
}

} // namespace

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED ssize_t write(int descriptor, const void* bytes, size_t count) {
    if (count > 0 && Fails("flip", descriptor)) {
        return Next<decltype(write)>("write")(descriptor, Flip(bytes, count).data(), count);
    }
    if (Fails("write", descriptor)) {
        if (!IsShort()) {
            return Fail(ENOSPC);
        }
        count = Half(count);
    }
    return *Variable("KEL_TEST_SPARSE") != '\0' && IsSilence(bytes, count) &&
                   PathHas(descriptor, "unfinished")
               ? WriteHole(descriptor, count)
               : Next<decltype(write)>("write")(descriptor, bytes, count);
}

INTERPOSED ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t offset) {
    if (count > 0 && Fails("flip", descriptor)) {
        return Next<decltype(pwrite)>("pwrite")(descriptor, Flip(bytes, count).data(), count,
                                                offset);
    }
    return Fails("write", descriptor)
               ? Fail(ENOSPC)
               : Next<decltype(pwrite)>("pwrite")(descriptor, bytes, count, offset);
}

INTERPOSED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) noexcept {
    return Fails("thread", AnyFile()) ? EAGAIN
                                      : Next<decltype(pthread_create)>("pthread_create")(
                                            thread, attributes, start, argument);
}

INTERPOSED pid_t fork() noexcept {
    return Fails("fork", AnyFile()) ? Fail(EAGAIN) : Next<decltype(fork)>("fork")();
}

INTERPOSED int stat(const char* path, struct stat* status) noexcept {
    return Fails("stat", path) ? Fail(EIO) : Next<decltype(stat)>("stat")(path, status);
}

INTERPOSED dirent* readdir(DIR* directory) {
    if (Fails("readdir", dirfd(directory))) {
        errno = EIO;
        return nullptr;
    }
    return Next<decltype(readdir)>("readdir")(directory);
}

INTERPOSED int fstatvfs(int descriptor, struct statvfs* status) noexcept {
    const int result = Next<decltype(fstatvfs)>("fstatvfs")(descriptor, status);
    const char* room = Variable("KEL_TEST_DISK_ROOM");
    if (strcmp(room, "unknown") == 0) {
        *status = {};
    } else if (*room != '\0') {
        status->f_frsize = 1;
        status->f_bavail = strtoull(room, nullptr, 10);
    }
    return result;
}

INTERPOSED char* secure_getenv(const char* name) noexcept {
    return *Variable("KEL_TEST_RAISED_RIGHTS") != '\0'
               ? nullptr
               : Next<decltype(secure_getenv)>("secure_getenv")(name);
}

INTERPOSED unsigned long getauxval(unsigned long type) noexcept {
    return type == AT_SECURE && *Variable("KEL_TEST_RAISED_RIGHTS") != '\0'
               ? 1
               : Next<decltype(getauxval)>("getauxval")(type);
}

INTERPOSED ssize_t read(int descriptor, void* bytes, size_t count) {
    if (Fails("read", descriptor)) {
        if (!IsShort()) {
            return Fail(EIO);
        }
        count = Half(count);
    }
    return Next<decltype(read)>("read")(descriptor, bytes, count);
}

INTERPOSED ssize_t pread(int descriptor, void* bytes, size_t count, off_t offset) {
    return Fails("read", descriptor)
               ? Fail(EIO)
               : Next<decltype(pread)>("pread")(descriptor, bytes, count, offset);
}

INTERPOSED int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return Fails("open", path) ? Fail(EIO) : Next<decltype(open)>("open")(path, flags, mode);
}

// The descriptor is closed even if the call fails, as in the kernel.
INTERPOSED int close(int descriptor) {
    const bool fails = Fails("close", descriptor);
    const int closed = Next<decltype(close)>("close")(descriptor);
    if (closed != 0 && errno == EBADF) {
        Leave("KEL_TEST_STRAY_CLOSE_MARKER");
    }
    return fails ? Fail(EIO) : closed;
}

INTERPOSED int fstat(int descriptor, struct stat* status) noexcept {
    return Fails("fstat", descriptor) ? Fail(EIO)
                                      : Next<decltype(fstat)>("fstat")(descriptor, status);
}

INTERPOSED int ftruncate(int descriptor, off_t size) noexcept {
    return Fails("ftruncate", descriptor)
               ? Fail(EIO)
               : Next<decltype(ftruncate)>("ftruncate")(descriptor, size);
}

// A file without a name is an output from its creation on.
INTERPOSED int openat(int directory, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;
    if (isUnnamed && *Variable("KEL_TEST_NAMED_FILES") != '\0') {
        return Fail(EOPNOTSUPP);
    }
    const bool fails =
        isUnnamed ? Fails("openat", AnyFile()) : Fails("openat", Place{directory, path});
    return fails ? Fail(EIO) : Next<decltype(openat)>("openat")(directory, path, flags, mode);
}

INTERPOSED int mkdirat(int directory, const char* path, mode_t mode) noexcept {
    return Fails("mkdirat", path) ? Fail(EROFS)
                                  : Next<decltype(mkdirat)>("mkdirat")(directory, path, mode);
}

INTERPOSED int fchmod(int descriptor, mode_t mode) noexcept {
    return Fails("fchmod", descriptor) ? Fail(EPERM)
                                       : Next<decltype(fchmod)>("fchmod")(descriptor, mode);
}

INTERPOSED int fsync(int descriptor) {
    return Fails("fsync", descriptor) ? Fail(EIO) : Next<decltype(fsync)>("fsync")(descriptor);
}

INTERPOSED off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    return Fails("lseek", descriptor) ? Fail(EIO)
                                      : Next<decltype(lseek)>("lseek")(descriptor, offset, whence);
}

INTERPOSED off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept {
    return Fails("lseek", descriptor)
               ? Fail(EIO)
               : Next<decltype(lseek64)>("lseek64")(descriptor, offset, whence);
}

INTERPOSED int linkat(int directory, const char* from, int otherDirectory, const char* to,
                      int flags) noexcept {
    return Fails("linkat", Place{directory, from})
               ? Fail(EROFS)
               : Next<decltype(linkat)>("linkat")(directory, from, otherDirectory, to, flags);
}

INTERPOSED int renameat(int directory, const char* from, int otherDirectory,
                        const char* to) noexcept {
    return Fails("renameat", Place{directory, from})
               ? Fail(EROFS)
               : Next<decltype(renameat)>("renameat")(directory, from, otherDirectory, to);
}

// The file system can only replace.
INTERPOSED int renameat2(int directory, const char* from, int otherDirectory, const char* to,
                         unsigned flags) noexcept {
    return Fails("renameat2", Place{directory, from})
               ? Fail(EINVAL)
               : Next<decltype(renameat2)>("renameat2")(directory, from, otherDirectory, to, flags);
}
