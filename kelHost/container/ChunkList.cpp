#include "container/ChunkList.h"

#include "base/Numbers.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

// Reads the chunks of files whose chunk headers have a name and 32 bits of size.
class ChunkListReader {
public:
    ChunkListReader(const HeaderReader& header, ChunkForm form, std::uint64_t fileBytes)
        : m_header(header) {
        m_list.form = form;
        m_list.fileBytes = fileBytes;
        m_list.declaredBytes = SaturatingSum(kChunkHeader, m_header.Number(4, 4));
    }

    ChunkList Read() {
        std::uint64_t offset = kFirstChunk;
        m_list.isComplete = true;
        while (offset + kChunkHeader <= m_list.fileBytes && IsChunkName(m_header.Name(offset))) {
            if (m_list.chunks.size() == kMaxChunks) {
                m_list.isComplete = false;
                break;
            }
            offset = Add(offset);
        }
        m_list.end = offset;
        return std::move(m_list);
    }

private:
    // Returns the offset of the next chunk.
    std::uint64_t Add(std::uint64_t offset) {
        Chunk chunk{m_header.Name(offset), offset + kChunkHeader, m_header.Number(offset + 4, 4)};
        if (chunk.bytes == kSizeInDs64) {
            const auto size = m_sizes.find(chunk.name);
            chunk.bytes = size != m_sizes.end() ? size->second : chunk.bytes;
        }
        const bool is64Bit = m_list.form == ChunkForm::RF64 || m_list.form == ChunkForm::BW64;
        if (chunk.name == "ds64" && is64Bit && m_list.chunks.empty()) {
            ReadSizes(chunk);
        }
        m_list.chunks.push_back(chunk);
        return SkipPadding(SaturatingSum(chunk.offset, chunk.bytes), chunk.bytes);
    }

    std::uint64_t SkipPadding(std::uint64_t offset, std::uint64_t bytes) const {
        if (bytes % 2 == 0 || offset >= m_list.fileBytes) {
            return offset;
        }
        const bool isNameHere = offset + kChunkHeader <= m_list.fileBytes &&
                                m_header.Name(offset).front() != '\0' &&
                                IsChunkName(m_header.Name(offset));
        const bool isNameNext =
            offset + 1 + kChunkHeader <= m_list.fileBytes && IsChunkName(m_header.Name(offset + 1));
        return isNameHere && !isNameNext ? offset : offset + 1;
    }

    // The chunk "ds64": the sizes of the file and of the samples, the number of frames, and a table
    // of other sizes.
    void ReadSizes(const Chunk& chunk) {
        constexpr std::uint64_t kTable = 28;
        constexpr std::uint64_t kEntry = 12;
        m_list.declaredBytes = SaturatingSum(kChunkHeader, m_header.Number(chunk.offset, 8));
        m_sizes["data"] = m_header.Number(chunk.offset + 8, 8);
        const std::uint64_t bytes = m_list.Present(chunk);
        if (bytes < kTable) {
            return; // some programs omit the length of the table
        }
        const std::uint64_t entries =
            std::min({m_header.Number(chunk.offset + 24, 4), (bytes - kTable) / kEntry,
                      std::uint64_t{kMaxChunks}});
        for (std::uint64_t i = 0; i < entries; ++i) {
            const std::uint64_t entry = chunk.offset + kTable + i * kEntry;
            m_sizes.emplace(m_header.Name(entry), m_header.Number(entry + 4, 8));
        }
    }

    const HeaderReader& m_header;
    ChunkList m_list;
    std::map<std::string, std::uint64_t> m_sizes; // of more than 32 bits, by the chunk's name
};

constexpr std::uint64_t kGUID = 16;

// True for a GUID that begins with a name, or that ends like those of W64: its markers have no
// name.
bool IsChunkGUID(const HeaderReader& header, std::uint64_t offset) {
    constexpr std::uint64_t kEnd = 0x8ADB8E4FC000; // the last six bytes
    constexpr std::size_t kEndBytes = 6;
    return IsChunkName(header.Name(offset)) ||
           header.Number(offset + kGUID - kEndBytes, kEndBytes) == kEnd;
}

// Each chunk of W64 begins with a GUID and a size of 64 bits that includes both, at a multiple
// of 8.
ChunkList ReadW64(const HeaderReader& header, std::uint64_t fileBytes) {
    constexpr std::uint64_t kHeader = kGUID + 8;
    constexpr std::uint64_t kAlignment = 8;
    ChunkList list{ChunkForm::W64, fileBytes, header.Number(kGUID, 8), {}, 0, true};
    std::uint64_t offset = kHeader + kGUID; // after "riff", the size, and "wave"
    while (SaturatingSum(offset, kHeader) <= fileBytes && IsChunkGUID(header, offset)) {
        if (list.chunks.size() == kMaxChunks) {
            list.isComplete = false;
            break;
        }
        const std::uint64_t size = std::max(header.Number(offset + kGUID, 8), kHeader);
        list.chunks.push_back({header.Name(offset), offset + kHeader, size - kHeader});
        const std::uint64_t next = SaturatingSum(offset, size);
        offset = next >= fileBytes ? next : (next + kAlignment - 1) / kAlignment * kAlignment;
    }
    list.end = offset;
    return list;
}

// The file's form; none when it is of another kind.
std::optional<ChunkForm> FormOf(const HeaderReader& header) {
    static const std::map<std::pair<std::string, std::string>, ChunkForm> forms{
        {{"RIFF", "WAVE"}, ChunkForm::RIFF}, {{"RIFX", "WAVE"}, ChunkForm::RIFX},
        {{"RF64", "WAVE"}, ChunkForm::RF64}, {{"BW64", "WAVE"}, ChunkForm::BW64},
        {{"FORM", "AIFF"}, ChunkForm::AIFF}, {{"FORM", "AIFC"}, ChunkForm::AIFC}};
    const std::string name = header.Name(0);
    if (name == "riff" && header.Name(kGUID + 8) == "wave") {
        return ChunkForm::W64;
    }
    const auto form = forms.find({name, header.Name(8)});
    return form == forms.end() ? std::nullopt : std::optional(form->second);
}

} // namespace

std::string_view FormName(ChunkForm form) {
    switch (form) {
    case ChunkForm::RIFF:
        return "WAVE";
    case ChunkForm::RIFX:
        return "RIFX";
    case ChunkForm::RF64:
        return "RF64";
    case ChunkForm::BW64:
        return "BW64";
    case ChunkForm::W64:
        return "W64";
    case ChunkForm::AIFF:
        return "AIFF";
    case ChunkForm::AIFC:
        break;
    }
    return "AIFF-C";
}

bool IsChunkName(std::string_view name) {
    constexpr char kLastPrintable = 0x7E;
    const auto isPrintable = [](char character) {
        return (character >= ' ' && character <= kLastPrintable) || character == '\xA9';
    };
    return isPrintable(name.front()) && std::all_of(name.begin(), name.end(), [&](char character) {
               return character == '\0' || isPrintable(character);
           });
}

bool IsAIFF(ChunkForm form) {
    return form == ChunkForm::AIFF || form == ChunkForm::AIFC;
}

const Chunk* ChunkList::Find(std::string_view name) const {
    const auto found = std::find_if(chunks.begin(), chunks.end(),
                                    [&](const Chunk& chunk) { return chunk.name == name; });
    return found == chunks.end() ? nullptr : &*found;
}

std::uint64_t ChunkList::Present(const Chunk& chunk) const {
    return chunk.offset >= fileBytes ? 0 : std::min(chunk.bytes, fileBytes - chunk.offset);
}

std::optional<ChunkList> ReadChunkList(HeaderReader& header, std::uint64_t fileBytes) {
    const auto form = FormOf(header);
    if (!form.has_value()) {
        return std::nullopt;
    }
    if (*form == ChunkForm::W64) {
        return ReadW64(header, fileBytes);
    }
    header.SetBigEndian(IsAIFF(*form) || *form == ChunkForm::RIFX);
    return ChunkListReader(header, *form, fileBytes).Read();
}

} // namespace kel::host
