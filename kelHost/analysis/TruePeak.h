/// The true peak of a signal. One thread at a time.
#pragma once

#include "analysis/Meter.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::host {

/// Finds the largest magnitude of the wave between the samples (ITU-R BS.1770-4, annex 2), over all
/// channels. Rates below 96 kHz are interpolated four times and those below 192 kHz twice, with a
/// windowed sinc of 49 taps. The result is the same as that of libebur128, which computes every
/// interpolated value; here, runs of frames that cannot exceed the largest one so far are skipped.
class TruePeakMeter final : public Meter {
public:
    /// @param channels values per frame, at least 1
    /// @param rate frames per second
    TruePeakMeter(std::uint32_t channels, std::uint32_t rate);

    /// Values that are not finite count as 0.
    void Add(const FloatView& floats) override;

    /// The largest magnitude so far, rounded to a float unless it is too large for one; 1.0 is full
    /// scale.
    double Peak() const;

private:
    void AddChannel(const FloatView& floats, std::size_t channel);
    void AddRun(const double* values, std::size_t frames);

    std::size_t m_channels;
    std::vector<std::vector<double>> m_phases; // the coefficients for each interpolated value
    std::size_t m_history = 0;                 // former values that a phase needs
    double m_gain = 0;                         // upper bound of a phase's effect
    std::vector<std::vector<double>> m_former; // the last values of each channel
    std::vector<double> m_values;              // of one channel: former ones, then new ones
    double m_peak = 0;
};

} // namespace kel::host
