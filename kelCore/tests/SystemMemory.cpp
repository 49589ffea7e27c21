#include "SystemMemory.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <mutex>
#include <new>

namespace {

std::atomic<std::size_t> g_blocksTaken{0};
std::atomic<std::size_t> g_liveBlocks{0};
std::atomic<std::size_t> g_liveBytes{0};
std::atomic<std::size_t> g_limit{SIZE_MAX};
std::atomic<std::size_t> g_countedSize{SIZE_MAX};
std::atomic<std::size_t> g_countedBlocks{0};
std::atomic<void (*)()> g_action{nullptr};

struct KeptBlock {
    void* memory;
    void* contents; // a copy of the block at its release
};

std::mutex g_keepingMutex;
bool g_keeps = false;
std::array<KeptBlock, 16> g_kept{};
std::size_t g_keptCount = 0;

constexpr std::size_t kOrdinary = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

void* Take(std::size_t bytes, std::size_t alignment) noexcept {
    if (void (*action)() = g_action.exchange(nullptr)) {
        action();
    }
    if (bytes >= g_limit) {
        return nullptr;
    }
    const std::size_t whole = (bytes + alignment - 1) / alignment * alignment;
    void* memory = alignment <= kOrdinary ? std::malloc(bytes == 0 ? 1 : bytes)
                                          : std::aligned_alloc(alignment, whole);
    if (memory != nullptr) {
        ++g_blocksTaken;
        ++g_liveBlocks;
        g_liveBytes += malloc_usable_size(memory);
        if (bytes >= g_countedSize) {
            ++g_countedBlocks;
        }
    }
    return memory;
}

void* TakeOrThrow(std::size_t bytes, std::size_t alignment) {
    void* memory = Take(bytes, alignment);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

// Returns false if the block is to be released.
bool Keep(void* memory) noexcept {
    const std::lock_guard<std::mutex> lock(g_keepingMutex);
    if (!g_keeps || g_keptCount == g_kept.size()) {
        return false;
    }
    void* contents = std::malloc(malloc_usable_size(memory));
    if (contents == nullptr) {
        return false;
    }
    std::memcpy(contents, memory, malloc_usable_size(memory));
    g_kept[g_keptCount++] = {memory, contents};
    return true;
}

void Release(void* memory) noexcept {
    if (memory != nullptr) {
        --g_liveBlocks;
        g_liveBytes -= malloc_usable_size(memory);
        if (!Keep(memory)) {
            std::free(memory);
        }
    }
}

std::size_t Number(std::align_val_t alignment) {
    return static_cast<std::size_t>(alignment);
}

} // namespace

// The forms for arrays of the standard library call these.
void* operator new(std::size_t bytes) {
    return TakeOrThrow(bytes, kOrdinary);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return Take(bytes, kOrdinary);
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return TakeOrThrow(bytes, Number(alignment));
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Take(bytes, Number(alignment));
}

void operator delete(void* memory) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    Release(memory);
}

namespace kel::test {

SystemMemory GetSystemMemory() {
    return {g_blocksTaken, g_liveBlocks, g_liveBytes};
}

void CountBlocksOfAtLeast(std::size_t bytes) {
    g_countedSize = bytes;
    g_countedBlocks = 0;
}

std::size_t BlocksOfThatSizeTaken() {
    return g_countedBlocks;
}

void CallAtNextBlock(void (*action)()) {
    g_action = action;
}

MemoryLimit::MemoryLimit(std::size_t bytes) {
    g_limit = bytes;
}
MemoryLimit::~MemoryLimit() {
    g_limit = SIZE_MAX;
}

ReleasedBlocks::ReleasedBlocks() {
    const std::lock_guard<std::mutex> lock(g_keepingMutex);
    g_keeps = true;
}

ReleasedBlocks::~ReleasedBlocks() {
    const std::lock_guard<std::mutex> lock(g_keepingMutex);
    g_keeps = false;
    while (g_keptCount > 0) {
        const KeptBlock& block = g_kept[--g_keptCount];
        std::free(block.memory);
        std::free(block.contents);
    }
}

std::size_t ChangedReleasedBlocks() {
    const std::lock_guard<std::mutex> lock(g_keepingMutex);
    std::size_t changed = 0;
    for (std::size_t i = 0; i < g_keptCount; ++i) {
        const KeptBlock& block = g_kept[i];
        if (std::memcmp(block.memory, block.contents, malloc_usable_size(block.memory)) != 0) {
            ++changed;
        }
    }
    return changed;
}

} // namespace kel::test
