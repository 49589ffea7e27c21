#include "container/HeaderReader.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

std::optional<InputFile> OpenRegularFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
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
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        const char byte = read[m_bigEndian ? i : bytes - 1 - i];
        number = (number << 8U) | static_cast<unsigned char>(byte);
    }
    return number;
}

std::string HeaderReader::Bytes(std::uint64_t offset, std::size_t count) const {
    std::string bytes(count, '\0');
    std::size_t total = 0;
    std::size_t read = count;
    while (total < count && read > 0) {
        read = Read(offset + total, &bytes[total], count - total);
        total += read;
    }
    bytes.resize(total);
    return bytes;
}

void HeaderReader::Skim(std::uint64_t offset, std::uint64_t bytes) const {
    constexpr std::uint64_t kPiece = 65536;
    std::vector<char> piece(static_cast<std::size_t>(std::min(bytes, kPiece)));
    while (bytes > 0) {
        const auto count = static_cast<std::size_t>(std::min(bytes, kPiece));
        const std::size_t read = Read(offset, piece.data(), count);
        if (read == 0) {
            return; // the end
        }
        offset += read;
        bytes -= read;
    }
}

std::size_t HeaderReader::Read(std::uint64_t offset, char* bytes, std::size_t count) const {
    ssize_t read = 0;
    do {
        read = pread(m_descriptor.Number(), bytes, count, static_cast<off_t>(offset));
    } while (read < 0 && errno == EINTR);
    if (read < 0) {
        throw JobError(m_file.shown, fmt::format("{}: {}", m_failure, std::strerror(errno)));
    }
    return static_cast<std::size_t>(read);
}

} // namespace kel::host
