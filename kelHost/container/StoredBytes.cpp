#include "container/StoredBytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

std::uint64_t StoredBytes::Number(std::uint64_t offset, std::size_t bytes) const {
    const std::string_view part = Part(offset, bytes);
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        const std::size_t place = m_order == StoredOrder::Big ? i : bytes - 1 - i;
        const char byte = place < part.size() ? part[place] : '\0';
        number = (number << 8U) | static_cast<unsigned char>(byte);
    }
    return number;
}

std::string_view StoredBytes::Part(std::uint64_t offset, std::uint64_t count) const {
    return offset >= Size() ? std::string_view()
                            : m_bytes.substr(static_cast<std::size_t>(offset),
                                             static_cast<std::size_t>(std::min(count, Size())));
}

std::string NumberBytes(std::uint64_t number, std::size_t bytes, StoredOrder order) {
    std::string stored;
    for (std::size_t i = 0; i < bytes; ++i) {
        stored.push_back(static_cast<char>(number & 0xFFU));
        number >>= 8U;
    }
    if (order == StoredOrder::Big) {
        std::reverse(stored.begin(), stored.end());
    }
    return stored;
}

void ReplaceNumber(std::string& content, std::size_t offset, std::size_t bytes,
                   std::uint64_t number, StoredOrder order) {
    content.replace(offset, bytes, NumberBytes(number, bytes, order));
}

} // namespace kel::host
