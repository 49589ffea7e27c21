#include "HeapCounts.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> g_small{0};
std::atomic<std::size_t> g_aligned{0};

void* Checked(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* Take(std::size_t bytes) noexcept {
    ++g_small;
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* TakeAligned(std::size_t bytes, std::align_val_t alignment) noexcept {
    ++g_aligned;
    const auto unit = static_cast<std::size_t>(alignment);
    return std::aligned_alloc(unit, (bytes + unit - 1) / unit * unit);
}

} // namespace

void* operator new(std::size_t bytes) {
    return Checked(Take(bytes));
}
void* operator new[](std::size_t bytes) {
    return Checked(Take(bytes));
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return Take(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return Take(bytes);
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return Checked(TakeAligned(bytes, alignment));
}
void* operator new[](std::size_t bytes, std::align_val_t alignment) {
    return Checked(TakeAligned(bytes, alignment));
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return TakeAligned(bytes, alignment);
}
void* operator new[](std::size_t bytes, std::align_val_t alignment,
                     const std::nothrow_t&) noexcept {
    return TakeAligned(bytes, alignment);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace kel::test {

bool operator==(const HeapCounts& left, const HeapCounts& right) {
    return left.small == right.small && left.aligned == right.aligned;
}

std::ostream& operator<<(std::ostream& stream, const HeapCounts& counts) {
    return stream << counts.small << " small, " << counts.aligned << " aligned";
}

HeapCounts HeapCountsSoFar() {
    return {g_small, g_aligned};
}

} // namespace kel::test
