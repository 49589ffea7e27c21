#include "container/ChunkAdjustment.h"

#include "base/Numbers.h"
#include "container/CueChunks.h"
#include "container/MarkerChunks.h"
#include "container/StoredBytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

constexpr std::size_t kTimeReference = 338; // in "bext", 8 bytes
constexpr std::size_t kCodingHistory = 602;

// A loop in "smpl", after 36 bytes: number, kind, first and last frame, two more numbers.
constexpr std::size_t kSampler = 36;
constexpr std::size_t kLoopCount = 28;
constexpr std::size_t kLoop = 24;

constexpr std::string_view kLineEnd = "\r\n";

std::uint64_t Little(std::string_view content, std::size_t offset) {
    return StoredBytes(content, StoredOrder::Little).Number(offset, 4);
}

std::uint64_t Big(std::string_view content, std::size_t offset, std::size_t bytes) {
    return StoredBytes(content, StoredOrder::Big).Number(offset, bytes);
}

// Calls a function with the offset of each point, loop or other record of a fixed size.
// Returns false when there are fewer than declared.
bool ForEachRecord(std::string_view content, std::size_t start, std::uint64_t count,
                   std::size_t bytes, const std::function<void(std::size_t)>& visit) {
    if (content.size() < start || (content.size() - start) / bytes < count) {
        return false;
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        visit(start + static_cast<std::size_t>(i) * bytes);
    }
    return true;
}

// Calls a function with the offset and the length of each marker in MARK: number, frame, and a
// text after its length, padded.
bool ForEachMarker(std::string_view content,
                   const std::function<void(std::size_t, std::size_t)>& visit) {
    constexpr std::size_t kMarker = 6;
    if (content.size() < 2) {
        return false;
    }
    std::size_t offset = 2;
    for (std::uint64_t left = Big(content, 0, 2); left > 0; --left) {
        if (content.size() - offset <= kMarker) {
            return false;
        }
        const std::size_t text = 1 + static_cast<std::size_t>(Big(content, offset + kMarker, 1));
        const std::size_t bytes = kMarker + text;
        if (content.size() - offset < bytes) {
            return false;
        }
        const std::size_t padded = std::min(bytes + text % 2, content.size() - offset);
        visit(offset, padded);
        offset += padded;
    }
    return true;
}

// Offset and length of the text of the first element with a name.
std::optional<std::pair<std::size_t, std::size_t>> FindElement(const std::string& text,
                                                               const std::string& name) {
    const std::string start = "<" + name + ">";
    const std::size_t offset = text.find(start);
    const std::size_t end = offset == std::string::npos ? offset : text.find("</" + name, offset);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    return std::pair(offset + start.size(), end - offset - start.size());
}

// The number of 32 bits that a part of a text is.
std::optional<std::uint32_t> NumberIn(const std::string& text,
                                      const std::pair<std::size_t, std::size_t>& part) {
    return ParseInteger<std::uint32_t>(std::string_view(text).substr(part.first, part.second));
}

} // namespace

bool ChunkAdjustment::Concerns(std::string_view name) const {
    if (m_part.isWhole) {
        return false;
    }
    if (m_isAIFF) {
        return name == "MARK" || name == "COMT" || name == "INST";
    }
    return ((name == "bext" || name == "iXML") && m_part.first > 0) || name == "cue " ||
           name == "LIST adtl" || name == "smpl" || name == "cart" || name == "plst" ||
           name == "r64m";
}

bool ChunkAdjustment::DefinesPoints(std::string_view name) const {
    return !m_part.isWhole && name == (m_isAIFF ? "MARK" : "cue ");
}

void ChunkAdjustment::AddPoints(const std::optional<std::string>& content) {
    const bool isRead =
        content.has_value() && (m_isAIFF ? AddMarkers(*content) : AddCuePoints(*content));
    // A damaged file may have any number of chunks.
    constexpr std::size_t kMaxPoints = 65536;
    m_arePointsKnown =
        m_arePointsKnown && isRead && m_inside.size() + m_outside.size() <= kMaxPoints;
}

std::optional<std::string> ChunkAdjustment::Adjust(std::string_view name,
                                                   const std::string& content) {
    if (name == "bext") {
        return AdjustBroadcast(content);
    }
    if (name == "iXML") {
        return AdjustIXML(content);
    }
    if (name == "smpl") {
        return AdjustSampler(content);
    }
    if (name == "cart") {
        return AdjustTimers(content);
    }
    if (!m_arePointsKnown) {
        return std::nullopt;
    }
    if (name == "cue ") {
        return AdjustCue(content);
    }
    if (name == "LIST adtl") {
        return AdjustTexts(content);
    }
    if (name == "MARK") {
        return AdjustMarkers(content);
    }
    if (name == "INST") {
        return AdjustInstrument(content);
    }
    if (name == "COMT") {
        return AdjustComments(content);
    }
    return std::nullopt; // playlists, whose segments have lengths and an order
}

bool ChunkAdjustment::Contains(std::uint64_t frame) const {
    return frame >= m_part.first && frame - m_part.first < m_part.frames;
}

bool ChunkAdjustment::ContainsPoint(std::uint64_t frame) const {
    return Contains(frame) || frame == m_part.first + m_part.frames;
}

void ChunkAdjustment::AddPoint(std::uint64_t number, std::uint64_t frame, bool isInside) {
    if (isInside) {
        m_inside[number] = frame;
    } else {
        m_outside.insert(number);
    }
}

// Damaged files use a number twice. What belongs to it stays with the point that stays.
bool ChunkAdjustment::IsRemoved(std::uint64_t number) const {
    return m_outside.count(number) > 0 && m_inside.count(number) == 0;
}

bool ChunkAdjustment::AddCuePoints(const std::string& content) {
    return content.size() >= 4 &&
           ForEachRecord(content, 4, Little(content, 0), kCuePoint, [&](std::size_t point) {
               const std::uint64_t frame = Little(content, point + kCueFrame);
               AddPoint(Little(content, point), frame, ContainsPoint(frame));
           });
}

bool ChunkAdjustment::AddMarkers(const std::string& content) {
    return ForEachMarker(content, [&](std::size_t marker, std::size_t) {
        const std::uint64_t frame = Big(content, marker + 2, 4);
        AddPoint(Big(content, marker, 2), frame, ContainsPoint(frame));
    });
}

std::optional<std::string> ChunkAdjustment::AdjustBroadcast(std::string content) const {
    constexpr std::size_t kBytes = 8;
    if (content.size() < kTimeReference + kBytes) {
        return std::nullopt;
    }
    const std::uint64_t first =
        StoredBytes(content, StoredOrder::Little).Number(kTimeReference, kBytes);
    if (first > std::numeric_limits<std::uint64_t>::max() - m_part.first) {
        return std::nullopt;
    }
    ReplaceNumber(content, kTimeReference, kBytes, first + m_part.first, StoredOrder::Little);
    return content;
}

// Each time is in two elements, with the upper and the lower 32 bits.
std::optional<std::string> ChunkAdjustment::AdjustIXML(const std::string& content) const {
    constexpr unsigned kHalf = 32;
    constexpr std::uint64_t kLowerHalf = 0xFFFFFFFF;
    const std::size_t last = content.find_last_not_of('\0');
    if (last != std::string::npos && content.find('\0') < last) {
        return std::nullopt; // UTF-16, in which no element is found
    }
    std::string result = content;
    for (const auto& [upper, lower] :
         {std::pair("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI", "TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO"),
          std::pair("BWF_TIME_REFERENCE_HIGH", "BWF_TIME_REFERENCE_LOW")}) {
        const auto high = FindElement(result, upper);
        const auto low = FindElement(result, lower);
        if (!high.has_value() && !low.has_value()) {
            continue;
        }
        const auto highPart = high.has_value() ? NumberIn(result, *high) : std::nullopt;
        const auto lowPart = low.has_value() ? NumberIn(result, *low) : std::nullopt;
        if (!highPart.has_value() || !lowPart.has_value()) {
            return std::nullopt;
        }
        const std::uint64_t time = (std::uint64_t{*highPart} << kHalf) + *lowPart;
        if (time > std::numeric_limits<std::uint64_t>::max() - m_part.first) {
            return std::nullopt;
        }
        const std::uint64_t moved = time + m_part.first;
        result.replace(high->first, high->second, std::to_string(moved >> kHalf));
        const auto lowAfterwards = FindElement(result, lower);
        result.replace(lowAfterwards->first, lowAfterwards->second,
                       std::to_string(moved & kLowerHalf));
    }
    return result;
}

// The position in the chunk of samples is that of readers. The other one is in the order of a
// playlist, and the same without one.
std::optional<std::string> ChunkAdjustment::AdjustCue(const std::string& content) {
    std::string points;
    std::uint64_t count = 0;
    ForEachRecord(content, 4, Little(content, 0), kCuePoint, [&](std::size_t offset) {
        std::string point = content.substr(offset, kCuePoint);
        if (!ContainsPoint(Little(point, kCueFrame))) {
            ++m_removed["cue point"];
            return;
        }
        const std::uint64_t frame = Little(point, kCueFrame) - m_part.first;
        const bool isPositionUsed = Little(point, 4) != 0;
        ReplaceNumber(point, 4, 4, isPositionUsed ? frame : 0, StoredOrder::Little);
        ReplaceNumber(point, kCueFrame, 4, frame, StoredOrder::Little);
        points += point;
        ++count;
    });
    return count == 0 ? "" : NumberBytes(count, 4, StoredOrder::Little) + points;
}

// The texts of "adtl": each begins with the number of a point. A region's length follows it.
std::optional<std::string> ChunkAdjustment::AdjustTexts(const std::string& content) const {
    constexpr std::size_t kHeader = 8;
    constexpr std::size_t kKind = 4;
    std::string result = content.substr(0, kKind);
    for (std::size_t offset = kKind; offset < content.size();) {
        if (content.size() - offset < kHeader) {
            return std::nullopt;
        }
        const std::uint64_t bytes = Little(content, offset + 4);
        if (content.size() - offset - kHeader < bytes) {
            return std::nullopt;
        }
        const auto size = kHeader + static_cast<std::size_t>(bytes);
        const std::size_t padded = std::min(size + size % 2, content.size() - offset);
        std::string text = content.substr(offset, padded);
        offset += padded;
        if (bytes >= 4 && IsRemoved(Little(text, kHeader))) {
            continue;
        }
        const auto point = bytes >= 4 ? m_inside.find(Little(text, kHeader)) : m_inside.end();
        if (point != m_inside.end() && text.compare(0, 4, "ltxt") == 0 && bytes >= 8) {
            const std::uint64_t left = m_part.first + m_part.frames - point->second;
            ReplaceNumber(text, kHeader + 4, 4, std::min(Little(text, kHeader + 4), left),
                          StoredOrder::Little);
        }
        result += text;
    }
    return result.size() == kKind ? "" : result;
}

std::optional<std::string> ChunkAdjustment::AdjustSampler(const std::string& content) {
    if (content.size() < kSampler) {
        return std::nullopt;
    }
    const std::uint64_t declared = Little(content, kLoopCount);
    std::string loops;
    std::uint64_t count = 0;
    std::uint64_t removed = 0;
    const bool isRead = ForEachRecord(content, kSampler, declared, kLoop, [&](std::size_t offset) {
        std::string loop = content.substr(offset, kLoop);
        const std::uint64_t first = Little(loop, 8);
        const std::uint64_t last = Little(loop, 12);
        if (!Contains(first) || !Contains(last)) {
            ++removed;
            return;
        }
        ReplaceNumber(loop, 8, 4, first - m_part.first, StoredOrder::Little);
        ReplaceNumber(loop, 12, 4, last - m_part.first, StoredOrder::Little);
        loops += loop;
        ++count;
    });
    if (!isRead) {
        return std::nullopt;
    }
    if (removed > 0) {
        m_removed["loop"] += removed;
    }
    std::string result = content.substr(0, kSampler) + loops +
                         content.substr(kSampler + static_cast<std::size_t>(declared) * kLoop);
    ReplaceNumber(result, kLoopCount, 4, count, StoredOrder::Little);
    return result;
}

// Each timer has a name and a frame. One without a name is not used.
std::optional<std::string> ChunkAdjustment::AdjustTimers(std::string content) {
    constexpr std::size_t kTimers = 684;
    constexpr std::uint64_t kCount = 8;
    constexpr std::size_t kTimer = 8;
    const bool isRead = ForEachRecord(content, kTimers, kCount, kTimer, [&](std::size_t timer) {
        const std::uint64_t frame = Little(content, timer + 4);
        const bool isUsed = Little(content, timer) != 0;
        if (isUsed && ContainsPoint(frame)) {
            ReplaceNumber(content, timer + 4, 4, frame - m_part.first, StoredOrder::Little);
        } else if (isUsed) {
            content.replace(timer, kTimer, kTimer, '\0');
            ++m_removed["timer"];
        }
    });
    return isRead ? std::optional(std::move(content)) : std::nullopt;
}

std::optional<std::string> ChunkAdjustment::AdjustMarkers(const std::string& content) {
    std::string markers;
    std::uint64_t count = 0;
    ForEachMarker(content, [&](std::size_t offset, std::size_t bytes) {
        if (!ContainsPoint(Big(content, offset + 2, 4))) {
            ++m_removed["marker"];
            return;
        }
        std::string marker = content.substr(offset, bytes);
        ReplaceNumber(marker, 2, 4, Big(marker, 2, 4) - m_part.first, StoredOrder::Big);
        markers += marker;
        ++count;
    });
    return count == 0 ? "" : NumberBytes(count, 2, StoredOrder::Big) + markers;
}

// A loop, from a marker to a marker, follows its mode, which is 0 for none.
std::optional<std::string> ChunkAdjustment::AdjustInstrument(std::string content) {
    constexpr std::size_t kInstrument = 20;
    constexpr std::size_t kMarkerLoop = 6;
    if (content.size() < kInstrument) {
        return std::nullopt;
    }
    for (std::size_t loop = kInstrument - 2 * kMarkerLoop; loop < kInstrument;
         loop += kMarkerLoop) {
        if (Big(content, loop, 2) != 0 &&
            (IsRemoved(Big(content, loop + 2, 2)) || IsRemoved(Big(content, loop + 4, 2)))) {
            content.replace(loop, kMarkerLoop, kMarkerLoop, '\0');
            ++m_removed["loop"];
        }
    }
    return content;
}

// A comment: a time, the number of a marker or 0, and a text after its length, padded.
std::optional<std::string> ChunkAdjustment::AdjustComments(const std::string& content) const {
    constexpr std::size_t kComment = 8;
    if (content.size() < 2) {
        return std::nullopt;
    }
    std::string comments;
    std::uint64_t count = 0;
    std::size_t offset = 2;
    for (std::uint64_t left = Big(content, 0, 2); left > 0; --left) {
        if (content.size() - offset < kComment ||
            content.size() - offset - kComment < Big(content, offset + 6, 2)) {
            return std::nullopt;
        }
        const std::size_t bytes = kComment + static_cast<std::size_t>(Big(content, offset + 6, 2));
        const std::size_t padded = std::min(bytes + bytes % 2, content.size() - offset);
        if (!IsRemoved(Big(content, offset + 4, 2))) {
            comments += content.substr(offset, padded);
            ++count;
        }
        offset += padded;
    }
    return count == 0 ? "" : MakeReadable(NumberBytes(count, 2, StoredOrder::Big) + comments);
}

std::string AddToCodingHistory(std::string content, const std::string& line) {
    if (content.size() <= kCodingHistory || content[kCodingHistory] == '\0') {
        return content;
    }
    std::string history = content.substr(kCodingHistory);
    content.resize(kCodingHistory);
    return content + AppendHistoryLine(std::move(history), line);
}

std::string AppendHistoryLine(std::string history, const std::string& line) {
    history.erase(std::min(history.find('\0'), history.size()));
    if (history.empty()) {
        return history;
    }
    const bool hasEnd =
        history.size() >= kLineEnd.size() &&
        history.compare(history.size() - kLineEnd.size(), kLineEnd.size(), kLineEnd) == 0;
    if (!hasEnd && (history.back() == '\n' || history.back() == '\r')) {
        history.pop_back();
    }
    history += hasEnd ? "" : kLineEnd;
    return history.append(line).append(kLineEnd);
}

} // namespace kel::host
