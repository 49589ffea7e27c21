/// The time axis of a plot. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kel::host {

/// One labelled time.
struct TimeTick {
    double seconds;
    std::string label; ///< h:mm:ss, with milliseconds where ticks are closer than a second
};

/// Returns the round times within a part of a file, its ends included.
/// @param start beginning in seconds, not negative
/// @param length duration in seconds, more than 0
/// @param maxTicks number of ticks that fit; one more is possible, because both ends may have one
std::vector<TimeTick> TimeTicks(double start, double length, std::size_t maxTicks);

} // namespace kel::host
