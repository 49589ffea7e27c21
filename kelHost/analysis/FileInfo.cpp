#include "analysis/FileInfo.h"

#include "base/Text.h"
#include "elements/Elements.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace kel::host {

FileInfo GetInfo(const std::string& file, bool measure, const HostLogger& log, Reporter& reporter) {
    constexpr std::uint32_t kBlockFrames = 16384;
    reporter.Opening(file);
    const SourceReader source(file, kBlockFrames);
    reporter.Opened();
    FileInfo info{Escape(file),
                  source.Channels(),
                  source.Rate(),
                  source.Frames(),
                  DescribeDelivery(*source.Info()),
                  std::nullopt};
    if (measure) {
        info.measurement = Measure(source, file, log, reporter);
    }
    return info;
}

void to_json(nlohmann::json& json, const FileInfo& info) {
    json = {{"file", info.file},
            {"channels", info.channels},
            {"rate", info.rate},
            {"frames", info.frames},
            {"duration", FormatDuration(info.frames, info.rate)},
            {"delivery", info.delivery}};
    if (info.rate != 0) {
        json["seconds"] = static_cast<double>(info.frames) / info.rate;
    }
    if (info.measurement.has_value()) {
        json["measurement"] = *info.measurement;
    }
}

void from_json(const nlohmann::json& json, FileInfo& info) {
    json.at("file").get_to(info.file);
    json.at("channels").get_to(info.channels);
    json.at("rate").get_to(info.rate);
    json.at("frames").get_to(info.frames);
    json.at("delivery").get_to(info.delivery);
    if (json.contains("measurement")) {
        info.measurement = json["measurement"].get<Measurement>();
    }
}

std::string FormatInfoTable(const std::vector<FileInfo>& files) {
    std::vector<std::vector<std::string>> rows;
    for (const FileInfo& info : files) {
        rows.push_back({info.file, fmt::format("{}", info.channels),
                        fmt::format("{} Hz", info.rate), fmt::format("{}", info.frames),
                        FormatDuration(info.frames, info.rate), info.delivery});
    }
    return FormatTable({{"File"},
                        {"Channels", Align::Right},
                        {"Rate", Align::Right},
                        {"Frames", Align::Right},
                        {"Duration", Align::Right},
                        {"Delivered as"}},
                       rows);
}

} // namespace kel::host
