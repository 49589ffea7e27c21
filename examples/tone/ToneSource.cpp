#include "ToneSource.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace kelTone {

using namespace kel;

ToneSource::ToneSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
    : AudioSourceBase("ToneSource", std::move(manifest)) {}

ToneSource::Medium ToneSource::OpenMedium(const std::string& /*path*/) {
    constexpr std::int32_t kNoLimit = std::numeric_limits<std::int32_t>::max();
    m_rate = static_cast<std::uint32_t>(IntegerSetting("SampleRate", 1, kNoLimit));
    m_channels = static_cast<std::uint32_t>(IntegerSetting("Channels", 1, 1000));
    m_frequency = static_cast<std::uint32_t>(IntegerSetting("Frequency", 0, kNoLimit));
    m_amplitude = std::pow(10.0, IntegerSetting("Level", -200, 0) / 20.0);

    Medium medium;
    medium.format = {m_rate, m_channels};
    medium.frames = IntegerSetting("Length", 0, kNoLimit);
    medium.maxFrames =
        static_cast<std::uint32_t>(IntegerSetting("MaxSamplesPerBuffer", 1, 1000000));
    KEL_LOG(LogLevel::Info, "ToneSource: " << m_frequency << " Hz, " << medium.frames << " frames, "
                                           << m_rate << " a second, " << m_channels << " channels");
    return medium;
}

std::uint32_t ToneSource::ReadFrames(std::int64_t position, std::uint32_t frames, void* data) {
    auto* values = static_cast<float*>(data);
    for (std::uint32_t i = 0; i < frames; ++i) {
        values = std::fill_n(values, m_channels, ValueAt(position + i));
    }
    return frames;
}

// The value depends only on the number of the frame, not on the place where reading began. Whole
// cycles are removed in integers, so that the rest is exact however long the tone is.
float ToneSource::ValueAt(std::int64_t frame) const {
    constexpr double kTwoPi = 6.283185307179586476925;
    const double cycles = static_cast<double>(frame * m_frequency % m_rate) / m_rate;
    return static_cast<float>(m_amplitude * std::sin(kTwoPi * cycles));
}

} // namespace kelTone
