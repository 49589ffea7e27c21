#include "container/MarkerChunks.h"

#include "container/StoredText.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint64_t kFirstItem = 2;     // offset, after the number of items
constexpr std::uint64_t kMarkerName = 6;    // offset in a marker
constexpr std::uint64_t kCommentHeader = 8; // bytes before the text of a comment
constexpr std::uint64_t kCommentMarker = 4; // offset in a comment, after the time
constexpr std::uint64_t kCommentLength = 6;

std::string WithPadding(std::string bytes) {
    bytes.append(bytes.size() % 2, '\0');
    return bytes;
}

std::string BigNumber(std::uint64_t number, std::size_t bytes) {
    return NumberBytes(number, bytes, StoredOrder::Big);
}

// True when comments that are not padded begin where the lengths before them lead, and have lengths
// that libsndfile accepts.
bool IsReadWithoutPadding(const StoredBytes& comments) {
    constexpr std::uint64_t kMaxLength = 8191;
    std::uint64_t offset = kFirstItem;
    for (std::uint64_t left = DeclaredItems(comments); left > 0; --left) {
        const std::uint64_t length = comments.Number(offset + kCommentLength, 2);
        offset += kCommentHeader + length;
        if (length > kMaxLength || offset > comments.Size()) {
            return false;
        }
    }
    return true;
}

} // namespace

std::uint64_t DeclaredItems(const StoredBytes& content) {
    return content.Number(0, 2);
}

std::vector<CuePoint> ParseMarkers(const StoredBytes& content) {
    std::vector<CuePoint> points;
    std::uint64_t offset = kFirstItem;
    while (points.size() < DeclaredItems(content) && offset + kMarkerName < content.Size()) {
        const std::uint64_t length = content.Number(offset + kMarkerName, 1);
        CuePoint point;
        point.id = static_cast<std::uint32_t>(content.Number(offset, 2));
        point.frame = content.Number(offset + 2, 4);
        point.label = DecodeText(content.Part(offset + kMarkerName + 1, length));
        points.push_back(point);
        offset += kMarkerName + 1 + length + (length + 1) % 2;
    }
    return points;
}

std::vector<MarkerComment> ParseMarkerComments(const StoredBytes& content) {
    std::vector<MarkerComment> comments;
    std::uint64_t offset = kFirstItem;
    while (comments.size() < DeclaredItems(content) && offset + kCommentHeader <= content.Size()) {
        const std::uint64_t length = content.Number(offset + kCommentLength, 2);
        const auto marker = content.Number(offset + kCommentMarker, 2);
        comments.push_back({static_cast<std::uint32_t>(content.Number(offset, 4)),
                            static_cast<std::uint32_t>(marker),
                            DecodeText(content.Part(offset + kCommentHeader, length))});
        offset += kCommentHeader + length + length % 2;
    }
    return comments;
}

std::string FormatMarkers(const std::vector<CuePoint>& points) {
    std::string bytes = BigNumber(points.size(), 2);
    for (const CuePoint& point : points) {
        const std::string name = LimitText(point.label, kMaxMarkerName);
        bytes += BigNumber(point.id, 2) + BigNumber(point.frame, 4);
        bytes += WithPadding(BigNumber(name.size(), 1) + name);
    }
    return bytes;
}

std::string MakeReadable(const std::string& comments) {
    const StoredBytes content(comments, StoredOrder::Big);
    if (IsReadWithoutPadding(content)) {
        return comments;
    }
    std::string even = comments.substr(0, kFirstItem);
    std::uint64_t offset = kFirstItem;
    for (std::uint64_t left = DeclaredItems(content); left > 0; --left) {
        const std::uint64_t length = content.Number(offset + kCommentLength, 2);
        const std::uint64_t padded = length + length % 2;
        even += content.Part(offset, kCommentLength);
        even += BigNumber(padded, 2);
        even += WithPadding(std::string(content.Part(offset + kCommentHeader, length)));
        offset += kCommentHeader + padded;
    }
    return even;
}

std::string FormatMarkerComments(const std::vector<CuePoint>& points) {
    std::string bytes;
    std::size_t count = 0;
    for (const CuePoint& point : points) {
        if (!point.note.empty()) {
            const std::string note = LimitText(point.note, kMaxMarkerComment);
            const std::string noTime(4, '\0');
            bytes += noTime + BigNumber(point.id, 2) + BigNumber(note.size(), 2);
            bytes += WithPadding(note);
            ++count;
        }
    }
    return bytes.empty() ? bytes : MakeReadable(BigNumber(count, 2) + bytes);
}

} // namespace kel::host
