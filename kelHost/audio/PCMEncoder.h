/// Encoding of the sources' 32-bit floats as the sample values of a file.
#pragma once

#include "audio/Formats.h"

#include <PCMEndianness.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace kel::host {

/// Values of one channel that an integer cannot hold.
struct ChannelConversion {
    std::uint64_t clipped = 0;   ///< finite values beyond full scale, replaced by full scale
    float loudest = 0;           ///< the largest magnitude among them, 1.0 is full scale
    std::uint64_t nonFinite = 0; ///< NaN, replaced by 0, and infinities, replaced by full scale
};

/// Encodes interleaved 32-bit floats, where 1.0 is full scale, in an encoding and byte order.
///
/// An integer of n bits is the float times 2^(n-1), rounded to the nearest value (to the even one
/// of two that are equally near) and limited to the range of n bits. Every 16- and 24-bit value
/// that a source has turned into a float is restored exactly. Floats are passed on or widened
/// unchanged, NaN included. One thread at a time.
class PCMEncoder {
public:
    /// @param channels values per frame, not 0
    /// @param ditherSeed adds noise before rounding to integers, triangular and of one unit of the
    /// last place to either side, so that the error does not follow the signal (Lipshitz,
    /// Wannamaker and Vanderkooy, "Quantization and Dither", J. Audio Eng. Soc. 40, 1992); the same
    /// seed produces the same noise. Without a seed, nothing is added.
    PCMEncoder(const Encoding& encoding, PCMEndianness byteOrder, std::uint32_t channels,
               std::optional<std::uint64_t> ditherSeed = std::nullopt);

    /// True when the result has the same bytes as the source's samples, which then need no
    /// encoding.
    bool IsIdentity() const;

    /// Size of @p values encoded values, in bytes.
    std::size_t SizeOf(std::size_t values) const { return values * m_encoding.bytes; }

    /// Encodes whole frames.
    /// @param input the values, interleaved
    /// @param values number of values, a multiple of the number of channels
    /// @param output space for SizeOf(values) bytes
    void Encode(const float* input, std::size_t values, std::uint8_t* output);

    /// Decodes values as a source does that reads them from the file.
    /// @param encoded the result of Encode
    /// @param values number of values
    /// @param output space for so many floats
    void Decode(const std::uint8_t* encoded, std::size_t values, float* output) const;

    /// Clipped and non-finite values so far, for each channel.
    const std::vector<ChannelConversion>& Channels() const { return m_channels; }

private:
    void QuantiseDithered(const float* input, std::size_t first, std::size_t values,
                          std::int32_t* output);
    void CountUnrepresentable(const float* input, std::size_t values);

    Encoding m_encoding;
    PCMEndianness m_byteOrder;
    std::optional<std::mt19937_64> m_dither;
    std::vector<ChannelConversion> m_channels;
};

} // namespace kel::host
