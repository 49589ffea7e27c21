/// A block of memory.
/// One thread at a time writes its bytes; any thread may release it.
/// @ingroup memory
#pragma once

#include "Export.h"

#include <cstdint>

namespace kel {

/// A block of memory, owned by all holders of its handle. The release of the last handle returns
/// the memory.
class KEL_CORE_EXPORT IMemoryBlock {
public:
    virtual ~IMemoryBlock();

    /// Returns the first byte, writable, valid as long as the block.
    /// [any, one thread, does not throw]
    virtual std::uint8_t* GetData() = 0;

    /// Returns the number of bytes that may be used.
    /// [any, any thread, does not throw]
    virtual std::uint32_t GetSize() const = 0;
};

} // namespace kel
