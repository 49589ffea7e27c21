#include "container/OggStreams.h"

#include "container/StoredBytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
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

// Searches a file for the beginning of a stream after its first pages.
class StreamSearch {
public:
    StreamSearch(const HeaderReader& header, std::uint64_t fileBytes)
        : m_header(header), m_fileBytes(fileBytes) {}

    bool Run() {
        constexpr std::uint64_t kWalked = 65536;
        constexpr std::uint64_t kStep = 10;
        m_checked = ReadFirstPages();
        if (m_numbers.empty()) {
            return false;
        }
        if (HasBeginning(std::min(kWalked, m_fileBytes))) {
            return true;
        }
        for (std::uint64_t at = kWalked; at < m_fileBytes; at += at / kStep) {
            if (const auto page = FindPage(at); page.has_value() && IsOfFurther(*page)) {
                return true;
            }
        }
        const auto last = FindLastPage(m_header, m_fileBytes);
        return last.has_value() && IsOfFurther(*last);
    }

private:
    // Each of the first streams begins with a page of its own. Returns the end of these pages.
    std::uint64_t ReadFirstPages() {
        constexpr std::size_t kMaxStreams = 16; // few files have more than one
        std::uint64_t end = 0;
        auto page = ReadOggPage(m_header, 0);
        while (page.has_value() && page->isFirst && m_numbers.size() < kMaxStreams &&
               m_numbers.emplace(page->stream, page->number).second) {
            end = page->end;
            page = ReadOggPage(m_header, end);
        }
        return end;
    }

    // True when a stream begins with a whole page between the last one that was checked and an
    // offset.
    bool HasBeginning(std::uint64_t end) {
        while (m_checked < end) {
            auto page = ReadOggPage(m_header, m_checked);
            if (!page.has_value()) {
                page = FindPage(m_checked);
            }
            if (!page.has_value() || page->end > m_fileBytes) {
                return false;
            }
            if (page->isFirst) {
                return true;
            }
            Accept(*page);
        }
        return false;
    }

    bool IsOfFurther(const OggPage& page) {
        const auto number = m_numbers.find(page.stream);
        if (number == m_numbers.end()) {
            return true;
        }
        if (page.number < number->second) {
            return HasBeginning(page.end);
        }
        Accept(page);
        return false;
    }

    void Accept(const OggPage& page) {
        m_numbers[page.stream] = page.number;
        m_checked = page.end;
    }

    // The first page from an offset on that is followed by another, or by the end of the file; none
    // within the length of two pages.
    std::optional<OggPage> FindPage(std::uint64_t offset) const {
        constexpr std::size_t kPiece = 16384;
        constexpr std::uint64_t kName = 4;
        const std::uint64_t end = std::min(m_fileBytes, offset + 2 * kMaxPage);
        for (; offset < end; offset += kPiece - (kName - 1)) {
            const std::string bytes = m_header.Bytes(offset, kPiece);
            for (std::size_t i = bytes.find("OggS"); i != std::string::npos;
                 i = bytes.find("OggS", i + 1)) {
                auto page = ReadOggPage(m_header, offset + i);
                if (page.has_value() &&
                    (page->end == m_fileBytes || m_header.Name(page->end) == "OggS")) {
                    return page;
                }
            }
        }
        return std::nullopt;
    }

    const HeaderReader& m_header;
    std::uint64_t m_fileBytes;
    std::map<std::uint32_t, std::uint32_t> m_numbers; // of the last page of each stream
    std::uint64_t m_checked = 0;                      // bytes before it were checked
};

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
    page.number = static_cast<std::uint32_t>(numbers.Number(18, 4));
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
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return false;
    }
    const HeaderReader header(file, std::move(input->descriptor), "cannot read its pages");
    return StreamSearch(header, input->bytes).Run();
}

} // namespace kel::host
