/// Encodings that the sinks support in each container. Any thread.
#pragma once

#include "audio/Formats.h"

#include <string>
#include <vector>

namespace kel::host {

/// A combination of container, encoding and byte order.
struct SupportedFormat {
    const Container* container = nullptr;
    const Encoding* encoding = nullptr;
    ByteOrder byteOrder;
    bool accepted = false; ///< whether the sink accepts it
    std::string readers;   ///< tested tools that read it; see docs/formats.md
};

/// Queries the sinks for every combination.
/// @throws JobError when no sink is registered for a container
std::vector<SupportedFormat> QuerySupportedFormats();

/// Verifies that the sink for a container accepts the encoding and byte order.
/// @throws UsageError with the accepted combinations, JobError when there is none
void RequireSupported(const OutputFormat& format);

} // namespace kel::host
