/// A source that needs no file: it makes a sine tone.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelTone {

/// Delivers a sine tone as 32-bit float, little-endian, interleaved frames, the same in every
/// channel. It starts with a zero and lasts as long as the settings say. The settings are all that
/// it needs, so that SetInitConfig opens it.
///
/// One thread at a time. The operations are documented with their interfaces; said here is what is
/// particular to this element.
class ToneSource : public kel::IAudioSource {
public:
    /// @param manifest the registry entry, shared
    explicit ToneSource(std::shared_ptr<const kel::IParametersCollectionInstance> manifest);

    // IBasicControl

    /// Always refused: the settings hold from SetInitConfig on.
    void UpdateConfig(std::shared_ptr<const kel::IParametersCollectionInstance> config) override;
    std::shared_ptr<const kel::IParametersCollectionInstance> GetManifest() const override;

    // ISourceControl

    /// Starts the tone again after Release. A tone has no path: it does not matter.
    void Open(const std::wstring& path) override;
    /// Takes MediaSourceDirection::Forward alone.
    void SetDirection(kel::MediaSourceDirection direction) override;
    kel::MediaSourceDirection GetDirection() const override;
    kel::MediaTime GotoTimeOffset(const kel::MediaTime& time, std::string track) override;
    bool IsMediaOpen() const override;
    kel::TimeLimits GetTimeLimits(std::string track) override;
    /// Always empty.
    std::vector<std::shared_ptr<const kel::IMetadata>> GetMetadatas() const override;
    /// Always false.
    bool IsGrowing() const override;
    std::vector<std::shared_ptr<const kel::IChannelInfo>> GetAvailableOutputs() const override;
    /// There is one output, so that any choice at all is a choice of it.
    void
    ActivateOutputs(const std::vector<std::shared_ptr<const kel::IChannelInfo>>& outputs) override;
    std::vector<std::shared_ptr<const kel::IChannelInfo>> GetActivatedOutputs() const override;

    // IMediaSource

    std::shared_ptr<const kel::IInfoContainer> GetDefinedOutput(std::string name) const override;
    /// The next frames, at most "MaxSamplesPerBuffer" of them; empty at the end of the tone.
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
    // What the settings say.
    struct Tone {
        std::uint32_t rate = 0; // frames per second
        std::uint32_t channels = 0;
        std::uint32_t frequency = 0; // hertz
        double amplitude = 0;        // full scale is 1
        std::int64_t frames = 0;
        std::uint32_t mostFrames = 0; // in one sample
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
