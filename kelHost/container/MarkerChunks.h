/// The chunks "MARK" and "COMT" of AIFF files: markers, and comments on them. Pure functions.
///
/// Source of the layouts: Apple, "Audio Interchange File Format AIFF-C", 1991.
#pragma once

#include "container/Metadata.h"
#include "container/StoredBytes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

/// The largest number of a marker, and the most markers in a file.
inline constexpr std::size_t kMaxMarkers = 32767;

/// The longest name of a marker, in bytes.
inline constexpr std::size_t kMaxMarkerName = 255;

/// The longest comment in "COMT", in bytes.
inline constexpr std::size_t kMaxMarkerComment = 65535;

/// A comment on a marker, or on the file.
struct MarkerComment {
    std::uint32_t marker = 0; ///< 0: the file
    std::string text;         ///< UTF-8
};

/// Returns the number of markers or comments that a chunk declares.
std::uint64_t DeclaredItems(const StoredBytes& content);

/// Returns the markers that "MARK" contains, at most as many as it declares.
std::vector<CuePoint> ParseMarkers(const StoredBytes& content);

/// Returns the comments that "COMT" contains, at most as many as it declares.
std::vector<MarkerComment> ParseMarkerComments(const StoredBytes& content);

/// Returns the content of "MARK". Longer names are cut.
/// @param points at most kMaxMarkers
std::string FormatMarkers(const std::vector<CuePoint>& points);

/// Returns the content of "COMT" with the notes of points, without times; empty without notes.
/// @param points at most kMaxMarkers
std::string FormatMarkerComments(const std::vector<CuePoint>& points);

} // namespace kel::host
