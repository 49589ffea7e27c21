/// Metadata of AIFF and AIFF-C files. One thread at a time.
#pragma once

#include "container/ChunkList.h"
#include "container/HeaderReader.h"
#include "container/MetadataBuilder.h"

namespace kel::host {

/// Adds the metadata of AIFF and AIFF-C files. A comment on a marker is its note, and several
/// become one. The times of comments are omissions. Carried chunks of WAVE count as in WAVE.
///
/// Source of the layouts: Apple, "Audio Interchange File Format AIFF-C", 1991.
/// @throws JobError when the file cannot be read
void AddAIFFMetadata(const HeaderReader& header, const ChunkList& list, MetadataBuilder& builder);

} // namespace kel::host
