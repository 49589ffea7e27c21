/// Metadata of the RIFF family. One thread at a time.
#pragma once

#include "container/ChunkList.h"
#include "container/HeaderReader.h"
#include "container/MetadataBuilder.h"
#include "container/StoredBytes.h"

namespace kel::host {

/// Adds the metadata of WAVE, RIFX, RF64, BW64 and W64 files.
///
/// Sources of the layouts: LIST INFO, cue and LIST adtl (IBM and Microsoft, "Multimedia Programming
/// Interface and Data Specifications 1.0", 1991, and "Multiple Channel Audio Data and WAVE Files"),
/// bext (EBU Tech 3285).
/// @throws JobError when the file cannot be read
void AddRIFFMetadata(const HeaderReader& header, const ChunkList& list, MetadataBuilder& builder);

/// Adds the broadcast fields of a chunk "bext" (EBU Tech 3285).
/// @throws JobError when the file cannot be read
void AddBroadcast(const Chunk& chunk, StoredOrder order, MetadataBuilder& builder);

} // namespace kel::host
