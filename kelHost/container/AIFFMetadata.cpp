#include "container/AIFFMetadata.h"

#include "base/Text.h"
#include "container/CarriedChunk.h"
#include "container/ChunkNames.h"
#include "container/ID3Tag.h"
#include "container/MarkerChunks.h"
#include "container/RIFFMetadata.h"
#include "container/StoredBytes.h"
#include "container/TagNames.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace kel::host {

namespace {

// Reads the chunks of a file in their order.
class AIFFMetadataReader {
public:
    AIFFMetadataReader(const HeaderReader& header, const ChunkList& list, MetadataBuilder& builder)
        : m_header(header), m_list(list), m_builder(builder) {
        for (const Chunk& chunk : list.chunks) {
            Add(chunk);
        }
        AddNotes();
    }

private:
    void Add(const Chunk& chunk) {
        const std::string tag = NameOfTextChunk(chunk.name);
        if (!tag.empty()) {
            const std::string content =
                m_builder.Read(PartName(chunk.name), chunk.offset, chunk.bytes);
            m_builder.AddStoredTag(tag, content);
        } else if (chunk.name == "MARK" && m_builder.metadata.cuePoints.empty()) {
            const std::string content = m_builder.Read("MARK", chunk.offset, chunk.bytes);
            m_builder.metadata.cuePoints = ParseMarkers({content, StoredOrder::Big});
            RequireItems(chunk.name, "markers", content, m_builder.metadata.cuePoints.size());
        } else if (chunk.name == "COMT") {
            AddComments(chunk);
        } else if (chunk.name == "ID3 " || chunk.name == "id3 ") {
            AddID3(m_header, chunk.name, chunk.offset, chunk.bytes, m_builder);
        } else if (!DescribesSamples(chunk.name, true)) {
            AddOther(chunk);
        }
    }

    // Chunks of WAVE count as what they are there.
    void AddOther(const Chunk& chunk) {
        const auto carried = FindCarried(m_header, m_list, chunk);
        const Chunk& content = carried.has_value() ? *carried : chunk;
        if (carried.has_value() && content.name == "bext" &&
            !m_builder.metadata.broadcast.has_value()) {
            AddBroadcast(content, StoredOrder::Little, m_builder);
        } else {
            m_builder.AddOther(content.name, content.bytes);
        }
    }

    void AddComments(const Chunk& chunk) {
        const std::string content = m_builder.Read("COMT", chunk.offset, chunk.bytes);
        auto comments = ParseMarkerComments({content, StoredOrder::Big});
        RequireItems(chunk.name, "comments", content, comments.size());
        for (MarkerComment& comment : comments) {
            if (comment.time != 0) {
                m_builder.AddOmission("times of comments");
            }
            if (comment.marker == 0) {
                m_builder.AddTag("comment", std::move(comment.text));
            } else {
                AddNote(comment);
            }
        }
    }

    // A point has one note.
    void AddNote(const MarkerComment& comment) {
        const auto [note, isFirst] = m_notes.emplace(comment.marker, comment.text);
        if (!isFirst) {
            note->second += "; " + comment.text;
            m_builder.AddOmission("separate comments on markers");
        }
    }

    // Comments may precede the markers. Those on markers that do not exist are on the file.
    void AddNotes() {
        for (CuePoint& point : m_builder.metadata.cuePoints) {
            const auto note = m_notes.find(point.id);
            if (note != m_notes.end()) {
                point.note = std::move(note->second);
                m_notes.erase(note);
            }
        }
        if (!m_notes.empty()) {
            m_builder.AddProblem(fmt::format("COMT describes {} that MARK does not have",
                                             Count(m_notes.size(), "marker")));
        }
        for (auto& note : m_notes) {
            m_builder.AddTag("comment", std::move(note.second));
        }
    }

    void RequireItems(const std::string& chunk, const char* noun, const std::string& content,
                      std::size_t count) {
        const std::uint64_t declared = DeclaredItems({content, StoredOrder::Big});
        if (declared != count) {
            m_builder.AddProblem(
                fmt::format("{} declares {} {} and has {}", chunk, declared, noun, count));
        }
    }

    const HeaderReader& m_header;
    const ChunkList& m_list;
    MetadataBuilder& m_builder;
    std::map<std::uint32_t, std::string> m_notes; // by the number of their marker
};

} // namespace

void AddAIFFMetadata(const HeaderReader& header, const ChunkList& list, MetadataBuilder& builder) {
    AIFFMetadataReader(header, list, builder);
}

} // namespace kel::host
