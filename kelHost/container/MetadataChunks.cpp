#include "container/MetadataChunks.h"

#include "container/BroadcastChunk.h"
#include "container/CarriedChunk.h"
#include "container/ChunkNames.h"
#include "container/CueChunks.h"
#include "container/ID3Tag.h"
#include "container/MarkerChunks.h"
#include "container/StoredBytes.h"
#include "container/TagNames.h"
#include "container/UniqueNames.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint64_t kMaxPosition = std::numeric_limits<std::uint32_t>::max();

// Texts for places that have one text each, in the order of their first texts.
class JoinedTexts {
public:
    void Add(const std::string& place, const std::string& text) {
        const auto known = std::find_if(texts.begin(), texts.end(),
                                        [&](const auto& entry) { return entry.first == place; });
        if (known == texts.end()) {
            texts.emplace_back(place, text);
        } else {
            known->second += "; " + text;
        }
    }

    std::vector<std::pair<std::string, std::string>> texts;
};

// The points that have a position of 32 bits, with numbers from 1 on unless they have different
// numbers up to a limit already.
std::vector<CuePoint> NumberedPoints(const std::vector<CuePoint>& points, std::size_t maxPoints,
                                     std::uint32_t minNumber, std::uint32_t maxNumber) {
    std::vector<CuePoint> numbered;
    std::set<std::uint32_t> numbers;
    bool isUsable = true;
    for (const CuePoint& point : points) {
        if (point.frame <= kMaxPosition && numbered.size() < maxPoints) {
            numbered.push_back(point);
            numbered.back().length = std::min(point.length, kMaxPosition);
            isUsable = numbers.insert(point.id).second && point.id >= minNumber &&
                       point.id <= maxNumber && isUsable;
        }
    }
    for (std::size_t i = 0; i < numbered.size() && !isUsable; ++i) {
        numbered[i].id = static_cast<std::uint32_t>(i + 1);
    }
    return numbered;
}

std::vector<CuePoint> WAVEPoints(const Metadata& metadata) {
    return NumberedPoints(metadata.cuePoints, kMaxCueLabels, 0,
                          std::numeric_limits<std::uint32_t>::max());
}

std::vector<CuePoint> AIFFPoints(const Metadata& metadata) {
    return NumberedPoints(metadata.cuePoints, kMaxMarkers, 1, kMaxMarkers);
}

std::string FormatInfo(const std::vector<Tag>& tags, StoredOrder order) {
    JoinedTexts joined;
    for (const Tag& tag : tags) {
        const std::string id = InfoId(tag.name);
        if (!id.empty()) {
            joined.Add(id, tag.value);
        }
    }
    std::string bytes;
    for (const auto& [id, text] : joined.texts) {
        bytes += FormatSubChunk(id, text + '\0', order);
    }
    return bytes.empty() ? bytes : "INFO" + bytes;
}

void AddChunk(std::vector<NewChunk>& chunks, const std::string& name, std::string content) {
    if (!content.empty()) {
        chunks.push_back({name, std::move(content)});
    }
}

std::vector<NewChunk> MakeWAVEChunks(const Metadata& metadata, StoredOrder order) {
    std::vector<NewChunk> chunks;
    if (metadata.broadcast.has_value()) {
        AddChunk(chunks, "bext", FormatBroadcast(*metadata.broadcast, order));
    }
    AddChunk(chunks, "LIST", FormatInfo(metadata.tags, order));
    const std::vector<CuePoint> points = WAVEPoints(metadata);
    if (!points.empty()) {
        AddChunk(chunks, "cue ", FormatCue(points, order));
        AddChunk(chunks, "LIST", FormatCueLabels(points, order));
    }
    return chunks;
}

bool IsASCII(const std::string& text) {
    constexpr unsigned char kASCIIEnd = 0x80;
    return std::all_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < kASCIIEnd;
    });
}

// Programs disagree about the encoding of texts in AIFF files, so those that are not ASCII are in
// the ID3 tag, too. Long ones are only there.
std::vector<NewChunk> MakeAIFFChunks(const Metadata& metadata) {
    JoinedTexts joined;
    std::vector<Tag> others;
    std::vector<NewChunk> comments;
    for (const Tag& tag : metadata.tags) {
        const std::string chunk = TextChunk(tag.name);
        if (chunk.empty() || tag.value.size() > MaxChunkInAIFF(chunk)) {
            others.push_back(tag);
        } else if (chunk == "ANNO") {
            AddChunk(comments, chunk, tag.value);
        } else {
            joined.Add(chunk, tag.value);
        }
    }
    std::vector<NewChunk> chunks;
    for (const auto& [chunk, text] : joined.texts) {
        if (text.size() > MaxChunkInAIFF(chunk)) {
            others.push_back({NameOfTextChunk(chunk), text});
        } else {
            AddChunk(chunks, chunk, text);
        }
    }
    chunks.insert(chunks.end(), comments.begin(), comments.end());
    for (const NewChunk& chunk : chunks) {
        if (!IsASCII(chunk.content)) {
            others.push_back({NameOfTextChunk(chunk.name), chunk.content});
        }
    }
    const std::vector<CuePoint> points = AIFFPoints(metadata);
    if (!points.empty()) {
        AddChunk(chunks, "MARK", FormatMarkers(points));
        AddChunk(chunks, "COMT", FormatMarkerComments(points));
    }
    AddChunk(chunks, "ID3 ", FormatID3(others));
    if (metadata.broadcast.has_value()) {
        const std::string fields = FormatBroadcast(*metadata.broadcast, StoredOrder::Little);
        AddChunk(chunks, kCarrier, CarriedHeader("bext", fields.size()) + fields);
    }
    return chunks;
}

} // namespace

std::vector<NewChunk> MakeChunks(const Metadata& metadata, ChunkForm form) {
    return IsAIFF(form) ? MakeAIFFChunks(metadata)
                        : MakeWAVEChunks(metadata, form == ChunkForm::RIFX ? StoredOrder::Big
                                                                           : StoredOrder::Little);
}

std::vector<std::string> NotExpressible(const Metadata& metadata, ChunkForm form) {
    UniqueNames names;
    const auto addIf = [&](const std::string& name, bool isOmitted) {
        if (isOmitted) {
            names.Add(name);
        }
    };
    const bool isAIFF = IsAIFF(form);
    if (metadata.broadcast.has_value()) {
        addIf("ends of texts in bext", !FitsIntoFields(*metadata.broadcast));
    }
    for (const Tag& tag : metadata.tags) {
        addIf(tag.name, !isAIFF && InfoId(tag.name).empty());
    }
    const std::size_t maxPoints = isAIFF ? kMaxMarkers : kMaxCueLabels;
    addIf("cue points after the first " + std::to_string(maxPoints),
          metadata.cuePoints.size() > maxPoints);
    for (const CuePoint& point : metadata.cuePoints) {
        addIf("cue points after frame " + std::to_string(kMaxPosition), point.frame > kMaxPosition);
        addIf("lengths of regions", point.length > (isAIFF ? 0 : kMaxPosition));
        addIf("ends of long labels", isAIFF && point.label.size() > kMaxMarkerName);
        addIf("ends of long notes", isAIFF && point.note.size() > kMaxMarkerComment);
    }
    for (const OtherPart& other : metadata.others) {
        names.Add(other.name);
    }
    return names.Names();
}

} // namespace kel::host
