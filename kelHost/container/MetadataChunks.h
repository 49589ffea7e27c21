/// Chunks made from metadata, for copies between containers. Pure functions.
#pragma once

#include "container/ChunkList.h"
#include "container/Metadata.h"
#include "container/NewChunk.h"

#include <string>
#include <vector>

namespace kel::host {

/// Returns the chunks that hold metadata in a file of a form. In WAVE files these are "bext", LIST
/// INFO, "cue " and LIST adtl. In AIFF files these are NAME, AUTH, (c), ANNO, MARK, COMT, an ID3
/// tag with the other tags, long texts (see MaxChunkInAIFF) and all texts that are not ASCII, and a
/// carried "bext" (see CarriedChunk.h). Several tags of one name become one, with "; " between the
/// values, where a container has only one. Cue points get new numbers where the container requires
/// it.
std::vector<NewChunk> MakeChunks(const Metadata& metadata, ChunkForm form);

/// Returns the names of the parts that MakeChunks omits or shortens, each of them once: "license",
/// "PICTURE", "lengths of regions".
std::vector<std::string> NotExpressible(const Metadata& metadata, ChunkForm form);

} // namespace kel::host
