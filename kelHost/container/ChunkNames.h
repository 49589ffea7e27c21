/// The purposes of chunks by their names. Pure functions. Names of lists include their kind:
/// "LIST adtl".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

/// True for chunks that describe or contain the samples of their file, and for padding.
/// @param isAIFF the chunk is one of AIFF, not of WAVE
bool DescribesSamples(std::string_view name, bool isAIFF);

/// True for chunks of the Audio Definition Model (ITU-R BS.2088), which refer to channels by their
/// numbers.
bool DescribesChannels(std::string_view name);

/// True for chunks of WAVE that contain tags or cue points, which other containers have in a form
/// of their own.
bool HasTagsOrCuePoints(std::string_view name);

/// Returns the longest content of a chunk of AIFF with which a file is written, in bytes.
/// libsndfile 1.2.0 opens no file with a longer NAME, AUTH, (c) or ANNO.
std::uint64_t MaxChunkInAIFF(std::string_view name);

/// Returns a name without the spaces and zeros at its end.
std::string TrimChunkName(std::string name);

} // namespace kel::host
