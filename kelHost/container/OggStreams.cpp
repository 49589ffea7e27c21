#include "container/OggStreams.h"

#include "container/StoredBytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace kel::host {

namespace {

constexpr std::uint64_t kPageHeader = 27;
constexpr std::uint64_t kMaxPage = kPageHeader + 255 + std::uint64_t{255} * 255;

// The last whole page of a file; none when it is not at its end.
std::optional<OggPage> FindLastPage(const HeaderReader& header, std::uint64_t fileBytes) {
    const std::uint64_t begin = fileBytes - std::min(fileBytes, kMaxPage);
    const std::string bytes = header.Bytes(begin, static_cast<std::size_t>(fileBytes - begin));
    for (std::size_t end = bytes.size(); end > 0;) {
        const std::size_t offset = bytes.rfind("OggS", end - 1);
        if (offset == std::string::npos) {
            break;
        }
        auto page = ReadOggPage(header, begin + offset);
        if (page.has_value() && page->end <= fileBytes) {
            return page;
        }
        end = offset;
    }
    return std::nullopt;
}

} // namespace

std::optional<OggPage> ReadOggPage(const HeaderReader& header, std::uint64_t offset) {
    constexpr unsigned kFirstPage = 2;
    const std::string start = header.Bytes(offset, kPageHeader);
    const StoredBytes numbers(start, StoredOrder::Little);
    if (start.size() < kPageHeader || start.substr(0, 4) != "OggS" || numbers.Number(4, 1) != 0) {
        return std::nullopt;
    }
    OggPage page;
    page.stream = static_cast<std::uint32_t>(numbers.Number(14, 4));
    page.isFirst = (numbers.Number(5, 1) & kFirstPage) != 0;
    page.pieces =
        header.Bytes(offset + kPageHeader, static_cast<std::size_t>(numbers.Number(26, 1)));
    page.content = offset + kPageHeader + page.pieces.size();
    page.end = page.content;
    for (const char piece : page.pieces) {
        page.end += static_cast<unsigned char>(piece);
    }
    return page;
}

bool HasFurtherOggStreams(const FileName& file) {
    constexpr std::size_t kMaxStreams = 16; // few files have more than one
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return false;
    }
    const HeaderReader header(file, std::move(input->descriptor), "cannot read its pages");
    std::set<std::uint32_t> first;
    auto page = ReadOggPage(header, 0);
    while (page.has_value() && page->isFirst && first.size() < kMaxStreams) {
        first.insert(page->stream);
        page = ReadOggPage(header, page->end);
    }
    const auto last = first.empty() ? std::nullopt : FindLastPage(header, input->bytes);
    return last.has_value() && first.count(last->stream) == 0;
}

} // namespace kel::host
