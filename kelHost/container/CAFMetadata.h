/// Metadata of CAF files. One thread at a time.
///
/// Source of the layouts: Apple, "Apple Core Audio Format Specification 1.0".
#pragma once

#include "container/HeaderReader.h"
#include "container/MetadataBuilder.h"

#include <cstdint>

namespace kel::host {

/// Adds the texts of the chunk "info", the markers of "mark" with their names in "strg", and the
/// names of other chunks.
/// @throws JobError when the file cannot be read
void AddCAFMetadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder);

} // namespace kel::host
