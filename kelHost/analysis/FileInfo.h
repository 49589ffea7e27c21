/// Facts about audio files.
#pragma once

#include "analysis/Loudness.h"
#include "container/InputHeader.h"
#include "elements/HostLogger.h"
#include "jobs/Job.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Facts that a source reports about a file.
struct FileInfo {
    std::string file; ///< escaped
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;             ///< frames per second
    std::optional<std::int64_t> frames; ///< missing when it is unknown
    std::string delivery; ///< samples that the source delivers: "32-bit float little-endian"
    std::optional<Truncation> truncated;    ///< missing for whole files
    std::optional<Measurement> measurement; ///< if requested
    std::vector<std::string> warnings;      ///< escaped
};

void to_json(nlohmann::json& members, const FileInfo& info);

/// Opens a file and returns the facts about it. One thread at a time.
/// @param measure whether to read it to its end and measure it as well
/// @param policy which files are accepted when they are measured
/// @param log the current logger writer
/// @param reporter receives opening and progress
/// @throws JobError when it cannot be opened or read
FileInfo ReadFileInfo(const std::string& file, bool measure, const InputPolicy& policy,
                      const HostLogger& log, Reporter& reporter);

} // namespace kel::host
