#include "audio/PeakMeter.h"

#include <algorithm>
#include <cmath>

namespace kel::host {

namespace {

// A row has a multiple of so many frames, so that vectors of any size divide it.
constexpr std::size_t kRowUnit = 16;
constexpr std::size_t kMinRow = 256;

// A comparison with NaN is false.
template <typename Value>
float Larger(Value value, float largest) {
    const auto magnitude = static_cast<float>(std::abs(value));
    return magnitude > largest ? magnitude : largest;
}

} // namespace

PeakMeter::PeakMeter(std::uint32_t channels) : m_peaks(channels) {
    const std::size_t unit = kRowUnit * channels;
    m_largest.resize((kMinRow + unit - 1) / unit * unit);
}

// Four rows at a time, of all channels, without branches: the compiler makes vectors of it, and
// loads and stores the result once for four values.
template <typename Value>
void PeakMeter::FindLargest(const Value* values, std::size_t count) {
    constexpr std::size_t kRows = 4;
    std::fill(m_largest.begin(), m_largest.end(), -1.0F);
    const std::size_t row = m_largest.size();
    float* largest = m_largest.data();
    for (; count >= kRows * row; values += kRows * row, count -= kRows * row) {
        for (std::size_t i = 0; i < row; ++i) {
            float result = Larger(values[i], largest[i]);
            result = Larger(values[row + i], result);
            result = Larger(values[2 * row + i], result);
            largest[i] = Larger(values[3 * row + i], result);
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        largest[i % row] = Larger(values[i], largest[i % row]);
    }
}

template <typename Value>
void PeakMeter::AddAny(const Value* values, std::size_t count) {
    FindLargest(values, count);
    const std::size_t channels = m_peaks.size();
    for (std::size_t channel = 0; channel < channels; ++channel) {
        float largest = -1;
        for (std::size_t i = channel; i < m_largest.size(); i += channels) {
            largest = std::max(largest, m_largest[i]);
        }
        if (largest <= m_peaks[channel].magnitude) {
            continue;
        }
        std::size_t place = channel;
        while (!(static_cast<float>(std::abs(values[place])) == largest)) {
            place += channels;
        }
        m_peaks[channel] = {largest, m_frames + place / channels};
    }
    m_frames += count / channels;
}

template void PeakMeter::AddAny(const float*, std::size_t);
template void PeakMeter::AddAny(const double*, std::size_t);

} // namespace kel::host
