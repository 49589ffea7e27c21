/// Levels and loudness of a file. One thread at a time.
#pragma once

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

/// Levels of one channel; 1.0 is full scale.
struct ChannelLevel {
    double peak = 0;               ///< the largest magnitude of a finite value
    double rms = 0;                ///< root of the mean square of the finite values
    std::uint64_t atFullScale = 0; ///< finite values of kFullScale and more: probably clipped
    std::uint64_t nonFinite = 0;   ///< NaN and infinities
};

/// Levels and loudness of a file. The loudness is that of EBU R 128 (ITU-R BS.1770-4, EBU Tech 3341
/// and 3342). It is missing where it is not defined: for silence, for files that are too short (0.4
/// s, and 3 s for the range), and for some rates and numbers of channels. Channels are taken as
/// left, right, centre, low frequencies, left and right surround; four as left, right and the
/// surrounds, five as the six without low frequencies. Others do not count.
struct Measurement {
    std::int64_t frames = 0; ///< that were measured
    std::vector<ChannelLevel> channels;
    std::optional<double> integrated; ///< LUFS
    std::optional<double> range;      ///< LU
    std::optional<double> truePeak;   ///< dBTP, the largest of all channels
};

/// Reads a source to its end and measures what it delivers. Values that are not finite count as 0.
/// @param source open, at its beginning
/// @param policy which files are accepted
/// @param log the current logger writer
/// @param reporter receives the progress
/// @param warnings receives those about what the policy accepts
/// @throws JobError when reading fails, or ends early
Measurement Measure(const SourceReader& source, const InputPolicy& policy, const HostLogger& log,
                    Reporter& reporter, Warnings& warnings);

void to_json(nlohmann::json& members, const Measurement& measurement);

/// Returns the measurement for people: a table of the channels, then the loudness.
std::string FormatMeasurement(const Measurement& measurement);

/// Returns a level in decibels relative to full scale; none for 0.
std::optional<double> Decibels(double level);

} // namespace kel::host
