#include "analysis/WaveformCharacters.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr int kSteps = 8; // of a bar within a line

// Characters by the number of steps that are filled, and the axis.
struct Glyphs {
    std::array<const char*, kSteps + 1> bars;
    const char* axis;
};

constexpr Glyphs kUnicode{{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"}, "│"};
constexpr Glyphs kASCII{{" ", ".", ".", ".", ":", ":", ":", "#", "#"}, "|"};

// One column of a lane.
struct Bar {
    double height = 0; // 1: the whole lane
    bool isClipped = false;
};

std::vector<Bar> BarsOfColumns(const Envelope& envelope, const LevelAxis& axis,
                               std::size_t channel) {
    std::vector<Bar> bars;
    for (std::size_t i = 0; i < envelope.Columns(); ++i) {
        const EnvelopeColumn& column = envelope.At(channel, i);
        bars.push_back({axis.Position(static_cast<double>(column.Peak())), column.clipped});
    }
    return bars;
}

// A line from frame to frame, each at its time. It has a gap where a value is not finite.
class Line {
public:
    Line(const Envelope& envelope, const LevelAxis& axis, std::size_t channel)
        : m_envelope(envelope), m_axis(axis), m_channel(channel) {}

    // Returns the distance of a frame from the middle of the lane; 0 in a gap.
    double HeightOf(std::size_t frame) const {
        return HasValue(frame) ? std::abs(Position(frame)) : 0;
    }

    // Returns the distance at a part of the way from a frame to the next one; 0 in a gap.
    double HeightAfter(std::size_t frame, double part) const {
        if (!HasValue(frame) || !HasValue(frame + 1)) {
            return 0;
        }
        return std::abs(Position(frame) * (1 - part) + Position(frame + 1) * part);
    }

    bool IsClipped(std::size_t frame) const {
        return frame < m_envelope.Columns() && m_envelope.At(m_channel, frame).clipped;
    }

private:
    bool HasValue(std::size_t frame) const {
        return frame < m_envelope.Columns() && m_envelope.At(m_channel, frame).values > 0;
    }

    double Position(std::size_t frame) const {
        return m_axis.Position(static_cast<double>(m_envelope.At(m_channel, frame).highest));
    }

    const Envelope& m_envelope;
    const LevelAxis& m_axis;
    std::size_t m_channel;
};

std::vector<Bar> BarsOfLine(const Envelope& envelope, const LevelAxis& axis, std::size_t channel,
                            std::size_t columns) {
    const Line line(envelope, axis, channel);
    const auto partOf = [&](std::size_t column, std::size_t frame) {
        return static_cast<double>(column * envelope.Columns() - frame * columns) /
               static_cast<double>(columns);
    };
    std::vector<Bar> bars;
    for (std::size_t i = 0; i < columns; ++i) {
        // The line is highest at one of its ends in the column, or at the frame within, if any.
        const std::size_t before = i * envelope.Columns() / columns;
        const std::size_t last = ((i + 1) * envelope.Columns() - 1) / columns;
        Bar bar{std::max(line.HeightAfter(before, partOf(i, before)),
                         line.HeightAfter(last, partOf(i + 1, last)))};
        if (last * columns >= i * envelope.Columns()) {
            bar.height = std::max(bar.height, line.HeightOf(last));
            bar.isClipped = line.IsClipped(last);
        }
        bars.push_back(bar);
    }
    return bars;
}

// Few channels have high lanes: 16 lines together.
int RowsOf(std::size_t channels) {
    constexpr std::size_t kAllRows = 16;
    return static_cast<int>(std::clamp<std::size_t>(kAllRows / channels, 2, 4));
}

} // namespace

std::size_t CharacterColumns(std::size_t width) {
    constexpr std::size_t kMinWidth = 20;
    constexpr std::size_t kAxisWidth = 10; // channel, level and axis
    return std::max(kMinWidth, width) - kAxisWidth;
}

std::string DrawCharacters(const Envelope& envelope, const LevelAxis& axis, std::size_t columns,
                           CharacterSet characters) {
    const Glyphs& glyphs = characters == CharacterSet::Unicode ? kUnicode : kASCII;
    const int rows = RowsOf(envelope.Channels());
    std::string text;
    for (std::size_t channel = 0; channel < envelope.Channels(); ++channel) {
        const std::vector<Bar> bars = envelope.HasSingleFrames()
                                          ? BarsOfLine(envelope, axis, channel, columns)
                                          : BarsOfColumns(envelope, axis, channel);
        for (int row = rows - 1; row >= 0; --row) {
            const std::string number = row == 0 ? fmt::format("{}", channel + 1) : "";
            std::string line =
                fmt::format("{:>3} {:>5}{}", number,
                            axis.LevelAt(static_cast<double>(row + 1) / rows), glyphs.axis);
            for (const Bar& bar : bars) {
                const int filled = static_cast<int>(std::lround(bar.height * rows * kSteps));
                const auto steps =
                    static_cast<std::size_t>(std::clamp(filled - row * kSteps, 0, kSteps));
                line += bar.isClipped && row == rows - 1 ? "!" : glyphs.bars[steps];
            }
            line.erase(line.find_last_not_of(' ') + 1);
            text += line + "\n";
        }
    }
    return text;
}

} // namespace kel::host
