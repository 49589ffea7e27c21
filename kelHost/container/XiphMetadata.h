/// Metadata of FLAC and Ogg files. One thread at a time.
///
/// Sources of the layouts: RFC 9639 (FLAC, and FLAC in Ogg), RFC 3533 (Ogg), Xiph.Org, "Vorbis I
/// specification" (Vorbis comments), RFC 7845 (Opus).
#pragma once

#include "container/HeaderReader.h"
#include "container/MetadataBuilder.h"

#include <cstdint>

namespace kel::host {

/// Adds the comments of a FLAC file and the names of its other metadata blocks.
/// @param offset of "fLaC"
/// @throws JobError when the file cannot be read
void AddFLACMetadata(const HeaderReader& header, std::uint64_t offset, MetadataBuilder& builder);

/// Adds the comments of the first stream of an Ogg file, if it is Vorbis, Opus or FLAC, and the
/// names of its other metadata blocks.
/// @throws JobError when the file cannot be read
void AddOggMetadata(const HeaderReader& header, MetadataBuilder& builder);

} // namespace kel::host
