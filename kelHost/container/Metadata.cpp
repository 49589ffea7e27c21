#include "container/Metadata.h"

#include "base/Errors.h"
#include "base/Numbers.h"
#include "container/AIFFMetadata.h"
#include "container/CAFMetadata.h"
#include "container/ChunkList.h"
#include "container/HeaderMetadata.h"
#include "container/HeaderReader.h"
#include "container/ID3Tag.h"
#include "container/InputHeader.h"
#include "container/LibraryTags.h"
#include "container/MetadataBuilder.h"
#include "container/RIFFMetadata.h"
#include "container/StoredBytes.h"
#include "container/VOCBlocks.h"
#include "container/XiphMetadata.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

constexpr const char* kCannotReadMetadata = "cannot read its metadata";

// Adds the tags that end at an offset: ID3v2 with a footer, and the names of APE, Lyrics3 and the
// extension of ID3v1.
void AddTagsBefore(const HeaderReader& header, std::uint64_t end, MetadataBuilder& builder) {
    constexpr std::uint64_t kMaxFooter = 227; // the whole extension
    constexpr std::uint64_t kAPEFooter = 32;
    constexpr std::string_view kLyrics = "LYRICS200";
    AddID3BeforeFooter(header, end, builder);
    const std::uint64_t start = end - std::min(end, kMaxFooter);
    const std::string bytes = header.Bytes(start, static_cast<std::size_t>(end - start));
    const StoredBytes before(bytes, StoredOrder::Little);
    const auto last = [&](std::uint64_t count) {
        return before.From(bytes.size() - std::min<std::uint64_t>(count, bytes.size()));
    };
    if (last(kAPEFooter).substr(0, 8) == "APETAGEX") {
        builder.AddOther("APE", StoredBytes(last(kAPEFooter), StoredOrder::Little).Number(12, 4));
    }
    if (last(kLyrics.size()) == kLyrics) {
        constexpr std::size_t kDigits = 6;
        const auto size =
            ParseInteger<std::uint64_t>(last(kLyrics.size() + kDigits).substr(0, kDigits));
        builder.AddOther("Lyrics3", size.value_or(0));
    }
    if (last(kMaxFooter).substr(0, 4) == "TAG+") {
        builder.AddOther("TAG+", kMaxFooter);
    }
}

// Tags at the end of an MP3 file.
void AddMP3Metadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    constexpr std::uint64_t kID3v1 = 128;
    AddID3v1(header, fileBytes, builder);
    for (const std::uint64_t after : {std::uint64_t{0}, kID3v1}) {
        if (fileBytes > after) {
            AddTagsBefore(header, fileBytes - after, builder);
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
    const std::string annotation = builder.Read("annotation", kAUHeader, samples - kAUHeader);
    if (annotation.find_first_not_of('\0') != std::string::npos) {
        builder.AddStoredTag("comment", annotation);
    }
}

// The tags at the beginning of a file. Some programs add theirs instead of replacing another.
// Returns their length.
std::uint64_t AddID3Tags(const HeaderReader& header, std::uint64_t fileBytes,
                         MetadataBuilder& builder) {
    constexpr int kMaxID3Tags = 16;
    std::uint64_t end = 0;
    for (int i = 0; i < kMaxID3Tags && end < fileBytes; ++i) {
        const std::uint64_t bytes = ID3Bytes(header, end);
        if (bytes == 0) {
            break;
        }
        AddID3(header, "ID3", end, fileBytes - end, builder);
        end += bytes;
    }
    return end;
}

// True for the first name of files that consist of chunks. Theirs are not found after a tag.
bool StartsChunks(const std::string& name) {
    constexpr std::array<std::string_view, 5> kNames{"RIFF", "RIFX", "RF64", "BW64", "FORM"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

// Files that do not consist of chunks like those of RIFF and AIFF.
void AddOtherMetadata(const FileName& file, const HeaderReader& header, std::uint64_t fileBytes,
                      MetadataBuilder& builder) {
    const std::uint64_t tagBytes = AddID3Tags(header, fileBytes, builder);
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
    } else if (IsVOC(header)) {
        AddVOCMetadata(header, fileBytes, builder);
    } else if (tagBytes != 0 && StartsChunks(name)) {
        builder.AddOmission("chunks after the ID3 tag");
    } else if (isMP3 || tagBytes != 0) {
        AddMP3Metadata(header, fileBytes, builder);
    } else if (!AddHeaderMetadata(header, fileBytes, builder)) {
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
