/// The axis of time below a picture.
///
/// Pure functions of their arguments.
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

/// The round times within a part of a file, its ends included.
/// @param start where it begins, in seconds, not negative
/// @param length how long it is, in seconds, more than 0
/// @param most how many ticks there is room for; there may be one more, as both ends may have one
std::vector<TimeTick> TimeTicks(double start, double length, std::size_t most);

} // namespace kel::host
