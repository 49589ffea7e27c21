#include "container/Metadata.h"

#include "base/Errors.h"
#include "container/AIFFMetadata.h"
#include "container/CAFMetadata.h"
#include "container/ChunkList.h"
#include "container/HeaderReader.h"
#include "container/ID3Tag.h"
#include "container/InputHeader.h"
#include "container/LibraryTags.h"
#include "container/MetadataBuilder.h"
#include "container/RIFFMetadata.h"
#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/XiphMetadata.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>

namespace kel::host {

namespace {

constexpr const char* kCannotReadMetadata = "cannot read its metadata";

// Tags at the end of an MP3 file. APE tags are not translated.
void AddMP3Metadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    constexpr std::uint64_t kID3v1 = 128;
    constexpr std::uint64_t kAPEFooter = 32;
    AddID3v1(header, fileBytes, builder);
    for (const std::uint64_t after : {std::uint64_t{0}, kID3v1}) {
        if (fileBytes >= after + kAPEFooter) {
            const std::string footer = header.Bytes(fileBytes - after - kAPEFooter, kAPEFooter);
            if (footer.compare(0, 8, "APETAGEX") == 0) {
                builder.AddOther("APE", StoredBytes(footer, StoredOrder::Little).Number(12, 4));
            }
        }
    }
}

// The annotation of an AU file is between its header and its samples (Sun Microsystems, "Header
// file for audio, .au").
void AddAUMetadata(const HeaderReader& header, MetadataBuilder& builder) {
    constexpr std::uint64_t kAUHeader = 24;
    const std::string start = header.Bytes(0, kAUHeader);
    const bool isBigEndian = start.compare(0, 4, ".snd") == 0;
    const StoredBytes numbers(start, isBigEndian ? StoredOrder::Big : StoredOrder::Little);
    const std::uint64_t samples = std::max(numbers.Number(4, 4), kAUHeader);
    builder.AddTag("comment",
                   DecodeText(builder.Read("annotation", kAUHeader, samples - kAUHeader)));
}

// Files that do not consist of chunks like those of RIFF and AIFF.
void AddOtherMetadata(const FileName& file, const HeaderReader& header, std::uint64_t fileBytes,
                      MetadataBuilder& builder) {
    const std::uint64_t tagBytes = ID3Bytes(header, 0);
    if (tagBytes != 0) {
        AddID3(header, "ID3", 0, fileBytes, builder);
    }
    const std::string name = header.Name(tagBytes);
    const bool isMP3 = name[0] == '\xFF' && (static_cast<unsigned char>(name[1]) & 0xE0U) == 0xE0U;
    if (name == "fLaC") {
        AddFLACMetadata(header, tagBytes, builder);
        AddMP3Metadata(header, fileBytes, builder); // some programs add its tags to FLAC
    } else if (name == "OggS") {
        AddOggMetadata(header, builder);
    } else if (name == "caff") {
        AddCAFMetadata(header, fileBytes, builder);
    } else if (name == ".snd" || name == "dns.") {
        AddAUMetadata(header, builder);
    } else if (isMP3 || tagBytes != 0) {
        AddMP3Metadata(header, fileBytes, builder);
    } else {
        AddLibraryTags(file, builder);
    }
}

} // namespace

std::optional<double> LoudnessInUnits(std::int16_t hundredths) {
    constexpr double kPerUnit = 100;
    const bool isDeclared = hundredths != std::numeric_limits<std::int16_t>::max();
    return isDeclared ? std::optional(hundredths / kPerUnit) : std::nullopt;
}

Metadata ReadMetadata(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        throw JobError(file.shown,
                       fmt::format("{}: {}", kCannotReadMetadata, std::strerror(errno)));
    }
    HeaderReader header(file, std::move(input->descriptor), kCannotReadMetadata);
    MetadataBuilder builder(header, input->bytes);
    const auto chunks = ReadAllChunks(header, input->bytes);
    if (chunks.has_value()) {
        (IsAIFF(chunks->form) ? AddAIFFMetadata : AddRIFFMetadata)(header, *chunks, builder);
        if (!chunks->isComplete) {
            builder.AddProblem(fmt::format("there are more than {} chunks", kMaxChunks));
        }
    } else {
        AddOtherMetadata(file, header, input->bytes, builder);
    }
    builder.LimitCuePoints();
    return std::move(builder.metadata);
}

} // namespace kel::host
