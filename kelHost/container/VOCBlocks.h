/// Blocks of VOC files. One thread at a time for one file.
///
/// Source of the layout: Creative Labs, "Developer Kit for Sound Blaster", Creative Voice File
/// format 1.20. Block 9 is that of version 1.20; the others are older.
#pragma once

#include "container/HeaderReader.h"
#include "container/InputHeader.h"
#include "container/MetadataBuilder.h"

#include <cstdint>
#include <optional>

namespace kel::host {

/// Reads and judges the blocks of a VOC file: those of sound and of silence are its samples.
///
/// Sizes of blocks have 24 bits. Programs write the lower bits of a larger size, and some of them 8
/// bytes too few. Such a block continues to the end of the file, as does one that declares no
/// samples or 0xFFFFFF bytes. A silence in another rate is converted to that of the sound.
/// @return none for other files
/// @throws JobError when a block cannot be read
std::optional<InputHeader> JudgeVOC(const HeaderReader& header, std::uint64_t fileBytes);

/// Adds the texts and markers of a VOC file, and the names of blocks that repeat sound.
/// @throws JobError when a block cannot be read
void AddVOCMetadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder);

/// True for the beginning of a VOC file.
/// @throws JobError when it cannot be read
bool IsVOC(const HeaderReader& header);

} // namespace kel::host
