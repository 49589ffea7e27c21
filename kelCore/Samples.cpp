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

// Nearly every sample travels alone in a container without packaging. It is that container itself,
// which spares one allocation on the path of every sample.
class AudioSample final : public IAudioSample,
                          public ISampleContainer,
                          public std::enable_shared_from_this<AudioSample> {
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

    std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> info,
                    std::shared_ptr<const ITrack> track) const override {
        if (!Matches(*this, info.get(), track.get())) {
            return {};
        }
        return {1, shared_from_this()};
    }

    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }

private:
    std::shared_ptr<const IAudioParameters> m_parameters;
    std::shared_ptr<const IAudioInfo> m_info;
    std::shared_ptr<const IBuffer> m_buffer;
    TimeLimits m_limits;
    std::vector<std::shared_ptr<const IMetadata>> m_metadata;
};

// Appends the sample to the selection if it is audio and both filters let it through.
void Select(std::vector<std::shared_ptr<const IAudioSample>>& selection,
            const std::shared_ptr<const ISample>& sample, const IAudioInfo* info,
            const ITrack* track) {
    auto audioSample = std::dynamic_pointer_cast<const IAudioSample>(sample);
    if (audioSample != nullptr && Matches(*audioSample, info, track)) {
        selection.push_back(std::move(audioSample));
    }
}

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

constexpr const char* kEmptySampleText = "a sample container can not hold an empty sample";

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
    if (packaging == nullptr && typeid(object) == typeid(AudioSample)) {
        // A container lets itself be read only, so that it may be the sample that was handed over
        // as const.
        auto* container = const_cast<AudioSample*>(static_cast<const AudioSample*>(&object));
        return {std::move(sample), container};
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
