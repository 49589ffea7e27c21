#include "audio/SampleConverter.h"

#include "audio/PCMDescription.h"

#include <ElementFactoryType.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IMemoryBlock.h>
#include <WorkflowStepImplementation.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kel::host {

SampleConverter::SampleConverter(const std::shared_ptr<const IInfoContainer>& source,
                                 const TargetLayout& target)
    : m_channels(target.channels), m_sourceChannels(ChannelsOf(*source)),
      m_encoder(target.encoding, target.byteOrder,
                m_channels.empty() ? m_sourceChannels
                                   : static_cast<std::uint32_t>(m_channels.size()),
                target.dither),
      m_bytesPerValue(target.encoding.bytes) {
    if (IsIdentity()) {
        m_description = source;
        return;
    }
    m_info = DescribePCM(target.encoding, target.byteOrder, RateOf(*source),
                         static_cast<std::uint32_t>(m_encoder.Channels().size()));
    m_parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(m_info->GetAudioParameters());
    m_description = CreateInfoContainer(m_info, nullptr);
    m_allocator =
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
}

SampleHandle SampleConverter::Convert(const SampleHandle& container) {
    if (IsIdentity()) {
        return container;
    }
    const FloatView input = SelectChannels(FloatsIn(*container));
    const auto outputSize = static_cast<std::uint32_t>(m_encoder.SizeOf(input.count));
    const auto output = CreateBuffer(m_allocator, nullptr);
    output->Reserve(outputSize);
    m_encoder.Encode(input.values, input.count, output->GetData());
    output->SetSize(outputSize);
    return CreateSampleContainer(CreateAudioSample(m_parameters, m_info, output,
                                                   AudioSampleIn(*container)->GetTimeLimits(), {}),
                                 nullptr);
}

FloatView SampleConverter::SelectChannels(const FloatView& input) {
    if (m_channels.empty()) {
        return input;
    }
    const std::size_t frames = input.count / m_sourceChannels;
    m_selected.resize(frames * m_channels.size());
    float* output = m_selected.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (const std::uint32_t channel : m_channels) {
            *output++ = input.values[frame * m_sourceChannels + channel];
        }
    }
    return {m_selected.data(), m_selected.size()};
}

FloatView SampleConverter::ReadBack(const ISampleContainer& converted) {
    if (IsIdentity()) {
        return FloatsIn(converted);
    }
    const std::shared_ptr<const IBuffer> buffer = AudioSampleIn(converted)->GetBuffer();
    m_readBack.resize(buffer->GetSize() / m_bytesPerValue);
    m_encoder.Decode(buffer->GetData(), m_readBack.size(), m_readBack.data());
    return {m_readBack.data(), m_readBack.size()};
}

} // namespace kel::host
