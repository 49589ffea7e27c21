#include "container/CueChunks.h"

#include "container/StoredText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint64_t kCueCount = 4;        // bytes of the number of points
constexpr std::uint64_t kLabelText = 4;       // offset of the text, after the number of the point
constexpr std::uint64_t kRegionPurpose = 8;   // offset in a region, after its length
constexpr std::uint64_t kRegionLanguage = 12; // country, language, dialect and code page
constexpr std::uint64_t kRegionText = 20;

std::uint64_t PresentCuePoints(const StoredBytes& cue) {
    const std::uint64_t present = cue.Size() < kCueCount ? 0 : (cue.Size() - kCueCount) / kCuePoint;
    return std::min(DeclaredCuePoints(cue), present);
}

bool IsNonzero(std::string_view bytes) {
    return bytes.find_first_not_of('\0') != std::string_view::npos;
}

void AddRegion(const StoredBytes& content, CueLabel& label) {
    const std::string_view purpose = content.Part(kRegionPurpose, 4);
    label.hasRegion = true;
    label.hasPurpose = IsNonzero(purpose) && purpose != "rgn ";
    label.hasLanguage = IsNonzero(content.Part(kRegionLanguage, kRegionText - kRegionLanguage));
    label.length = content.Number(kLabelText, 4);
    label.region = DecodeText(content.From(kRegionText));
}

} // namespace

std::uint64_t DeclaredCuePoints(const StoredBytes& cue) {
    return cue.Number(0, 4);
}

std::vector<CuePoint> ParseCuePoints(const StoredBytes& cue) {
    std::vector<CuePoint> points(static_cast<std::size_t>(PresentCuePoints(cue)));
    std::uint64_t offset = kCueCount;
    for (CuePoint& point : points) {
        point.id = static_cast<std::uint32_t>(cue.Number(offset, 4));
        point.frame = cue.Number(offset + kCueFrame, 4);
        offset += kCuePoint;
    }
    return points;
}

bool HasOtherPositions(const StoredBytes& cue) {
    constexpr std::uint64_t kPosition = 4;
    constexpr std::uint64_t kChunk = 8;
    constexpr std::uint64_t kBlocks = 12;
    for (std::uint64_t i = 0; i < PresentCuePoints(cue); ++i) {
        const StoredBytes point(cue.Part(kCueCount + i * kCuePoint, kCuePoint), cue.Order());
        const std::uint64_t position = point.Number(kPosition, 4);
        const std::string_view chunk = point.Part(kChunk, 4);
        if ((position != 0 && position != point.Number(kCueFrame, 4)) ||
            (chunk != "data" && IsNonzero(chunk)) ||
            IsNonzero(point.Part(kBlocks, kCueFrame - kBlocks))) {
            return true;
        }
    }
    return false;
}

bool AddCueLabel(std::string_view name, const StoredBytes& content, CueLabels& labels) {
    const bool isRegion = name == "ltxt";
    const bool isNote = name == "note";
    if ((!isRegion && !isNote && name != "labl") || content.Size() < kLabelText) {
        return false;
    }
    const auto id = static_cast<std::uint32_t>(content.Number(0, 4));
    if (labels.size() == kMaxCueLabels && labels.count(id) == 0) {
        return false;
    }
    CueLabel& label = labels[id];
    if (isRegion && !label.hasRegion) {
        AddRegion(content, label);
        return true;
    }
    std::string& text = isNote ? label.note : label.label;
    const std::string stored = DecodeText(content.From(kLabelText));
    if (isRegion || (!text.empty() && text != stored)) {
        return false;
    }
    text = stored;
    return true;
}

std::string FormatCue(const std::vector<CuePoint>& points, StoredOrder order) {
    std::string bytes = NumberBytes(points.size(), 4, order);
    for (const CuePoint& point : points) {
        const std::string frame = NumberBytes(point.frame, 4, order);
        // The number, the position when played, the chunk, offsets of a block, and the frame.
        bytes += NumberBytes(point.id, 4, order) + frame + "data";
        bytes += NumberBytes(0, 4, order) + NumberBytes(0, 4, order) + frame;
    }
    return bytes;
}

std::string FormatCueLabels(const std::vector<CuePoint>& points, StoredOrder order) {
    std::string bytes;
    for (const CuePoint& point : points) {
        const std::string id = NumberBytes(point.id, 4, order);
        if (!point.label.empty()) {
            bytes += FormatSubChunk("labl", id + point.label + '\0', order);
        }
        if (!point.note.empty()) {
            bytes += FormatSubChunk("note", id + point.note + '\0', order);
        }
        if (point.length != 0) {
            constexpr std::size_t kCountryAndLanguage = 8;
            std::string region = id + NumberBytes(point.length, 4, order) + "rgn ";
            region.resize(region.size() + kCountryAndLanguage, '\0');
            bytes += FormatSubChunk("ltxt", region, order);
        }
    }
    return bytes.empty() ? bytes : "adtl" + bytes;
}

std::string FormatSubChunk(std::string_view name, const std::string& content, StoredOrder order) {
    std::string bytes = std::string(name) + NumberBytes(content.size(), 4, order) + content;
    if (content.size() % 2 != 0) {
        bytes.push_back('\0');
    }
    return bytes;
}

} // namespace kel::host
