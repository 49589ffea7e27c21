#include "analysis/Levels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace kel::host {

void LevelMeter::Add(const FloatView& floats) {
    const std::size_t channels = m_channels.size();
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t i = channel; i < floats.count; i += channels) {
            AddValue(channel, floats.values[i]);
        }
    }
    m_frames += floats.count / channels;
}

std::vector<ChannelLevel> LevelMeter::Result() const {
    std::vector<ChannelLevel> result = m_channels;
    for (std::size_t channel = 0; channel < result.size(); ++channel) {
        const std::uint64_t finite = m_frames - result[channel].nonFinite;
        if (finite > 0) {
            result[channel].rms = std::sqrt(m_squares[channel] / static_cast<double>(finite));
        }
    }
    return result;
}

void LevelMeter::AddValue(std::size_t channel, float value) {
    ChannelLevel& level = m_channels[channel];
    if (!std::isfinite(value)) {
        ++level.nonFinite;
        return;
    }
    const float magnitude = std::abs(value);
    level.peak = std::max(level.peak, static_cast<double>(magnitude));
    level.atFullScale += magnitude >= kFullScale ? 1 : 0;
    m_squares[channel] += static_cast<double>(value) * static_cast<double>(value);
}

std::optional<double> Decibels(double level) {
    constexpr double kPerDecade = 20;
    return level > 0 ? std::optional(kPerDecade * std::log10(level)) : std::nullopt;
}

} // namespace kel::host
