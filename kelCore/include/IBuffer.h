/// A buffer of bytes.
#pragma once

#include "Export.h"

#include <cstdint>
#include <memory>

namespace kel {

class IMemoryBlock;
class IMemoryBlockAllocator;

/// A run of valid bytes at the start of a reserved block of memory. One thread, its creator's,
/// fills it; once a sample carries it, it is only read.
class KEL_CORE_EXPORT IBuffer {
public:
    virtual ~IBuffer();

    /// The first byte, writable; null while nothing is reserved. Reserve may move the bytes, so the
    /// pointer is fetched after it.
    virtual std::uint8_t* GetData() = 0;

    /// The first byte, to read.
    virtual const std::uint8_t* GetData() const = 0;

    /// Number of valid bytes.
    virtual std::uint32_t GetSize() const = 0;

    /// Sets the number of valid bytes. Bytes that become valid are not cleared.
    /// @throws KELRuntimeError when @p bytes is more than what is reserved
    virtual void SetSize(std::uint32_t bytes) = 0;

    /// Makes room for at least @p bytes bytes in all. The valid bytes are kept; the room never
    /// shrinks.
    /// @throws whatever the allocator throws; the buffer is then as it was
    virtual void Reserve(std::uint32_t bytes) = 0;
};

/// Makes a buffer without valid bytes.
/// @param allocator where Reserve takes its blocks from, shared; empty for the heap
/// @param block the room that the buffer starts with, shared; empty for none
KEL_CORE_EXPORT std::shared_ptr<IBuffer>
CreateBuffer(std::shared_ptr<IMemoryBlockAllocator> allocator, std::shared_ptr<IMemoryBlock> block);

} // namespace kel
