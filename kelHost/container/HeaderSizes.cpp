#include "container/HeaderSizes.h"

#include "base/Descriptor.h"
#include "base/Errors.h"
#include "container/HeaderReader.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

namespace kel::host {

namespace {

HeaderReader Open(const FileName& file) {
    constexpr const char* kFailure = "cannot read the file back";
    Descriptor descriptor(open(file.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (descriptor.Number() < 0) {
        throw JobError(file.shown, fmt::format("{}: {}", kFailure, std::strerror(errno)));
    }
    return {file, std::move(descriptor), kFailure};
}

// The expected sizes.
struct Sizes {
    std::uint64_t file;
    std::uint64_t samples;
    std::uint64_t frames;
};

// True when the sizes in a chunk are right, or it has none.
bool IsChunkRight(const HeaderReader& header, const std::string& name, std::uint64_t offset,
                  const Sizes& sizes) {
    const std::uint64_t size = header.Number(offset + 4, 4);
    const std::uint64_t content = offset + kChunkHeader;
    if (name == "data") {
        return size == sizes.samples || size == kSizeInDs64;
    }
    if (name == "fact") {
        const std::uint64_t frames = header.Number(content, 4);
        return frames == sizes.frames || frames == kSizeInDs64;
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

// True when chunks fill a file from an offset on. The byte that pads the last one may be missing.
bool AreChunksComplete(const HeaderReader& header, std::uint64_t offset, std::uint64_t fileBytes) {
    while (offset + kChunkHeader <= fileBytes) {
        const std::uint64_t size = header.Number(offset + 4, 4);
        offset += kChunkHeader + size + size % 2;
    }
    return offset == fileBytes || offset == fileBytes + 1;
}

bool AreSizesRight(const FileName& file, const Sizes& sizes) {
    HeaderReader header = Open(file);
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
        const std::uint64_t declared = header.Number(offset + 4, 4);
        const bool isSamples = name == "data" || name == "SSND";
        const std::uint64_t size = isSamples && declared == kSizeInDs64 ? sizes.samples : declared;
        offset += kChunkHeader + size;
        if (isSamples) {
            return AreChunksComplete(header, offset + offset % 2, sizes.file);
        }
        offset += size % 2;
    }
    return false;
}

} // namespace

std::uint64_t MaxFileSize(std::uint64_t sampleBytes, std::uint32_t channels,
                          std::uint64_t metadataBytes) {
    // Headers are much smaller, a peak chunk of 8 bytes for each channel included.
    constexpr std::uint64_t kFixed = 512;
    constexpr std::uint64_t kPerChannel = 16;
    return sampleBytes + metadataBytes + kFixed + kPerChannel * channels;
}

bool FitsInto32Bits(std::uint64_t sampleBytes, std::uint32_t channels,
                    std::uint64_t metadataBytes) {
    return MaxFileSize(sampleBytes, channels, metadataBytes) <=
           std::numeric_limits<std::uint32_t>::max();
}

void RequireFits(const Container& container, const std::string& output, std::uint64_t sampleBytes,
                 std::uint32_t channels, const std::string& alternative,
                 std::uint64_t metadataBytes) {
    if (container.format == WrapperFormat::BWAVE ||
        FitsInto32Bits(sampleBytes, channels, metadataBytes)) {
        return;
    }
    const bool doSamplesFit = FitsInto32Bits(sampleBytes, channels);
    throw JobError(
        output,
        fmt::format("would have {} bytes of samples{}, and {} holds at most 4 GiB; use "
                    "{}{}",
                    sampleBytes,
                    doSamplesFit ? fmt::format(" and {} of metadata", metadataBytes) : "",
                    container.title, alternative, doSamplesFit ? " or --metadata none" : ""));
}

void VerifyHeaderSizes(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames) {
    std::error_code error;
    const std::uint64_t length = std::filesystem::file_size(file.path, error);
    if (!error && !AreSizesRight(file, {length, sampleBytes, frames})) {
        throw JobError(file.shown, "the header of the written file is wrong; is the disk full?");
    }
}

} // namespace kel::host
