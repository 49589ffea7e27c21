/// Measuring a file. One thread at a time.
#pragma once

#include "analysis/Levels.h"
#include "audio/ChannelLayout.h"
#include "elements/HostLogger.h"
#include "elements/SourceReader.h"
#include "jobs/Job.h"
#include "jobs/Warnings.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Levels and loudness of a file. The loudness is missing where it is not defined: for silence, for
/// files that are too short, and for some rates and numbers of channels.
struct Measurement {
    std::int64_t frames = 0; ///< that were measured
    std::vector<ChannelLevel> channels;
    std::optional<double> integrated; ///< LUFS
    std::optional<double> range;      ///< LU
    std::optional<double> truePeak;   ///< dBTP, the largest of all channels; missing for silence
};

/// Reads a source to its end and measures what it delivers. Levels, loudness and the true peak are
/// measured at the same time. Values that are not finite count as 0.
/// @param source open, at its beginning
/// @param weights of the channels, as the source delivers them
/// @param policy which files are accepted
/// @param log the current logger writer
/// @param reporter receives the progress
/// @param warnings receives those about what the policy accepts
/// @throws JobError when reading fails, or ends early
Measurement Measure(const SourceReader& source, const std::vector<LoudnessWeight>& weights,
                    const InputPolicy& policy, const HostLogger& log, Reporter& reporter,
                    Warnings& warnings);

void to_json(nlohmann::json& members, const Measurement& measurement);

/// Returns the measurement for people: a table of the channels, then the loudness.
std::string FormatMeasurement(const Measurement& measurement);

/// Returns the level of the loudest channel in decibels relative to full scale; none for silence.
std::optional<double> PeakLevel(const Measurement& measurement);

/// Returns a level with its unit: "-23.0 LUFS"; "none" for a missing one.
std::string FormatLevel(const std::optional<double>& level, const char* unit);

} // namespace kel::host
