/// Names of tags in the containers. Pure functions.
///
/// Sources: LIST INFO (IBM and Microsoft, "Multimedia Programming Interface and Data Specifications
/// 1.0", 1991), ID3v2.4 (id3.org, "ID3 tag version 2.4.0 - Native Frames", 2000), Vorbis comments
/// (Xiph.Org, "Ogg Vorbis I format specification: comment field and header specification"), AIFF
/// (Apple, "Audio Interchange File Format AIFF-C", 1991).
#pragma once

#include <string>
#include <string_view>

namespace kel::host {

/// Returns the name of a tag that is stored in LIST INFO: "title" for "INAM", "ieng" for "IENG".
std::string NameOfInfo(std::string_view id);

/// Returns the name of a tag that is stored in an ID3v2 frame: "title" for "TIT2" and "TT2",
/// "tcom" for "TCOM".
std::string NameOfFrame(std::string_view id);

/// Returns the name of a tag that is stored in a Vorbis comment: "title" for "TITLE", "mood" for
/// "Mood".
std::string NameOfComment(std::string_view key);

/// Returns the name of a tag that is stored in a chunk of AIFF: "title" for "NAME"; empty for
/// chunks that have no tag.
std::string NameOfTextChunk(std::string_view chunk);

/// Returns the name of the chunk of AIFF; empty when there is none for the tag.
std::string TextChunk(const std::string& name);

/// Returns the id in LIST INFO; empty when there is none for the tag.
std::string InfoId(const std::string& name);

/// Returns the id of the ID3v2.4 frame; empty when there is none for the tag.
std::string FrameId(const std::string& name);

} // namespace kel::host
