/// Levels and loudness of a file.
#pragma once

#include "elements/Elements.h"
#include "elements/HostLogger.h"
#include "jobs/WorkerPool.h"

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
    std::uint64_t atFullScale = 0; ///< finite values of 32767/32768 and more: clipped, most likely
    std::uint64_t nonFinite = 0;   ///< NaN and infinities
};

/// Levels and loudness of a file. The loudness is that of EBU R 128 (ITU-R BS.1770-4, EBU Tech 3341
/// and 3342); it is missing where there is none: for silence, for files that are too short to have
/// one (0.4 s, and 3 s for the range), and for rates and numbers of channels that are not defined
/// for it. Channels are taken to be left, right, centre, low frequencies, left and right surround;
/// four to be left, right and the surrounds, five to be the six without low frequencies. Others do
/// not add to the loudness.
struct Measurement {
    std::vector<ChannelLevel> channels;
    std::optional<double> integrated; ///< LUFS
    std::optional<double> range;      ///< LU
    std::optional<double> truePeak;   ///< dBTP, the largest of all channels
};

/// Reads a source to its end and measures what it delivers. Values that are not finite count as 0.
/// @param file the source's file, for the error
/// @param log the current logger writer
/// @param reporter told of progress
/// @throws JobError when reading fails, or ends early
Measurement Measure(const SourceReader& source, const std::string& file, const HostLogger& log,
                    Reporter& reporter);

void to_json(nlohmann::json& json, const Measurement& measurement);
void from_json(const nlohmann::json& json, Measurement& measurement);

/// The measurement for people, a table of the channels and the loudness below.
std::string FormatMeasurement(const Measurement& measurement);

/// A level in decibels relative to full scale; none for 0.
std::optional<double> Decibels(double level);

} // namespace kel::host
