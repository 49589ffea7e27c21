/// The number of open files of the process.
/// Any thread may call it; other threads must not open or close files meanwhile.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace kel::test {

/// Returns the number of open descriptors, with the one that is used for counting.
inline std::size_t OpenDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

} // namespace kel::test
