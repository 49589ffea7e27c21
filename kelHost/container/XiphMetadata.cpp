#include "container/XiphMetadata.h"

#include "container/OggStreams.h"
#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/TagNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace kel::host {

namespace {

constexpr std::size_t kMaxBlocks = 4096; // of a FLAC file
constexpr std::size_t kMaxPages = 4096;  // of the headers of an Ogg file

// Returns the speakers in a text like "0x60F".
std::optional<std::uint32_t> ParseChannelMask(std::string_view text) {
    constexpr int kHexadecimal = 16;
    constexpr std::string_view kPrefix = "0x";
    std::uint32_t mask = 0;
    const bool hasPrefix = LowerCase(text.substr(0, kPrefix.size())) == kPrefix;
    const char* const end = text.data() + text.size();
    const auto [parsed, error] =
        hasPrefix ? std::from_chars(text.data() + kPrefix.size(), end, mask, kHexadecimal)
                  : std::from_chars_result{text.data(), std::errc::invalid_argument};
    return error == std::errc() && parsed == end ? std::optional(mask) : std::nullopt;
}

// A comment of FLAC that describes the channels. Returns false for others.
bool AddChannelMask(std::string_view key, std::string_view text, MetadataBuilder& builder) {
    const auto mask = UpperCase(key) == "WAVEFORMATEXTENSIBLE_CHANNEL_MASK" ? ParseChannelMask(text)
                                                                            : std::nullopt;
    builder.metadata.channelMask = mask.has_value() ? mask : builder.metadata.channelMask;
    return mask.has_value();
}

// Vorbis comments: the name of the encoder, and texts like "TITLE=...", each with its length.
void AddXiphComments(const StoredBytes& content, bool isFLAC, MetadataBuilder& builder) {
    std::uint64_t offset = 4 + content.Number(0, 4);
    const std::uint64_t declared = content.Number(offset, 4);
    offset += 4;
    std::uint64_t count = 0;
    for (; count < declared && offset + 4 <= content.Size(); ++count) {
        const std::uint64_t bytes = content.Number(offset, 4);
        const std::string_view comment = content.Part(offset + 4, bytes);
        const std::string_view key = comment.substr(0, comment.find('='));
        offset += 4 + bytes;
        if (key.size() == comment.size()) {
            builder.AddOmission("comments without a name");
            continue;
        }
        if (isFLAC && AddChannelMask(key, comment.substr(key.size() + 1), builder)) {
            continue;
        }
        if (UpperCase(key) == "METADATA_BLOCK_PICTURE") {
            builder.AddOther("PICTURE", comment.size() - key.size() - 1);
        } else {
            builder.AddStoredTag(NameOfComment(DecodeText(key)), comment.substr(key.size() + 1));
        }
    }
    if (count != declared) {
        builder.AddProblem(
            fmt::format("the file declares {} comments and has {}", declared, count));
    }
}

// The first byte of a metadata block: its type, and whether it is the last one.
constexpr unsigned kLastBlock = 0x80;
constexpr std::uint64_t kBlockHeader = 4;

enum BlockType : unsigned { kComments = 4, kInvalidBlock = 127 };

// The name of a block with metadata; empty for the others.
std::string BlockName(unsigned type) {
    constexpr std::array<const char*, 7> kNames{"", "",         "APPLICATION", "",
                                                "", "CUESHEET", "PICTURE"};
    return type < kNames.size() ? kNames[type] : fmt::format("metadata block {}", type);
}

// The packets of the first stream of an Ogg file. A page contains pieces of up to 255 bytes; a
// packet ends with a shorter one.
class OggPackets {
public:
    OggPackets(const HeaderReader& header, MetadataBuilder& builder)
        : m_header(header), m_builder(builder) {}

    // Reads the next packet. Returns false when there is none.
    bool Next() {
        constexpr std::uint64_t kFullPiece = 255;
        packet.clear();
        bytes = 0;
        std::uint64_t piece = kFullPiece;
        while (piece == kFullPiece) {
            if (m_piece == m_pieces.size() && !NextPage()) {
                return false;
            }
            if (m_piece == m_pieces.size()) {
                continue; // a page without pieces
            }
            piece = static_cast<unsigned char>(m_pieces[m_piece++]);
            bytes += piece;
            if (packet.size() < kMaxPartBytes) {
                packet += m_header.Bytes(m_offset, static_cast<std::size_t>(piece));
            }
            m_offset += piece;
        }
        if (packet.size() < bytes) {
            m_builder.AddProblem(fmt::format("a header of the stream has {} bytes and only the "
                                             "first {} are read",
                                             bytes, packet.size()));
        }
        return true;
    }

    std::string packet;      // or its beginning
    std::uint64_t bytes = 0; // declared

private:
    // Goes to the next page of the stream.
    bool NextPage() {
        while (m_pages++ < kMaxPages) {
            auto page = ReadOggPage(m_header, m_offset);
            if (!page.has_value()) {
                return false;
            }
            m_stream = m_pages == 1 ? page->stream : m_stream;
            if (page->stream == m_stream) {
                m_pieces = std::move(page->pieces);
                m_piece = 0;
                m_offset = page->content;
                return true;
            }
            m_offset = page->end;
        }
        m_builder.AddProblem(
            fmt::format("the headers of the stream are not within its first {} pages", kMaxPages));
        return false;
    }

    const HeaderReader& m_header;
    MetadataBuilder& m_builder;
    std::uint64_t m_offset = 0;
    std::string m_pieces; // their sizes
    std::size_t m_piece = 0;
    std::size_t m_pages = 0;
    std::uint32_t m_stream = 0;
};

// Each packet of the header is a metadata block.
void AddFLACPackets(OggPackets& packets, MetadataBuilder& builder) {
    bool isLast = false;
    for (std::size_t i = 0; i < kMaxBlocks && !isLast && packets.Next(); ++i) {
        const StoredBytes block(packets.packet, StoredOrder::Little);
        const auto first = static_cast<unsigned>(block.Number(0, 1));
        const unsigned type = first & ~kLastBlock;
        isLast = (first & kLastBlock) != 0 || type == kInvalidBlock;
        if (type == kComments) {
            AddXiphComments({block.From(kBlockHeader), StoredOrder::Little}, true, builder);
        } else if (type != kInvalidBlock && !BlockName(type).empty()) {
            builder.AddOther(BlockName(type),
                             packets.bytes - std::min(packets.bytes, kBlockHeader));
        }
    }
}

} // namespace

void AddFLACMetadata(const HeaderReader& header, std::uint64_t offset, MetadataBuilder& builder) {
    offset += 4;
    for (std::size_t i = 0; i < kMaxBlocks; ++i) {
        const std::string start = header.Bytes(offset, kBlockHeader);
        const StoredBytes block(start, StoredOrder::Big);
        const auto first = static_cast<unsigned>(block.Number(0, 1));
        const unsigned type = first & ~kLastBlock;
        const std::uint64_t bytes = block.Number(1, 3);
        if (start.size() < kBlockHeader || type == kInvalidBlock) {
            return;
        }
        offset += kBlockHeader;
        if (type == kComments) {
            const std::string content = builder.Read("VORBIS_COMMENT", offset, bytes);
            AddXiphComments({content, StoredOrder::Little}, true, builder);
        } else if (!BlockName(type).empty()) {
            builder.AddOther(BlockName(type), bytes);
        }
        if ((first & kLastBlock) != 0) {
            return;
        }
        offset += bytes;
    }
    builder.AddProblem(fmt::format("there are more than {} metadata blocks", kMaxBlocks));
}

void AddOggMetadata(const HeaderReader& header, MetadataBuilder& builder) {
    OggPackets packets(header, builder);
    if (!packets.Next()) {
        return;
    }
    const auto startsWith = [&](std::string_view text) {
        return packets.packet.compare(0, text.size(), text) == 0;
    };
    if (startsWith("\x7F"
                   "FLAC")) {
        AddFLACPackets(packets, builder);
        return;
    }
    const std::string_view name =
        startsWith("\x01vorbis") ? "\x03vorbis" : (startsWith("OpusHead") ? "OpusTags" : "");
    if (!name.empty() && packets.Next() && startsWith(name)) {
        const StoredBytes packet(packets.packet, StoredOrder::Little);
        AddXiphComments({packet.From(name.size()), StoredOrder::Little}, false, builder);
    }
}

} // namespace kel::host
