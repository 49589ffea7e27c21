#include "container/HeaderReader.h"

#include "base/Errors.h"
#include "container/StoredBytes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

std::optional<InputFile> OpenRegularFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = ESPIPE;
        return std::nullopt;
    }
    InputFile file{Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)), 0};
    if (file.descriptor.Number() < 0 || fstat(file.descriptor.Number(), &status) != 0) {
        return std::nullopt;
    }
    file.bytes = static_cast<std::uint64_t>(status.st_size);
    return file;
}

HeaderReader::HeaderReader(const FileName& file, Descriptor descriptor, std::string failure)
    : m_file(file), m_descriptor(std::move(descriptor)), m_failure(std::move(failure)) {}

std::string HeaderReader::Name(std::uint64_t offset) const {
    constexpr std::size_t kLength = 4;
    std::string name(kLength, '\0');
    Read(offset, name.data(), kLength);
    return name;
}

std::uint64_t HeaderReader::Number(std::uint64_t offset, std::size_t bytes) const {
    std::array<char, sizeof(std::uint64_t)> read{};
    Read(offset, read.data(), bytes);
    const StoredOrder order = m_bigEndian ? StoredOrder::Big : StoredOrder::Little;
    return StoredBytes({read.data(), bytes}, order).Number(0, bytes);
}

std::string HeaderReader::Bytes(std::uint64_t offset, std::size_t count) const {
    if (!IsKept(offset, count) && !Fill(offset, count)) {
        Fail();
    }
    const auto begin = static_cast<std::size_t>(offset - m_keptOffset);
    const std::size_t available = m_keptBytes - std::min(begin, m_keptBytes);
    return {m_kept.data() + begin, std::min(count, available)};
}

void HeaderReader::Skim(std::uint64_t offset, std::uint64_t bytes) const {
    constexpr std::uint64_t kPiece = 65536;
    while (bytes > 0) {
        const auto count = static_cast<std::size_t>(std::min(bytes, kPiece));
        if (!Fill(offset, count)) {
            Fail();
        }
        if (m_keptBytes < count) {
            return; // the end
        }
        offset += count;
        bytes -= count;
    }
}

void HeaderReader::Read(std::uint64_t offset, char* bytes, std::size_t count) const {
    constexpr std::size_t kUsual = 4096;
    if (!IsKept(offset, count) && !Fill(offset, kUsual)) {
        Fail();
    }
    std::copy_n(m_kept.data() + (offset - m_keptOffset), count, bytes);
}

bool HeaderReader::IsKept(std::uint64_t offset, std::size_t count) const {
    return offset >= m_keptOffset && offset - m_keptOffset <= m_kept.size() &&
           m_kept.size() - (offset - m_keptOffset) >= count;
}

// Keeps the bytes at an offset. Returns false, with errno, when they cannot be read.
bool HeaderReader::Fill(std::uint64_t offset, std::size_t count) const {
    constexpr auto kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    m_kept.assign(count, '\0');
    m_keptOffset = offset;
    m_keptBytes = 0;
    while (m_keptBytes < count && offset <= kMaxOffset - count) {
        const ssize_t read = pread(m_descriptor.Number(), m_kept.data() + m_keptBytes,
                                   count - m_keptBytes, static_cast<off_t>(offset + m_keptBytes));
        if (read == 0) {
            return true; // the end
        }
        if (read > 0) {
            m_keptBytes += static_cast<std::size_t>(read);
        } else if (errno != EINTR) {
            const int cause = errno;
            m_kept.clear();
            errno = cause;
            return false;
        }
    }
    return true;
}

void HeaderReader::Fail() const {
    throw JobError(m_file.shown, fmt::format("{}: {}", m_failure, std::strerror(errno)));
}

} // namespace kel::host
