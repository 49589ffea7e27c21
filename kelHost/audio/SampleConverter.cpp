#include "audio/SampleConverter.h"

#include <ElementFactoryType.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IChannelInfo.h>
#include <IMemoryBlock.h>
#include <ISampleContainer.h>
#include <ITrack.h>
#include <ITrackGroup.h>
#include <WorkflowStepImplementation.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kel::host {

namespace {

std::shared_ptr<const IAudioSample> SampleOf(const ISampleContainer& container) {
    return container.GetAudioSamples(nullptr, nullptr).at(0);
}

std::uint32_t ChannelsOf(const IInfoContainer& description) {
    return description.GetAudioInfos().at(0)->GetChannelInfo()->GetNumberOfChannels();
}

std::uint32_t RateOf(const IInfoContainer& description) {
    const auto parameters = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
        description.GetAudioInfos().at(0)->GetAudioParameters());
    return parameters->GetSampleRate();
}

} // namespace

std::shared_ptr<const IAudioInfo> DescribePCM(const Encoding& encoding, PCMEndianness byteOrder,
                                              std::uint32_t rate, std::uint32_t channels) {
    auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetMuxing(PCMMuxing::Multi);
    parameters->SetSampleRate(rate);
    parameters->SetBitsDepth(encoding.bits);
    parameters->SetEndianness(byteOrder);
    parameters->SetPCMType(encoding.type);
    parameters->SetSampleSize(encoding.bytes);
    const auto track =
        CreateTrack(ContentType::Audio, channels, CreateTrackGroup(""), TrackLayout::Default);
    return CreateAudioInfo(parameters, CreateChannelInfo(track), {}, {});
}

FloatView FloatsOf(const ISampleContainer& container) {
    const std::shared_ptr<const IBuffer> buffer = SampleOf(container)->GetBuffer();
    return {static_cast<const float*>(static_cast<const void*>(buffer->GetData())),
            buffer->GetSize() / sizeof(float)};
}

SampleConverter::SampleConverter(const std::shared_ptr<const IInfoContainer>& source,
                                 const TargetLayout& target)
    : m_channels(target.channels), m_sourceChannels(ChannelsOf(*source)),
      m_converter(target.encoding, target.byteOrder,
                  m_channels.empty() ? m_sourceChannels
                                     : static_cast<std::uint32_t>(m_channels.size()),
                  target.dither),
      m_bytesPerValue(target.encoding.bytes) {
    if (IsIdentity()) {
        m_description = source;
        return;
    }
    m_info = DescribePCM(target.encoding, target.byteOrder, RateOf(*source),
                         static_cast<std::uint32_t>(m_converter.Channels().size()));
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
    const FloatView input = Pick(FloatsOf(*container));
    const auto outputSize = static_cast<std::uint32_t>(m_converter.SizeOf(input.count));
    const auto output = CreateBuffer(m_allocator, nullptr);
    output->Reserve(outputSize);
    m_converter.Convert(input.values, input.count, output->GetData());
    output->SetSize(outputSize);
    return CreateSampleContainer(
        CreateAudioSample(m_parameters, m_info, output, SampleOf(*container)->GetTimeLimits(), {}),
        nullptr);
}

FloatView SampleConverter::Pick(const FloatView& input) {
    if (m_channels.empty()) {
        return input;
    }
    const std::size_t frames = input.count / m_sourceChannels;
    m_picked.resize(frames * m_channels.size());
    float* output = m_picked.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (const std::uint32_t channel : m_channels) {
            *output++ = input.values[frame * m_sourceChannels + channel];
        }
    }
    return {m_picked.data(), m_picked.size()};
}

void SampleConverter::ReadBack(const SampleHandle& converted, std::vector<float>& values) const {
    const std::shared_ptr<const IBuffer> buffer = SampleOf(*converted)->GetBuffer();
    values.resize(buffer->GetSize() / m_bytesPerValue);
    m_converter.ReadBack(buffer->GetData(), values.size(), values.data());
}

} // namespace kel::host
