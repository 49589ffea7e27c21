/// The loudness of a programme. One thread at a time.
#pragma once

#include "analysis/Meter.h"
#include "audio/ChannelLayout.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kel::host {

/// Measures loudness as EBU R 128 defines it (ITU-R BS.1770-4, EBU Tech 3341 and 3342). It measures
/// nothing for more than 64 channels, and for rates below 16 Hz or above 2.8 MHz.
class LoudnessMeter final : public Meter {
public:
    /// @param weights of the channels, in their order; at least one
    /// @param rate frames per second
    LoudnessMeter(const std::vector<LoudnessWeight>& weights, std::uint32_t rate);
    ~LoudnessMeter() override;
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    /// Values that are not finite count as 0.
    /// @throws std::bad_alloc
    void Add(const FloatView& floats) override;

    /// Returns the loudness in LUFS; none for silence, and for less than 0.4 s.
    std::optional<double> Integrated() const;

    /// Returns the loudness range in LU; none for silence, and for less than 3 s.
    std::optional<double> Range() const;

private:
    class State;

    std::unique_ptr<State> m_state;
    std::uint64_t m_frames = 0;
    std::vector<float> m_values;
};

} // namespace kel::host
