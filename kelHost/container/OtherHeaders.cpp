#include "container/OtherHeaders.h"

#include "base/Numbers.h"
#include "container/StoredBytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

// The samples as a header declares them.
struct Declared {
    const char* container = nullptr;
    std::uint64_t first = 0;            // offset in bytes
    std::optional<std::uint64_t> bytes; // missing where the size means "unknown"
    std::uint64_t frameBytes = 0;       // 0 for unknown
    bool isRepairable = false;
};

InputHeader Judge(const Declared& declared, std::uint64_t fileBytes) {
    InputHeader result;
    result.fileBytes = fileBytes;
    result.container = declared.container;
    result.isRepairable = declared.isRepairable;
    const std::uint64_t left = fileBytes - std::min(fileBytes, declared.first);
    const std::uint64_t unit = std::max<std::uint64_t>(declared.frameBytes, 1);
    const std::uint64_t bytes = declared.bytes.value_or(left);
    const bool isTruncated = left / unit < bytes / unit;
    if (isTruncated) {
        result.truncation = Truncation{bytes / unit, left / unit, declared.frameBytes > 0, false};
    }
    result.declaresLength = declared.bytes.has_value();
    if (declared.isRepairable) {
        result.obstacle = isTruncated             ? "it " + DescribeCounts(*result.truncation)
                          : result.declaresLength ? ""
                                                  : "it does not declare the size of its samples";
    } else if (isTruncated) {
        return result; // libraries read whole blocks of some bytes
    }
    FormatChunk format;
    format.frameBytes = static_cast<std::uint32_t>(declared.frameBytes);
    result.format = format;
    result.parts.push_back({declared.first, std::min(bytes, left), std::nullopt});
    return result;
}

StoredBytes BigEndianFields(std::string_view bytes) {
    return {bytes, StoredOrder::Big};
}

// Bytes per frame of linear samples without padding; 0 for others.
std::uint64_t CAFFrameBytes(std::string_view description) {
    constexpr std::uint64_t kByte = 8;
    const StoredBytes fields = BigEndianFields(description);
    const std::uint64_t frameBytes = fields.Number(16, 4);
    const std::uint64_t valueBytes = (fields.Number(28, 4) + kByte - 1) / kByte;
    const bool isLinear = fields.Part(8, 4) == "lpcm" && fields.Number(20, 4) == 1 &&
                          frameBytes == valueBytes * fields.Number(24, 4);
    return isLinear ? frameBytes : 0;
}

std::optional<Declared> ReadCAF(const HeaderReader& header, std::uint64_t fileBytes) {
    constexpr std::uint64_t kCAFStart = 8;
    constexpr std::uint64_t kCAFChunkStart = 12;
    constexpr std::uint64_t kEditCount = 4; // before the samples
    constexpr std::uint64_t kUnknown = ~std::uint64_t{0};
    constexpr std::size_t kDescription = 32;
    Declared declared{"CAF", 0, std::nullopt, 0, true};
    std::uint64_t offset = kCAFStart;
    for (std::size_t i = 0; i < kMaxChunks && offset + kCAFChunkStart <= fileBytes; ++i) {
        const std::string start = header.Bytes(offset, kCAFChunkStart);
        const std::uint64_t bytes = BigEndianFields(start).Number(4, 8);
        offset += kCAFChunkStart;
        if (start.compare(0, 4, "desc") == 0) {
            declared.frameBytes = CAFFrameBytes(header.Bytes(offset, kDescription));
        } else if (start.compare(0, 4, "data") == 0) {
            declared.first = offset + kEditCount;
            if (bytes != kUnknown) {
                declared.bytes = bytes - std::min(bytes, kEditCount);
            }
            return declared;
        }
        if (bytes > fileBytes - offset) {
            return std::nullopt;
        }
        offset += bytes;
    }
    return std::nullopt;
}

// An integer in a header of lines such as "sample_count -i 1000"; 0 for none.
std::uint64_t NISTField(std::string_view lines, const std::string& name) {
    const std::string start = "\n" + name + " -i ";
    const std::size_t found = lines.find(start);
    if (found == std::string_view::npos) {
        return 0;
    }
    const std::string_view rest = lines.substr(found + start.size());
    return ParseInteger<std::uint32_t>(std::string(rest.substr(0, rest.find('\n')))).value_or(0);
}

std::optional<Declared> ReadNIST(const HeaderReader& header) {
    constexpr std::size_t kMaxNISTHeader = 65536;
    constexpr std::size_t kSize = 8; // its place, and its width
    const std::string start = header.Bytes(0, 2 * kSize);
    const std::size_t digit = start.find_first_not_of(' ', kSize);
    const std::size_t size =
        digit == std::string::npos
            ? 0
            : ParseInteger<std::uint32_t>(start.substr(digit, 2 * kSize - 1 - digit)).value_or(0);
    const std::string lines = header.Bytes(0, std::min(size, kMaxNISTHeader));
    const std::uint64_t frameBytes =
        NISTField(lines, "sample_n_bytes") * NISTField(lines, "channel_count");
    const std::uint64_t frames = NISTField(lines, "sample_count");
    if (frames == 0 || frameBytes == 0) {
        return std::nullopt;
    }
    return Declared{"NIST SPHERE", size, frames * frameBytes, frameBytes, false};
}

std::optional<Declared> ReadSVX(const HeaderReader& header, std::uint64_t fileBytes) {
    const std::uint64_t valueBytes = header.Name(8) == "16SV" ? 2 : 1;
    bool hasChannels = false; // of which libsndfile may not know
    std::uint64_t offset = kFirstChunk;
    for (std::size_t i = 0; i < kMaxChunks && offset + kChunkHeader <= fileBytes; ++i) {
        const std::string start = header.Bytes(offset, kChunkHeader);
        const std::uint64_t bytes = BigEndianFields(start).Number(4, 4);
        offset += kChunkHeader;
        hasChannels = hasChannels || start.compare(0, 4, "CHAN") == 0;
        if (start.compare(0, 4, "BODY") == 0) {
            return Declared{"8SVX", offset, bytes, hasChannels ? 0 : valueBytes, false};
        }
        offset += bytes + bytes % 2;
    }
    return std::nullopt;
}

std::optional<Declared> ReadDeclared(const HeaderReader& header, std::uint64_t fileBytes) {
    constexpr std::string_view kWVE = "ALawSoundFile**";
    const std::string name = header.Name(0);
    if (name == "caff") {
        return ReadCAF(header, fileBytes);
    }
    if (name == "NIST") {
        return ReadNIST(header);
    }
    if (name == "FORM" && (header.Name(8) == "8SVX" || header.Name(8) == "16SV")) {
        return ReadSVX(header, fileBytes);
    }
    if (header.Bytes(0, kWVE.size()) == kWVE) {
        constexpr std::uint64_t kSizeInWVE = 18;
        constexpr std::uint64_t kWVEHeader = 32;
        const std::string size = header.Bytes(kSizeInWVE, 4);
        return Declared{"WVE", kWVEHeader, BigEndianFields(size).Number(0, 4), 1, false};
    }
    return std::nullopt;
}

} // namespace

std::optional<InputHeader> JudgeOther(const HeaderReader& header, std::uint64_t fileBytes) {
    const auto declared = ReadDeclared(header, fileBytes);
    return declared.has_value() ? std::optional(Judge(*declared, fileBytes)) : std::nullopt;
}

} // namespace kel::host
