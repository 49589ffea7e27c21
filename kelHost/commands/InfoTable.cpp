#include "commands/InfoTable.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kUnknown = "unknown";

// Cells have no line breaks: names of files are escaped.
constexpr char kCellEnd = '\n';

std::vector<std::string> FormatCells(const FileInfo& info) {
    return {info.file,
            (info.format.has_value() ? Describe(*info.format) : std::string(kUnknown)) +
                (info.truncated.has_value() ? ", truncated" : ""),
            fmt::format("{}", info.channels),
            DescribeLayout(info),
            fmt::format("{} Hz", info.rate),
            info.frames.has_value() ? fmt::format("{}", *info.frames) : kUnknown,
            info.frames.has_value() ? FormatDuration(*info.frames, info.rate) : kUnknown,
            fmt::format("{}", info.bytes)};
}

std::vector<std::string> MeasuredCells(const FileInfo& info) {
    const Measurement& measurement = *info.measurement;
    std::uint64_t atFullScale = 0;
    std::uint64_t nonFinite = 0;
    for (const ChannelLevel& level : measurement.channels) {
        atFullScale += level.atFullScale;
        nonFinite += level.nonFinite;
    }
    return {info.file,
            FormatDuration(measurement.frames, info.rate),
            FormatLevel(PeakLevel(measurement), "dBFS"),
            FormatLevel(measurement.integrated, "LUFS"),
            FormatLevel(measurement.range, "LU"),
            FormatLevel(measurement.truePeak, "dBTP"),
            fmt::format("{}", atFullScale),
            fmt::format("{}", nonFinite)};
}

std::vector<Column> Columns(const InfoRequest& request) {
    std::vector<Column> columns;
    if (request.measure) {
        columns = {{"File"},
                   {"Duration", Align::Right},
                   {"Peak", Align::Right},
                   {"Integrated", Align::Right},
                   {"Range", Align::Right},
                   {"True peak", Align::Right},
                   {"At full scale", Align::Right},
                   {"Not finite", Align::Right}};
    } else {
        columns = {{"File"},
                   {"Format"},
                   {"Channels", Align::Right},
                   {"Layout"},
                   {"Rate", Align::Right},
                   {"Frames", Align::Right},
                   {"Duration", Align::Right},
                   {"Bytes", Align::Right}};
    }
    if (request.checksum) {
        columns.push_back({"MD5 of the samples"});
    }
    return columns;
}

std::vector<std::string> SplitCells(const std::string& row) {
    std::vector<std::string> cells;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = row.find(kCellEnd, begin)) != std::string::npos;) {
        cells.push_back(row.substr(begin, end - begin));
        begin = end + 1;
    }
    return cells;
}

} // namespace

std::string FormatRow(const FileInfo& info) {
    std::string row;
    for (const std::string& cell :
         info.measurement.has_value() ? MeasuredCells(info) : FormatCells(info)) {
        row += cell + kCellEnd;
    }
    if (info.md5.has_value()) {
        row += *info.md5 + kCellEnd;
    }
    return row;
}

std::string FormatInfoTable(const InfoRequest& request, const std::vector<std::string>& rows) {
    if (rows.empty()) {
        return "";
    }
    std::vector<std::vector<std::string>> cells;
    cells.reserve(rows.size());
    for (const std::string& row : rows) {
        cells.push_back(SplitCells(row));
    }
    return FormatTable(Columns(request), cells);
}

} // namespace kel::host
