#include "container/RIFFMetadata.h"

#include "base/Text.h"
#include "container/BroadcastChunk.h"
#include "container/ChunkNames.h"
#include "container/CueChunks.h"
#include "container/ID3Tag.h"
#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/TagNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

bool IsSubChunkName(std::string_view name) {
    constexpr char kLastPrintable = 0x7E;
    return name.size() == 4 && std::all_of(name.begin(), name.end(), [](char character) {
               return character >= ' ' && character <= kLastPrintable;
           });
}

// The chunks inside of a LIST, after its type.
class SubChunks {
public:
    explicit SubChunks(const StoredBytes& content) : m_content(content) {}

    // Goes to the next one. Returns false when there is none.
    bool Next() {
        name = m_content.Part(m_offset, 4);
        if (name.size() < 4 || m_content.Size() - m_offset < kChunkHeader ||
            !IsSubChunkName(name)) {
            return false;
        }
        declaredBytes = m_content.Number(m_offset + 4, 4);
        bytes = m_content.Part(m_offset + kChunkHeader, declaredBytes);
        m_offset += kChunkHeader + declaredBytes;
        SkipPadding();
        return true;
    }

    // The number of bytes after the last one, unless all of them are 0.
    std::uint64_t RestBytes() const {
        const std::string_view rest = m_content.From(m_offset);
        return rest.find_first_not_of('\0') == std::string_view::npos ? 0 : rest.size();
    }

    std::string_view name;
    std::uint64_t declaredBytes = 0;
    std::string_view bytes; // those that are present

private:
    // Some programs omit the padding.
    void SkipPadding() {
        const bool isMissing = IsSubChunkName(m_content.Part(m_offset, 4)) &&
                               !IsSubChunkName(m_content.Part(m_offset + 1, 4));
        m_offset += declaredBytes % 2 == 0 || isMissing ? 0 : 1;
    }

    StoredBytes m_content;
    std::uint64_t m_offset = 4;
};

// Reads the chunks of a file in their order.
class RIFFMetadataReader {
public:
    RIFFMetadataReader(const HeaderReader& header, const ChunkList& list, MetadataBuilder& builder)
        : m_header(header), m_builder(builder),
          m_order(list.form == ChunkForm::RIFX ? StoredOrder::Big : StoredOrder::Little) {
        for (const Chunk& chunk : list.chunks) {
            Add(chunk);
        }
        AddLabels();
    }

private:
    void Add(const Chunk& chunk) {
        if (chunk.name == "bext" && !m_builder.metadata.broadcast.has_value()) {
            AddBroadcast(chunk, m_order, m_builder);
        } else if (chunk.name == "cue " && m_builder.metadata.cuePoints.empty()) {
            AddCuePoints(chunk);
        } else if (chunk.name == "LIST" || chunk.name == "list") {
            AddList(chunk);
        } else if (chunk.name == "id3 " || chunk.name == "ID3 ") {
            AddID3(m_header, chunk.name, chunk.offset, chunk.bytes, m_builder);
        } else if (!DescribesSamples(chunk.name, false)) {
            m_builder.AddOther(chunk.name, chunk.bytes);
        }
    }

    void AddCuePoints(const Chunk& chunk) {
        const std::string content = m_builder.Read("cue", chunk.offset, chunk.bytes);
        const StoredBytes cue(content, m_order);
        m_builder.metadata.cuePoints = ParseCuePoints(cue);
        if (HasOtherPositions(cue)) {
            m_builder.AddOmission("other positions of cue points");
        }
        const std::size_t count = m_builder.metadata.cuePoints.size();
        if (count != DeclaredCuePoints(cue)) {
            m_builder.AddProblem(
                fmt::format("cue declares {} points and has {}", DeclaredCuePoints(cue), count));
        }
    }

    void AddList(const Chunk& chunk) {
        const std::string type = m_header.Name(chunk.offset);
        const std::string name = "LIST " + type;
        if (DescribesSamples(name, false)) {
            return;
        }
        if (!HasTagsOrCuePoints(name)) {
            m_builder.AddOther(name, chunk.bytes);
            return;
        }
        const std::string content = m_builder.Read(name, chunk.offset, chunk.bytes);
        SubChunks subChunks({content, m_order});
        while (subChunks.Next()) {
            if (subChunks.bytes.size() < subChunks.declaredBytes) {
                m_builder.AddProblem(fmt::format("{} in {} declares {} bytes and has {}",
                                                 PartName(subChunks.name), name,
                                                 subChunks.declaredBytes, subChunks.bytes.size()));
            }
            if (!subChunks.bytes.empty() || subChunks.declaredBytes == 0) {
                AddItem(type, name, subChunks);
            }
        }
        if (subChunks.RestBytes() != 0) {
            m_builder.AddProblem(fmt::format("{} has {} that are not part of an item", name,
                                             Count(subChunks.RestBytes(), "byte")));
        }
    }

    void AddItem(const std::string& type, const std::string& list, const SubChunks& item) {
        if (item.name == "LIST") {
            m_builder.AddProblem(fmt::format("{} contains a LIST, which is skipped", list));
        } else if (type == "INFO") {
            m_builder.AddStoredTag(NameOfInfo(item.name), item.bytes);
        } else if (!AddCueLabel(item.name, {item.bytes, m_order}, m_labels)) {
            m_builder.AddOther(list + " " + std::string(item.name), item.declaredBytes);
        }
    }

    // The text of a region takes the place of a missing label.
    void Describe(CuePoint& point, CueLabel& label) {
        if (label.hasPurpose) {
            m_builder.AddOmission("purposes of regions");
        }
        if (label.hasLanguage) {
            m_builder.AddOmission("languages of regions");
        }
        point.length = label.length;
        point.note = std::move(label.note);
        if (label.label.empty()) {
            point.label = std::move(label.region);
            return;
        }
        if (!label.region.empty() && label.region != label.label) {
            m_builder.AddOther("LIST adtl ltxt", label.region.size());
        }
        point.label = std::move(label.label);
    }

    // Labels may precede the points.
    void AddLabels() {
        for (CuePoint& point : m_builder.metadata.cuePoints) {
            const auto label = m_labels.find(point.id);
            if (label != m_labels.end()) {
                Describe(point, label->second);
                m_labels.erase(label); // of points with one number, the first has it
            }
        }
        if (!m_labels.empty()) {
            m_builder.AddProblem(fmt::format("LIST adtl describes {} that cue does not have",
                                             Count(m_labels.size(), "point")));
        }
    }

    const HeaderReader& m_header;
    MetadataBuilder& m_builder;
    StoredOrder m_order;
    CueLabels m_labels;
};

} // namespace

void AddBroadcast(const Chunk& chunk, StoredOrder order, MetadataBuilder& builder) {
    const std::string content = builder.Read("bext", chunk.offset, chunk.bytes);
    if (chunk.bytes < kBroadcastBytes) {
        builder.AddProblem(
            fmt::format("bext has {} bytes and needs {}", chunk.bytes, kBroadcastBytes));
    }
    Broadcast broadcast = ParseBroadcast({content, order});
    broadcast.codingHistory = builder.Keep(std::move(broadcast.codingHistory));
    builder.metadata.broadcast = std::move(broadcast);
}

void AddRIFFMetadata(const HeaderReader& header, const ChunkList& list, MetadataBuilder& builder) {
    RIFFMetadataReader(header, list, builder);
}

} // namespace kel::host
