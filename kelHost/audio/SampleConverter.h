/// From a source's samples to a sink's.
#pragma once

#include "audio/Formats.h"
#include "audio/PCMEncoder.h"
#include "transfer/StageRunner.h"

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

/// The samples that a sink is to get.
struct TargetLayout {
    Encoding encoding;
    PCMEndianness byteOrder = PCMEndianness::Little;
    std::vector<std::uint32_t> channels; ///< which of the source's, counted from 0; empty: all
    std::optional<std::uint64_t> dither; ///< see PCMEncoder
};

/// The floats of a sample, interleaved.
struct FloatView {
    const float* values = nullptr;
    std::size_t count = 0;
};

/// The floats that a source's sample container holds.
FloatView FloatsOf(const ISampleContainer& container);

/// Turns a source's samples into a sink's: picks channels, converts values. Samples that need
/// neither go through untouched. One thread at a time.
class SampleConverter {
public:
    /// @param source describes the source's samples, 32-bit float little-endian
    /// @param target what to make of them
    SampleConverter(const std::shared_ptr<const IInfoContainer>& source,
                    const TargetLayout& target);

    /// The description of what Convert gives.
    const std::shared_ptr<const IInfoContainer>& Description() const { return m_description; }

    /// True when Convert gives back what it gets.
    bool IsIdentity() const { return m_channels.empty() && m_converter.IsIdentity(); }

    SampleHandle Convert(const SampleHandle& container);

    /// What a source reads from the converted values, see PCMEncoder::ReadBack.
    /// @param converted what Convert gave
    void ReadBack(const SampleHandle& converted, std::vector<float>& values) const;

    /// See PCMEncoder::Channels.
    const std::vector<ChannelConversion>& Channels() const { return m_converter.Channels(); }

private:
    FloatView Pick(const FloatView& input);

    std::vector<std::uint32_t> m_channels;
    std::uint32_t m_sourceChannels;
    PCMEncoder m_converter;
    std::size_t m_bytesPerValue;
    std::vector<float> m_picked;
    std::shared_ptr<const IAudioParameters_PCM> m_parameters;
    std::shared_ptr<const IAudioInfo> m_info;
    std::shared_ptr<const IInfoContainer> m_description;
    std::shared_ptr<IMemoryBlockAllocator> m_allocator;
};

/// Describes PCM samples for a sink.
/// @param rate frames per second
std::shared_ptr<const IAudioInfo> DescribePCM(const Encoding& encoding, PCMEndianness byteOrder,
                                              std::uint32_t rate, std::uint32_t channels);

} // namespace kel::host
