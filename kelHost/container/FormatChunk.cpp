#include "container/FormatChunk.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kel::host {

namespace {

constexpr std::uint64_t kIntegerTag = 1;
constexpr std::uint64_t kFloatTag = 3;
constexpr std::uint64_t kExtensibleTag = 0xFFFE;

constexpr std::uint32_t BytesPerValue(std::uint32_t bits) {
    return (bits + 7) / 8;
}

std::optional<FormatChunk> ReadWAVE(const HeaderReader& header, const ChunkList& chunks,
                                    const Chunk& chunk) {
    constexpr std::uint64_t kPlainBytes = 16;
    constexpr std::uint64_t kExtensibleBytes = 40;
    if (chunks.Present(chunk) < kPlainBytes) {
        return std::nullopt;
    }
    const auto number = [&](std::uint64_t offset, std::size_t bytes) {
        return static_cast<std::uint32_t>(header.Number(chunk.offset + offset, bytes));
    };
    FormatChunk format;
    std::uint64_t tag = number(0, 2);
    format.channels = number(2, 2);
    format.rate = number(4, 4);
    format.bits = number(14, 2);
    format.frameBytes = format.channels * BytesPerValue(format.bits);
    if (tag == kExtensibleTag && chunks.Present(chunk) >= kExtensibleBytes) {
        const std::uint32_t validBits = number(18, 2);
        format.bits = validBits != 0 && validBits < format.bits ? validBits : format.bits;
        format.channelMask = number(20, 4);
        tag = number(24, 2);
    }
    format.encoding = tag == kIntegerTag ? ChunkEncoding::Integer
                      : tag == kFloatTag ? ChunkEncoding::Float
                                         : ChunkEncoding::Other;
    return format;
}

// A floating-point number of 80 bits. Returns 0 for what is no whole number of 32 bits.
std::uint32_t ReadRate(const HeaderReader& header, std::uint64_t offset) {
    constexpr std::uint64_t kBias = 16383;
    constexpr std::uint64_t kFractionBits = 63;
    constexpr std::uint64_t kMaxExponent = kBias + 31;
    const std::uint64_t exponent = header.Number(offset, 2);
    const std::uint64_t mantissa = header.Number(offset + 2, 8);
    return exponent >= kBias && exponent <= kMaxExponent
               ? static_cast<std::uint32_t>(mantissa >> (kBias + kFractionBits - exponent))
               : 0;
}

ChunkEncoding EncodingOf(const std::string& compression) {
    for (const char* linear : {"NONE", "twos", "sowt", "raw ", "in24", "in32", "42ni", "23ni"}) {
        if (compression == linear) {
            return ChunkEncoding::Integer;
        }
    }
    for (const char* real : {"fl32", "FL32", "fl64", "FL64"}) {
        if (compression == real) {
            return ChunkEncoding::Float;
        }
    }
    return ChunkEncoding::Other;
}

std::optional<FormatChunk> ReadAIFF(const HeaderReader& header, const ChunkList& chunks,
                                    const Chunk& chunk) {
    constexpr std::uint64_t kPlainBytes = 18;
    if (chunks.Present(chunk) < kPlainBytes) {
        return std::nullopt;
    }
    FormatChunk format;
    format.channels = static_cast<std::uint32_t>(header.Number(chunk.offset, 2));
    format.frames = header.Number(chunk.offset + 2, 4);
    format.bits = static_cast<std::uint32_t>(header.Number(chunk.offset + 6, 2));
    format.rate = ReadRate(header, chunk.offset + 8);
    format.encoding = chunks.form == ChunkForm::AIFC && chunks.Present(chunk) >= kPlainBytes + 4
                          ? EncodingOf(header.Name(chunk.offset + kPlainBytes))
                          : ChunkEncoding::Integer;
    format.frameBytes = format.channels * BytesPerValue(format.bits);
    return format;
}

} // namespace

std::optional<FormatChunk> ReadFormatChunk(const HeaderReader& header, const ChunkList& chunks) {
    const bool isAIFF = IsAIFF(chunks.form);
    const Chunk* chunk = chunks.Find(isAIFF ? "COMM" : "fmt ");
    if (chunk == nullptr) {
        return std::nullopt;
    }
    auto format = isAIFF ? ReadAIFF(header, chunks, *chunk) : ReadWAVE(header, chunks, *chunk);
    if (format.has_value() && format->encoding == ChunkEncoding::Other) {
        format->frameBytes = 0;
    }
    return format;
}

} // namespace kel::host
