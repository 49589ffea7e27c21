#include "audio/PeakMeter.h"

#include <algorithm>
#include <cmath>

namespace kel::host {

namespace {

// A row has a multiple of so many frames, so that vectors of any size divide it.
constexpr std::size_t kRowUnit = 16;
constexpr std::size_t kMinRow = 256;

} // namespace

PeakMeter::PeakMeter(std::uint32_t channels) : m_peaks(channels) {
    const std::size_t unit = kRowUnit * channels;
    m_largest.resize((kMinRow + unit - 1) / unit * unit);
}

// One loop over values of all channels, without branches: the compiler makes it one of vectors. A
// comparison with NaN is false.
template <typename Value>
void PeakMeter::FindLargest(const Value* values, std::size_t count) {
    std::fill(m_largest.begin(), m_largest.end(), -1.0F);
    const std::size_t row = m_largest.size();
    float* largest = m_largest.data();
    for (; count >= row; values += row, count -= row) {
        for (std::size_t i = 0; i < row; ++i) {
            const auto magnitude = static_cast<float>(std::abs(values[i]));
            largest[i] = magnitude > largest[i] ? magnitude : largest[i];
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto magnitude = static_cast<float>(std::abs(values[i]));
        largest[i] = magnitude > largest[i] ? magnitude : largest[i];
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
