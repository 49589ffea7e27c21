/// Numbers in bytes of a file, in memory. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

/// Order of the bytes of numbers.
enum class StoredOrder { Little, Big };

/// Reads numbers and parts of bytes that someone else owns. Bytes beyond the end read as 0.
class StoredBytes {
public:
    StoredBytes(std::string_view bytes, StoredOrder order) : m_bytes(bytes), m_order(order) {}

    std::uint64_t Size() const { return m_bytes.size(); }
    StoredOrder Order() const { return m_order; }

    /// Returns an unsigned number.
    /// @param bytes 1 to 8
    std::uint64_t Number(std::uint64_t offset, std::size_t bytes) const;

    /// Returns so many bytes; fewer at the end.
    std::string_view Part(std::uint64_t offset, std::uint64_t count) const;

    /// Returns all bytes from an offset on.
    std::string_view From(std::uint64_t offset) const { return Part(offset, Size()); }

private:
    std::string_view m_bytes;
    StoredOrder m_order;
};

/// Returns the bytes of a number.
/// @param bytes 1 to 8; higher bytes are dropped
std::string NumberBytes(std::uint64_t number, std::size_t bytes, StoredOrder order);

/// Replaces a number, which must be within the content.
/// @param bytes 1 to 8; higher bytes are dropped
void ReplaceNumber(std::string& content, std::size_t offset, std::size_t bytes,
                   std::uint64_t number, StoredOrder order);

} // namespace kel::host
