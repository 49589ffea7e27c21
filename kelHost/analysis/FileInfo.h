/// Facts about audio files.
#pragma once

#include "analysis/Measurement.h"
#include "base/FileName.h"
#include "container/InputHeader.h"
#include "container/InputPolicy.h"
#include "container/Metadata.h"
#include "container/StoredFormat.h"
#include "elements/HostLogger.h"
#include "jobs/Job.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Facts that are read only if they are requested.
struct InfoRequest {
    bool metadata = false; ///< broadcast fields, tags, cue points, other parts
    bool checksum = false; ///< of the samples, for which the file is read to its end
    bool measure = false;  ///< levels and loudness, for which the file is read to its end
};

/// Facts about a file.
struct FileInfo {
    std::string file;                   ///< escaped
    std::string path;                   ///< see PathToOpen
    std::optional<StoredFormat> format; ///< missing for files that only another plug-in can read
    std::uint64_t bytes = 0;            ///< size of the file
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;             ///< frames per second
    std::optional<std::int64_t> frames; ///< missing when it is unknown
    std::string delivery; ///< samples that the source delivers: "32-bit float little-endian"
    std::optional<Truncation> truncated;    ///< missing for whole files
    std::optional<Metadata> metadata;       ///< if requested
    std::optional<std::string> md5;         ///< of the samples, if requested
    std::optional<Measurement> measurement; ///< if requested
    std::vector<std::string> warnings;      ///< escaped
};

/// Returns the layout of a file's channels: "5.1", "no layout".
std::string DescribeLayout(const FileInfo& info);

void to_json(nlohmann::json& members, const FileInfo& info);

/// Opens a file and returns the facts about it. One thread at a time.
/// @param named a file or a pipe, as the user named it
/// @param policy which files are accepted when all of their samples are read
/// @param log the current logger writer
/// @param reporter receives opening and progress
/// @throws JobError when it cannot be opened or read
FileInfo ReadFileInfo(const FileName& named, const InfoRequest& request, const InputPolicy& policy,
                      const HostLogger& log, Reporter& reporter);

} // namespace kel::host
