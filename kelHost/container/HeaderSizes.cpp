#include "container/HeaderSizes.h"

#include "base/Errors.h"
#include "base/Text.h"

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

// The numbers at places of a file. What lies beyond its end reads as 0.
class FileNumbers {
public:
    explicit FileNumbers(const FileName& file)
        : m_file(file), m_descriptor(open(file.path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (m_descriptor < 0) {
            Fail();
        }
    }
    ~FileNumbers() { close(m_descriptor); }
    FileNumbers(const FileNumbers&) = delete;
    FileNumbers& operator=(const FileNumbers&) = delete;

    void SetBigEndian(bool bigEndian) { m_bigEndian = bigEndian; }

    std::string Name(std::uint64_t place) {
        constexpr std::size_t kLength = 4;
        std::string name(kLength, '\0');
        Read(place, name.data(), kLength);
        return name;
    }

    std::uint64_t Number(std::uint64_t place, std::size_t bytes) {
        std::array<char, sizeof(std::uint64_t)> read{};
        Read(place, read.data(), bytes);
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            const char byte = read[m_bigEndian ? i : bytes - 1 - i];
            number = (number << 8U) | static_cast<unsigned char>(byte);
        }
        return number;
    }

private:
    void Read(std::uint64_t place, char* bytes, std::size_t count) {
        if (pread(m_descriptor, bytes, count, static_cast<off_t>(place)) < 0) {
            Fail();
        }
    }

    [[noreturn]] void Fail() const {
        throw JobError(
            fmt::format("{}: cannot be read back: {}", Escape(m_file.shown), std::strerror(errno)));
    }

    const FileName& m_file;
    int m_descriptor;
    bool m_bigEndian = false;
};

// The sizes that are looked for.
struct Sizes {
    std::uint64_t file;
    std::uint64_t samples;
    std::uint64_t frames;
};

// True when the chunk tells the right sizes, or nothing of them.
bool IsChunkRight(FileNumbers& numbers, const std::string& name, std::uint64_t place,
                  const Sizes& sizes) {
    constexpr std::uint64_t kElsewhere = 0xFFFFFFFF; // in ds64
    const std::uint64_t size = numbers.Number(place + 4, 4);
    const std::uint64_t content = place + kChunkHeader;
    if (name == "data") {
        return size == sizes.samples || size == kElsewhere;
    }
    if (name == "fact") {
        const std::uint64_t frames = numbers.Number(content, 4);
        return frames == sizes.frames || frames == kElsewhere;
    }
    if (name == "ds64") {
        return numbers.Number(content, 8) + kChunkHeader == sizes.file &&
               numbers.Number(content + 8, 8) == sizes.samples &&
               numbers.Number(content + 16, 8) == sizes.frames;
    }
    if (name == "COMM") {
        return numbers.Number(content + 2, 4) == sizes.frames; // behind the number of channels
    }
    if (name == "SSND") {
        // An offset and a block size stand before; libsndfile counts the byte that pads an odd
        // number.
        return size == sizes.samples + 8 || size == sizes.samples + 8 + sizes.samples % 2;
    }
    return true;
}

bool AreSizesRight(const FileName& file, const Sizes& sizes) {
    constexpr std::uint64_t kFirstChunk = 12; // behind the kind of the form
    FileNumbers numbers(file);
    const std::string form = numbers.Name(0);
    if (form != "RIFF" && form != "RF64" && form != "FORM") {
        return true;
    }
    numbers.SetBigEndian(form == "FORM");
    if (form != "RF64" && numbers.Number(4, 4) + kChunkHeader != sizes.file) {
        return false;
    }
    bool hasSamples = false;
    for (std::uint64_t place = kFirstChunk; place + kChunkHeader <= sizes.file && !hasSamples;) {
        const std::string name = numbers.Name(place);
        if (!IsChunkRight(numbers, name, place, sizes)) {
            return false;
        }
        hasSamples = name == "data" || name == "SSND"; // the last one that matters
        const std::uint64_t size = numbers.Number(place + 4, 4);
        place += kChunkHeader + size + size % 2;
    }
    return hasSamples;
}

} // namespace

std::uint64_t MaxFileSize(std::uint64_t sampleBytes, std::uint32_t channels) {
    // None of the headers that are written is near it, with a peak chunk of 8 bytes a channel.
    constexpr std::uint64_t kFixed = 512;
    constexpr std::uint64_t kPerChannel = 16;
    return sampleBytes + kFixed + kPerChannel * channels;
}

bool FitsInto32Bits(std::uint64_t sampleBytes, std::uint32_t channels) {
    return MaxFileSize(sampleBytes, channels) <= std::numeric_limits<std::uint32_t>::max();
}

void RequireFits(const Container& container, const std::string& output, std::uint64_t sampleBytes,
                 std::uint32_t channels, const std::string& instead) {
    if (container.format != WrapperFormat::BWAVE && !FitsInto32Bits(sampleBytes, channels)) {
        throw JobError(fmt::format("{}: would have {} bytes of samples, and {} holds 4 GiB at "
                                   "most; use {}",
                                   Escape(output), sampleBytes, container.title, instead));
    }
}

void VerifyHeaderSizes(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames) {
    std::error_code error;
    const std::uint64_t length = std::filesystem::file_size(file.path, error);
    if (!error && !AreSizesRight(file, {length, sampleBytes, frames})) {
        throw JobError(fmt::format("{}: the header of the file that was written is wrong; is the "
                                   "disk full?",
                                   Escape(file.shown)));
    }
}

} // namespace kel::host
