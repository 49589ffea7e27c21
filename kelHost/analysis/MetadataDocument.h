/// Metadata as members of a JSON document. Pure functions.
#pragma once

#include "container/Metadata.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>

namespace kel::host {

/// Adds the members "broadcast", "tags", "cue_points", "chunks" and "problems".
/// @param rate frames per second, for times
void AddMetadata(nlohmann::json& members, const Metadata& metadata, std::uint32_t rate);

/// Returns a time of day or a position as h:mm:ss.mmm; "unknown" beyond the range of frames.
std::string FormatPosition(std::uint64_t frame, std::uint32_t rate);

} // namespace kel::host
