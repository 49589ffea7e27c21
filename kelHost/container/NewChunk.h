/// A chunk to write.
#pragma once

#include <string>

namespace kel::host {

/// A chunk that is small enough for memory.
struct NewChunk {
    std::string name;    ///< four bytes
    std::string content; ///< without padding
};

} // namespace kel::host
