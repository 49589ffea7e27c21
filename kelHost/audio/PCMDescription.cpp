#include "audio/PCMDescription.h"

#include <IAudioParameters_PCM.h>
#include <IChannelInfo.h>
#include <ITrack.h>
#include <ITrackGroup.h>

#include <cstdint>
#include <memory>

namespace kel::host {

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

std::uint32_t ChannelsOf(const IInfoContainer& description) {
    return description.GetAudioInfos().at(0)->GetChannelInfo()->GetNumberOfChannels();
}

std::uint32_t RateOf(const IInfoContainer& description) {
    const auto parameters = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
        description.GetAudioInfos().at(0)->GetAudioParameters());
    return parameters->GetSampleRate();
}

} // namespace kel::host
