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

/// The longest comment that is written into "COMT", in bytes. libsndfile 1.2.0 opens no file with
/// one of more than 8191, and a comment of odd length may get a byte more (see MakeReadable).
inline constexpr std::size_t kMaxMarkerComment = 8190;

/// A comment on a marker, or on the file.
struct MarkerComment {
    std::uint32_t time = 0;   ///< in seconds from 1904 on, as stored; 0 where there is none
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

/// Returns the content of a complete "COMT" so that libsndfile opens its file. The library does not
/// skip the byte that pads a comment of odd length, and takes other bytes for the next length.
/// Where these lead beyond the chunk, or to a length that it refuses, all comments of odd length
/// end with a counted byte 0 instead.
std::string MakeReadable(const std::string& comments);

/// Returns the content of "COMT" with the notes of points, without times; empty without notes.
/// @param points at most kMaxMarkers
std::string FormatMarkerComments(const std::vector<CuePoint>& points);

} // namespace kel::host
