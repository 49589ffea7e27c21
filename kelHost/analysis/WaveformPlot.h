/// Pictures of waveforms.
#pragma once

#include "audio/TimeRange.h"
#include "elements/HostLogger.h"
#include "jobs/WorkerPool.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>

namespace kel::host {

/// How levels are shown.
enum class LevelScale {
    Linear,   ///< from -1 to 1, or as far as the file goes
    Decibels, ///< 60 dB below full scale, mirrored
};

/// What to draw, and how.
struct PlotRequest {
    std::string input;
    std::optional<std::string> picture; ///< .png, .svg or .pdf; none: characters
    bool replace = false;               ///< whether a picture that stands there may be replaced
    TimeRange range;
    LevelScale scale = LevelScale::Linear;
    std::size_t width = 0;  ///< pixels, points or characters; 0: what suits
    std::size_t height = 0; ///< pixels or points; 0: what suits the number of channels
};

/// What came out of it.
struct PlotResult {
    std::string input;   ///< as shown to the user
    std::string picture; ///< as shown to the user; "" for characters
    std::string text;    ///< the characters
    std::size_t width = 0;
    std::size_t height = 0;
};

void to_json(nlohmann::json& json, const PlotResult& result);
void from_json(const nlohmann::json& json, PlotResult& result);

/// Draws a file: a lane for each channel with the peaks and, darker, the RMS level, red marks where
/// values reach full scale, and an axis of time. The picture appears under its name only when it is
/// whole.
/// @param log the current logger writer
/// @param reporter told of opening and progress
/// @throws JobError when the file cannot be read or the picture not be written
PlotResult Plot(const PlotRequest& request, const HostLogger& log, Reporter& reporter);

/// Refuses a request whose picture has an extension that means no kind of picture.
/// @throws UsageError with those that do
void RequirePictureExtension(const std::string& picture);

} // namespace kel::host
