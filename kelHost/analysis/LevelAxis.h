/// The level axis of a plot. Pure functions.
#pragma once

#include <string>
#include <vector>

namespace kel::host {

/// Scale of the level axis.
enum class LevelScale {
    Linear,   ///< from -1 to 1, or to the largest value
    Decibels, ///< 60 dB below full scale, mirrored
};

/// Positions of values between the middle of a lane (0) and its edges (1 and -1).
class LevelAxis {
public:
    /// @param peak largest magnitude to show; 1.0 is full scale
    LevelAxis(LevelScale scale, float peak);

    /// Returns the position of a value.
    double Position(double value) const;

    /// Returns the level at a position from 0 to 1, at most five characters: "0.75", "-15" (dBFS).
    std::string LevelAt(double position) const;

    /// A label at a position.
    struct Label {
        double position;
        std::string text;
    };

    /// Returns the labels of a lane.
    /// @param lines number of lines of text that fit into the lane
    std::vector<Label> Labels(double lines) const;

private:
    LevelScale m_scale;
    double m_edge; // value at the edge of a lane
};

} // namespace kel::host
