#include "analysis/Measurement.h"

#include "analysis/Loudness.h"
#include "analysis/Meter.h"
#include "analysis/TruePeak.h"
#include "base/Text.h"
#include "elements/ErrorRecords.h"
#include "elements/RangeReader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kel::host {

namespace {

nlohmann::json OrNull(const std::optional<double>& value) {
    return value.has_value() ? nlohmann::json(*value) : nlohmann::json();
}

SampleHandle Read(RangeReader& reader, Reporter& reporter) {
    const ReadingScope reading(reporter);
    return reader.Pull();
}

// Starting threads takes longer than measuring a few blocks.
bool IsWorthThreads(const SourceReader& source) {
    constexpr std::int64_t kFewBlocks = 2;
    const bool isShort =
        source.Frames().has_value() && *source.Frames() / source.BlockFrames() < kFewBlocks;
    return !isShort && std::thread::hardware_concurrency() > 1;
}

} // namespace

Measurement Measure(const SourceReader& source, const std::vector<LoudnessWeight>& weights,
                    const InputPolicy& policy, const HostLogger& log, Reporter& reporter,
                    Warnings& warnings) {
    const ErrorRecords errors(log, source.ShownName());
    RangeReader reader(source, {0, source.Frames()});
    LevelMeter levels(source.Channels());
    LoudnessMeter loudness(weights, source.Rate());
    TruePeakMeter truePeak(source.Channels(), source.Rate());
    MeterThreads meters({&loudness, &truePeak, &levels}, IsWorthThreads(source));
    while (const SampleHandle sample = Read(reader, reporter)) {
        meters.Add(sample);
        reporter.Progress(reader.Delivered(), source.Frames().value_or(kUnknownTotal),
                          source.Rate());
    }
    source.RequireUnchanged();
    const auto shortfall =
        errors.VerifyDelivery(source.Frames(), reader.Delivered(),
                              source.EarlyStop(source.Frames()), policy.allowTruncated);
    if (shortfall.has_value()) {
        warnings.Add(*shortfall);
    }
    meters.Finish();
    return {reader.Delivered(), levels.Result(), loudness.Integrated(), loudness.Range(),
            Decibels(truePeak.Peak())};
}

void to_json(nlohmann::json& members, const Measurement& measurement) {
    auto channels = nlohmann::json::array();
    for (const ChannelLevel& level : measurement.channels) {
        channels.push_back({{"peak", level.peak},
                            {"peak_dbfs", OrNull(Decibels(level.peak))},
                            {"rms", level.rms},
                            {"rms_dbfs", OrNull(Decibels(level.rms))},
                            {"at_full_scale", level.atFullScale},
                            {"non_finite", level.nonFinite}});
    }
    members = {{"channels", channels},
               {"integrated_lufs", OrNull(measurement.integrated)},
               {"range_lu", OrNull(measurement.range)},
               {"true_peak_dbtp", OrNull(measurement.truePeak)}};
}

std::string FormatMeasurement(const Measurement& measurement) {
    std::vector<std::vector<std::string>> rows;
    for (std::size_t i = 0; i < measurement.channels.size(); ++i) {
        const ChannelLevel& level = measurement.channels[i];
        rows.push_back({fmt::format("{}", i + 1), FormatLevel(Decibels(level.peak), "dBFS"),
                        FormatLevel(Decibels(level.rms), "dBFS"),
                        fmt::format("{}", level.atFullScale), fmt::format("{}", level.nonFinite)});
    }
    return FormatTable({{"Channel", Align::Right},
                        {"Peak", Align::Right},
                        {"RMS", Align::Right},
                        {"At full scale", Align::Right},
                        {"Not finite", Align::Right}},
                       rows) +
           fmt::format(
               "Integrated loudness  {}\nLoudness range       {}\nTrue peak            {}\n",
               FormatLevel(measurement.integrated, "LUFS"), FormatLevel(measurement.range, "LU"),
               FormatLevel(measurement.truePeak, "dBTP"));
}

std::optional<double> PeakLevel(const Measurement& measurement) {
    double peak = 0;
    for (const ChannelLevel& level : measurement.channels) {
        peak = std::max(peak, level.peak);
    }
    return Decibels(peak);
}

std::string FormatLevel(const std::optional<double>& level, const char* unit) {
    return level.has_value() ? fmt::format("{:.1f} {}", *level, unit) : "none";
}

} // namespace kel::host
