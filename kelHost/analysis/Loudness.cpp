#include "analysis/Loudness.h"

#include "audio/Samples.h"
#include "base/Text.h"
#include "elements/ErrorRecords.h"
#include "elements/RangeReader.h"

#include <ebur128.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// The running levels of all channels.
class Levels {
public:
    explicit Levels(std::uint32_t channels) : m_channels(channels), m_squares(channels, 0.0) {}

    void Add(const FloatView& floats) {
        const std::size_t channels = m_channels.size();
        for (std::size_t channel = 0; channel < channels; ++channel) {
            for (std::size_t i = channel; i < floats.count; i += channels) {
                AddValue(channel, floats.values[i]);
            }
        }
        m_frames += floats.count / std::max<std::size_t>(channels, 1);
    }

    std::vector<ChannelLevel> Result() const {
        std::vector<ChannelLevel> result = m_channels;
        for (std::size_t channel = 0; channel < result.size(); ++channel) {
            const std::uint64_t finite = m_frames - result[channel].nonFinite;
            if (finite > 0) {
                result[channel].rms = std::sqrt(m_squares[channel] / static_cast<double>(finite));
            }
        }
        return result;
    }

private:
    void AddValue(std::size_t channel, float value) {
        ChannelLevel& level = m_channels[channel];
        if (!std::isfinite(value)) {
            ++level.nonFinite;
            return;
        }
        const float magnitude = std::abs(value);
        level.peak = std::max(level.peak, static_cast<double>(magnitude));
        level.atFullScale += magnitude >= kFullScale ? 1 : 0;
        m_squares[channel] += static_cast<double>(value) * static_cast<double>(value);
    }

    std::vector<ChannelLevel> m_channels;
    std::vector<double> m_squares; // the sum for each channel
    std::uint64_t m_frames = 0;
};

// The loudness meter. It measures nothing where loudness is not defined for the rate and the number
// of channels.
class LoudnessMeter {
public:
    LoudnessMeter(std::uint32_t channels, std::uint32_t rate)
        : m_channels(channels),
          m_state(ebur128_init(channels, rate,
                               EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK)) {}

    void Add(const FloatView& floats) {
        if (m_state == nullptr) {
            return;
        }
        m_values.assign(floats.values, floats.values + floats.count);
        for (float& value : m_values) {
            value = std::isfinite(value) ? value : 0.0F;
        }
        if (ebur128_add_frames_float(m_state.get(), m_values.data(), floats.count / m_channels) !=
            EBUR128_SUCCESS) {
            throw std::bad_alloc();
        }
        m_frames += floats.count / m_channels;
    }

    void Fill(Measurement& measurement) const {
        if (m_state == nullptr) {
            return;
        }
        FillTruePeak(measurement);
        double integrated = 0;
        // Silence has no loudness, and no range either.
        if (ebur128_loudness_global(m_state.get(), &integrated) != EBUR128_SUCCESS ||
            !std::isfinite(integrated)) {
            return;
        }
        measurement.integrated = integrated;
        // The range is measured over 3 s; the meter returns 0 for less.
        constexpr std::uint64_t kRangeSeconds = 3;
        double range = 0;
        if (m_frames >= kRangeSeconds * m_state->samplerate &&
            ebur128_loudness_range(m_state.get(), &range) == EBUR128_SUCCESS) {
            measurement.range = range;
        }
    }

private:
    void FillTruePeak(Measurement& measurement) const {
        double truePeak = 0;
        for (unsigned channel = 0; channel < m_channels; ++channel) {
            double peak = 0;
            if (ebur128_true_peak(m_state.get(), channel, &peak) == EBUR128_SUCCESS) {
                truePeak = std::max(truePeak, peak);
            }
        }
        measurement.truePeak = Decibels(truePeak);
    }

    struct Destroy {
        void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
    };

    std::uint32_t m_channels;
    std::uint64_t m_frames = 0;
    std::unique_ptr<ebur128_state, Destroy> m_state;
    std::vector<float> m_values;
};

std::string FormatLevel(const std::optional<double>& level, const char* unit) {
    return level.has_value() ? fmt::format("{:.1f} {}", *level, unit) : "none";
}

nlohmann::json OrNull(const std::optional<double>& value) {
    return value.has_value() ? nlohmann::json(*value) : nlohmann::json();
}

} // namespace

std::optional<double> Decibels(double level) {
    constexpr double kPerDecade = 20;
    return level > 0 ? std::optional(kPerDecade * std::log10(level)) : std::nullopt;
}

namespace {

SampleHandle Read(RangeReader& reader, Reporter& reporter) {
    const ReadingScope reading(reporter);
    return reader.Pull();
}

} // namespace

Measurement Measure(const SourceReader& source, const InputPolicy& policy, const HostLogger& log,
                    Reporter& reporter, Warnings& warnings) {
    warnings.Add(source.CheckHeader(policy));
    const ErrorRecords errors(log, source.ShownName());
    RangeReader reader(source, {0, source.Frames()});
    Levels levels(source.Channels());
    LoudnessMeter loudness(source.Channels(), source.Rate());
    while (const SampleHandle sample = Read(reader, reporter)) {
        const FloatView floats = FloatsIn(*sample);
        levels.Add(floats);
        loudness.Add(floats);
        reporter.Progress(reader.Delivered(), source.Frames().value_or(kUnknownTotal),
                          source.Rate());
    }
    source.RequireUnchanged();
    const auto shortfall = errors.VerifyDelivery(source.Frames(), reader.Delivered(),
                                                 source.EarlyStop(), policy.allowTruncated);
    if (shortfall.has_value()) {
        warnings.Add(*shortfall);
    }
    Measurement measurement;
    measurement.frames = reader.Delivered();
    measurement.channels = levels.Result();
    loudness.Fill(measurement);
    return measurement;
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

} // namespace kel::host
