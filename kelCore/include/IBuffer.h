/// A buffer of bytes.
/// One thread fills it; once it is part of a sample, any number of threads may read it.
/// @ingroup memory
#pragma once

#include "Export.h"

#include <cstdint>
#include <memory>

namespace kel {

class IMemoryBlock;
class IMemoryBlockAllocator;

/// A run of valid bytes at the start of a reserved block of memory.
class KEL_CORE_EXPORT IBuffer {
public:
    virtual ~IBuffer();

    /// Returns the first byte, writable; null before the first reservation. Reserve may move the
    /// bytes and makes earlier pointers invalid.
    /// [any, one thread, does not throw]
    virtual std::uint8_t* GetData() = 0;

    /// Returns the first byte, for reading; null before the first reservation.
    /// [any, any thread, does not throw]
    virtual const std::uint8_t* GetData() const = 0;

    /// Returns the number of valid bytes.
    /// [any, any thread, does not throw]
    virtual std::uint32_t GetSize() const = 0;

    /// Sets the number of valid bytes. Bytes that become valid are not cleared.
    /// [any, one thread]
    /// @throws KELRuntimeError when @p bytes is more than the reserved number
    virtual void SetSize(std::uint32_t bytes) = 0;

    /// Reserves at least @p bytes bytes in all. The valid bytes are kept; a reservation never
    /// shrinks.
    /// [any, one thread]
    /// @throws KELRuntimeError when the allocator returns no block or one that is too small; any
    /// exception of the allocator. The buffer is unchanged then.
    virtual void Reserve(std::uint32_t bytes) = 0;
};

/// Makes a buffer without valid bytes. Any thread may call it.
/// @param allocator provides the blocks of Reserve, shared; empty for the heap
/// @param block the first reservation, shared; empty for none
KEL_CORE_EXPORT std::shared_ptr<IBuffer>
CreateBuffer(std::shared_ptr<IMemoryBlockAllocator> allocator, std::shared_ptr<IMemoryBlock> block);

} // namespace kel
