#include "container/CAFMetadata.h"

#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/TagNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kMaxCAFChunks = 65536;

// Chunks that describe the samples, and padding.
bool DescribesCAFSamplesOrNothing(std::string_view name) {
    constexpr std::array<std::string_view, 8> kNames{"desc", "data", "pakt", "kuki",
                                                     "chan", "peak", "free", "ovvw"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

// The name of a tag. Most keys are those of Vorbis comments.
std::string NameOfKey(const std::string& key) {
    constexpr std::array<std::array<const char*, 2>, 5> kNames{
        {{"comments", "comment"},
         {"track number", "track"},
         {"year", "date"},
         {"recorded date", "date"},
         {"encoding application", "software"}}};
    const auto* name =
        std::find_if(kNames.begin(), kNames.end(),
                     [lower = LowerCase(key)](const auto& names) { return lower == names[0]; });
    return name != kNames.end() ? (*name)[1] : NameOfComment(key);
}

// Keys and values, each of them with a final 0, after their number.
void AddInformation(std::string_view content, MetadataBuilder& builder) {
    std::size_t offset = 4;
    const auto next = [&] {
        const std::size_t start = std::min(offset, content.size());
        const std::string_view text = content.substr(start, content.find('\0', start) - start);
        offset = start + text.size() + 1;
        return DecodeText(text);
    };
    while (offset < content.size()) {
        const std::string key = next();
        builder.AddTag(NameOfKey(key), next());
    }
}

// Markers, and the texts that belong to their numbers.
class CAFMarkers {
public:
    // Adds the markers of "mark": number of markers, and for each of them its kind, position,
    // number, time of day and channel.
    void AddMarkers(const StoredBytes& content, MetadataBuilder& builder) {
        constexpr std::uint64_t kFirst = 8;
        constexpr std::uint64_t kMarker = 28;
        const std::uint64_t declared = content.Number(4, 4);
        const std::uint64_t present =
            content.Size() < kFirst ? 0 : (content.Size() - kFirst) / kMarker;
        if (declared > present) {
            builder.AddProblem(
                fmt::format("mark declares {} markers and has {}", declared, present));
        }
        for (std::uint64_t i = 0; i < std::min(declared, present); ++i) {
            AddMarker({content.Part(kFirst + i * kMarker, kMarker), StoredOrder::Big}, builder);
        }
    }

    // Adds the texts of "strg": number of texts, their numbers and offsets, and the texts.
    // In a damaged file, they may overlap.
    void AddTexts(const StoredBytes& content, MetadataBuilder& builder) {
        constexpr std::uint64_t kFirst = 4;
        constexpr std::uint64_t kEntry = 12;
        const std::uint64_t count = std::min(content.Number(0, 4), content.Size() / kEntry);
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::uint64_t entry = kFirst + i * kEntry;
            const std::uint64_t offset = std::min(content.Number(entry + 4, 8), content.Size());
            std::string text =
                DecodeText(content.Part(kFirst + count * kEntry + offset, m_textBytesLeft));
            m_textBytesLeft -= std::min<std::uint64_t>(text.size(), m_textBytesLeft);
            m_texts[static_cast<std::uint32_t>(content.Number(entry, 4))] = std::move(text);
        }
        if (m_textBytesLeft == 0) {
            builder.AddProblem(fmt::format("there are more than {} bytes of text", kMaxTextBytes));
        }
    }

    // Adds the markers with their texts, which may follow them.
    void Finish(MetadataBuilder& builder) {
        std::set<std::uint32_t> used;
        for (CuePoint& point : m_points) {
            const auto text = m_texts.find(point.id);
            if (text != m_texts.end()) {
                point.label = text->second;
                used.insert(point.id);
            }
        }
        if (used.size() < m_texts.size()) {
            builder.AddOmission("texts without a marker");
        }
        builder.metadata.cuePoints = std::move(m_points);
    }

private:
    void AddMarker(const StoredBytes& marker, MetadataBuilder& builder) {
        constexpr std::uint64_t kTimeOfDay = 16;
        constexpr std::uint64_t kChannel = 24;
        constexpr double kEnd = 9223372036854775808.0; // 2^63
        const std::uint64_t bits = marker.Number(4, 8);
        double position = 0;
        std::memcpy(&position, &bits, sizeof(position));
        if (!(position >= 0 && position < kEnd)) {
            builder.AddProblem("mark has a marker without a position");
            return;
        }
        CuePoint point;
        point.frame = static_cast<std::uint64_t>(position);
        point.id = static_cast<std::uint32_t>(marker.Number(12, 4));
        m_points.push_back(point);
        const auto note = [&](const char* kind, bool isLost) {
            if (isLost) {
                builder.AddOmission(kind);
            }
        };
        const std::string_view time = marker.Part(kTimeOfDay, kChannel - kTimeOfDay);
        note("kinds of markers", marker.Number(0, 4) != 0);
        note("fractions of positions", position != std::floor(position));
        note("times of markers", time.find_first_not_of('\0') != std::string_view::npos &&
                                     time.find_first_not_of('\xFF') != std::string_view::npos);
        note("channels of markers", marker.Number(kChannel, 4) != 0);
    }

    std::vector<CuePoint> m_points;
    std::map<std::uint32_t, std::string> m_texts;
    std::uint64_t m_textBytesLeft = kMaxTextBytes;
};

} // namespace

void AddCAFMetadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    constexpr std::uint64_t kFileHeader = 8;
    constexpr std::uint64_t kCAFChunkHeader = 12;
    std::uint64_t offset = kFileHeader;
    CAFMarkers markers;
    for (std::size_t i = 0; i < kMaxCAFChunks && offset + kCAFChunkHeader <= fileBytes; ++i) {
        const std::string start = header.Bytes(offset, kCAFChunkHeader);
        const std::string name = start.substr(0, 4);
        const std::uint64_t bytes = StoredBytes(start, StoredOrder::Big).Number(4, 8);
        offset += kCAFChunkHeader;
        if (name == "info") {
            AddInformation(builder.Read(name, offset, bytes), builder);
        } else if (name == "mark") {
            const std::string content = builder.Read(name, offset, bytes);
            markers.AddMarkers({content, StoredOrder::Big}, builder);
        } else if (name == "strg") {
            const std::string content = builder.Read(name, offset, bytes);
            markers.AddTexts({content, StoredOrder::Big}, builder);
        } else if (!DescribesCAFSamplesOrNothing(name)) {
            builder.AddOther(name, bytes);
        }
        if (bytes > fileBytes - std::min(offset, fileBytes)) {
            break; // samples up to the end of the file have the size -1
        }
        offset += bytes;
    }
    markers.Finish(builder);
}

} // namespace kel::host
