#include "Checks.h"
#include "IAudioInfo.h"
#include "IAudioParameters.h"
#include "IAudioParameters_PCM.h"
#include "IChannelInfo.h"
#include "IInfoContainer.h"
#include "ITrack.h"
#include "ITrackGroup.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

// Intentional: no setter checks its value, because elements and hosts fill the object in any order.
class PCMParameters final : public IAudioParameters_PCM {
public:
    ACodecFamily GetCodecFamily() const override { return ACodecFamily::PCM; }

    void SetSampleRate(std::uint32_t hertz) override { m_sampleRate = hertz; }
    std::uint32_t GetSampleRate() const override { return m_sampleRate; }
    PCMEndianness GetEndianness() const override { return m_endianness; }
    void SetEndianness(PCMEndianness endianness) override { m_endianness = endianness; }
    PCMMuxing GetMuxing() const override { return m_muxing; }
    void SetMuxing(PCMMuxing muxing) override { m_muxing = muxing; }
    AudioPCMType GetPCMType() const override { return m_type; }
    void SetPCMType(AudioPCMType type) override { m_type = type; }
    std::uint8_t GetSampleSize() const override { return m_sampleSize; }
    void SetSampleSize(std::uint8_t bytes) override { m_sampleSize = bytes; }
    std::uint8_t GetBitsDepth() const override { return m_bitsDepth; }
    void SetBitsDepth(std::uint8_t bits) override { m_bitsDepth = bits; }

private:
    std::uint32_t m_sampleRate = 0;
    PCMEndianness m_endianness = PCMEndianness::Undefined;
    PCMMuxing m_muxing = PCMMuxing::Undefined;
    AudioPCMType m_type = AudioPCMType::Undefined;
    std::uint8_t m_sampleSize = 0;
    std::uint8_t m_bitsDepth = 0;
};

// Parameters of a family without an interface in the framework.
class OtherParameters final : public IAudioParameters {
public:
    explicit OtherParameters(ACodecFamily family) : m_family(family) {}

    ACodecFamily GetCodecFamily() const override { return m_family; }

private:
    ACodecFamily m_family;
};

class TrackGroup final : public ITrackGroup {
public:
    explicit TrackGroup(std::string name) : m_name(std::move(name)) {}

    const std::string& GetName() const override { return m_name; }

private:
    std::string m_name;
};

class Track final : public ITrack {
public:
    Track(ContentType type, std::uint32_t channels, std::shared_ptr<const ITrackGroup> group,
          TrackLayout layout)
        : m_type(type), m_channels(channels), m_group(std::move(group)), m_layout(layout) {}

    ContentType GetContentType() const override { return m_type; }
    std::uint32_t GetNumberOfChannels() const override { return m_channels; }
    std::shared_ptr<const ITrackGroup> GetTrackGroup() const override { return m_group; }
    TrackLayout GetLayout() const override { return m_layout; }

private:
    ContentType m_type;
    std::uint32_t m_channels;
    std::shared_ptr<const ITrackGroup> m_group;
    TrackLayout m_layout;
};

class ChannelInfo final : public IChannelInfo {
public:
    explicit ChannelInfo(std::shared_ptr<const ITrack> track) : m_track(std::move(track)) {}

    std::uint32_t GetNumberOfChannels() const override { return m_track->GetNumberOfChannels(); }
    std::shared_ptr<const ITrack> GetTrack() const override { return m_track; }

private:
    std::shared_ptr<const ITrack> m_track;
};

std::string NextAudioInfoId() {
    static std::atomic<std::uint64_t> last{0};
    return "audio-" + std::to_string(++last);
}

class AudioInfo final : public IAudioInfo {
public:
    AudioInfo(std::shared_ptr<const IAudioParameters> parameters,
              std::shared_ptr<const IChannelInfo> channels,
              std::vector<std::shared_ptr<const IMetadata>> metadata,
              std::vector<std::shared_ptr<const IClockInfo>> clocks)
        : m_parameters(std::move(parameters)), m_channels(std::move(channels)),
          m_metadata(std::move(metadata)), m_clocks(std::move(clocks)) {}

    std::shared_ptr<const IChannelInfo> GetChannelInfo() const override { return m_channels; }
    const std::string& GetId() const override { return m_id; }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override {
        return m_parameters;
    }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override {
        return m_metadata;
    }
    std::vector<std::shared_ptr<const IClockInfo>> GetClockInfos() const override {
        return m_clocks;
    }

private:
    std::string m_id = NextAudioInfoId();
    std::shared_ptr<const IAudioParameters> m_parameters;
    std::shared_ptr<const IChannelInfo> m_channels;
    std::vector<std::shared_ptr<const IMetadata>> m_metadata;
    std::vector<std::shared_ptr<const IClockInfo>> m_clocks;
};

class InfoContainer final : public IInfoContainer {
public:
    InfoContainer(std::vector<std::shared_ptr<const IInfo>> infos,
                  std::shared_ptr<const IPackagingInfo> packaging)
        : m_infos(std::move(infos)), m_packaging(std::move(packaging)) {}

    std::vector<std::shared_ptr<const IInfo>> GetInfos() const override { return m_infos; }

    std::vector<std::shared_ptr<const IAudioInfo>> GetAudioInfos() const override {
        std::vector<std::shared_ptr<const IAudioInfo>> audioInfos;
        for (const std::shared_ptr<const IInfo>& info : m_infos) {
            if (auto audioInfo = std::dynamic_pointer_cast<const IAudioInfo>(info)) {
                audioInfos.push_back(std::move(audioInfo));
            }
        }
        return audioInfos;
    }

    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return m_packaging; }

private:
    std::vector<std::shared_ptr<const IInfo>> m_infos;
    std::shared_ptr<const IPackagingInfo> m_packaging;
};

} // namespace

std::shared_ptr<IAudioParameters> CreateAudioParameters(ACodecFamily family) {
    if (family == ACodecFamily::PCM) {
        return std::make_shared<PCMParameters>();
    }
    return std::make_shared<OtherParameters>(family);
}

std::shared_ptr<ITrackGroup> CreateTrackGroup(std::string name) {
    return std::make_shared<TrackGroup>(std::move(name));
}

std::shared_ptr<ITrack> CreateTrack(ContentType type, std::uint32_t channels,
                                    std::shared_ptr<const ITrackGroup> group, TrackLayout layout) {
    return std::make_shared<Track>(type, channels, std::move(group), layout);
}

std::shared_ptr<IChannelInfo> CreateChannelInfo(std::shared_ptr<const ITrack> track) {
    KEL_CHECK_POINTER(track, "a channel info needs a track");
    return std::make_shared<ChannelInfo>(std::move(track));
}

std::shared_ptr<IAudioInfo> CreateAudioInfo(std::shared_ptr<const IAudioParameters> parameters,
                                            std::shared_ptr<const IChannelInfo> channels,
                                            std::vector<std::shared_ptr<const IMetadata>> metadata,
                                            std::vector<std::shared_ptr<const IClockInfo>> clocks) {
    return std::make_shared<AudioInfo>(std::move(parameters), std::move(channels),
                                       std::move(metadata), std::move(clocks));
}

std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::shared_ptr<const IInfo> info,
                    std::shared_ptr<const IPackagingInfo> packaging) {
    return CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{std::move(info)},
                               std::move(packaging));
}

std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>> infos,
                    std::shared_ptr<const IPackagingInfo> packaging) {
    for (const std::shared_ptr<const IInfo>& info : infos) {
        KEL_CHECK_POINTER(info, "an info container cannot hold an empty info");
    }
    return std::make_shared<InfoContainer>(std::move(infos), std::move(packaging));
}

} // namespace kel
