/// Files that libsndfile 1.2.0 never finishes reading, excluded so that they are found only once.
/// Any thread may call these functions.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kel::fuzz {

/// Returns true for a file in which a size inside a chunk LIST is so close to 2^32 that the count
/// of bytes in libsndfile wraps and never reaches the end. It excludes all such sizes after a LIST,
/// in either byte order: too many rather than too few.
inline bool HangsLibsndfile(const std::string& content) {
    const std::size_t list = content.find("LIST");
    if (list == std::string::npos) {
        return false;
    }
    for (std::size_t i = list; i + 4 <= content.size(); ++i) {
        const auto byte = [&content, i](std::size_t place) {
            return static_cast<unsigned char>(content[i + place]);
        };
        const bool isLittle = byte(3) == 0xFF && byte(2) == 0xFF && byte(1) == 0xFF;
        const bool isBig = byte(0) == 0xFF && byte(1) == 0xFF && byte(2) == 0xFF;
        if ((isLittle && byte(0) >= 0xF0) || (isBig && byte(3) >= 0xF0)) {
            return true;
        }
    }
    return false;
}

/// Counts an excluded file, and reports the number when the process ends.
inline void CountHangingFile() {
    static std::atomic<std::size_t> count{0};
    if (count++ == 0) {
        std::atexit(
            [] { std::fprintf(stderr, "%zu inputs would have hung libsndfile\n", count.load()); });
    }
}

} // namespace kel::fuzz
