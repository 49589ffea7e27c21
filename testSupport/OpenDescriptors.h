/// The files that the process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace kel::test {

/// How many descriptors are open, with the one for counting them.
inline std::size_t OpenDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

} // namespace kel::test
