/// Distinction of files that are not audio from damaged audio files. Any thread.
#pragma once

#include "base/FileName.h"

#include <string_view>

namespace kel::host {

/// Returns true when the name of a file ends like that of an audio file that libsndfile reads.
bool HasAudioExtension(std::string_view path);

/// Returns true when a file that a source did not open is not audio. In doubt it is: a file is
/// unrecognised only if the failure is that libsndfile does not know its format, its name does not
/// end like that of an audio file, and its content does not begin like one. A file with metadata of
/// a Macintosh (AppleDouble, RFC 1740, section 4), such as "._take.wav", is not audio either.
/// @param failure the text of the source's failure
/// @throws JobError when the beginning of the file cannot be read
bool IsUnrecognised(const FileName& file, std::string_view failure);

} // namespace kel::host
