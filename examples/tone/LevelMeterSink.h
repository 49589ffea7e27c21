/// A sink that measures the levels of its input.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <vector>

namespace kelTone {

/// Measures the peak and the RMS of each channel of one PCM audio input: 32-bit float,
/// little-endian, interleaved. Close logs them at level Info, one record for each channel. If there
/// is a path, Close also writes them to that file as lines of text.
class LevelMeterSink final : public kel::AudioSinkBase {
public:
    /// @param manifest the registry entry, shared
    explicit LevelMeterSink(std::shared_ptr<const kel::IParametersCollectionInstance> manifest);

protected:
    kel::PCMFormat AdaptFormat(const kel::PCMFormat& offered) const override;
    void BeginInput(const kel::PCMFormat& format) override;
    void WriteFrames(const std::uint8_t* data, std::uint32_t frames) override;
    void FinishInput() override;

private:
    struct Level {
        double peak = 0;
        double sumOfSquares = 0;
    };

    std::ofstream m_file;        // for the levels; closed without a path
    std::vector<Level> m_levels; // one for each channel
    std::uint64_t m_frames = 0;
};

} // namespace kelTone
