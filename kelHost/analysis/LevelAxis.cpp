#include "analysis/LevelAxis.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace kel::host {

namespace {

constexpr double kDecibelRange = 60;

} // namespace

LevelAxis::LevelAxis(LevelScale scale, float peak)
    : m_scale(scale), m_edge(std::max(1.0, static_cast<double>(peak))) {}

double LevelAxis::Position(double value) const {
    if (m_scale == LevelScale::Linear) {
        return value / m_edge;
    }
    const double magnitude = std::abs(value);
    if (magnitude <= 0) {
        return 0;
    }
    const double position = 1 + 20 * std::log10(magnitude) / kDecibelRange;
    return std::copysign(std::clamp(position, 0.0, 1.0), value);
}

std::string LevelAxis::LevelAt(double position) const {
    if (m_scale == LevelScale::Decibels) {
        return fmt::format("{:.0f}", (position - 1) * kDecibelRange);
    }
    constexpr double kShort = 999; // longer numbers have an exponent
    const double level = position * m_edge;
    return level <= kShort ? fmt::format("{:.3g}", level) : fmt::format("{:.0e}", level);
}

std::vector<LevelAxis::Label> LevelAxis::Labels(double lines) const {
    if (m_scale == LevelScale::Linear) {
        return {{1, fmt::format("{:.3g}", m_edge)}, {0, "0"}, {-1, fmt::format("-{:.3g}", m_edge)}};
    }
    std::vector<Label> labels{{1, "0 dBFS"}, {0, "-60"}, {-1, "0 dBFS"}};
    constexpr double kRoomy = 10;
    if (lines > kRoomy) {
        labels.push_back({Position(0.1), "-20"});
        labels.push_back({Position(-0.1), "-20"});
    }
    return labels;
}

} // namespace kel::host
