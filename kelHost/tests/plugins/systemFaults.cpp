// Put in front of the system's library, it makes one call on an unfinished output of the host fail:
// the call that KEL_TEST_FAULTY_CALL names (write, writes, fsync, lseek, rename), at its occurrence
// number KEL_TEST_FAULTY_NUMBER. "writes" fails from that occurrence on, "write" once; "flip" is a
// write that succeeds with its last bytes changed, as on a bad disk; "thread" is one that can not
// be started, with or without an output. A file at KEL_TEST_FAULT_MARKER tells that it has
// happened.
//
// Where KEL_TEST_DISK_ROOM is set, every disk has so many bytes left. Where KEL_TEST_SPARSE is set,
// zeros become holes, so that large outputs of silence take no room.

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
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

bool IsUnfinished(const char* path) {
    return strstr(path, ".kelhost-") != nullptr;
}

constexpr size_t kFlipped = 16; // at least one value of every width

struct AnyFile {};

bool IsUnfinished(AnyFile /*file*/) {
    return true;
}

bool IsUnfinished(int descriptor) {
    char link[64];
    char path[4096] = {};
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    return readlink(link, path, sizeof path - 1) > 0 && IsUnfinished(path);
}

// Tells whether this occurrence of a call is to fail.
template <typename File>
bool Fails(const char* call, File file) {
    static int occurrence = 0;
    const char* faulty = Variable("KEL_TEST_FAULTY_CALL");
    const bool lasting = strcmp(faulty, "writes") == 0 && strcmp(call, "write") == 0;
    if ((!lasting && strcmp(faulty, call) != 0) || !IsUnfinished(file)) {
        return false;
    }
    ++occurrence;
    const int number = atoi(Variable("KEL_TEST_FAULTY_NUMBER"));
    if (occurrence != number && !(lasting && occurrence > number)) {
        return false;
    }
    close(open(Variable("KEL_TEST_FAULT_MARKER"), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    return true;
}

int Fail(int error) {
    errno = error;
    return -1;
}

// True for many bytes that are all 0.
bool IsSilence(const void* bytes, size_t count) {
    constexpr size_t kMany = 4096;
    const auto* first = static_cast<const char*>(bytes);
    return count >= kMany && *first == 0 && memcmp(first, first + 1, count - 1) == 0;
}

ssize_t WriteHole(int descriptor, size_t count) {
    const off_t end = lseek(descriptor, static_cast<off_t>(count), SEEK_CUR);
    return end >= 0 && ftruncate(descriptor, end) == 0 ? static_cast<ssize_t>(count) : -1;
}

} // namespace

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED ssize_t write(int descriptor, const void* bytes, size_t count) {
    if (count > 0 && Fails("flip", descriptor)) {
        const auto* first = static_cast<const char*>(bytes);
        std::vector<char> flipped(first, first + count);
        for (size_t i = count > kFlipped ? count - kFlipped : 0; i < count; ++i) {
            flipped[i] = static_cast<char>(flipped[i] ^ 0x01);
        }
        return Next<decltype(write)>("write")(descriptor, flipped.data(), count);
    }
    if (Fails("write", descriptor)) {
        return Fail(ENOSPC);
    }
    return *Variable("KEL_TEST_SPARSE") != '\0' && IsSilence(bytes, count) &&
                   IsUnfinished(descriptor)
               ? WriteHole(descriptor, count)
               : Next<decltype(write)>("write")(descriptor, bytes, count);
}

INTERPOSED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) noexcept {
    return Fails("thread", AnyFile()) ? EAGAIN
                                      : Next<decltype(pthread_create)>("pthread_create")(
                                            thread, attributes, start, argument);
}

INTERPOSED int statvfs(const char* path, struct statvfs* status) noexcept {
    const int result = Next<decltype(statvfs)>("statvfs")(path, status);
    const char* room = Variable("KEL_TEST_DISK_ROOM");
    if (*room != '\0') {
        status->f_frsize = 1;
        status->f_bavail = strtoull(room, nullptr, 10);
    }
    return result;
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

INTERPOSED int rename(const char* from, const char* to) noexcept {
    return Fails("rename", from) ? Fail(EROFS) : Next<decltype(rename)>("rename")(from, to);
}

INTERPOSED int renameat2(int folder, const char* from, int otherFolder, const char* to,
                         unsigned flags) noexcept {
    // "renameat2" is a file system that can not do without replacing.
    if (Fails("renameat2", from)) {
        return Fail(EINVAL);
    }
    return Fails("rename", from)
               ? Fail(EROFS)
               : Next<decltype(renameat2)>("renameat2")(folder, from, otherFolder, to, flags);
}
