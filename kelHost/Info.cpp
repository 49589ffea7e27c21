#include "Info.h"

#include "Elements.h"
#include "Errors.h"
#include "Formats.h"
#include "Text.h"

#include <IAudioInfo.h>
#include <IAudioParameters_PCM.h>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// What the source says that it delivers, whatever the file holds.
std::string DescribeDelivery(const IAudioInfo& info) {
    const auto pcm =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info.GetAudioParameters());
    if (pcm == nullptr) {
        return "not PCM";
    }
    return fmt::format("{}-bit {} {}", pcm->GetBitsDepth(),
                       pcm->GetPCMType() == AudioPCMType::Float ? "float" : "integer",
                       Describe(pcm->GetEndianness()));
}

std::vector<std::string> MakeRow(const std::string& file) {
    const OpenSource source(file, 1);
    return {Escape(file),
            fmt::format("{}", source.Channels()),
            fmt::format("{} Hz", source.Rate()),
            fmt::format("{}", source.Frames()),
            FormatDuration(source.Frames(), source.Rate()),
            DescribeDelivery(*source.Info())};
}

} // namespace

bool ShowInfo(const std::vector<std::string>& files, std::ostream& out, std::ostream& errors) {
    std::vector<std::vector<std::string>> rows;
    for (const std::string& file : files) {
        try {
            rows.push_back(MakeRow(file));
        } catch (const JobError& error) {
            fmt::print(errors, "kelhost: {}\n", error.what());
        }
    }
    if (!rows.empty()) {
        out << FormatTable({{"File"},
                            {"Channels", Align::Right},
                            {"Rate", Align::Right},
                            {"Frames", Align::Right},
                            {"Duration", Align::Right},
                            {"Delivered as"}},
                           rows);
    }
    return rows.size() == files.size();
}

} // namespace kel::host
