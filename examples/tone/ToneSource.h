/// A source that needs no file: it makes a sine tone.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <memory>
#include <string>

namespace kelTone {

/// Delivers a sine tone as 32-bit float, little-endian, interleaved frames, the same in every
/// channel. It starts with a zero and is as long as the settings declare. It needs nothing else, so
/// SetInitConfig opens it.
class ToneSource final : public kel::AudioSourceBase {
public:
    /// @param manifest the registry entry, shared
    explicit ToneSource(std::shared_ptr<const kel::IParametersCollectionInstance> manifest);

protected:
    Medium OpenMedium(const std::string& path) override;
    std::uint32_t ReadFrames(std::int64_t position, std::uint32_t frames, void* data) override;

private:
    float ValueAt(std::int64_t frame) const;

    std::uint32_t m_rate = 0; // frames per second
    std::uint32_t m_channels = 0;
    std::uint32_t m_frequency = 0; // hertz
    double m_amplitude = 0;        // full scale is 1
};

} // namespace kelTone
