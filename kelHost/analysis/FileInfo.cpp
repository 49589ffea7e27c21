#include "analysis/FileInfo.h"

#include "base/Text.h"
#include "elements/SourceReader.h"

#include <nlohmann/json.hpp>

#include <string>

namespace kel::host {

FileInfo ReadFileInfo(const std::string& file, bool measure, const InputPolicy& policy,
                      const HostLogger& log, Reporter& reporter) {
    reporter.Opening(file);
    const SourceReader source(file, std::nullopt, {policy.repair, ReadingSteps(reporter)});
    reporter.Opened();
    FileInfo info{Escape(file),
                  source.Channels(),
                  source.Rate(),
                  source.Frames(),
                  DescribeDelivery(*source.Info()),
                  source.Header().has_value() ? source.Header()->truncation : std::nullopt,
                  std::nullopt,
                  {}};
    if (measure) {
        Warnings warnings(reporter);
        info.measurement = Measure(source, policy, log, reporter, warnings);
        info.warnings = warnings.Texts();
        info.frames = info.measurement->frames;
    }
    return info;
}

void to_json(nlohmann::json& members, const FileInfo& info) {
    members = {
        {"file", info.file},         {"channels", info.channels}, {"rate", info.rate},
        {"frames", nullptr},         {"seconds", nullptr},        {"duration", nullptr},
        {"delivery", info.delivery}, {"truncated", nullptr},      {"warnings", info.warnings}};
    if (info.truncated.has_value()) {
        members["truncated"] = {{"declared", info.truncated->declared},
                                {"present", info.truncated->present},
                                {"unit", info.truncated->isInFrames ? "frames" : "bytes"}};
    }
    if (info.frames.has_value()) {
        members["frames"] = *info.frames;
        members["duration"] = FormatDuration(*info.frames, info.rate);
    }
    if (info.frames.has_value() && info.rate != 0) {
        members["seconds"] = static_cast<double>(*info.frames) / info.rate;
    }
    if (info.measurement.has_value()) {
        members["measurement"] = *info.measurement;
    }
}

} // namespace kel::host
