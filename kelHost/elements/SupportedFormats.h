/// Which encodings go into which containers.
#pragma once

#include "audio/Formats.h"

#include <PCMEndianness.h>

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// One combination of container, encoding and byte order.
struct FormatChoice {
    const Container* container = nullptr;
    const Encoding* encoding = nullptr;
    PCMEndianness byteOrder = PCMEndianness::Little;
    bool accepted = false; ///< whether the sink takes it
    std::string readers;   ///< which of the tools that were tried read it; see docs/formats.md
};

void to_json(nlohmann::json& json, const FormatChoice& choice);

/// Asks the sinks about every combination.
/// @throws JobError when no sink is registered for a container
std::vector<FormatChoice> QuerySupportedFormats();

/// A table of the combinations for people.
std::string FormatSupportedFormats(const std::vector<FormatChoice>& choices);

/// Makes sure that a container takes an encoding and byte order, as its sink says.
/// @throws UsageError with the combinations that it takes, JobError when it takes none
void RequireSupported(const Container& container, const Encoding& encoding,
                      PCMEndianness byteOrder);

} // namespace kel::host
