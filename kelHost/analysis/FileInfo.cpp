#include "analysis/FileInfo.h"

#include "analysis/Checksum.h"
#include "analysis/MetadataDocument.h"
#include "audio/ChannelLayout.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Text.h"
#include "elements/SourceReader.h"
#include "jobs/SeekableInput.h"
#include "jobs/Warnings.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

std::optional<std::uint32_t> ChannelMask(const FileInfo& info) {
    const bool hasMask = info.format.has_value() && info.format->channelMask.value_or(0) != 0;
    return hasMask ? info.format->channelMask : std::nullopt;
}

// A layout that is not that of a mask; empty for none.
std::string OtherLayout(const FileInfo& info) {
    return info.format.has_value() ? info.format->otherLayout : "";
}

std::vector<LoudnessWeight> WeightsOf(const FileInfo& info) {
    const std::vector<std::uint32_t> speakers =
        info.format.has_value() ? info.format->speakers : std::vector<std::uint32_t>();
    const bool hasSpeakers = std::any_of(speakers.begin(), speakers.end(),
                                         [](std::uint32_t speaker) { return speaker != 0; });
    return hasSpeakers ? LoudnessWeights(speakers)
                       : LoudnessWeights(info.channels, ChannelMask(info));
}

// Verifies that the samples of a file can be read as they are stored.
void RequireStored(const std::string& file, const FileInfo& info) {
    if (!info.format.has_value()) {
        throw JobError(file, "cannot compute its checksum: libsndfile does not know its format; "
                             "use kelhost compare");
    }
}

void ReadSamples(const SourceReader& source, const InfoRequest& request, const InputPolicy& policy,
                 const HostLogger& log, Reporter& reporter, Warnings& warnings, FileInfo& info) {
    if (request.checksum) {
        RequireStored(source.ShownName(), info);
        info.md5 = SampleMD5(source.File(), policy, log, reporter, warnings);
        source.RequireUnchanged();
    }
    if (request.measure) {
        info.measurement = Measure(source, WeightsOf(info), policy, log, reporter, warnings);
        info.frames = info.measurement->frames;
    }
}

} // namespace

FileInfo ReadFileInfo(const FileName& named, const InfoRequest& request, const InputPolicy& policy,
                      const HostLogger& log, Reporter& reporter) {
    reporter.Opening(named.shown);
    const SeekableInput input(named, policy.spool, reporter);
    const FileName& file = input.File();
    const SourceReader source(file, std::nullopt,
                              {policy.repair, ReadingSteps(reporter), policy.spool.directory});
    FileInfo info;
    info.file = Escape(file.shown);
    info.path = PathToOpen(named);
    info.channels = source.Channels();
    info.rate = source.Rate();
    info.frames = source.Frames();
    info.delivery = DescribeDelivery(*source.Info());
    info.bytes = source.InputBytes();
    if (source.Header().has_value()) {
        info.truncated = source.Header()->truncation;
    }
    if (source.Header().has_value() && source.Header()->stored.has_value()) {
        info.format = source.Header()->stored;
    } else {
        info.format = FindStoredFormat(file);
    }
    if (request.metadata) {
        info.metadata = ReadMetadata(file);
    }
    const bool readsSamples = request.checksum || request.measure;
    if (readsSamples) {
        reporter.Opened();
    }
    Warnings warnings(reporter);
    // Without reading samples, a wrong header is no failure.
    warnings.Add(readsSamples ? source.CheckHeader(policy) : source.DescribeHeader());
    if (readsSamples) {
        ReadSamples(source, request, policy, log, reporter, warnings, info);
    }
    info.warnings = warnings.Texts();
    return info;
}

std::string DescribeLayout(const FileInfo& info) {
    const std::string other = OtherLayout(info);
    return other.empty() ? DescribeLayout(info.channels, ChannelMask(info)) : other;
}

void to_json(nlohmann::json& members, const FileInfo& info) {
    members = {{"file", info.file},         {"format", nullptr},       {"container", nullptr},
               {"encoding", nullptr},       {"bytes", info.bytes},     {"channels", info.channels},
               {"layout", nullptr},         {"channel_mask", nullptr}, {"rate", info.rate},
               {"frames", nullptr},         {"seconds", nullptr},      {"duration", nullptr},
               {"delivery", info.delivery}, {"truncated", nullptr},    {"warnings", info.warnings}};
    AddPath(members, "path", info.path);
    if (info.truncated.has_value()) {
        members["truncated"] = {{"declared", info.truncated->declared},
                                {"present", info.truncated->present},
                                {"unit", info.truncated->isInFrames ? "frames" : "bytes"}};
    }
    if (info.format.has_value()) {
        members["format"] = Describe(*info.format);
        members["container"] = info.format->container;
        members["encoding"] = info.format->encoding;
    }
    const auto mask = ChannelMask(info);
    if (mask.has_value() || !OtherLayout(info).empty()) {
        members["layout"] = DescribeLayout(info);
    }
    if (mask.has_value()) {
        members["channel_mask"] = *mask;
    }
    if (info.frames.has_value()) {
        members["frames"] = *info.frames;
        members["duration"] = FormatDuration(*info.frames, info.rate);
    }
    if (info.frames.has_value() && info.rate != 0) {
        members["seconds"] = static_cast<double>(*info.frames) / info.rate;
    }
    if (info.metadata.has_value()) {
        AddMetadata(members, *info.metadata, info.rate);
    }
    if (info.md5.has_value()) {
        members["md5"] = *info.md5;
    }
    if (info.measurement.has_value()) {
        members["measurement"] = *info.measurement;
    }
}

} // namespace kel::host
