/// From the sources' 32-bit floats to the sample values of a file.
#pragma once

#include "audio/Formats.h"

#include <PCMEndianness.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace kel::host {

/// What happened to the values of one channel that an integer cannot hold.
struct ChannelConversion {
    std::uint64_t clipped = 0;   ///< finite values beyond full scale, set to full scale
    float loudest = 0;           ///< the largest magnitude among them, 1.0 is full scale
    std::uint64_t nonFinite = 0; ///< NaN, set to 0, and infinities, set to full scale
};

/// Converts interleaved 32-bit floats, where 1.0 is full scale, to an encoding and byte order.
///
/// An integer of n bits is the float times 2^(n-1), rounded to the nearest value (to the even one
/// of two that are equally near) and kept within what n bits hold; so every 16- and 24-bit value
/// that a source has turned into a float comes back as itself. Floats are passed on or widened as
/// they are, NaN included. One thread at a time.
class PCMEncoder {
public:
    /// @param channels values per frame, not 0
    /// @param ditherSeed adds noise before rounding to integers, triangular and of one unit of the
    /// last place to either side, so that the error does not follow the signal (Lipshitz,
    /// Wannamaker and Vanderkooy, "Quantization and Dither", J. Audio Eng. Soc. 40, 1992); the same
    /// seed gives the same noise. Without one, nothing is added.
    PCMEncoder(const Encoding& encoding, PCMEndianness byteOrder, std::uint32_t channels,
               std::optional<std::uint64_t> ditherSeed = std::nullopt);

    /// True when the result is the very bytes of the source's samples, so that they need no
    /// conversion at all.
    bool IsIdentity() const;

    /// Bytes that @p values converted values take.
    std::size_t SizeOf(std::size_t values) const { return values * m_encoding.bytes; }

    /// Converts whole frames.
    /// @param input the values, interleaved
    /// @param values how many, a multiple of the number of channels
    /// @param output room for SizeOf(values) bytes
    void Convert(const float* input, std::size_t values, std::uint8_t* output);

    /// What a source reads from the values of the last Convert: what they are in the file, as
    /// floats again.
    /// @param converted the result of Convert
    /// @param values how many
    /// @param output room for so many floats
    void ReadBack(const std::uint8_t* converted, std::size_t values, float* output) const;

    /// What was clipped and not finite so far, channel by channel.
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
