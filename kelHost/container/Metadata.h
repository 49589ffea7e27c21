/// Metadata of audio files, independent of the container. One thread at a time for one file.
#pragma once

#include "base/FileName.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Loudness values of a broadcast file, in hundredths of a unit, as stored. 0x7FFF: not declared.
struct BroadcastLoudness {
    std::int16_t integrated = 0; ///< LUFS
    std::int16_t range = 0;      ///< LU
    std::int16_t truePeak = 0;   ///< dBTP
    std::int16_t momentary = 0;  ///< LUFS, the maximum
    std::int16_t shortTerm = 0;  ///< LUFS, the maximum
};

/// Returns a loudness value in its unit; none where it is not declared.
std::optional<double> LoudnessInUnits(std::int16_t hundredths);

/// Broadcast fields (EBU Tech 3285, the chunk "bext"). Texts are UTF-8.
struct Broadcast {
    std::string description;
    std::string originator;
    std::string originatorReference;
    std::string date;                ///< as stored: "2026-11-22"
    std::string time;                ///< as stored: "10:11:12"
    std::uint64_t timeReference = 0; ///< of the first frame, in frames since midnight
    std::uint16_t version = 0;
    std::string umid;                          ///< 64 bytes; empty when all of them are 0
    std::optional<BroadcastLoudness> loudness; ///< from version 2 on
    std::string codingHistory;                 ///< lines that end with CR LF
};

/// A tag. Names are lower case and the same for all containers: "title", "artist", "album",
/// "date", "genre", "track", "copyright", "software", "comment", "license"; others are those of the
/// container: "isrc", "ieng".
struct Tag {
    std::string name;
    std::string value; ///< UTF-8
};

/// A cue point or marker, or a region.
struct CuePoint {
    std::uint32_t id = 0;
    std::uint64_t frame = 0;  ///< position, in frames
    std::uint64_t length = 0; ///< of a region, in frames; 0 for a point
    std::string label;        ///< UTF-8
    std::string note;         ///< UTF-8
};

/// A part of a file that is neither samples nor one of the above.
struct OtherPart {
    std::string name; ///< "iXML", "PICTURE"
    std::uint64_t bytes = 0;
};

/// Metadata of a file.
struct Metadata {
    std::optional<Broadcast> broadcast;
    std::vector<Tag> tags;
    std::vector<CuePoint> cuePoints; ///< in the order of the file
    std::vector<OtherPart> others;   ///< in the order of the file; no padding
    std::optional<std::uint32_t>
        channelMask; ///< speakers that a comment in a FLAC file declares, see StoredFormat
    std::vector<std::string>
        omissions; ///< kinds of items that have no place here: "times of comments"
    std::vector<std::string>
        problems; ///< damage that was skipped: "cue declares 9 points and has 2"
};

/// Reads the metadata of a file. Damaged parts are skipped, and named in Metadata::problems.
/// @throws JobError when the file cannot be opened or read
Metadata ReadMetadata(const FileName& file);

} // namespace kel::host
