/// A waveform reduced to columns, for a picture of any width and a file of any length.
#pragma once

#include "audio/Samples.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::host {

/// One channel during one column; 1.0 is full scale.
struct EnvelopeColumn {
    float lowest = 0;
    float highest = 0;
    double squares = 0;       ///< sum of the squares of the finite values
    std::uint64_t values = 0; ///< number of finite values
    bool clipped = false;     ///< a value of kFullScale or more, or one that is not finite

    /// The larger magnitude of the two extremes.
    float Peak() const;
    /// Root of the mean square.
    float RMS() const;
};

/// Collects the columns of all channels while a file is read. One thread at a time.
class Envelope {
public:
    /// @param channels number of channels, not 0
    /// @param columns maximum number of columns; there are never more than frames
    /// @param frames frames that will be added
    Envelope(std::uint32_t channels, std::size_t columns, std::int64_t frames);

    /// Adds the frames that follow those added before.
    void Add(const FloatView& floats);

    std::size_t Channels() const { return m_channels.size(); }
    std::size_t Columns() const { return m_columns; }

    /// Returns whether each column is a single frame. A plot then draws a line through the frames.
    bool HasSingleFrames() const { return static_cast<std::int64_t>(m_columns) == m_frames; }

    const EnvelopeColumn& At(std::size_t channel, std::size_t column) const {
        return m_channels[channel][column];
    }

    /// The largest magnitude of all channels.
    float Peak() const;

private:
    std::size_t m_columns;
    std::int64_t m_frames;
    std::int64_t m_added = 0;
    std::vector<std::vector<EnvelopeColumn>> m_channels;
};

} // namespace kel::host
