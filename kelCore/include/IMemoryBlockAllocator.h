/// Allocators of memory blocks, and the names that they are found by.
#pragma once

#include "Export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kel {

class IMemoryBlock;

/// Makes memory blocks. The framework's own is made with
/// `ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr)`: a new
/// pool each time, which gives released blocks out again. Its blocks are aligned to 64 bytes and
/// not cleared, may be released on another thread than the one that took them and after the
/// allocator itself; what it holds back is bounded.
class KEL_CORE_EXPORT IMemoryBlockAllocator {
public:
    virtual ~IMemoryBlockAllocator();

    /// Makes a block of at least @p bytes bytes, not cleared, shared with the caller. The Recycler
    /// may be called from several threads.
    /// @throws KELRuntimeError when the memory cannot be had
    virtual std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) = 0;
};

/// Makes an allocator known to GetAllocator under @p name, in place of an earlier one of that name.
/// Any thread may call it.
/// @param name what the allocator is found by, compared exactly
/// @param allocator shared with the framework until the process ends
/// @throws KELRuntimeError when @p allocator is empty
KEL_CORE_EXPORT void RegisterAllocator(const std::string& name,
                                       std::shared_ptr<IMemoryBlockAllocator> allocator);

/// Returns the allocator that RegisterAllocator made known under @p name; empty when there is none.
/// Any thread may call it.
KEL_CORE_EXPORT std::shared_ptr<IMemoryBlockAllocator> GetAllocator(const std::string& name);

} // namespace kel
