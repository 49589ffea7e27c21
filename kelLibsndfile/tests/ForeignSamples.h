/// Containers and samples of another library, which may hold empty handles. Immutable.
#pragma once

#include <kelCore.h>

#include <memory>
#include <utility>
#include <vector>

namespace kel::test {

using AudioSamples = std::vector<std::shared_ptr<const IAudioSample>>;

/// A container of another library, which returns any list.
class ForeignContainer final : public ISampleContainer {
public:
    explicit ForeignContainer(AudioSamples samples) : m_samples(std::move(samples)) {}

    AudioSamples GetAudioSamples(std::shared_ptr<const IAudioInfo> /*info*/,
                                 std::shared_ptr<const ITrack> /*track*/) const override {
        return m_samples;
    }
    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }

private:
    AudioSamples m_samples;
};

/// A sample of another library, with any buffer or none.
class ForeignSample final : public IAudioSample {
public:
    explicit ForeignSample(std::shared_ptr<const IBuffer> buffer) : m_buffer(std::move(buffer)) {}

    std::shared_ptr<const IBuffer> GetBuffer() const override { return m_buffer; }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override { return nullptr; }
    std::shared_ptr<const IAudioInfo> GetAudioInfo() const override { return nullptr; }
    const TimeLimits& GetTimeLimits() const override { return m_limits; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }

private:
    std::shared_ptr<const IBuffer> m_buffer;
    TimeLimits m_limits;
};

} // namespace kel::test
