/// Parts of metadata that describe a whole file, and that a copy of a part of it contains
/// unchanged. Pure functions.
///
/// Sources of the layouts: axml and others (ITU-R BS.2088), bext (EBU Tech 3285), iXML (iXML
/// Specification 2.10), ID3v2 (id3.org, "ID3v2 Chapter Frame Addendum", "ID3 tag version 2.4.0 -
/// Native Frames"), XMP (Adobe, "XMP Specification Part 2").
#pragma once

#include "container/Metadata.h"

#include <string>
#include <string_view>

namespace kel::host {

/// True for chunks for which IsStaleInRange or IsStaleInChannels may be true.
/// @param name with the kind of a list: "LIST mine"
bool MayBeStale(std::string_view name);

/// True for a chunk with positions or durations that ChunkAdjustment does not know: the times of
/// the Audio Definition Model, beats, chapters, markers of XMP. Loudness counts as well.
/// @param content of the chunk; may be empty when it is too large to be read
bool IsStaleInRange(std::string_view name, std::string_view content);

/// True for a chunk with a list of channels or their loudness that is copied with other channels,
/// too.
bool IsStaleInChannels(std::string_view name, std::string_view content);

/// True when broadcast fields declare the loudness of the whole file.
bool DeclaresLoudness(const Broadcast& broadcast);

/// True for a tag with positions in its file: "chapter001", "cuesheet", "time_reference".
bool IsStaleTag(std::string_view name);

} // namespace kel::host
