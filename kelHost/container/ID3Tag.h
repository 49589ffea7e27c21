/// ID3 tags: at the beginning and the end of MP3 files, and in chunks of others. One thread at a
/// time.
///
/// Sources of the layouts: id3.org, "ID3 tag version 2.4.0 - Main Structure", "- Native Frames",
/// "ID3 tag version 2.3.0", "ID3 tag version 2"; ID3v1 is described in the first of these.
#pragma once

#include "container/HeaderReader.h"
#include "container/Metadata.h"
#include "container/MetadataBuilder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

/// Returns the length of the ID3v2 tag at an offset, its header included; 0 when there is none.
/// @throws JobError when the file cannot be read
std::uint64_t ID3Bytes(const HeaderReader& header, std::uint64_t offset);

/// Adds the texts of an ID3v2 tag, and the names of its other frames.
/// @param name of the part that contains the tag, for problems: "id3 "
/// @param bytes length of that part
/// @throws JobError when the file cannot be read
void AddID3(const HeaderReader& header, const std::string& name, std::uint64_t offset,
            std::uint64_t bytes, MetadataBuilder& builder);

/// Adds the texts of the ID3v2 tag that ends at an offset with a footer, if there is one.
/// @throws JobError when the file cannot be read
void AddID3BeforeFooter(const HeaderReader& header, std::uint64_t end, MetadataBuilder& builder);

/// Adds the texts of the ID3v1 tag at the end of a file, which are cut after 30 bytes. Of a tag
/// that is known already, only the fact that its text is another one is added, as an omission.
/// @throws JobError when the file cannot be read
void AddID3v1(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder);

/// Returns an ID3v2.4 tag with these texts; empty without texts.
std::string FormatID3(const std::vector<Tag>& tags);

} // namespace kel::host
