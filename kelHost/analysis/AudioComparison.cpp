#include "analysis/AudioComparison.h"

#include "analysis/Levels.h"
#include "audio/Formats.h"
#include "audio/Samples.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Text.h"
#include "container/KeptEncoding.h"
#include "container/StoredFormat.h"
#include "elements/ErrorRecords.h"
#include "elements/RangeReader.h"
#include "jobs/SeekableInput.h"
#include "jobs/Warnings.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace kel::host {

void ValueComparison::Add(const float* a, const float* b, std::size_t frames) {
    const std::size_t channels = m_channels.size();
    const std::size_t count = frames * channels;
    // The usual case: the same bits.
    const bool isEqual = count == 0 || std::memcmp(a, b, count * sizeof(float)) == 0;
    for (std::size_t i = 0; !isEqual && i < count; ++i) {
        const std::int64_t frame = m_frames + static_cast<std::int64_t>(i / channels);
        if (Differs(m_channels[i % channels], a[i], b[i], frame) && !m_first.has_value()) {
            m_first = frame;
        }
    }
    m_frames += static_cast<std::int64_t>(frames);
}

bool ValueComparison::Differs(ChannelDifference& channel, float a, float b,
                              std::int64_t frame) const {
    if (a == b || (std::isnan(a) && std::isnan(b))) {
        return false;
    }
    if (!std::isfinite(a) || !std::isfinite(b)) {
        ++channel.nonFinite;
        ++channel.differing;
        return true;
    }
    const double difference = std::abs(static_cast<double>(a) - static_cast<double>(b));
    if (difference > channel.largest) {
        channel.largest = difference;
        channel.largestAt = frame;
    }
    channel.differing += difference > m_tolerance ? 1 : 0;
    return difference > m_tolerance;
}

namespace {

// A part of a file that is read, with the values that were not compared yet.
class PartReader {
public:
    PartReader(const SourceReader& source, const FrameRange& range, const HostLogger& log,
               Reporter& reporter)
        : m_source(source), m_range(range), m_reporter(reporter), m_errors(log, source.ShownName()),
          m_reader(Begin(source, range, reporter)) {}

    // Reads on where no frames are left. None are left at the end.
    std::size_t FramesLeft() {
        while (m_used == m_floats.count && !m_isAtEnd) {
            const ReadingScope reading(m_reporter);
            m_sample = m_reader.Pull();
            m_isAtEnd = m_sample == nullptr;
            m_floats = m_isAtEnd ? FloatView{} : FloatsIn(*m_sample);
            m_used = 0;
        }
        return (m_floats.count - m_used) / m_source.Channels();
    }

    const float* Values() const { return m_floats.values + m_used; }
    void Skip(std::size_t frames) { m_used += frames * m_source.Channels(); }
    std::int64_t Delivered() const { return m_reader.Delivered(); }

    // Returns the warning about an accepted shortfall.
    std::optional<std::string> VerifyDelivery(const InputPolicy& policy) const {
        m_source.RequireUnchanged();
        return m_errors.VerifyDelivery(m_range.count, Delivered(),
                                       m_source.EarlyStop(m_range.count), policy.allowTruncated);
    }

private:
    static RangeReader Begin(const SourceReader& source, const FrameRange& range,
                             Reporter& reporter) {
        const ReadingScope reading(reporter); // it seeks
        return {source, range};
    }

    const SourceReader& m_source;
    FrameRange m_range;
    Reporter& m_reporter;
    ErrorRecords m_errors;
    RangeReader m_reader;
    SampleHandle m_sample;
    FloatView m_floats;
    std::size_t m_used = 0; // values
    bool m_isAtEnd = false;
};

FrameRange PartOf(const SourceReader& source, const std::optional<TimePoint>& start,
                  const std::optional<TimePoint>& duration) {
    return Resolve({start, std::nullopt, duration}, source.Frames(), source.Rate(),
                   source.ShownName());
}

// Sources deliver 32-bit floats.
std::optional<std::string> DescribeRounding(const SourceReader& source) {
    const auto stored = FindStoredFormat(source.File());
    if (!stored.has_value() || HoldsEveryValue(EncodingByName("float32"), *stored)) {
        return std::nullopt;
    }
    return fmt::format("{}: is compared as 32-bit floats, which do not hold every value of {}",
                       source.ShownName(), Describe(*stored));
}

// The content of a pipe can be read once.
void RequireTwoInputs(const FileName& a, const FileName& b) {
    struct stat statusA {};
    struct stat statusB {};
    if (stat(a.path.c_str(), &statusA) == 0 && stat(b.path.c_str(), &statusB) == 0 &&
        statusA.st_dev == statusB.st_dev && statusA.st_ino == statusB.st_ino &&
        !S_ISREG(statusA.st_mode) && !S_ISDIR(statusA.st_mode)) {
        throw JobError(b.shown, fmt::format("cannot compare it with {}: both are the same pipe or "
                                            "device; name a file instead of one of them",
                                            a.shown));
    }
}

} // namespace

bool Comparison::IsSame() const {
    return isCompared && files[0].frames == files[1].frames && !first.has_value();
}

Comparison CompareSources(const SourceReader& a, const SourceReader& b,
                          const ComparisonRequest& request, const HostLogger& log,
                          Reporter& reporter) {
    Comparison result;
    Warnings warnings(reporter);
    warnings.Add(a.CheckHeader(request.inputPolicy));
    warnings.Add(b.CheckHeader(request.inputPolicy));
    for (const SourceReader* source : {&a, &b}) {
        if (const auto rounding = DescribeRounding(*source); rounding.has_value()) {
            warnings.Add(*rounding);
        }
    }
    result.warnings = warnings.Texts();
    const FrameRange partA = PartOf(a, request.starts[0], request.duration);
    const FrameRange partB = PartOf(b, request.starts[1], request.duration);
    result.files = {ComparedFile{Escape(a.ShownName()), PathToOpen(request.files[0]), a.Channels(),
                                 a.Rate(), partA.first, partA.count},
                    ComparedFile{Escape(b.ShownName()), PathToOpen(request.files[1]), b.Channels(),
                                 b.Rate(), partB.first, partB.count}};
    result.tolerance = request.tolerance;
    if (a.Channels() != b.Channels() || a.Rate() != b.Rate()) {
        return result;
    }
    PartReader readerA(a, partA, log, reporter);
    PartReader readerB(b, partB, log, reporter);
    ValueComparison values(a.Channels(), request.tolerance);
    const std::int64_t total = partA.count.has_value() && partB.count.has_value()
                                   ? std::max(*partA.count, *partB.count)
                                   : kUnknownTotal;
    // Also the frames that only one of them has are read: the file may be damaged there.
    for (std::size_t leftA = readerA.FramesLeft(), leftB = readerB.FramesLeft();
         leftA > 0 || leftB > 0; leftA = readerA.FramesLeft(), leftB = readerB.FramesLeft()) {
        const std::size_t common = std::min(leftA, leftB);
        values.Add(readerA.Values(), readerB.Values(), common);
        readerA.Skip(common > 0 ? common : leftA);
        readerB.Skip(common > 0 ? common : leftB);
        reporter.Progress(std::max(readerA.Delivered(), readerB.Delivered()), total, a.Rate());
    }
    for (const PartReader* reader : {&readerA, &readerB}) {
        const auto shortfall = reader->VerifyDelivery(request.inputPolicy);
        if (shortfall.has_value()) {
            warnings.Add(*shortfall);
        }
    }
    result.warnings = warnings.Texts();
    result.files[0].frames = readerA.Delivered();
    result.files[1].frames = readerB.Delivered();
    result.isCompared = true;
    result.comparedFrames = values.Frames();
    result.first = values.FirstDifference();
    result.channels = values.Channels();
    return result;
}

Comparison CompareFiles(const ComparisonRequest& request, const HostLogger& log,
                        Reporter& reporter) {
    const auto& [fileA, fileB] = request.files;
    const SpoolPolicy& spool = request.inputPolicy.spool;
    const Repair repair{request.inputPolicy.repair, ReadingSteps(reporter), spool.directory};
    reporter.Opening(fileA.shown);
    const SeekableInput inputA(fileA, spool, reporter);
    const SourceReader a(inputA.File(), std::nullopt, repair);
    reporter.Opened();
    reporter.Opening(fileB.shown);
    RequireTwoInputs(fileA, fileB);
    const SeekableInput inputB(fileB, spool, reporter);
    const SourceReader b(inputB.File(), std::nullopt, repair);
    reporter.Opened();
    return CompareSources(a, b, request, log, reporter);
}

namespace {

nlohmann::json FileMembers(const ComparedFile& file) {
    nlohmann::json members{
        {"file", file.file},
        {"channels", file.channels},
        {"rate", file.rate},
        {"start", file.start},
        {"frames", file.frames.has_value() ? nlohmann::json(*file.frames) : nlohmann::json()}};
    AddPath(members, "path", file.path);
    return members;
}

// The place of a frame in one of the files.
nlohmann::json PlaceIn(const ComparedFile& file, std::int64_t frame) {
    return {{"frame", file.start + frame}, {"time", FormatDuration(file.start + frame, file.rate)}};
}

nlohmann::json Place(const Comparison& comparison, std::int64_t frame) {
    return {{"a", PlaceIn(comparison.files[0], frame)}, {"b", PlaceIn(comparison.files[1], frame)}};
}

nlohmann::json ChannelMembers(const Comparison& comparison, const ChannelDifference& channel) {
    const auto level = Decibels(channel.largest); // none for 0
    return {{"differing", channel.differing},
            {"non_finite", channel.nonFinite},
            {"largest", channel.largest},
            {"largest_dbfs", level.has_value() ? nlohmann::json(*level) : nlohmann::json()},
            {"largest_at",
             level.has_value() ? Place(comparison, channel.largestAt) : nlohmann::json()}};
}

// "1000 (0:00:00.021)"
std::string WithTime(const ComparedFile& file, std::int64_t frames) {
    return fmt::format("{} ({})", frames, FormatDuration(frames, file.rate));
}

// The numbers of a frame in both files, or the one number.
std::string FormatPlace(const Comparison& comparison, std::int64_t frame, bool withTime) {
    const auto& [a, b] = comparison.files;
    const auto format = [&](const ComparedFile& file) {
        const std::int64_t number = file.start + frame;
        return withTime ? "frame " + WithTime(file, number) : fmt::format("{}", number);
    };
    return a.start == b.start ? format(a) : format(a) + " and " + format(b);
}

// Returns a line for each property that differs.
std::string FormatReasons(const Comparison& comparison) {
    const auto& [a, b] = comparison.files;
    std::string text;
    if (a.channels != b.channels) {
        text += fmt::format("Channels          {} and {}\n", a.channels, b.channels);
    }
    if (a.rate != b.rate) {
        text += fmt::format("Rate              {} Hz and {} Hz\n", a.rate, b.rate);
    }
    if (!comparison.isCompared) {
        return text + "Samples           not compared\n";
    }
    if (a.frames != b.frames) {
        text += fmt::format("Frames            {} and {}\n", WithTime(a, *a.frames),
                            WithTime(b, *b.frames));
    }
    const std::string none = fmt::format(
        "none in {}", Count(static_cast<std::uint64_t>(comparison.comparedFrames), "common frame"));
    return text + fmt::format("First difference  {}\n",
                              comparison.first.has_value()
                                  ? FormatPlace(comparison, *comparison.first, true)
                                  : none);
}

// Returns a table of the channels whose values are not all the same; empty for none.
std::string FormatChannels(const Comparison& comparison) {
    std::vector<std::vector<std::string>> rows;
    for (std::size_t i = 0; i < comparison.channels.size(); ++i) {
        const ChannelDifference& channel = comparison.channels[i];
        const auto level = Decibels(channel.largest);
        if (channel.differing > 0 || level.has_value()) {
            rows.push_back({fmt::format("{}", i + 1), fmt::format("{}", channel.differing),
                            fmt::format("{}", channel.nonFinite),
                            level ? fmt::format("{:.6g}", channel.largest) : "none",
                            level ? fmt::format("{:.1f} dBFS", *level) : "",
                            level ? FormatPlace(comparison, channel.largestAt, false) : ""});
        }
    }
    return rows.empty() ? ""
                        : FormatTable({{"Channel", Align::Right},
                                       {"Differing values", Align::Right},
                                       {"Not finite", Align::Right},
                                       {"Largest difference", Align::Right},
                                       {"Level", Align::Right},
                                       {"At frame", Align::Right}},
                                      rows);
}

} // namespace

void to_json(nlohmann::json& members, const Comparison& comparison) {
    auto channels = nlohmann::json::array();
    for (const ChannelDifference& channel : comparison.channels) {
        channels.push_back(ChannelMembers(comparison, channel));
    }
    members = {{"same", comparison.IsSame()},
               {"a", FileMembers(comparison.files[0])},
               {"b", FileMembers(comparison.files[1])},
               {"tolerance", comparison.tolerance},
               {"compared_frames", comparison.comparedFrames},
               {"first_difference", comparison.first.has_value()
                                        ? Place(comparison, *comparison.first)
                                        : nlohmann::json()},
               {"channels", channels},
               {"warnings", comparison.warnings}};
}

std::string FormatComparison(const Comparison& comparison) {
    const auto& [a, b] = comparison.files;
    std::string text = fmt::format("{} and {}: ", a.file, b.file);
    if (!comparison.IsSame()) {
        return text + "different audio\n" + FormatReasons(comparison) + FormatChannels(comparison);
    }
    text += comparison.tolerance > 0
                ? fmt::format("the same audio within {:.6g}", comparison.tolerance)
                : "the same audio";
    return text +
           fmt::format(", {}, {} Hz, {}, {}\n", Count(a.channels, "channel"), a.rate,
                       Count(static_cast<std::uint64_t>(*a.frames), "frame"),
                       FormatDuration(*a.frames, a.rate)) +
           FormatChannels(comparison);
}

} // namespace kel::host
