#include "AllocationFaults.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>

// The functions of the C library, under the names that it reserves for replacements like these.
extern "C" {
void* __libc_malloc(size_t bytes);                     // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t bytes);       // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, size_t bytes);       // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(size_t alignment, size_t bytes); // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* block);                         // NOLINT(bugprone-reserved-identifier)
}

namespace {

// A block that was taken and not released.
struct Taken {
    void* block;
    void* caller;
    std::size_t bytes;
    unsigned long number; // counts all allocations
};

// A hash table with open addressing.
constexpr std::size_t kPlaces = std::size_t{1} << 16;
Taken g_taken[kPlaces];
unsigned long g_allocations = 0;
unsigned long g_strays = 0; // released blocks that were not taken

// The allocation to refuse.
unsigned g_number = 0; // none
bool g_lasts = false;
unsigned g_occurrences = 0;
unsigned g_refused = 0;
void* g_refusedCaller = nullptr;

// The number of allocations of each place in the code since the last reset. Further places count as
// the last one; a run has far fewer.
struct Caller {
    void* place;
    unsigned count;
};
std::array<Caller, 4096> g_callers;
unsigned g_refusedNumber = 0;

std::atomic_flag g_busy = ATOMIC_FLAG_INIT;

class Lock {
public:
    Lock() {
        while (g_busy.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~Lock() { g_busy.clear(std::memory_order_release); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

std::size_t HomeOf(const void* block) {
    return (reinterpret_cast<std::uintptr_t>(block) >> 4U) * 0x9E3779B97F4A7C15U >> 48U;
}

std::size_t After(std::size_t place) {
    return (place + 1) % kPlaces;
}

// Returns the place of a block, or the empty place for it.
std::size_t Find(const void* block) {
    std::size_t place = HomeOf(block);
    while (g_taken[place].block != nullptr && g_taken[place].block != block) {
        place = After(place);
    }
    return place;
}

void Note(void* block, std::size_t bytes, void* caller) {
    if (block == nullptr) {
        return;
    }
    const Lock lock;
    g_taken[Find(block)] = {block, caller, bytes, ++g_allocations};
}

// Removes a block from the table; returns false if it is missing.
bool Forget(const void* block) {
    const Lock lock;
    std::size_t hole = Find(block);
    if (g_taken[hole].block == nullptr) {
        ++g_strays;
        return false;
    }
    // The next entries move up, except those whose home is after the hole.
    for (std::size_t place = After(hole); g_taken[place].block != nullptr; place = After(place)) {
        const std::size_t home = HomeOf(g_taken[place].block);
        const bool isAfterHole =
            hole <= place ? hole < home && home <= place : hole < home || home <= place;
        if (!isAfterHole) {
            g_taken[hole] = g_taken[place];
            hole = place;
        }
    }
    g_taken[hole].block = nullptr;
    return true;
}

const char* LibraryOf(const void* caller) {
    Dl_info info{};
    if (caller == nullptr || dladdr(caller, &info) == 0 || info.dli_fname == nullptr) {
        return "";
    }
    const char* slash = std::strrchr(info.dli_fname, '/');
    return slash != nullptr ? slash + 1 : info.dli_fname;
}

// Returns the number of this occurrence among those of the library of the caller.
unsigned NumberInLibrary(const void* caller) {
    const char* library = LibraryOf(caller);
    unsigned number = 0;
    for (const Caller& other : g_callers) {
        if (other.place == nullptr) {
            break;
        }
        if (std::strcmp(LibraryOf(other.place), library) == 0) {
            number += other.count;
        }
    }
    return number;
}

void CountCaller(void* caller) {
    for (Caller& other : g_callers) {
        if (other.place == nullptr || other.place == caller || &other == &g_callers.back()) {
            other.place = caller;
            ++other.count;
            return;
        }
    }
}

bool Refuses(void* caller) {
    if (g_number == 0) {
        return false;
    }
    const Lock lock;
    ++g_occurrences;
    CountCaller(caller);
    if (g_occurrences != g_number && !(g_lasts && g_occurrences > g_number)) {
        return false;
    }
    if (++g_refused == 1) {
        g_refusedCaller = caller;
        g_refusedNumber = NumberInLibrary(caller);
    }
    errno = ENOMEM;
    return true;
}

void* Take(std::size_t alignment, std::size_t bytes, void* caller) {
    if (Refuses(caller)) {
        return nullptr;
    }
    void* block = alignment != 0 ? __libc_memalign(alignment, bytes) : __libc_malloc(bytes);
    Note(block, bytes, caller);
    return block;
}

} // namespace

#define REPLACEMENT extern "C" __attribute__((visibility("default")))

REPLACEMENT void* malloc(size_t bytes) noexcept {
    return Take(0, bytes, __builtin_return_address(0));
}

REPLACEMENT void* calloc(size_t count, size_t bytes) noexcept {
    void* const caller = __builtin_return_address(0);
    if (Refuses(caller)) {
        return nullptr;
    }
    void* block = __libc_calloc(count, bytes);
    Note(block, count * bytes, caller);
    return block;
}

REPLACEMENT void* realloc(void* block, size_t bytes) noexcept {
    void* const caller = __builtin_return_address(0);
    if (block == nullptr) {
        return Take(0, bytes, caller);
    }
    if (bytes == 0) {
        free(block);
        return nullptr;
    }
    if (Refuses(caller) || !Forget(block)) {
        return nullptr;
    }
    void* moved = __libc_realloc(block, bytes);
    Note(moved, bytes, caller);
    return moved;
}

REPLACEMENT void* memalign(size_t alignment, size_t bytes) noexcept {
    return Take(alignment, bytes, __builtin_return_address(0));
}

REPLACEMENT void* aligned_alloc(size_t alignment, size_t bytes) noexcept {
    return Take(alignment, bytes, __builtin_return_address(0));
}

REPLACEMENT int posix_memalign(void** block, size_t alignment, size_t bytes) noexcept {
    void* taken = Take(alignment, bytes, __builtin_return_address(0));
    if (taken == nullptr) {
        return ENOMEM;
    }
    *block = taken;
    return 0;
}

// A block that was never taken is not released, so that the program can report it.
REPLACEMENT void free(void* block) noexcept {
    if (block != nullptr && Forget(block)) {
        __libc_free(block);
    }
}

namespace kel::test {

void RefuseAllocation(unsigned number, bool lasts) {
    g_occurrences = 0;
    g_refused = 0;
    g_refusedCaller = nullptr;
    g_refusedNumber = 0;
    g_strays = 0;
    CountAllocationsOfLibrariesAnew();
    g_lasts = lasts;
    g_number = number;
}

void RefuseNoAllocation() {
    g_number = 0;
}

unsigned RefusedAllocations() {
    return g_refused;
}

void CountAllocationsOfLibrariesAnew() {
    g_callers.fill({nullptr, 0});
}

PlaceOfRefusal FirstRefusal() {
    PlaceOfRefusal place{};
    std::snprintf(place.library, sizeof place.library, "%s", LibraryOf(g_refusedCaller));
    place.number = g_refusedNumber;
    return place;
}

unsigned long AllocationsSoFar() {
    return g_allocations;
}

std::string LeftSince(unsigned long allocations) {
    // Collected before they are reported, because the report takes memory.
    static std::array<Taken, 256> left;
    std::size_t count = 0;
    for (const Taken& taken : g_taken) {
        if (taken.block != nullptr && taken.number > allocations && count < left.size()) {
            left[count++] = taken;
        }
    }
    const unsigned long strays = g_strays;
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text +=
            std::to_string(left[i].bytes) + " bytes left by " + LibraryOf(left[i].caller) + "\n";
    }
    if (strays > 0) {
        text += std::to_string(strays) + " blocks given back that were not taken\n";
    }
    return text;
}

} // namespace kel::test
