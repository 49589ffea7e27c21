/// Headers of files to read. One thread at a time for one file.
#pragma once

#include "base/FileName.h"

#include <cstdint>
#include <optional>

namespace kel::host {

/// Position and amount of the samples in a file.
struct SampleLayout {
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;  ///< frames per second
    std::int64_t frames = 0; ///< that the header declares and the file has
    std::uint64_t first = 0; ///< offset of the first sample, in bytes
};

/// Reads the parts of a file that can contain a header: its beginning, its end, and the chunks of
/// WAVE, RF64 and AIFF. A library may take bytes that it cannot read for zeros; here that is an
/// error. Files that cannot be opened, and those that are not regular files, are left to the
/// source.
///
/// Sources of the layouts: see HeaderSizes.h.
/// @return the layout of WAVE, RF64 and AIFF files with linear samples; none for other files, and
/// for those whose header leaves something open
/// @throws JobError when a part cannot be read
std::optional<SampleLayout> ReadInputHeader(const FileName& file);

} // namespace kel::host
