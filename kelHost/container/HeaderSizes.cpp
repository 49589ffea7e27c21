#include "container/HeaderSizes.h"

#include "base/Descriptor.h"
#include "base/Errors.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <unistd.h>

namespace kel::host {

namespace {

constexpr std::uint64_t kChunkHeader = 8; // a name and a size, each of four bytes

// Reads numbers at offsets of a file. Bytes beyond its end read as 0.
class HeaderReader {
public:
    explicit HeaderReader(const FileName& file)
        : m_file(file), m_descriptor(open(file.path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (m_descriptor.Number() < 0) {
            Fail();
        }
    }

    void SetBigEndian(bool bigEndian) { m_bigEndian = bigEndian; }

    std::string Name(std::uint64_t offset) {
        constexpr std::size_t kLength = 4;
        std::string name(kLength, '\0');
        Read(offset, name.data(), kLength);
        return name;
    }

    std::uint64_t Number(std::uint64_t offset, std::size_t bytes) {
        std::array<char, sizeof(std::uint64_t)> read{};
        Read(offset, read.data(), bytes);
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            const char byte = read[m_bigEndian ? i : bytes - 1 - i];
            number = (number << 8U) | static_cast<unsigned char>(byte);
        }
        return number;
    }

private:
    void Read(std::uint64_t offset, char* bytes, std::size_t count) {
        if (pread(m_descriptor.Number(), bytes, count, static_cast<off_t>(offset)) < 0) {
            Fail();
        }
    }

    [[noreturn]] void Fail() const {
        throw JobError(m_file.shown,
                       fmt::format("cannot read the file back: {}", std::strerror(errno)));
    }

    const FileName& m_file;
    Descriptor m_descriptor;
    bool m_bigEndian = false;
};

// The expected sizes.
struct Sizes {
    std::uint64_t file;
    std::uint64_t samples;
    std::uint64_t frames;
};

// True when the sizes in a chunk are right, or it has none.
bool IsChunkRight(HeaderReader& header, const std::string& name, std::uint64_t offset,
                  const Sizes& sizes) {
    constexpr std::uint64_t kInDs64 = 0xFFFFFFFF; // the number is in the chunk ds64
    const std::uint64_t size = header.Number(offset + 4, 4);
    const std::uint64_t content = offset + kChunkHeader;
    if (name == "data") {
        return size == sizes.samples || size == kInDs64;
    }
    if (name == "fact") {
        const std::uint64_t frames = header.Number(content, 4);
        return frames == sizes.frames || frames == kInDs64;
    }
    if (name == "ds64") {
        return header.Number(content, 8) + kChunkHeader == sizes.file &&
               header.Number(content + 8, 8) == sizes.samples &&
               header.Number(content + 16, 8) == sizes.frames;
    }
    if (name == "COMM") {
        return header.Number(content + 2, 4) == sizes.frames; // after the number of channels
    }
    if (name == "SSND") {
        // An offset and a block size precede the samples; libsndfile counts the byte that pads an
        // odd number of bytes.
        return size == sizes.samples + 8 || size == sizes.samples + 8 + sizes.samples % 2;
    }
    return true;
}

bool AreSizesRight(const FileName& file, const Sizes& sizes) {
    constexpr std::uint64_t kFirstChunk = 12; // after the name, size and kind of the file
    HeaderReader header(file);
    const std::string form = header.Name(0);
    if (form != "RIFF" && form != "RF64" && form != "FORM") {
        return true;
    }
    header.SetBigEndian(form == "FORM");
    if (form != "RF64" && header.Number(4, 4) + kChunkHeader != sizes.file) {
        return false;
    }
    for (std::uint64_t offset = kFirstChunk; offset + kChunkHeader <= sizes.file;) {
        const std::string name = header.Name(offset);
        if (!IsChunkRight(header, name, offset, sizes)) {
            return false;
        }
        if (name == "data" || name == "SSND") {
            return true; // the last chunk with a size to verify
        }
        const std::uint64_t size = header.Number(offset + 4, 4);
        offset += kChunkHeader + size + size % 2;
    }
    return false;
}

} // namespace

std::uint64_t MaxFileSize(std::uint64_t sampleBytes, std::uint32_t channels) {
    // Headers are much smaller, a peak chunk of 8 bytes for each channel included.
    constexpr std::uint64_t kFixed = 512;
    constexpr std::uint64_t kPerChannel = 16;
    return sampleBytes + kFixed + kPerChannel * channels;
}

bool FitsInto32Bits(std::uint64_t sampleBytes, std::uint32_t channels) {
    return MaxFileSize(sampleBytes, channels) <= std::numeric_limits<std::uint32_t>::max();
}

void RequireFits(const Container& container, const std::string& output, std::uint64_t sampleBytes,
                 std::uint32_t channels, const std::string& alternative) {
    if (container.format != WrapperFormat::BWAVE && !FitsInto32Bits(sampleBytes, channels)) {
        throw JobError(output, fmt::format("would have {} bytes of samples, and {} holds at most "
                                           "4 GiB; use {}",
                                           sampleBytes, container.title, alternative));
    }
}

void VerifyHeaderSizes(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames) {
    std::error_code error;
    const std::uint64_t length = std::filesystem::file_size(file.path, error);
    if (!error && !AreSizesRight(file, {length, sampleBytes, frames})) {
        throw JobError(file.shown, "the header of the written file is wrong; is the disk full?");
    }
}

} // namespace kel::host
