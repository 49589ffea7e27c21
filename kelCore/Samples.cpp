#include "Checks.h"
#include "IAudioInfo.h"
#include "IAudioSample.h"
#include "IBuffer.h"
#include "IChannelInfo.h"
#include "ISampleContainer.h"
#include "ITrack.h"

#include <memory>
#include <typeinfo>
#include <utility>
#include <vector>

namespace kel {

namespace {

class AudioSample final : public IAudioSample {
public:
    AudioSample(std::shared_ptr<const IAudioParameters> parameters,
                std::shared_ptr<const IAudioInfo> info, std::shared_ptr<const IBuffer> buffer,
                TimeLimits limits, std::vector<std::shared_ptr<const IMetadata>> metadata)
        : m_parameters(std::move(parameters)), m_info(std::move(info)), m_buffer(std::move(buffer)),
          m_limits(std::move(limits)), m_metadata(std::move(metadata)) {}

    std::shared_ptr<const IBuffer> GetBuffer() const override { return m_buffer; }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override {
        return m_parameters;
    }
    std::shared_ptr<const IAudioInfo> GetAudioInfo() const override { return m_info; }
    const TimeLimits& GetTimeLimits() const override { return m_limits; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override {
        return m_metadata;
    }

private:
    std::shared_ptr<const IAudioParameters> m_parameters;
    std::shared_ptr<const IAudioInfo> m_info;
    std::shared_ptr<const IBuffer> m_buffer;
    TimeLimits m_limits;
    std::vector<std::shared_ptr<const IMetadata>> m_metadata;
};

bool Matches(const IAudioSample& sample, const IAudioInfo* info, const ITrack* track) {
    if (info == nullptr && track == nullptr) {
        return true;
    }
    const std::shared_ptr<const IAudioInfo> sampleInfo = sample.GetAudioInfo();
    if (info != nullptr && sampleInfo.get() != info) {
        return false;
    }
    if (track == nullptr) {
        return true;
    }
    const std::shared_ptr<const IChannelInfo> channels =
        sampleInfo != nullptr ? sampleInfo->GetChannelInfo() : nullptr;
    return channels != nullptr && channels->GetTrack().get() == track;
}

// Appends the sample to the selection if it is audio and both filters accept it.
void Select(std::vector<std::shared_ptr<const IAudioSample>>& selection,
            const std::shared_ptr<const ISample>& sample, const IAudioInfo* info,
            const ITrack* track) {
    auto audioSample = std::dynamic_pointer_cast<const IAudioSample>(sample);
    if (audioSample != nullptr && Matches(*audioSample, info, track)) {
        selection.push_back(std::move(audioSample));
    }
}

// The container of one audio sample of the framework, which every sample passes through: it needs
// neither a vector nor a cast at run time.
class SingleSampleContainer final : public ISampleContainer {
public:
    SingleSampleContainer(std::shared_ptr<const ISample> sample,
                          std::shared_ptr<const IPackagingInfo> packaging)
        : m_sample(std::move(sample)), m_packaging(std::move(packaging)) {}

    std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> info,
                    std::shared_ptr<const ITrack> track) const override {
        std::vector<std::shared_ptr<const IAudioSample>> selection;
        const auto& audioSample = static_cast<const AudioSample&>(*m_sample);
        if (Matches(audioSample, info.get(), track.get())) {
            selection.emplace_back(m_sample, &audioSample);
        }
        return selection;
    }

    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return m_packaging; }

private:
    std::shared_ptr<const ISample> m_sample; // an AudioSample
    std::shared_ptr<const IPackagingInfo> m_packaging;
};

class SampleContainer final : public ISampleContainer {
public:
    SampleContainer(std::vector<std::shared_ptr<const ISample>> samples,
                    std::shared_ptr<const IPackagingInfo> packaging)
        : m_samples(std::move(samples)), m_packaging(std::move(packaging)) {}

    std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> info,
                    std::shared_ptr<const ITrack> track) const override {
        std::vector<std::shared_ptr<const IAudioSample>> selection;
        for (const std::shared_ptr<const ISample>& sample : m_samples) {
            Select(selection, sample, info.get(), track.get());
        }
        return selection;
    }

    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return m_packaging; }

private:
    std::vector<std::shared_ptr<const ISample>> m_samples;
    std::shared_ptr<const IPackagingInfo> m_packaging;
};

constexpr const char* kEmptySampleText = "a sample container cannot hold an empty sample";

} // namespace

std::shared_ptr<IAudioSample>
CreateAudioSample(std::shared_ptr<const IAudioParameters> parameters,
                  std::shared_ptr<const IAudioInfo> info, std::shared_ptr<const IBuffer> buffer,
                  const TimeLimits& limits,
                  std::vector<std::shared_ptr<const IMetadata>> metadata) {
    KEL_CHECK_POINTER(buffer, "an audio sample needs a buffer");
    return std::make_shared<AudioSample>(std::move(parameters), std::move(info), std::move(buffer),
                                         limits, std::move(metadata));
}

std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::shared_ptr<const ISample> sample,
                      std::shared_ptr<const IPackagingInfo> packaging) {
    KEL_CHECK_POINTER(sample, kEmptySampleText);
    const ISample& object = *sample;
    if (typeid(object) == typeid(AudioSample)) {
        return std::make_shared<SingleSampleContainer>(std::move(sample), std::move(packaging));
    }
    return CreateSampleContainer(std::vector<std::shared_ptr<const ISample>>{std::move(sample)},
                                 std::move(packaging));
}

std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::vector<std::shared_ptr<const ISample>> samples,
                      std::shared_ptr<const IPackagingInfo> packaging) {
    for (const std::shared_ptr<const ISample>& sample : samples) {
        KEL_CHECK_POINTER(sample, kEmptySampleText);
    }
    return std::make_shared<SampleContainer>(std::move(samples), std::move(packaging));
}

} // namespace kel
