/// Numbers within the content of chunks. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

/// Returns an unsigned number, which must be within the content.
/// @param bytes 1 to 8
inline std::uint64_t NumberAt(std::string_view content, std::size_t offset, std::size_t bytes,
                              bool bigEndian) {
    constexpr unsigned kBits = 8;
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        const char byte = content[offset + (bigEndian ? i : bytes - 1 - i)];
        number = (number << kBits) | static_cast<unsigned char>(byte);
    }
    return number;
}

/// Returns the lower bytes of a number.
/// @param bytes 1 to 8
inline std::string NumberBytes(std::uint64_t number, std::size_t bytes, bool bigEndian) {
    constexpr std::size_t kBits = 8;
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i) {
        text[bigEndian ? bytes - 1 - i : i] = static_cast<char>(number >> (kBits * i));
    }
    return text;
}

/// Replaces a number, which must be within the content.
/// @param bytes 1 to 8
inline void ReplaceNumber(std::string& content, std::size_t offset, std::size_t bytes,
                          std::uint64_t number, bool bigEndian) {
    content.replace(offset, bytes, NumberBytes(number, bytes, bigEndian));
}

} // namespace kel::host
