#include "commands/InfoDetails.h"

#include "analysis/MetadataDocument.h"
#include "base/DisplayWidth.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// The names of facts are as wide as that of the integrated loudness, which may follow.
std::string Line(std::string_view name, std::string_view text) {
    constexpr std::size_t kNameWidth = 19;
    return fmt::format("{}  {}\n", Pad(std::string(name), kNameWidth), text);
}

// Adds a text of a file in as many lines as it has; nothing for an empty one.
void AddTextLines(std::string_view name, const std::string& value, std::string& text) {
    std::istringstream stream(value);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        text += line.empty() && name.empty() ? "\n" : Line(name, Escape(line));
        name = "";
    }
}

// Adds a section, unless it has no lines. It is not built elsewhere: it may be large.
template <typename AddLines>
void AddSection(std::string_view title, const AddLines& addLines, std::string& text) {
    const std::size_t start = text.size();
    text += fmt::format("\n{}\n", title);
    const std::size_t empty = text.size();
    addLines();
    if (text.size() == empty) {
        text.resize(start);
    }
}

std::string FormatFacts(const FileInfo& info) {
    constexpr const char* kUnknown = "unknown";
    return Line("File", info.file) +
           Line("Format", info.format.has_value() ? Describe(*info.format) : kUnknown) +
           Line("Size", Count(info.bytes, "byte")) +
           Line("Channels", fmt::format("{}, {}", info.channels, DescribeLayout(info))) +
           Line("Rate", fmt::format("{} Hz", info.rate)) +
           Line("Frames", info.frames.has_value() ? fmt::format("{}", *info.frames) : kUnknown) +
           Line("Duration",
                info.frames.has_value() ? FormatDuration(*info.frames, info.rate) : kUnknown) +
           (info.truncated.has_value() ? Line("Truncated", DescribeCounts(*info.truncated)) : "") +
           (info.md5.has_value() ? Line("MD5 of the samples", *info.md5) : "");
}

// A stored loudness value with its unit; nothing where it is not declared.
std::string LoudnessLine(const char* name, std::int16_t hundredths, const char* unit) {
    const auto value = LoudnessInUnits(hundredths);
    return value.has_value() ? Line(name, fmt::format("{:.2f} {}", *value, unit)) : "";
}

std::string FormatLoudness(const BroadcastLoudness& loudness) {
    return LoudnessLine("Integrated loudness", loudness.integrated, "LUFS") +
           LoudnessLine("Loudness range", loudness.range, "LU") +
           LoudnessLine("True peak", loudness.truePeak, "dBTP") +
           LoudnessLine("Maximum momentary", loudness.momentary, "LUFS") +
           LoudnessLine("Maximum short-term", loudness.shortTerm, "LUFS");
}

void AddBroadcast(const Broadcast& broadcast, std::uint32_t rate, std::string& text) {
    AddTextLines("Description", broadcast.description, text);
    AddTextLines("Originator", broadcast.originator, text);
    AddTextLines("Reference", broadcast.originatorReference, text);
    AddTextLines("Date", broadcast.date, text);
    AddTextLines("Time", broadcast.time, text);
    text += Line("Time reference", fmt::format("{}, {}", Count(broadcast.timeReference, "frame"),
                                               FormatPosition(broadcast.timeReference, rate)));
    text += broadcast.loudness.has_value() ? FormatLoudness(*broadcast.loudness) : "";
    AddTextLines("Coding history", broadcast.codingHistory, text);
}

void AddTags(const std::vector<Tag>& tags, std::string& text) {
    for (const Tag& tag : tags) {
        AddTextLines(Escape(tag.name), tag.value, text);
    }
}

// Shortens a label for a table: its rows are as wide as the longest one.
std::string Shorten(const std::string& text) {
    constexpr std::size_t kMaxWidth = 60;
    return KeepBeginning(Escape(text), kMaxWidth);
}

// Returns a table without the columns that have no text at all.
std::string FormatUsedColumns(const std::vector<Column>& columns,
                              const std::vector<std::vector<std::string>>& rows) {
    std::vector<Column> used;
    std::vector<std::vector<std::string>> cells(rows.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const bool isUsed =
            std::any_of(rows.begin(), rows.end(), [i](const auto& row) { return !row[i].empty(); });
        if (isUsed) {
            used.push_back(columns[i]);
            for (std::size_t row = 0; row < rows.size(); ++row) {
                cells[row].push_back(rows[row][i]);
            }
        }
    }
    return FormatTable(used, cells);
}

std::string FormatCuePoints(const std::vector<CuePoint>& points, std::uint32_t rate) {
    if (points.empty()) {
        return "";
    }
    std::vector<std::vector<std::string>> rows;
    for (const CuePoint& point : points) {
        rows.push_back({fmt::format("{}", point.id), fmt::format("{}", point.frame),
                        FormatPosition(point.frame, rate),
                        point.length > 0 ? fmt::format("{}", point.length) : "",
                        Shorten(point.label), Shorten(point.note)});
    }
    return FormatUsedColumns({{"Number", Align::Right},
                              {"Frame", Align::Right},
                              {"Time", Align::Right},
                              {"Length", Align::Right},
                              {"Label"},
                              {"Note"}},
                             rows);
}

std::string FormatOthers(const std::vector<OtherPart>& parts) {
    std::string lines;
    for (const OtherPart& part : parts) {
        lines += Line(Escape(part.name), Count(part.bytes, "byte"));
    }
    return lines;
}

std::string FormatProblems(const std::vector<std::string>& problems) {
    std::string lines;
    for (const std::string& problem : problems) {
        lines += Escape(problem) + "\n";
    }
    return lines;
}

void AddMetadata(const Metadata& metadata, std::uint32_t rate, std::string& text) {
    if (metadata.broadcast.has_value()) {
        AddSection(
            "Broadcast", [&] { AddBroadcast(*metadata.broadcast, rate, text); }, text);
    }
    AddSection(
        "Tags", [&] { AddTags(metadata.tags, text); }, text);
    AddSection(
        "Cue points", [&] { text += FormatCuePoints(metadata.cuePoints, rate); }, text);
    AddSection(
        "Other chunks", [&] { text += FormatOthers(metadata.others); }, text);
    AddSection(
        "Problems", [&] { text += FormatProblems(metadata.problems); }, text);
}

} // namespace

std::string FormatDetails(const FileInfo& info) {
    std::string text = FormatFacts(info);
    if (info.metadata.has_value()) {
        AddMetadata(*info.metadata, info.rate, text);
    }
    if (info.measurement.has_value()) {
        text += "\n" + FormatMeasurement(*info.measurement);
    }
    return text;
}

} // namespace kel::host
