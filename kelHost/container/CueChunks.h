/// The chunks "cue " and LIST adtl of WAVE files: cue points, their labels, and regions. Pure
/// functions.
///
/// Source of the layouts: IBM and Microsoft, "Multimedia Programming Interface and Data
/// Specifications 1.0", 1991.
#pragma once

#include "container/Metadata.h"
#include "container/StoredBytes.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Bytes of a point in "cue ": number, position, chunk, two offsets of blocks, and the frame.
inline constexpr std::size_t kCuePoint = 24;

/// Offset of the frame in a point.
inline constexpr std::size_t kCueFrame = 20;

/// The description of a cue point in LIST adtl.
struct CueLabel {
    bool hasRegion = false;   ///< there was a "ltxt"
    bool hasPurpose = false;  ///< of a region, another than to be one
    bool hasLanguage = false; ///< of a region: a country, language, dialect or code page
    std::uint64_t length = 0; ///< in frames
    std::string label;        ///< UTF-8
    std::string note;         ///< UTF-8
    std::string region;       ///< text of a region, UTF-8
};

/// Descriptions by the number of their cue point.
using CueLabels = std::map<std::uint32_t, CueLabel>;

/// More than a useful file has. A damaged file may describe any number of points.
inline constexpr std::size_t kMaxCueLabels = 32768;

/// Returns the number of cue points that a chunk declares.
std::uint64_t DeclaredCuePoints(const StoredBytes& cue);

/// Returns the cue points that a chunk contains, at most as many as it declares.
std::vector<CuePoint> ParseCuePoints(const StoredBytes& cue);

/// True when a point has another position than its frame: in a playlist or a block, or in another
/// chunk than that of the samples.
bool HasOtherPositions(const StoredBytes& cue);

/// Adds the content of "labl", "note" or "ltxt".
/// @return false for other chunks, those that are too short, a second region or another text for a
///     point, and when there are too many
bool AddCueLabel(std::string_view name, const StoredBytes& content, CueLabels& labels);

/// Returns the content of "cue " for points whose positions have 32 bits.
std::string FormatCue(const std::vector<CuePoint>& points, StoredOrder order);

/// Returns the content of LIST adtl; empty when there is nothing to describe.
std::string FormatCueLabels(const std::vector<CuePoint>& points, StoredOrder order);

/// Returns a chunk inside of another, with its header and its padding.
std::string FormatSubChunk(std::string_view name, const std::string& content, StoredOrder order);

} // namespace kel::host
