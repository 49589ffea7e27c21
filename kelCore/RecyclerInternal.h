/// Blocks of memory that are given out again, and the allocator "Recycler" that makes them.
#pragma once

#include <cstdint>
#include <memory>

namespace kel {

class IMemoryBlock;
class IMemoryBlockAllocator;

/// Makes a Recycler with a pool of its own.
std::shared_ptr<IMemoryBlockAllocator> CreateRecycler();

/// Makes a block that belongs to no pool: its memory goes back to the heap.
/// @throws KELRuntimeError when the memory cannot be had
std::shared_ptr<IMemoryBlock> AllocateHeapBlock(std::uint32_t bytes);

} // namespace kel
