#include "Conversion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kel::host {

namespace {

// What n-bit integers hold, in units of their last bit. The comparisons are made on floats: scaling
// by a power of two is exact, and so are these bounds as floats.
struct Range {
    float scale;      // 2^(n-1)
    float firstAbove; // the smallest scaled value that rounds beyond the largest integer
    float lastBelow;  // the largest scaled magnitude that still rounds to the smallest integer
    std::int32_t smallest;
    std::int32_t largest;
};

Range RangeOf(unsigned bits) {
    const float scale = std::ldexp(1.0F, static_cast<int>(bits) - 1);
    const auto largest = static_cast<std::int32_t>((std::uint32_t{1} << (bits - 1)) - 1);
    // Beyond 24 bits floats are whole numbers already, and a half is not there to be added.
    const float half = bits > 24 ? 0.0F : 0.5F;
    return {scale, scale - half, -scale - half, -largest - 1, largest};
}

// True for values that round to an integer within the range.
bool Fits(float scaled, const Range& range) {
    return scaled < range.firstAbove && scaled >= range.lastBelow;
}

std::int32_t Saturate(float scaled, const Range& range) {
    if (std::isnan(scaled)) {
        return 0;
    }
    return scaled > 0 ? range.largest : range.smallest;
}

// Rounds a run of values; tells whether all of them fitted.
bool Quantise(const float* input, std::size_t values, const Range& range, std::int32_t* output) {
    bool allFit = true;
    for (std::size_t i = 0; i < values; ++i) {
        const float scaled = input[i] * range.scale;
        if (Fits(scaled, range)) {
            output[i] = static_cast<std::int32_t>(std::lrint(scaled));
        } else {
            output[i] = Saturate(scaled, range);
            allFit = false;
        }
    }
    return allFit;
}

template <std::size_t Bytes>
void Pack(const std::int32_t* input, std::size_t values, bool bigEndian, std::uint8_t* output) {
    for (std::size_t i = 0; i < values; ++i) {
        const auto value = static_cast<std::uint32_t>(input[i]);
        for (std::size_t byte = 0; byte < Bytes; ++byte) {
            const std::size_t place = bigEndian ? Bytes - 1 - byte : byte;
            output[i * Bytes + place] = static_cast<std::uint8_t>(value >> (8 * byte));
        }
    }
}

void PackIntegers(std::uint8_t bytes, const std::int32_t* input, std::size_t values, bool bigEndian,
                  std::uint8_t* output) {
    switch (bytes) {
    case 2:
        Pack<2>(input, values, bigEndian, output);
        break;
    case 3:
        Pack<3>(input, values, bigEndian, output);
        break;
    default:
        Pack<4>(input, values, bigEndian, output);
        break;
    }
}

template <typename Bits, typename Value>
void StoreFloat(Value value, bool bigEndian, std::uint8_t* output) {
    Bits bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (std::size_t byte = 0; byte < sizeof bits; ++byte) {
        const std::size_t place = bigEndian ? sizeof bits - 1 - byte : byte;
        output[place] = static_cast<std::uint8_t>(bits >> (8 * byte));
    }
}

} // namespace

Converter::Converter(const Encoding& encoding, PCMEndianness byteOrder, std::uint32_t channels)
    : m_encoding(encoding), m_byteOrder(byteOrder), m_channels(channels) {}

bool Converter::IsIdentity() const {
    return m_encoding.type == AudioPCMType::Float && m_encoding.bytes == sizeof(float) &&
           m_byteOrder == PCMEndianness::Little;
}

void Converter::Convert(const float* input, std::size_t values, std::uint8_t* output) {
    const bool bigEndian = m_byteOrder == PCMEndianness::Big;
    if (m_encoding.type == AudioPCMType::Float) {
        for (std::size_t i = 0; i < values; ++i) {
            if (m_encoding.bytes == sizeof(float)) {
                StoreFloat<std::uint32_t>(input[i], bigEndian, output + SizeOf(i));
            } else {
                StoreFloat<std::uint64_t>(static_cast<double>(input[i]), bigEndian,
                                          output + SizeOf(i));
            }
        }
        return;
    }

    // In pieces that stay in the processor's nearest cache.
    constexpr std::size_t kPiece = 1024;
    std::array<std::int32_t, kPiece> integers{};
    const Range range = RangeOf(m_encoding.bits);
    bool allFit = true;
    for (std::size_t done = 0; done < values; done += kPiece) {
        const std::size_t count = std::min(kPiece, values - done);
        allFit = Quantise(input + done, count, range, integers.data()) && allFit;
        PackIntegers(m_encoding.bytes, integers.data(), count, bigEndian, output + SizeOf(done));
    }
    if (!allFit) {
        CountUnrepresentable(input, values);
    }
}

void Converter::CountUnrepresentable(const float* input, std::size_t values) {
    const Range range = RangeOf(m_encoding.bits);
    for (std::size_t i = 0; i < values; ++i) {
        ChannelConversion& channel = m_channels[i % m_channels.size()];
        if (!std::isfinite(input[i])) {
            ++channel.nonFinite;
        } else if (!Fits(input[i] * range.scale, range)) {
            ++channel.clipped;
            channel.loudest = std::max(channel.loudest, std::abs(input[i]));
        }
    }
}

} // namespace kel::host
