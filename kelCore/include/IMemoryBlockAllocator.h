/// Allocators of memory blocks, and their registration by name.
/// Any thread may call these functions and every allocator.
/// @ingroup memory
#pragma once

#include "Export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kel {

class IMemoryBlock;

/// Makes memory blocks. The framework's own is made with
/// `ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr)`: a new
/// pool each time, which reuses released blocks. Its blocks are aligned to 64 bytes and not
/// cleared; they may be released on any thread and after the allocator itself. The memory that it
/// retains is bounded.
class KEL_CORE_EXPORT IMemoryBlockAllocator {
public:
    virtual ~IMemoryBlockAllocator();

    /// Makes a block of at least @p bytes bytes, not cleared, shared with the caller.
    /// [any, any thread]
    /// @throws KELRuntimeError when the system has no memory for it
    virtual std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) = 0;
};

/// Registers an allocator for GetAllocator, in place of an earlier one of the same name.
/// @param name compared exactly by GetAllocator
/// @param allocator shared with the framework until the process ends
/// @throws KELRuntimeError when @p allocator is empty
KEL_CORE_EXPORT void RegisterAllocator(const std::string& name,
                                       std::shared_ptr<IMemoryBlockAllocator> allocator);

/// Returns the allocator that was registered last under @p name; empty without one.
KEL_CORE_EXPORT std::shared_ptr<IMemoryBlockAllocator> GetAllocator(const std::string& name);

} // namespace kel
