/// Counts and limits of the memory that the program takes through operator new. Any thread.
///
/// A program that links SystemMemory.cpp has operator new and delete replaced, in the libraries
/// that it uses as well.
#pragma once

#include <cstddef>

namespace kel::test {

/// Counts since the start of the program.
struct SystemMemory {
    std::size_t blocksTaken; ///< calls of operator new
    std::size_t liveBlocks;  ///< blocks that were not released yet
    std::size_t liveBytes;   ///< bytes of those
};

/// Returns the current counts.
SystemMemory GetSystemMemory();

/// Number of calls of operator new for at least so many bytes, since the start of the program.
/// One size is counted at a time; a new one starts at 0.
void CountBlocksOfAtLeast(std::size_t bytes);
std::size_t BlocksOfThatSizeTaken();

/// Calls @p action once, within the next call of operator new and on its thread.
void CallAtNextBlock(void (*action)());

/// Refuses requests of at least so many bytes for as long as it lives.
class MemoryLimit {
public:
    explicit MemoryLimit(std::size_t bytes);
    ~MemoryLimit();
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;
};

/// Keeps the first blocks that are released during its life, until its end. One at a time.
class ReleasedBlocks {
public:
    ReleasedBlocks();
    ~ReleasedBlocks();
    ReleasedBlocks(const ReleasedBlocks&) = delete;
    ReleasedBlocks& operator=(const ReleasedBlocks&) = delete;
};

/// Number of the kept blocks that have changed since their release.
std::size_t ChangedReleasedBlocks();

} // namespace kel::test
