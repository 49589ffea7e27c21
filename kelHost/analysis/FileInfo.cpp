#include "analysis/FileInfo.h"

#include "base/Text.h"
#include "elements/SourceReader.h"

#include <nlohmann/json.hpp>

#include <string>

namespace kel::host {

FileInfo ReadFileInfo(const std::string& file, bool measure, const HostLogger& log,
                      Reporter& reporter) {
    reporter.Opening(file);
    const SourceReader source(file);
    reporter.Opened();
    FileInfo info{Escape(file),
                  source.Channels(),
                  source.Rate(),
                  source.Frames(),
                  DescribeDelivery(*source.Info()),
                  std::nullopt};
    if (measure) {
        info.measurement =
            Measure(source, LoudnessWeights(source.Channels(), std::nullopt), log, reporter);
        info.frames = info.measurement->frames;
    }
    return info;
}

void to_json(nlohmann::json& members, const FileInfo& info) {
    members = {{"file", info.file},        {"channels", info.channels}, {"rate", info.rate},
               {"frames", nullptr},        {"seconds", nullptr},        {"duration", nullptr},
               {"delivery", info.delivery}};
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
