/// The largest magnitudes of sample values. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::host {

/// The largest magnitude in one channel.
struct ChannelPeak {
    float magnitude = 0;     ///< 1.0 is full scale; may be infinite
    std::uint64_t frame = 0; ///< the first one with this magnitude
};

/// Finds the peak of each channel. NaN has no magnitude and is ignored.
class PeakMeter {
public:
    /// @param channels values per frame, not 0
    explicit PeakMeter(std::uint32_t channels);

    /// Adds whole frames.
    /// @param values interleaved
    /// @param count number of values, a multiple of the number of channels
    void Add(const float* values, std::size_t count) { AddAny(values, count); }

    /// The same for 64-bit values.
    void Add(const double* values, std::size_t count) { AddAny(values, count); }

    /// The peaks so far.
    const std::vector<ChannelPeak>& Peaks() const { return m_peaks; }

private:
    template <typename Value>
    void AddAny(const Value* values, std::size_t count);
    template <typename Value>
    void FindLargest(const Value* values, std::size_t count);

    std::vector<ChannelPeak> m_peaks;
    std::vector<float> m_largest; // of a row of several frames
    std::uint64_t m_frames = 0;
};

} // namespace kel::host
