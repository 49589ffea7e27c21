// Put in front of the system's library, this refuses memory: the allocation of the number that
// KEL_TEST_REFUSED_NUMBER names, counted from the beginning of main, or that and all after it if
// KEL_TEST_REFUSAL_LASTS is set. A process that is forked counts on by itself. A file at
// KEL_TEST_REFUSAL_MARKER reports the refusal. Nothing here allocates memory.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

// The C library's own, under the names that it keeps for replacements like these.
extern "C" {
void* __libc_malloc(size_t bytes);                     // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t bytes);       // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, size_t bytes);       // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(size_t alignment, size_t bytes); // NOLINT(bugprone-reserved-identifier)
}

namespace {

using Main = int (*)(int, char**, char**);

Main g_main = nullptr;
long g_number = 0; // none
bool g_lasts = false;
std::atomic<long> g_allocations{0};

bool IsRefused() {
    if (g_number == 0) {
        return false;
    }
    const long allocation = ++g_allocations;
    if (allocation != g_number && !(g_lasts && allocation > g_number)) {
        return false;
    }
    const char* marker = getenv("KEL_TEST_REFUSAL_MARKER");
    const int descriptor = marker != nullptr ? open(marker, O_CREAT | O_CLOEXEC, 0600) : -1;
    if (descriptor >= 0) {
        close(descriptor);
    }
    errno = ENOMEM;
    return true;
}

// Allocations before main belong to the libraries.
int CountingMain(int argc, char** argv, char** environment) {
    const char* number = getenv("KEL_TEST_REFUSED_NUMBER");
    g_lasts = getenv("KEL_TEST_REFUSAL_LASTS") != nullptr;
    g_number = number != nullptr ? atol(number) : 0;
    return g_main(argc, argv, environment);
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) void* malloc(size_t bytes) {
    return IsRefused() ? nullptr : __libc_malloc(bytes);
}

__attribute__((visibility("default"))) void* calloc(size_t count, size_t bytes) {
    return IsRefused() ? nullptr : __libc_calloc(count, bytes);
}

__attribute__((visibility("default"))) void* realloc(void* block, size_t bytes) {
    return IsRefused() ? nullptr : __libc_realloc(block, bytes);
}

__attribute__((visibility("default"))) void* aligned_alloc(size_t alignment, size_t bytes) {
    return IsRefused() ? nullptr : __libc_memalign(alignment, bytes);
}

// The start of a program in the C library.
__attribute__((visibility("default"))) int
__libc_start_main(Main main, int argc, char** argv, // NOLINT(bugprone-reserved-identifier)
                  void (*init)(), void (*fini)(), void (*loaderFini)(), void* stackEnd) {
    using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
    const auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    g_main = main;
    return start(CountingMain, argc, argv, init, fini, loaderFini, stackEnd);
}

} // extern "C"
