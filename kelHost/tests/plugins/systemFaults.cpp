// Put in front of the system's library, it makes one call on an unfinished output of the host fail:
// the call that KEL_TEST_FAULTY_CALL names (write, writes, fsync, lseek, rename), at its occurrence
// number KEL_TEST_FAULTY_NUMBER. "writes" fails from that occurrence on, "write" once. A file at
// KEL_TEST_FAULT_MARKER tells that it has happened.

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

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

} // namespace

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED ssize_t write(int descriptor, const void* bytes, size_t count) {
    return Fails("write", descriptor) ? Fail(ENOSPC)
                                      : Next<decltype(write)>("write")(descriptor, bytes, count);
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
