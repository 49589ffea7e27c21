#include "analysis/MetadataDocument.h"

#include "base/Text.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <string>

namespace kel::host {

namespace {

using nlohmann::json;

json LoudnessValue(std::int16_t hundredths) {
    const auto value = LoudnessInUnits(hundredths);
    return value.has_value() ? json(*value) : json();
}

json LoudnessOf(const Broadcast& broadcast) {
    if (!broadcast.loudness.has_value()) {
        return nullptr;
    }
    const BroadcastLoudness& loudness = *broadcast.loudness;
    return {{"integrated_lufs", LoudnessValue(loudness.integrated)},
            {"range_lu", LoudnessValue(loudness.range)},
            {"true_peak_dbtp", LoudnessValue(loudness.truePeak)},
            {"momentary_lufs", LoudnessValue(loudness.momentary)},
            {"short_term_lufs", LoudnessValue(loudness.shortTerm)}};
}

json BroadcastOf(const Broadcast& broadcast, std::uint32_t rate) {
    return {{"description", broadcast.description},
            {"originator", broadcast.originator},
            {"originator_reference", broadcast.originatorReference},
            {"date", broadcast.date},
            {"time", broadcast.time},
            {"time_reference", broadcast.timeReference},
            {"time_reference_time", FormatPosition(broadcast.timeReference, rate)},
            {"version", broadcast.version},
            {"umid", broadcast.umid.empty() ? json() : json(Hexadecimal(broadcast.umid))},
            {"loudness", LoudnessOf(broadcast)},
            {"coding_history", broadcast.codingHistory}};
}

} // namespace

std::string FormatPosition(std::uint64_t frame, std::uint32_t rate) {
    const bool isFrame = frame <= std::numeric_limits<std::int64_t>::max();
    return isFrame ? FormatDuration(static_cast<std::int64_t>(frame), rate) : "unknown";
}

void AddMetadata(json& members, const Metadata& metadata, std::uint32_t rate) {
    members["broadcast"] =
        metadata.broadcast.has_value() ? BroadcastOf(*metadata.broadcast, rate) : json();
    json& tags = members["tags"] = json::array();
    for (const Tag& tag : metadata.tags) {
        tags.push_back({{"name", tag.name}, {"value", tag.value}});
    }
    json& points = members["cue_points"] = json::array();
    for (const CuePoint& point : metadata.cuePoints) {
        points.push_back({{"id", point.id},
                          {"frame", point.frame},
                          {"time", FormatPosition(point.frame, rate)},
                          {"length", point.length},
                          {"label", point.label},
                          {"note", point.note}});
    }
    json& chunks = members["chunks"] = json::array();
    for (const OtherPart& part : metadata.others) {
        chunks.push_back({{"name", part.name}, {"bytes", part.bytes}});
    }
    members["problems"] = metadata.problems;
}

} // namespace kel::host
