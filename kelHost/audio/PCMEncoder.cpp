#include "audio/PCMEncoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace kel::host {

namespace {

// The range of n-bit integers, in units of their last bit. Comparisons are made on floats: scaling
// by a power of two is exact, and so are these bounds as floats.
struct Range {
    float scale;      // 2^(n-1)
    float firstAbove; // the smallest scaled value that rounds beyond the largest integer
    float lastBelow;  // the largest scaled magnitude that still rounds to the smallest integer
    std::int32_t smallest;
    std::int32_t largest;
};

Range IntegerRange(unsigned bits) {
    const float scale = std::ldexp(1.0F, static_cast<int>(bits) - 1);
    const auto largest = static_cast<std::int32_t>((std::uint32_t{1} << (bits - 1)) - 1);
    // Beyond 24 bits floats are whole numbers, and a half cannot be represented.
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

// Rounds values one by one, and saturates those that do not fit.
void QuantiseOneByOne(const float* input, std::size_t values, const Range& range,
                      std::int32_t* output) {
    for (std::size_t i = 0; i < values; ++i) {
        const float scaled = input[i] * range.scale;
        output[i] = Fits(scaled, range) ? static_cast<std::int32_t>(std::lrint(scaled))
                                        : Saturate(scaled, range);
    }
}

// Rounds values, several at once where the processor can. Returns whether all of them fit; only
// then the output is valid.
bool QuantiseVectorised(const float* input, std::size_t values, const Range& range,
                        std::int32_t* output) {
    std::size_t done = 0;
    bool allFit = true;
#ifdef __x86_64__
    constexpr std::size_t kLanes = 4;
    const __m128 scale = _mm_set1_ps(range.scale);
    const __m128 above = _mm_set1_ps(range.firstAbove);
    const __m128 below = _mm_set1_ps(range.lastBelow);
    __m128 fits = _mm_castsi128_ps(_mm_set1_epi32(-1));
    for (; done + kLanes <= values; done += kLanes) {
        const __m128 scaled = _mm_mul_ps(_mm_loadu_ps(input + done), scale);
        fits =
            _mm_and_ps(fits, _mm_and_ps(_mm_cmplt_ps(scaled, above), _mm_cmpge_ps(scaled, below)));
        // Rounds to the nearest, half-way to even, like lrint in the default rounding mode.
        const __m128i rounded = _mm_cvtps_epi32(scaled);
        std::memcpy(output + done, &rounded, sizeof rounded);
    }
    allFit = _mm_movemask_ps(fits) == (1 << kLanes) - 1;
#endif
    for (; done < values; ++done) {
        const float scaled = input[done] * range.scale;
        const bool fitting = Fits(scaled, range);
        allFit = allFit && fitting;
        output[done] = fitting ? static_cast<std::int32_t>(std::lrint(scaled)) : 0;
    }
    return allFit;
}

// Rounds values. Returns whether all of them fit.
bool Quantise(const float* input, std::size_t values, const Range& range, std::int32_t* output) {
    if (QuantiseVectorised(input, values, range, output)) {
        return true;
    }
    QuantiseOneByOne(input, values, range, output);
    return false;
}

// The packers copy the bytes of integers as they are in memory.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

template <bool BigEndian>
void Pack16(const std::int32_t* input, std::size_t values, std::uint8_t* output) {
    for (std::size_t i = 0; i < values; ++i) {
        auto value = static_cast<std::uint16_t>(input[i]);
        if constexpr (BigEndian) {
            value = static_cast<std::uint16_t>((value << 8U) | (value >> 8U));
        }
        std::memcpy(output + i * sizeof value, &value, sizeof value);
    }
}

// Writes each value as four bytes, the last of which the next value overwrites: one store for three
// bytes. The last value has no space for a fourth byte.
template <bool BigEndian>
void Pack24(const std::int32_t* input, std::size_t values, std::uint8_t* output) {
    constexpr std::size_t kBytes = 3;
    const auto order = [](std::int32_t value) {
        const auto bits = static_cast<std::uint32_t>(value);
        return BigEndian ? __builtin_bswap32(bits << 8U) : bits;
    };
    for (std::size_t i = 0; i + 1 < values; ++i) {
        const std::uint32_t bits = order(input[i]);
        std::memcpy(output + i * kBytes, &bits, sizeof bits);
    }
    if (values > 0) {
        const std::uint32_t bits = order(input[values - 1]);
        std::memcpy(output + (values - 1) * kBytes, &bits, kBytes);
    }
}

#ifdef __x86_64__
// Packs four values at a time and writes sixteen bytes, the last four of which the next values
// overwrite. Requires SSSE3, which processors have had since 2006.
template <bool BigEndian>
__attribute__((target("ssse3"))) void Pack24Shuffled(const std::int32_t* input, std::size_t values,
                                                     std::uint8_t* output) {
    constexpr std::size_t kLanes = 4;
    constexpr std::size_t kBytes = 3;
    constexpr char kNone = -1;
    const __m128i order =
        BigEndian
            ? _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, kNone, kNone, kNone, kNone)
            : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, kNone, kNone, kNone, kNone);
    std::size_t done = 0;
    // While there is space for the four additional bytes.
    for (; done + 2 * kLanes <= values; done += kLanes) {
        __m128i four;
        std::memcpy(&four, input + done, sizeof four);
        four = _mm_shuffle_epi8(four, order);
        std::memcpy(output + done * kBytes, &four, sizeof four);
    }
    Pack24<BigEndian>(input + done, values - done, output + done * kBytes);
}
#endif

template <bool BigEndian>
void Pack32(const std::int32_t* input, std::size_t values, std::uint8_t* output) {
    for (std::size_t i = 0; i < values; ++i) {
        auto value = static_cast<std::uint32_t>(input[i]);
        if constexpr (BigEndian) {
            value = __builtin_bswap32(value);
        }
        std::memcpy(output + i * sizeof value, &value, sizeof value);
    }
}

using PackFunction = void (*)(const std::int32_t*, std::size_t, std::uint8_t*);

PackFunction PackerFor(std::uint8_t bytes, bool bigEndian) {
    switch (bytes) {
    case 2:
        return bigEndian ? Pack16<true> : Pack16<false>;
    case 3:
#ifdef __x86_64__
        if (__builtin_cpu_supports("ssse3") != 0) {
            return bigEndian ? Pack24Shuffled<true> : Pack24Shuffled<false>;
        }
#endif
        return bigEndian ? Pack24<true> : Pack24<false>;
    default:
        return bigEndian ? Pack32<true> : Pack32<false>;
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

// Decodes one value like libsndfile: integers over 2^(n-1), doubles rounded to floats.
float DecodeValue(const Encoding& encoding, std::uint64_t bits) {
    if (encoding.type == AudioPCMType::Integer) {
        // Shifted to the top of 32 bits, so that the sign bit is the highest.
        const auto value =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(bits) << (32U - encoding.bits));
        return std::ldexp(static_cast<float>(value), -31);
    }
    if (encoding.bytes == sizeof(float)) {
        const auto narrow = static_cast<std::uint32_t>(bits);
        float value = 0;
        std::memcpy(&value, &narrow, sizeof value);
        return value;
    }
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return static_cast<float>(value);
}

} // namespace

PCMEncoder::PCMEncoder(const Encoding& encoding, PCMEndianness byteOrder, std::uint32_t channels,
                       std::optional<std::uint64_t> ditherSeed)
    : m_encoding(encoding), m_byteOrder(byteOrder), m_channels(channels) {
    if (ditherSeed.has_value()) {
        m_dither.emplace(*ditherSeed);
    }
}

bool PCMEncoder::IsIdentity() const {
    return m_encoding.type == AudioPCMType::Float && m_encoding.bytes == sizeof(float) &&
           m_byteOrder == PCMEndianness::Little;
}

void PCMEncoder::Encode(const float* input, std::size_t values, std::uint8_t* output) {
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

    // In pieces that fit into the first-level cache.
    constexpr std::size_t kPiece = 1024;
    std::array<std::int32_t, kPiece> integers{};
    const Range range = IntegerRange(m_encoding.bits);
    const PackFunction pack = PackerFor(m_encoding.bytes, bigEndian);
    bool allFit = true;
    for (std::size_t done = 0; done < values; done += kPiece) {
        const std::size_t count = std::min(kPiece, values - done);
        if (m_dither.has_value()) {
            QuantiseDithered(input, done, count, integers.data());
        } else {
            allFit = Quantise(input + done, count, range, integers.data()) && allFit;
        }
        pack(integers.data(), count, output + SizeOf(done));
    }
    if (!allFit) {
        CountUnrepresentable(input, values);
    }
}

// Adds noise to values, rounds them, and counts those that do not fit. In doubles: floats near full
// scale cannot represent noise of one unit of 24 bits.
void PCMEncoder::QuantiseDithered(const float* input, std::size_t first, std::size_t values,
                                  std::int32_t* output) {
    // The difference of two uniform distributions is triangular. Both halves of one random number
    // are used, so that the noise is the same on every machine.
    constexpr double kUnit = 1.0 / 4294967296.0;
    const double scale = std::ldexp(1.0, m_encoding.bits - 1);
    const double firstAbove = scale - 0.5;
    const double lastBelow = -scale - 0.5;
    for (std::size_t i = 0; i < values; ++i) {
        const std::uint64_t random = (*m_dither)();
        const auto high = static_cast<double>(random >> 32U);
        const auto low = static_cast<double>(random & 0xFFFFFFFFU);
        const double dithered =
            static_cast<double>(input[first + i]) * scale + (high - low) * kUnit;
        if (dithered < firstAbove && dithered >= lastBelow) {
            output[i] = static_cast<std::int32_t>(std::lrint(dithered));
            continue;
        }
        ChannelConversion& channel = m_channels[(first + i) % m_channels.size()];
        if (std::isfinite(dithered)) {
            ++channel.clipped;
            channel.loudest =
                std::max(channel.loudest, static_cast<float>(std::abs(dithered) / scale));
        } else {
            ++channel.nonFinite;
        }
        output[i] = Saturate(static_cast<float>(dithered), IntegerRange(m_encoding.bits));
    }
}

void PCMEncoder::Decode(const std::uint8_t* encoded, std::size_t values, float* output) const {
    const bool bigEndian = m_byteOrder == PCMEndianness::Big;
    const std::size_t bytes = m_encoding.bytes;
    for (std::size_t i = 0; i < values; ++i) {
        std::uint64_t bits = 0;
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            const std::size_t place = bigEndian ? bytes - 1 - byte : byte;
            bits |= std::uint64_t{encoded[i * bytes + place]} << (8 * byte);
        }
        output[i] = DecodeValue(m_encoding, bits);
    }
}

void PCMEncoder::CountUnrepresentable(const float* input, std::size_t values) {
    const Range range = IntegerRange(m_encoding.bits);
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
