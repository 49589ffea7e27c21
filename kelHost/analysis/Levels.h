/// Levels of the channels of a signal. One thread at a time.
#pragma once

#include "analysis/Meter.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace kel::host {

/// Levels of one channel; 1.0 is full scale.
struct ChannelLevel {
    double peak = 0;               ///< the largest magnitude of a finite value
    double rms = 0;                ///< root of the mean square of the finite values
    std::uint64_t atFullScale = 0; ///< finite values of kFullScale and more: probably clipped
    std::uint64_t nonFinite = 0;   ///< NaN and infinities
};

/// Measures the levels of all channels.
class LevelMeter final : public Meter {
public:
    /// @param channels values per frame, at least 1
    explicit LevelMeter(std::uint32_t channels) : m_channels(channels), m_squares(channels, 0.0) {}

    void Add(const FloatView& floats) override;

    /// Returns the levels so far.
    std::vector<ChannelLevel> Result() const;

private:
    void AddValue(std::size_t channel, float value);

    std::vector<ChannelLevel> m_channels;
    std::vector<double> m_squares; // the sum for each channel
    std::uint64_t m_frames = 0;
};

/// Returns a level in decibels relative to full scale; none for 0. Any thread.
std::optional<double> Decibels(double level);

} // namespace kel::host
