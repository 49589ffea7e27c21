/// Conversion of a source's samples to a sink's.
#pragma once

#include "audio/Formats.h"
#include "audio/PCMEncoder.h"
#include "audio/Samples.h"

#include <IAudioInfo.h>
#include <IAudioParameters_PCM.h>
#include <IInfoContainer.h>
#include <IMemoryBlockAllocator.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kel::host {

/// The samples that a sink expects.
struct TargetLayout {
    Encoding encoding;
    PCMEndianness byteOrder = PCMEndianness::Little;
    std::vector<std::uint32_t> channels; ///< indices of the source's, from 0; empty: all
    std::optional<std::uint64_t> dither; ///< see PCMEncoder
};

/// Turns a source's samples into a sink's: selects channels, encodes values. Samples that need
/// neither pass through unchanged. One thread at a time.
class SampleConverter {
public:
    /// @param source describes the source's samples, 32-bit float little-endian
    /// @param target the result
    SampleConverter(const std::shared_ptr<const IInfoContainer>& source,
                    const TargetLayout& target);

    /// The description of the samples that Convert returns.
    const std::shared_ptr<const IInfoContainer>& Description() const { return m_description; }

    /// True when Convert returns its argument.
    bool IsIdentity() const { return m_channels.empty() && m_encoder.IsIdentity(); }

    /// Converts the next sample.
    SampleHandle Convert(const SampleHandle& container);

    /// Returns the floats that a source reads from a file with a converted sample.
    /// @param converted a sample that Convert returned; it lives as long as the result is used
    FloatView ReadBack(const ISampleContainer& converted);

    /// See PCMEncoder::Channels.
    const std::vector<ChannelConversion>& Channels() const { return m_encoder.Channels(); }

private:
    FloatView SelectChannels(const FloatView& input);

    std::vector<std::uint32_t> m_channels;
    std::uint32_t m_sourceChannels;
    PCMEncoder m_encoder;
    std::size_t m_bytesPerValue;
    std::vector<float> m_selected;
    std::vector<float> m_readBack;
    std::shared_ptr<const IAudioParameters_PCM> m_parameters;
    std::shared_ptr<const IAudioInfo> m_info;
    std::shared_ptr<const IInfoContainer> m_description;
    std::shared_ptr<IMemoryBlockAllocator> m_allocator;
};

} // namespace kel::host
