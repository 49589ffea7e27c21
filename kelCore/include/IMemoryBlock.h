/// A block of memory.
#pragma once

#include "Export.h"

#include <cstdint>

namespace kel {

/// A block of memory that belongs to whoever shares its handle. Releasing the last handle gives the
/// memory back, on any thread. The bytes are not protected: one thread at a time writes.
class KEL_CORE_EXPORT IMemoryBlock {
public:
    virtual ~IMemoryBlock();

    /// The first byte, writable. Stays valid as long as the block.
    virtual std::uint8_t* GetData() = 0;

    /// Number of bytes that may be used.
    virtual std::uint32_t GetSize() const = 0;
};

} // namespace kel
