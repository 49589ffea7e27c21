#include "analysis/TruePeak.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kTaps = 49;
constexpr double kPi = 3.14159265358979323846;

// Frames that are skipped or interpolated together: about a millisecond.
constexpr std::size_t kRun = 64;

// Values that are interpolated together, in registers of the processor.
constexpr std::size_t kLanes = 8;

std::size_t InterpolationFactor(std::uint32_t rate) {
    constexpr std::uint32_t kHigh = 96000;
    constexpr std::uint32_t kHighest = 192000;
    if (rate >= kHighest) {
        return 1;
    }
    return rate < kHigh ? 4 : 2;
}

// A coefficient of the interpolating filter: a sinc with the period of the original samples, in a
// Hann window.
double Coefficient(std::size_t tap, std::size_t factor) {
    const double distance = static_cast<double>(tap) - (kTaps - 1) / 2.0;
    const double angle = distance * kPi / static_cast<double>(factor);
    const double window = 0.5 * (1 - std::cos(2 * kPi * static_cast<double>(tap) / (kTaps - 1)));
    return std::sin(angle) / angle * window;
}

// Returns the coefficients of the values between two samples; those of the samples are not needed.
std::vector<std::vector<double>> MakePhases(std::size_t factor) {
    std::vector<std::vector<double>> phases(factor - 1);
    for (std::size_t tap = 0; tap < kTaps; ++tap) {
        if (tap % factor != 0) {
            phases[tap % factor - 1].push_back(Coefficient(tap, factor));
        }
    }
    return phases;
}

double SumOfMagnitudes(const std::vector<double>& coefficients) {
    double sum = 0;
    for (const double coefficient : coefficients) {
        sum += std::abs(coefficient);
    }
    return sum;
}

double LargestMagnitude(const double* values, std::size_t count) {
    std::array<double, kLanes> largest{};
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            largest[lane] = std::max(largest[lane], std::abs(values[i + lane]));
        }
    }
    for (; i < count; ++i) {
        largest[0] = std::max(largest[0], std::abs(values[i]));
    }
    return *std::max_element(largest.begin(), largest.end());
}

// Returns the largest magnitude of the interpolated values. Reads up to kLanes - 1 values after the
// last one.
double Interpolate(const std::vector<double>& coefficients, const double* values,
                   std::size_t frames) {
    double largest = 0;
    const double* const begin = coefficients.data();
    const std::size_t taps = coefficients.size();
    for (std::size_t i = 0; i < frames; i += kLanes) {
        std::array<double, kLanes> sums{};
        for (std::size_t tap = 0; tap < taps; ++tap) {
            const double* const former = values + i - tap;
            for (std::size_t lane = 0; lane < kLanes; ++lane) {
                sums[lane] += begin[tap] * former[lane];
            }
        }
        largest = std::max(largest, LargestMagnitude(sums.data(), std::min(kLanes, frames - i)));
    }
    return largest;
}

} // namespace

TruePeakMeter::TruePeakMeter(std::uint32_t channels, std::uint32_t rate)
    : m_channels(channels), m_phases(MakePhases(InterpolationFactor(rate))) {
    for (const std::vector<double>& phase : m_phases) {
        m_history = std::max(m_history, phase.size() - 1);
        // Sums are rounded.
        m_gain = std::max(m_gain, SumOfMagnitudes(phase) * (1 + 1e-12));
    }
    m_former.assign(m_channels, std::vector<double>(m_history, 0.0));
}

void TruePeakMeter::Add(const FloatView& floats) {
    for (std::size_t channel = 0; channel < m_channels; ++channel) {
        AddChannel(floats, channel);
    }
}

double TruePeakMeter::Peak() const {
    const bool isFloat = m_peak <= static_cast<double>(std::numeric_limits<float>::max());
    return isFloat ? static_cast<double>(static_cast<float>(m_peak)) : m_peak;
}

void TruePeakMeter::AddChannel(const FloatView& floats, std::size_t channel) {
    const std::size_t frames = floats.count / m_channels;
    std::vector<double>& former = m_former[channel];
    m_values.resize(m_history + frames + kLanes);
    std::copy(former.begin(), former.end(), m_values.begin());
    double* const values = m_values.data() + m_history;
    const float* const source = floats.values + channel;
    for (std::size_t i = 0; i < frames; ++i) {
        const float value = source[i * m_channels];
        const bool isFinite = std::abs(value) <= std::numeric_limits<float>::max();
        values[i] = isFinite ? static_cast<double>(value) : 0.0;
    }
    for (std::size_t i = 0; i < frames; i += kRun) {
        AddRun(values + i, std::min(kRun, frames - i));
    }
    std::copy_n(values + frames - m_history, m_history, former.begin());
}

void TruePeakMeter::AddRun(const double* values, std::size_t frames) {
    const double largest = LargestMagnitude(values - m_history, m_history + frames);
    m_peak = std::max(m_peak, largest);
    if (largest * m_gain <= m_peak) {
        return;
    }
    for (const std::vector<double>& phase : m_phases) {
        m_peak = std::max(m_peak, Interpolate(phase, values, frames));
    }
}

} // namespace kel::host
