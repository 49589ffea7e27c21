/// Files that libsndfile 1.2.0 reads for ever, known so that they are not found again and again.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kel::fuzz {

/// True for a file in which the size of something inside a chunk LIST is so close to 2^32 that
/// libsndfile's count of what it has read wraps and it never arrives at the end. All sizes near it
/// are taken, in either byte order, wherever they stand behind a LIST: too many rather than too
/// few.
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

/// Counts a file that was left out, and tells the number when the process ends.
inline void CountHangingFile() {
    static std::atomic<std::size_t> count{0};
    if (count++ == 0) {
        std::atexit(
            [] { std::fprintf(stderr, "%zu inputs would have hung libsndfile\n", count.load()); });
    }
}

} // namespace kel::fuzz
