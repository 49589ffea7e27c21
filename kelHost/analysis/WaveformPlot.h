/// Plots of waveforms, as pictures or characters.
#pragma once

#include "analysis/LevelAxis.h"
#include "analysis/WaveformCharacters.h"
#include "audio/TimeRange.h"
#include "base/FileName.h"
#include "container/InputPolicy.h"
#include "elements/HostLogger.h"
#include "jobs/Job.h"

#include <cstddef>
#include <optional>
#include <string>

namespace kel::host {

/// A plot to draw.
struct PlotRequest {
    FileName input;
    std::optional<std::string> picture; ///< .png, .svg or .pdf; none: characters
    bool replace = false;               ///< replace an existing picture
    TimeRange range;                    ///< the part to draw
    InputPolicy inputPolicy;            ///< which inputs are accepted
    LevelScale scale = LevelScale::Linear;
    CharacterSet characters = CharacterSet::Unicode; ///< of a plot without a picture
    std::size_t width = 0;  ///< pixels, points or characters; 0: the usual width
    std::size_t height = 0; ///< pixels or points; 0: the usual height for the number of channels
};

/// Draws a file. The picture appears under its name only when it is complete. One thread at a time.
/// @param named the request, with the input as the user named it
/// @param log the current logger writer
/// @param reporter receives opening and progress
/// @return the document that docs/json.md describes; the characters as output, or a report of the
/// picture
/// @throws JobError when the file cannot be read or the picture cannot be written
JobResult Plot(const PlotRequest& named, const HostLogger& log, Reporter& reporter);

} // namespace kel::host
