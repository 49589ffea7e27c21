/// What the program takes from the system through operator new, counted and limited.
///
/// A program that links SystemMemory.cpp has operator new and delete replaced in all their forms,
/// in the libraries that it uses as well.
#pragma once

#include <cstddef>

namespace kel::test {

/// Counts since the start of the program.
struct SystemMemory {
    std::size_t blocksTaken; ///< calls of operator new
    std::size_t liveBlocks;  ///< blocks that were not given back yet
    std::size_t liveBytes;   ///< bytes of those
};

/// The present counts.
SystemMemory GetSystemMemory();

/// Number of calls of operator new for at least so many bytes, since the start of the program.
/// Counted for one size at a time; giving a size starts anew.
void CountBlocksOfAtLeast(std::size_t bytes);
std::size_t BlocksOfThatSizeTaken();

/// Refuses requests of at least so many bytes for as long as it lives.
class MemoryLimit {
public:
    explicit MemoryLimit(std::size_t bytes);
    ~MemoryLimit();
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;
};

} // namespace kel::test
