#include "container/CutPositions.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// The sum; the largest number if it has more than 64 bits.
std::uint64_t AddFrames(std::uint64_t first, std::uint64_t second) {
    return first + std::min(second, std::numeric_limits<std::uint64_t>::max() - first);
}

} // namespace

CutResult CutPositions(Metadata metadata, std::uint64_t firstFrame, std::uint64_t frames) {
    const std::uint64_t end = AddFrames(firstFrame, frames);
    std::vector<CuePoint> kept;
    for (CuePoint& point : metadata.cuePoints) {
        const std::uint64_t pointEnd = AddFrames(point.frame, point.length);
        const bool isPointInside = point.frame >= firstFrame && point.frame <= end;
        const bool isRegionInside = point.frame < end && pointEnd > firstFrame;
        if (point.length == 0 ? isPointInside : isRegionInside) {
            const std::uint64_t start = std::max(point.frame, firstFrame);
            point.length = point.length == 0 ? 0 : std::min(pointEnd, end) - start;
            point.frame = start - firstFrame;
            kept.push_back(std::move(point));
        }
    }
    CutResult result;
    result.droppedPoints = metadata.cuePoints.size() - kept.size();
    metadata.cuePoints = std::move(kept);
    if (metadata.broadcast.has_value()) {
        metadata.broadcast->timeReference =
            AddFrames(metadata.broadcast->timeReference, firstFrame);
    }
    result.metadata = std::move(metadata);
    return result;
}

} // namespace kel::host
