/// A sink that measures the levels of its input.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace kelTone {

/// Measures the peak and the RMS of each channel of one PCM audio input: 32-bit float,
/// little-endian, interleaved. Close logs them at level Info, one record for each channel. If there
/// is a path, Close also writes them to that file as lines of text.
///
/// One thread at a time. The interfaces document the operations. The comments here describe only
/// what is specific to this element.
class LevelMeterSink : public kel::IAudioSink {
public:
    /// @param manifest the registry entry, shared
    explicit LevelMeterSink(std::shared_ptr<const kel::IParametersCollectionInstance> manifest);

    // IBasicControl

    /// Always refused: the settings cannot change after SetInitConfig.
    void UpdateConfig(std::shared_ptr<const kel::IParametersCollectionInstance> config) override;
    std::shared_ptr<const kel::IParametersCollectionInstance> GetManifest() const override;

    // ISinkControl

    /// Sets the file for the levels, instead of the setting "FilePath".
    void Open(const std::wstring& path) override;
    /// Always refused.
    void PushMetadata(const std::vector<std::shared_ptr<const kel::IMetadata>>& metadata) override;
    /// Reports the levels; the flag is ignored. The sink can then measure another input.
    /// @throws KELRuntimeError when the file could not be written
    void Close(bool flag) override;

    // IMediaSink

    void PushSample(std::shared_ptr<const kel::ISampleContainer> container) override;
    /// Starts measuring, and creates the file for the levels if there is a path.
    void DefineInput(std::shared_ptr<const kel::IInfoContainer> input, std::string name) override;
    std::shared_ptr<const kel::IInfoContainer> GetDefinedInput(std::string name) const override;
    /// Always refused: samples are pushed.
    void SetInputMediator(std::shared_ptr<kel::IInputMediator> mediator, std::string input,
                          std::string name) override;
    /// Does nothing: the sink never waits.
    void Interrupt() override;
    /// Does nothing: the sink keeps no samples.
    void ClearInternalBuffer() override;
    void SetInitConfig(std::shared_ptr<const kel::IParametersCollectionInstance> config) override;
    std::shared_ptr<const kel::ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const kel::IInfoContainer> input,
                                  std::string name) const override;
    /// The same as Close.
    void Release() override;

private:
    struct Level {
        double peak = 0;
        double sumOfSquares = 0;
    };

    std::shared_ptr<const kel::IParametersCollectionInstance> m_manifest;
    std::shared_ptr<const kel::IInfoContainer> m_input;
    std::string m_path; // of the file for the levels; empty for none
    std::ofstream m_file;
    bool m_measuring = false;
    std::vector<Level> m_levels; // one for each channel
    std::uint64_t m_frames = 0;
};

} // namespace kelTone
