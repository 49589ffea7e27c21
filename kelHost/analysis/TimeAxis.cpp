#include "analysis/TimeAxis.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::int64_t kDay = 86400000;

// Returns the distance of two ticks in milliseconds.
std::int64_t ChooseStep(double length, std::size_t maxTicks) {
    constexpr std::array<std::int64_t, 27> kSteps{
        1,      2,      5,       10,      20,      50,       100,      200,      500,
        1000,   2000,   5000,    10000,   15000,   30000,    60000,    120000,   300000,
        600000, 900000, 1800000, 3600000, 7200000, 10800000, 21600000, 43200000, kDay};
    const double minStep = length * 1000 / static_cast<double>(std::max<std::size_t>(maxTicks, 1));
    for (const std::int64_t step : kSteps) {
        if (static_cast<double>(step) >= minStep) {
            return step;
        }
    }
    return static_cast<std::int64_t>(std::ceil(minStep / static_cast<double>(kDay))) * kDay;
}

} // namespace

std::vector<TimeTick> TimeTicks(double start, double length, std::size_t maxTicks) {
    constexpr double kRounding = 1e-6; // of a step; tolerates rounding in sums of seconds
    const std::int64_t step = ChooseStep(length, maxTicks);
    const auto steps = static_cast<double>(step) / 1000;
    const auto first = static_cast<std::int64_t>(std::ceil(start / steps - kRounding));
    const auto last = static_cast<std::int64_t>(std::floor((start + length) / steps + kRounding));
    std::vector<TimeTick> ticks;
    for (std::int64_t i = first; i <= last; ++i) {
        const std::int64_t milliseconds = i * step;
        ticks.push_back({static_cast<double>(milliseconds) / 1000,
                         step < 1000 ? FormatDuration(milliseconds, 1000)
                                     : FormatSeconds(milliseconds / 1000)});
    }
    return ticks;
}

} // namespace kel::host
