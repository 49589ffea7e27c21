/// The allocator "Recycler", and blocks of memory without it.
/// Any thread may call these functions.
#pragma once

#include <cstdint>
#include <memory>

namespace kel {

class IMemoryBlock;
class IMemoryBlockAllocator;

/// Makes a Recycler with a pool of its own.
std::shared_ptr<IMemoryBlockAllocator> CreateRecycler();

/// Makes a block of so many bytes that belongs to no pool: its memory returns to the heap.
/// @throws KELRuntimeError when the system has no memory for it
std::shared_ptr<IMemoryBlock> AllocateHeapBlock(std::uint32_t bytes);

} // namespace kel
