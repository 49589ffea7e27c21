/// Metadata of a part of a file. Pure functions.
#pragma once

#include "container/Metadata.h"

#include <cstddef>
#include <cstdint>

namespace kel::host {

/// Metadata with changed positions.
struct CutResult {
    Metadata metadata;
    std::size_t droppedPoints = 0; ///< cue points and regions outside of the range
};

/// Returns the metadata of a range of frames. Cue points move with their frames, and those outside
/// of the range are dropped; a point at its end stays. Regions keep the part inside of the range.
/// The broadcast time reference increases by the frames that are omitted before the range.
/// @param firstFrame the first frame of the range
/// @param frames length of the range
CutResult CutPositions(Metadata metadata, std::uint64_t firstFrame, std::uint64_t frames);

} // namespace kel::host
