#include "container/MetadataSelection.h"

#include "container/AIFFMetadata.h"
#include "container/CarriedChunk.h"
#include "container/ChunkNames.h"
#include "container/ChunkWriter.h"
#include "container/InputHeader.h"
#include "container/MetadataBuilder.h"
#include "container/RIFFMetadata.h"
#include "container/StoredBytes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

// The names of chunks as they are in WAVE.
class WAVENames {
public:
    WAVENames(const HeaderReader& header, const ChunkList& list) : m_header(header), m_list(list) {}

    // The name, with the kind of a list. None for a chunk of W64 whose GUID has no name in WAVE.
    std::optional<std::string> Find(const Chunk& chunk) const {
        std::string name = chunk.name;
        if (m_list.form == ChunkForm::W64) {
            // After the name; the second form is that of the chunks that RIFF began with.
            constexpr std::string_view kUsual{"\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A",
                                              12};
            constexpr std::string_view kOldest{"\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00",
                                               12};
            const std::string rest = ReadGUID(chunk).substr(kName);
            if (rest == kOldest && name == "list") {
                name = "LIST";
            } else if (rest != kUsual || !IsPrintable(name)) {
                return std::nullopt;
            }
        }
        if (name == "LIST" && m_list.Present(chunk) >= kName) {
            name += " " + m_header.Name(chunk.offset);
        }
        return name;
    }

    // The usual form of a GUID; its first three numbers are little-endian.
    std::string DescribeGUID(const Chunk& chunk) const {
        const std::string guid = ReadGUID(chunk);
        const StoredBytes little(guid, StoredOrder::Little);
        const StoredBytes big(guid, StoredOrder::Big);
        return fmt::format("{:08X}-{:04X}-{:04X}-{:04X}-{:012X}", little.Number(0, 4),
                           little.Number(4, 2), little.Number(6, 2), big.Number(8, 2),
                           big.Number(10, 6));
    }

private:
    static constexpr std::size_t kName = 4;

    static bool IsPrintable(const std::string& text) {
        return std::all_of(text.begin(), text.end(),
                           [](char character) { return character >= ' ' && character <= '~'; });
    }

    // The GUID of a chunk of W64, before its size and its content.
    std::string ReadGUID(const Chunk& chunk) const {
        constexpr std::uint64_t kToGUID = 24;
        constexpr std::size_t kGUID = 16;
        return m_header.Bytes(chunk.offset - kToGUID, kGUID);
    }

    const HeaderReader& m_header;
    const ChunkList& m_list;
};

// Selects the chunks of one file.
class ChunkSelector {
public:
    ChunkSelector(const HeaderReader& header, const ChunkList& list, bool toAIFF)
        : m_header(header), m_list(list), m_names(header, list), m_toAIFF(toAIFF) {}

    MetadataSelection Run() {
        m_selection.isFromAIFF = IsAIFF(m_list.form);
        ChunkList others = m_list;
        others.chunks.clear();
        for (const Chunk& chunk : m_list.chunks) {
            if (!(m_selection.isFromAIFF ? SelectAIFF(chunk) : SelectWAVE(chunk))) {
                others.chunks.push_back(chunk);
            }
        }
        if (!m_list.isComplete) {
            m_selection.refused.push_back(fmt::format("chunks after the first {}", kMaxChunks));
        }
        if (m_selection.isFromAIFF != m_toAIFF) {
            MetadataBuilder builder(m_header, m_list.fileBytes);
            (m_selection.isFromAIFF ? AddAIFFMetadata : AddRIFFMetadata)(m_header, others, builder);
            m_selection.translated = std::move(builder.metadata);
        }
        return std::move(m_selection);
    }

private:
    // Returns false for a chunk that has to be translated.
    bool SelectAIFF(const Chunk& chunk) {
        const auto carried = FindCarried(m_header, m_list, chunk);
        if (carried.has_value()) {
            m_selection.chunks.push_back({*carried, true});
            return true;
        }
        if (m_toAIFF && !DescribesSamples(chunk.name, true)) {
            Select({chunk, false}, MaxChunkInAIFF(chunk.name));
        }
        return m_toAIFF;
    }

    bool SelectWAVE(Chunk chunk) {
        const auto name = m_names.Find(chunk);
        chunk.name = name.has_value() ? *name : m_names.DescribeGUID(chunk);
        if (m_toAIFF && HasTagsOrCuePoints(chunk.name)) {
            return false;
        }
        if (!DescribesSamples(chunk.name, false)) {
            const std::uint64_t header = m_toAIFF ? kCarriedHeader : 0;
            Select({chunk, true},
                   name.has_value() ? std::optional(kMaxChunkBytes - header) : std::nullopt);
        }
        return true;
    }

    // The limit is none when the output cannot hold the chunk.
    void Select(const SelectedChunk& chunk, std::optional<std::uint64_t> maxBytes) {
        const std::string name = TrimChunkName(chunk.content.name);
        if (m_list.Present(chunk.content) < chunk.content.bytes) {
            m_selection.truncated.push_back(name);
        } else if (maxBytes.has_value() && chunk.content.bytes <= *maxBytes) {
            m_selection.chunks.push_back(chunk);
        } else {
            m_selection.refused.push_back(name);
        }
    }

    const HeaderReader& m_header;
    const ChunkList& m_list;
    WAVENames m_names;
    bool m_toAIFF;
    MetadataSelection m_selection;
};

} // namespace

MetadataSelection SelectMetadata(const FileName& file, HeaderReader& header,
                                 std::uint64_t fileBytes, bool toAIFF) {
    const auto list = ReadAllChunks(header, fileBytes);
    if (list.has_value() && list->form != ChunkForm::RIFX) { // its numbers are big-endian
        return ChunkSelector(header, *list, toAIFF).Run();
    }
    MetadataSelection selection;
    selection.translated = ReadMetadata(file);
    return selection;
}

} // namespace kel::host
