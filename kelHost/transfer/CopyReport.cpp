#include "transfer/CopyReport.h"

#include "base/JSONDocument.h"
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

// "a.flac -> a.wav: extensible WAVE, int16 little-endian, 2 channels, 48000 Hz"
std::string FormatOutput(const CopyRequest& request, const CopyFacts& facts) {
    return fmt::format("{} -> {}: {}, {} {}, {}, {} Hz", Escape(request.input.shown),
                       Escape(request.output.shown), facts.format.container->title,
                       facts.format.encoding->name, Describe(facts.format.byteOrder),
                       Count(facts.channels, "channel"), facts.rate);
}

std::string FormatLength(std::int64_t frames, std::uint32_t rate) {
    return Count(static_cast<std::uint64_t>(frames), "frame") + ", " + FormatDuration(frames, rate);
}

// The members that are known before a copy is made.
json DescribeOutput(const CopyRequest& request, const CopyFacts& facts) {
    json members{{"input", Escape(request.input.shown)},
                 {"output", Escape(request.output.shown)},
                 {"container", facts.format.container->title},
                 {"encoding", facts.format.encoding->name},
                 {"byte_order", Describe(facts.format.byteOrder)},
                 {"channels", facts.channels},
                 {"rate", facts.rate}};
    AddPath(members, "input_path", PathToOpen(request.input));
    AddPath(members, "output_path", PathToOpen(request.output));
    return members;
}

} // namespace

std::vector<std::string> DescribeClipping(const std::string& output,
                                          const std::vector<ChannelConversion>& channels) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const ChannelConversion& channel = channels[i];
        if (channel.clipped > 0) {
            texts.push_back(
                fmt::format("{}: channel {}: {} clipped, the loudest {} times full scale", output,
                            i + 1, Count(channel.clipped, "value"), channel.loudest));
        }
        if (channel.nonFinite > 0) {
            texts.push_back(fmt::format("{}: channel {}: {} not finite", output, i + 1,
                                        Count(channel.nonFinite, "value")));
        }
    }
    return texts;
}

json DescribeCopy(const CopyRequest& request, const CopyFacts& facts,
                  const std::vector<std::string>& warnings) {
    auto conversion = json::array();
    for (const ChannelConversion& channel : facts.conversion) {
        conversion.push_back({{"clipped", channel.clipped},
                              {"loudest", channel.loudest},
                              {"non_finite", channel.nonFinite}});
    }
    json members = DescribeOutput(request, facts);
    members.update({{"frames", facts.frames},
                    {"bytes", facts.SampleBytes()},
                    {"verified", facts.isVerified},
                    {"rounded", facts.rounded},
                    {"conversion", conversion},
                    {"metadata", DescribeMetadata(facts.metadata)},
                    {"warnings", warnings}});
    return members;
}

std::string FormatCopy(const CopyRequest& request, const CopyFacts& facts) {
    return fmt::format("{}, {}{}{}\n", FormatOutput(request, facts),
                       FormatLength(facts.frames, facts.rate), facts.isVerified ? ", verified" : "",
                       facts.rounded > 0 ? ", " + Count(facts.rounded, "value") + " rounded" : "");
}

json DescribePlan(const CopyRequest& request, const CopyFacts& facts,
                  const std::optional<std::int64_t>& frames) {
    json members = DescribeOutput(request, facts);
    members["frames"] = frames.has_value() ? json(*frames) : json();
    return members;
}

std::string FormatPlan(const CopyRequest& request, const CopyFacts& facts,
                       const std::optional<std::int64_t>& frames) {
    return fmt::format("{}, {}, not written (--dry-run)\n", FormatOutput(request, facts),
                       frames.has_value() ? FormatLength(*frames, facts.rate)
                                          : "an unknown number of frames");
}

} // namespace kel::host
