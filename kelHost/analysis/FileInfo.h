/// What is in audio files.
#pragma once

#include "analysis/Loudness.h"
#include "jobs/WorkerPool.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// What a source says of a file.
struct FileInfo {
    std::string file; ///< as shown to the user
    std::uint32_t channels = 0;
    std::uint32_t rate = 0; ///< frames per second
    std::int64_t frames = 0;
    std::string delivery; ///< what the source delivers, for instance "32-bit float little-endian"
    std::optional<Measurement> measurement; ///< where it was asked for
};

void to_json(nlohmann::json& json, const FileInfo& info);
void from_json(const nlohmann::json& json, FileInfo& info);

/// Opens a file and asks what is in it.
/// @param measure whether to read it to its end and measure it as well
/// @param log the current logger writer
/// @param reporter told of opening and progress
/// @throws JobError when it cannot be opened or read
FileInfo GetInfo(const std::string& file, bool measure, const HostLogger& log, Reporter& reporter);

/// A table of files for people, a line for each.
std::string FormatInfoTable(const std::vector<FileInfo>& files);

} // namespace kel::host
