#include "transfer/CopyReport.h"

#include "base/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

json EscapeAll(const std::vector<std::string>& names) {
    auto escaped = json::array();
    for (const std::string& name : names) {
        escaped.push_back(Escape(name));
    }
    return escaped;
}

json DescribeMetadata(const std::optional<MetadataReport>& metadata) {
    return metadata.has_value() ? json{{"kept", EscapeAll(metadata->kept)},
                                       {"not_preserved", EscapeAll(metadata->notPreserved)}}
                                : json();
}

std::string FormatConversion(const std::vector<ChannelConversion>& channels) {
    std::string text;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const ChannelConversion& channel = channels[i];
        if (channel.clipped > 0) {
            text += fmt::format("channel {}: {} clipped, the loudest {} times full scale\n", i + 1,
                                Count(channel.clipped, "value"), channel.loudest);
        }
        if (channel.nonFinite > 0) {
            text += fmt::format("channel {}: {} not finite\n", i + 1,
                                Count(channel.nonFinite, "value"));
        }
    }
    return text;
}

} // namespace

json DescribeCopy(const CopyRequest& request, const CopyFacts& facts,
                  const std::vector<std::string>& warnings) {
    auto conversion = json::array();
    for (const ChannelConversion& channel : facts.conversion) {
        conversion.push_back({{"clipped", channel.clipped},
                              {"loudest", channel.loudest},
                              {"non_finite", channel.nonFinite}});
    }
    return {{"input", Escape(request.input.shown)},
            {"output", Escape(request.output)},
            {"container", facts.format.container->title},
            {"encoding", facts.format.encoding->name},
            {"byte_order", Describe(facts.format.byteOrder)},
            {"channels", facts.channels},
            {"rate", facts.rate},
            {"frames", facts.frames},
            {"bytes", facts.SampleBytes()},
            {"verified", facts.isVerified},
            {"rounded", facts.rounded},
            {"conversion", conversion},
            {"metadata", DescribeMetadata(facts.metadata)},
            {"warnings", warnings}};
}

std::string FormatCopy(const CopyRequest& request, const CopyFacts& facts) {
    return fmt::format(
               "{} -> {}: {}, {} {}, {}, {} Hz, {}, {}{}{}\n", Escape(request.input.shown),
               Escape(request.output), facts.format.container->title, facts.format.encoding->name,
               Describe(facts.format.byteOrder), Count(facts.channels, "channel"), facts.rate,
               Count(static_cast<std::uint64_t>(facts.frames), "frame"),
               FormatDuration(facts.frames, facts.rate), facts.isVerified ? ", verified" : "",
               facts.rounded > 0 ? ", " + Count(facts.rounded, "value") + " rounded" : "") +
           FormatConversion(facts.conversion);
}

} // namespace kel::host
