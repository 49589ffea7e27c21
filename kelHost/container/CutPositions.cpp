#include "container/CutPositions.h"

#include "base/Numbers.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace kel::host {

CutResult CutPositions(Metadata metadata, std::uint64_t firstFrame, std::uint64_t frames) {
    const std::uint64_t end = SaturatingSum(firstFrame, frames);
    std::vector<CuePoint> kept;
    for (CuePoint& point : metadata.cuePoints) {
        const std::uint64_t pointEnd = SaturatingSum(point.frame, point.length);
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
            SaturatingSum(metadata.broadcast->timeReference, firstFrame);
    }
    result.metadata = std::move(metadata);
    return result;
}

} // namespace kel::host
