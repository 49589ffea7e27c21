/// Chunks of WAVE within AIFF files, for which AIFF has no form of its own: broadcast fields, iXML,
/// loops and others. Each is in an application chunk of AIFF ("APPL"), which begins with a
/// signature of the program that wrote it. The program's data follow: here the name of the chunk in
/// four bytes, its size in four little-endian ones, and its content as in WAVE.
///
/// Source of the application chunk: Apple, "Audio Interchange File Format", 1989. One thread at a
/// time.
#pragma once

#include "container/ChunkList.h"
#include "container/HeaderReader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kel::host {

/// The name of the chunk of AIFF that contains one of WAVE.
inline constexpr const char* kCarrier = "APPL";

/// Bytes before the content of a carried chunk.
inline constexpr std::uint64_t kCarriedHeader = 12;

/// Returns the bytes before the content of a carried chunk.
/// @param name four bytes
/// @param contentSize in bytes
std::string CarriedHeader(const std::string& name, std::uint64_t contentSize);

/// Returns the chunk within one of an AIFF file, with the kind of a list in its name: "LIST mine".
/// @param header reads the file
/// @return none for a chunk that contains none, is damaged, or contains one that is not carried:
///     samples, their description, tags or cue points
/// @throws JobError when the file cannot be read
std::optional<Chunk> FindCarried(const HeaderReader& header, const ChunkList& list,
                                 const Chunk& chunk);

} // namespace kel::host
