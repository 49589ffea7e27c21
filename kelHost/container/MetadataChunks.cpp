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

// Points as a container holds them.
struct NumberedPoints {
    std::vector<CuePoint> points;
    bool isRenumbered = false;
};

// The points that have a position of 32 bits, with numbers from 1 on unless they have different
// numbers up to a limit already.
NumberedPoints NumberPoints(const std::vector<CuePoint>& points, std::size_t maxPoints,
                            std::uint32_t minNumber, std::uint32_t maxNumber) {
    NumberedPoints result;
    std::set<std::uint32_t> numbers;
    for (const CuePoint& point : points) {
        if (point.frame <= kMaxPosition && result.points.size() < maxPoints) {
            result.points.push_back(point);
            result.points.back().length = std::min(point.length, kMaxPosition);
            const bool isNew = numbers.insert(point.id).second;
            result.isRenumbered =
                result.isRenumbered || !isNew || point.id < minNumber || point.id > maxNumber;
        }
    }
    for (std::size_t i = 0; i < result.points.size() && result.isRenumbered; ++i) {
        result.points[i].id = static_cast<std::uint32_t>(i + 1);
    }
    return result;
}

NumberedPoints WAVEPoints(const Metadata& metadata) {
    return NumberPoints(metadata.cuePoints, kMaxCueLabels, 0,
                        std::numeric_limits<std::uint32_t>::max());
}

NumberedPoints AIFFPoints(const Metadata& metadata) {
    return NumberPoints(metadata.cuePoints, kMaxMarkers, 1, kMaxMarkers);
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
    const std::vector<CuePoint> points = WAVEPoints(metadata).points;
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

// The chunk for a tag; empty when only the ID3 tag has a place for it.
std::string PlaceInAIFF(const Tag& tag) {
    const std::string chunk = TextChunk(tag.name);
    return tag.value.size() > MaxChunkInAIFF(chunk) ? "" : chunk;
}

// Programs disagree about the encoding of texts in AIFF files, so those that are not ASCII are in
// the ID3 tag, too. Long ones are only there.
std::vector<NewChunk> MakeAIFFChunks(const Metadata& metadata) {
    JoinedTexts joined;
    std::vector<Tag> others;
    std::vector<NewChunk> comments;
    for (const Tag& tag : metadata.tags) {
        const std::string chunk = PlaceInAIFF(tag);
        if (chunk.empty()) {
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
    const std::vector<CuePoint> points = AIFFPoints(metadata).points;
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
    std::set<std::string> places;
    for (const Tag& tag : metadata.tags) {
        const std::string place = isAIFF ? PlaceInAIFF(tag) : InfoId(tag.name);
        const std::string shown = tag.name.empty() ? "tags without a name" : tag.name;
        addIf(shown, !isAIFF && place.empty());
        addIf("separate values of " + shown,
              !place.empty() && place != "ANNO" && !places.insert(place).second);
    }
    addIf("numbers of cue points",
          isAIFF ? AIFFPoints(metadata).isRenumbered : WAVEPoints(metadata).isRenumbered);
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
    names.Add(metadata.omissions);
    return names.Names();
}

} // namespace kel::host
