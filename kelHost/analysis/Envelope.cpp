#include "analysis/Envelope.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace kel::host {

namespace {

void AddValue(EnvelopeColumn& column, float value) {
    if (!std::isfinite(value)) {
        column.clipped = true;
        return;
    }
    if (column.values == 0) {
        column.lowest = value;
        column.highest = value;
    }
    column.lowest = std::min(column.lowest, value);
    column.highest = std::max(column.highest, value);
    column.squares += static_cast<double>(value) * static_cast<double>(value);
    column.clipped = column.clipped || std::abs(value) >= kFullScale;
    ++column.values;
}

} // namespace

float EnvelopeColumn::Peak() const {
    return std::max(std::abs(lowest), std::abs(highest));
}

float EnvelopeColumn::RMS() const {
    return values == 0 ? 0.0F
                       : static_cast<float>(std::sqrt(squares / static_cast<double>(values)));
}

Envelope::Envelope(std::uint32_t channels, std::size_t columns, std::int64_t frames)
    : m_columns(std::clamp<std::size_t>(
          columns, 1, static_cast<std::size_t>(std::max<std::int64_t>(frames, 1)))),
      m_frames(std::max<std::int64_t>(frames, 1)),
      m_channels(channels, std::vector<EnvelopeColumn>(m_columns)) {}

void Envelope::Add(const FloatView& floats) {
    const std::size_t channels = m_channels.size();
    const auto frames = static_cast<std::int64_t>(floats.count / channels);
    const auto columns = static_cast<std::int64_t>(m_columns);
    std::int64_t frame = 0;
    while (frame < frames) {
        // The frames that belong to the same column.
        const std::int64_t column = std::min((m_added + frame) * columns / m_frames, columns - 1);
        const std::int64_t columnEnd = ((column + 1) * m_frames + columns - 1) / columns;
        const std::int64_t end =
            column == columns - 1 ? frames : std::min(frames, columnEnd - m_added);
        for (std::size_t channel = 0; channel < channels; ++channel) {
            EnvelopeColumn& target = m_channels[channel][static_cast<std::size_t>(column)];
            for (std::int64_t i = frame; i < end; ++i) {
                AddValue(target, floats.values[static_cast<std::size_t>(i) * channels + channel]);
            }
        }
        frame = end;
    }
    m_added += frames;
}

float Envelope::Peak() const {
    float peak = 0;
    for (const auto& columns : m_channels) {
        for (const EnvelopeColumn& column : columns) {
            peak = std::max(peak, column.Peak());
        }
    }
    return peak;
}

} // namespace kel::host
