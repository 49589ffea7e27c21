/// A source that needs no file: it makes a sine tone.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelTone {

/// Delivers a sine tone as 32-bit float, little-endian, interleaved frames, the same in every
/// channel. It starts with a zero and is as long as the settings declare. It needs nothing else, so
/// SetInitConfig opens it.
///
/// One thread at a time. The interfaces document the operations. The comments here describe only
/// what is specific to this element.
class ToneSource : public kel::IAudioSource {
public:
    /// @param manifest the registry entry, shared
    explicit ToneSource(std::shared_ptr<const kel::IParametersCollectionInstance> manifest);

    // IBasicControl

    /// Always refused: the settings cannot change after SetInitConfig.
    void UpdateConfig(std::shared_ptr<const kel::IParametersCollectionInstance> config) override;
    std::shared_ptr<const kel::IParametersCollectionInstance> GetManifest() const override;

    // ISourceControl

    /// Starts the tone again after Release. The path is ignored.
    void Open(const std::wstring& path) override;
    /// Accepts only MediaSourceDirection::Forward.
    void SetDirection(kel::MediaSourceDirection direction) override;
    kel::MediaSourceDirection GetDirection() const override;
    kel::MediaTime GotoTimeOffset(const kel::MediaTime& time, std::string track) override;
    bool IsMediaOpen() const override;
    kel::TimeLimits GetTimeLimits(std::string track) override;
    /// Returns an empty list.
    std::vector<std::shared_ptr<const kel::IMetadata>> GetMetadatas() const override;
    /// Returns false: the length is fixed.
    bool IsGrowing() const override;
    std::vector<std::shared_ptr<const kel::IChannelInfo>> GetAvailableOutputs() const override;
    /// The only output becomes active, or inactive for an empty list.
    void
    ActivateOutputs(const std::vector<std::shared_ptr<const kel::IChannelInfo>>& outputs) override;
    std::vector<std::shared_ptr<const kel::IChannelInfo>> GetActivatedOutputs() const override;

    // IMediaSource

    std::shared_ptr<const kel::IInfoContainer> GetDefinedOutput(std::string name) const override;
    /// Returns the next frames, at most "MaxSamplesPerBuffer"; empty at the end of the tone.
    std::shared_ptr<const kel::ISampleContainer> GetSample() override;
    /// Does nothing: the source never waits.
    void Interrupt() override;
    /// Starts the tone that the settings describe.
    void SetInitConfig(std::shared_ptr<const kel::IParametersCollectionInstance> config) override;
    /// Does nothing: samples are pulled.
    void SetOutputMediator(std::shared_ptr<kel::IOutputMediator> mediator, std::string output,
                           std::string name) override;
    /// Does nothing: the source does not read ahead.
    void ClearInternalBuffer() override;
    void Release() override;

private:
    // The interpreted settings.
    struct Tone {
        std::uint32_t rate = 0; // frames per second
        std::uint32_t channels = 0;
        std::uint32_t frequency = 0; // hertz
        double amplitude = 0;        // full scale is 1
        std::int64_t frames = 0;
        std::uint32_t maxFrames = 0; // in one sample
    };

    static Tone ReadSettings(const kel::IParametersCollectionInstance& config);
    kel::TimeLimits Limits(std::int64_t start, std::int64_t frames) const;
    float ValueAt(std::int64_t frame) const;

    std::shared_ptr<const kel::IParametersCollectionInstance> m_manifest;
    Tone m_tone;
    std::shared_ptr<const kel::IAudioInfo> m_info; // empty while the source is closed
    std::shared_ptr<kel::IMemoryBlockAllocator> m_allocator;
    std::int64_t m_position = 0; // of the next frame
    bool m_outputActive = true;
};

} // namespace kelTone
