#include "container/InputHeader.h"

#include "base/Text.h"
#include "container/HeaderReader.h"
#include "container/OtherHeaders.h"
#include "container/StoredBytes.h"
#include "container/VOCBlocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::uint64_t kHeaderBytes = 65536; // that are read at both ends
constexpr std::uint64_t kFirstBytes = 4096;   // that are read of every file
// Of all other chunks. Some files contain pictures, and reading takes time.
constexpr std::uint64_t kMaxSkimmedBytes = std::uint64_t{16} << 20U;

// Of chunks after samples of unknown size.
constexpr std::uint64_t kMaxSearched = std::uint64_t{1} << 20U;

bool HasSamples(const Chunk& chunk) {
    return chunk.name == "data" || chunk.name == "SSND";
}

// The header of a file without a layout may be anywhere.
void SkimEnds(const HeaderReader& header, std::uint64_t fileBytes) {
    header.Skim(0, kHeaderBytes);
    if (fileBytes > kHeaderBytes) {
        const std::uint64_t end = std::min(fileBytes - kHeaderBytes, kHeaderBytes);
        header.Skim(fileBytes - end, end);
    }
}

void SkimOtherChunks(const HeaderReader& header, const ChunkList& list) {
    std::uint64_t left = kMaxSkimmedBytes;
    for (const Chunk& chunk : list.chunks) {
        // The beginning of the file was read before.
        const bool isRead = chunk.bytes <= kFirstBytes &&
                            chunk.offset + chunk.bytes <= std::min(list.fileBytes, kFirstBytes);
        if (!HasSamples(chunk) && !isRead) {
            const std::uint64_t bytes = std::min(chunk.bytes, left);
            header.Skim(chunk.offset, bytes);
            left -= bytes;
        }
    }
}

// Chunks that programs write after the samples.
bool IsTrailingName(std::string_view name) {
    constexpr std::array<std::string_view, 28> kNames{
        "LIST", "id3 ", "ID3 ", "bext", "iXML", "axml", "chna", "cue ", "smpl", "inst",
        "acid", "cart", "umid", "_PMX", "fact", "PEAK", "levl", "JUNK", "DISP", "minf",
        "NAME", "AUTH", "ANNO", "COMT", "MARK", "INST", "APPL", "(c) "};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

// A size of samples, as its chunk declares it, and what it is compared with.
struct DeclaredSize {
    std::uint64_t chunk = 0;      // of the content of the chunk
    std::uint64_t samples = 0;    // in it
    std::uint64_t file = 0;       // of the content of the file, as declared in 32 bits
    std::uint64_t frameBytes = 0; // 0 for unknown
};

// True for sizes that programs write when they cannot go back to the header. Some round the size to
// whole frames; others declare the size of the file and subtract the header from it.
bool MeansUnknown(const DeclaredSize& size) {
    constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 62U;
    constexpr std::array<std::uint64_t, 5> kUnknownSizes{0x7F000000, 0x7FFFF000, 0x7FFFFFFF,
                                                         0x80000000, 0xFFFFFFFF};
    constexpr std::uint64_t kMaxHeader = 4096;
    if (size.chunk >= kMaxFileBytes) {
        return true;
    }
    const std::uint64_t rounding = std::max<std::uint64_t>(size.frameBytes, 2);
    return std::any_of(kUnknownSizes.begin(), kUnknownSizes.end(), [&](std::uint64_t unknown) {
        return size.chunk == unknown ||
               (size.samples <= unknown && unknown - size.samples < rounding) ||
               (size.file == unknown && size.samples <= unknown &&
                unknown - size.samples < kMaxHeader);
    });
}

// Judges the header of a file of chunks.
class ChunkJudge {
public:
    ChunkJudge(const HeaderReader& header, ChunkList list) : m_header(header) {
        m_result.fileBytes = list.fileBytes;
        m_result.container = FormName(list.form);
        m_result.isBigEndian = IsAIFF(list.form) || list.form == ChunkForm::RIFX;
        m_result.format = ReadFormat(list);
        m_result.chunks = std::move(list);
    }

    InputHeader Run() {
        const std::vector<Chunk>& chunks = List().chunks;
        for (std::size_t i = 0; i < chunks.size() && m_result.declaresLength; ++i) {
            if (HasSamples(chunks[i])) {
                AddPart(i);
            }
        }
        if (!m_result.parts.empty() && m_result.declaresLength) {
            m_result.FindTruncation(m_declared, DeclaredEnd());
        }
        return std::move(m_result);
    }

private:
    const ChunkList& List() const { return *m_result.chunks; }

    std::optional<FormatChunk> ReadFormat(const ChunkList& list) const {
        auto format = ReadFormatChunk(m_header, list);
        const Chunk* chunk = list.Find("fmt ");
        if (format.has_value() && chunk != nullptr) {
            // Frames of another size than their values have are not those of linear samples.
            constexpr std::uint64_t kBlockSize = 12;
            const std::uint64_t blockBytes = m_header.Number(chunk->offset + kBlockSize, 2);
            format->frameBytes = blockBytes == format->frameBytes ? format->frameBytes : 0;
        }
        return format;
    }

    void AddPart(std::size_t index) {
        const Chunk& chunk = List().chunks[index];
        std::uint64_t before = 0;
        if (chunk.name == "SSND") {
            // An offset and a block size precede the samples.
            constexpr std::uint64_t kBeforeSamples = 8;
            before = kBeforeSamples + m_header.Number(chunk.offset, 4);
        }
        const std::uint64_t first = chunk.offset + before;
        const std::uint64_t declared = chunk.bytes > before ? chunk.bytes - before : 0;
        const std::uint64_t left = m_result.fileBytes - std::min(m_result.fileBytes, first);
        const bool isUnknown = IsUnknown(index, declared, left);
        const bool declaresNone = declared == 0 && left >= kChunkHeader && !HasChunksAfter(index);
        if (isUnknown || declaresNone) {
            m_result.declaresLength = false;
            m_result.declaresNone = declaresNone;
            m_result.trailingBytes = FindTrailingChunks(first);
            m_result.parts.push_back({first, left - m_result.trailingBytes, std::nullopt});
            ReplaceChunksAfter(index);
            return;
        }
        m_result.parts.push_back({first, std::min(declared, left), std::nullopt});
        m_declared += declared;
    }

    // @param declared bytes of samples
    // @param left bytes from the first sample to the end of the file
    bool IsUnknown(std::size_t index, std::uint64_t declared, std::uint64_t left) const {
        if (declared <= left && (left - declared < kChunkHeader || HasChunksAfter(index))) {
            return false;
        }
        // Some programs write the lower 32 bits of a larger size.
        constexpr std::uint64_t kTooLarge = std::uint64_t{1} << 32U;
        const bool isWrapped = left >= kTooLarge && declared < kTooLarge &&
                               (left - declared) % kTooLarge < kMaxSearched;
        return isWrapped || MeansUnknown({List().chunks[index].bytes, declared,
                                          m_header.Number(4, 4), m_result.FrameBytes()});
    }

    // True when a chunk is followed by chunks to the end of the file, or by one of a usual name.
    bool HasChunksAfter(std::size_t index) const {
        const ChunkList& list = List();
        return index + 1 < list.chunks.size() &&
               (IsTrailingName(list.chunks[index + 1].name) ||
                list.chunks[index + 1].name == "data" || list.chunks[index + 1].name == "SSND" ||
                list.end == list.fileBytes || list.end == list.fileBytes + 1);
    }

    // Bytes of the chunks at the end of a file whose samples have no end of their own.
    std::uint64_t FindTrailingChunks(std::uint64_t first) const {
        constexpr std::size_t kName = 4;
        if (List().form == ChunkForm::W64) {
            return 0; // no program is known to do that
        }
        const std::uint64_t end = m_result.fileBytes;
        const std::uint64_t begin = std::max(first, end - std::min(end, kMaxSearched));
        const std::string bytes = m_header.Bytes(begin, static_cast<std::size_t>(end - begin));
        for (std::size_t i = 0; i + kChunkHeader < bytes.size(); ++i) {
            const std::string_view name = std::string_view(bytes).substr(i, kName);
            if (IsTrailingName(name) && EndsWithChunks(bytes, i)) {
                return bytes.size() - i;
            }
        }
        return 0;
    }

    // Samples of unknown size end at the chunks that were found after them.
    void ReplaceChunksAfter(std::size_t index) {
        ChunkList& list = *m_result.chunks;
        list.chunks.resize(index + 1);
        const std::uint64_t end = m_result.fileBytes - m_result.trailingBytes;
        list.chunks.back().bytes = end - std::min(end, list.chunks.back().offset);
        for (std::uint64_t offset = end; offset + kChunkHeader <= m_result.fileBytes;) {
            if (list.chunks.size() == kMaxChunks) {
                list.isComplete = false;
                return;
            }
            const std::uint64_t bytes = m_header.Number(offset + 4, 4);
            list.chunks.push_back({m_header.Name(offset), offset + kChunkHeader, bytes});
            offset += kChunkHeader + bytes + bytes % 2;
        }
    }

    // True when chunks follow each other from an offset to the end of the bytes.
    bool EndsWithChunks(const std::string& bytes, std::size_t offset) const {
        const StoredBytes stored(bytes,
                                 m_result.isBigEndian ? StoredOrder::Big : StoredOrder::Little);
        while (offset + kChunkHeader <= bytes.size()) {
            const std::uint64_t size = stored.Number(offset + 4, 4);
            const std::uint64_t next = offset + kChunkHeader + size;
            if (next > bytes.size()) {
                return false;
            }
            offset = static_cast<std::size_t>(next + (next < bytes.size() ? size % 2 : 0));
        }
        return offset == bytes.size();
    }

    // The end of the file according to the header of the file and of the last chunk, as far as they
    // agree. Many programs count the header of the file or padding that they do not write: a
    // difference that leaves no place for a chunk means nothing.
    std::uint64_t DeclaredEnd() const {
        const ChunkList& list = List();
        const std::uint64_t file = list.fileBytes;
        const std::uint64_t outer = list.declaredBytes - kChunkHeader;
        const bool isOuterKnown = outer != 0 && !MeansUnknown({outer, outer, outer, 0});
        if (isOuterKnown && list.declaredBytes > file + kChunkHeader) {
            return list.declaredBytes;
        }
        const Chunk& last = list.chunks.back();
        const bool isPartOfFile =
            isOuterKnown ? last.offset <= list.declaredBytes : IsTrailingName(last.name);
        return isPartOfFile && !HasSamples(last) && list.Present(last) < last.bytes
                   ? last.offset + last.bytes
                   : 0;
    }

    const HeaderReader& m_header;
    InputHeader m_result;
    std::uint64_t m_declared = 0; // bytes of samples
};

// AU: a name, the offset and the size of the samples, their encoding, the rate and the number of
// channels.
std::optional<InputHeader> JudgeAU(HeaderReader& header, std::uint64_t fileBytes) {
    const std::string name = header.Name(0);
    if (name != ".snd" && name != "dns.") {
        return std::nullopt;
    }
    header.SetBigEndian(name == ".snd");
    constexpr std::uint64_t kUnknown = 0xFFFFFFFF;
    InputHeader result;
    result.fileBytes = fileBytes;
    result.container = "AU";
    result.isBigEndian = name == ".snd";
    FormatChunk format;
    format.rate = static_cast<std::uint32_t>(header.Number(16, 4));
    format.channels = static_cast<std::uint32_t>(header.Number(20, 4));
    // Encodings 1 and 27 are mu-law and A-law.
    const std::map<std::uint64_t, std::pair<ChunkEncoding, std::uint32_t>> encodings{
        {2, {ChunkEncoding::Integer, 8}},  {3, {ChunkEncoding::Integer, 16}},
        {4, {ChunkEncoding::Integer, 24}}, {5, {ChunkEncoding::Integer, 32}},
        {6, {ChunkEncoding::Float, 32}},   {7, {ChunkEncoding::Float, 64}},
        {1, {ChunkEncoding::Other, 8}},    {27, {ChunkEncoding::Other, 8}}};
    const auto encoding = encodings.find(header.Number(12, 4));
    if (encoding != encodings.end()) {
        std::tie(format.encoding, format.bits) = encoding->second;
        format.frameBytes = format.channels * (format.bits / 8);
    }
    const std::uint64_t first = header.Number(4, 4);
    const std::uint64_t declared = header.Number(8, 4);
    const std::uint64_t left = fileBytes - std::min(fileBytes, first);
    result.declaresNone = declared == 0 && left >= kChunkHeader;
    result.declaresLength =
        !result.declaresNone &&
        !(declared > left && MeansUnknown({declared, declared, kUnknown - 1, format.frameBytes}));
    result.parts.push_back(
        {first, result.declaresLength ? std::min(declared, left) : left, std::nullopt});
    if (result.declaresLength && declared + kChunkHeader <= left) {
        result.unreadBytes = left - declared;
    }
    if (result.declaresLength && declared > left) {
        const std::uint64_t unit = std::max<std::uint64_t>(format.frameBytes, 1);
        result.truncation = Truncation{declared / unit, left / unit, format.frameBytes > 0, false};
    }
    result.format = format;
    return result;
}

} // namespace

std::uint64_t InputHeader::SampleBytes() const {
    return std::accumulate(
        parts.begin(), parts.end(), std::uint64_t{0},
        [](std::uint64_t sum, const SamplePart& part) { return sum + part.bytes; });
}

void InputHeader::FindTruncation(std::uint64_t sampleBytes, std::uint64_t end) {
    const std::uint64_t present = SampleBytes();
    const std::uint64_t unit = std::max<std::uint64_t>(FrameBytes(), 1);
    if (present / unit < sampleBytes / unit) {
        truncation = Truncation{sampleBytes / unit, present / unit, FrameBytes() > 0, false};
    } else if (end > fileBytes) {
        truncation = Truncation{end, fileBytes, false, true};
    }
}

std::uint64_t InputHeader::FrameBytes() const {
    return format.has_value() ? format->frameBytes : 0;
}

std::string InputHeader::Obstacle() const {
    if (!chunks.has_value()) {
        return obstacle;
    }
    if (parts.size() > 1) {
        return fmt::format("it has {} data chunks", parts.size());
    }
    if (parts.empty()) {
        return "";
    }
    if (chunks->form == ChunkForm::BW64) {
        return "it is BW64";
    }
    constexpr std::uint64_t kTableBytes = 28;
    const Chunk* table = chunks->Find("ds64");
    if (chunks->form != ChunkForm::RF64 || table == nullptr) {
        return "";
    }
    if (table->bytes < kTableBytes) {
        return fmt::format("its chunk \"ds64\" has {} bytes instead of {}", table->bytes,
                           kTableBytes);
    }
    return declaresLength ? "" : "its chunk \"ds64\" does not declare the size of the samples";
}

std::string InputHeader::Misreading(std::int64_t frames) const {
    const auto delivered = static_cast<std::uint64_t>(frames);
    if (FrameBytes() == 0 && declaresNone && frames == 0) {
        return fmt::format("it contains {} of samples, of which none can be read",
                           Count(SampleBytes(), "byte"));
    }
    if (FrameBytes() == 0) {
        return trailingBytes > 0 ? fmt::format("it contains {} of samples, and {} more would be "
                                               "read from other chunks",
                                               Count(SampleBytes(), "byte"), trailingBytes)
                                 : "";
    }
    std::uint64_t present = 0;
    for (const SamplePart& part : parts) {
        present += part.bytes / FrameBytes();
    }
    if (parts.empty() || delivered == present) {
        return "";
    }
    return delivered < present
               ? fmt::format("it contains {}, of which {} can be read", Count(present, "frame"),
                             delivered)
               : fmt::format("it contains {}, and {} more would be read from other {}",
                             Count(present, "frame"), delivered - present, OtherContent());
}

const char* InputHeader::OtherContent() const {
    return chunks.has_value() ? "chunks" : container == "VOC" ? "blocks" : "bytes";
}

std::optional<SampleLayout> InputHeader::Layout() const {
    if (FrameBytes() == 0 || parts.size() != 1 || parts.front().bytes == 0) {
        return std::nullopt;
    }
    return SampleLayout{format->channels, format->rate,
                        static_cast<std::int64_t>(SampleBytes() / FrameBytes()),
                        parts.front().offset};
}

std::optional<std::uint64_t> InputHeader::OtherFrames() const {
    const auto layout = Layout();
    const std::uint64_t declared = format.has_value() ? format->frames.value_or(0) : 0;
    if (!layout.has_value() || !declaresLength || truncation.has_value() || declared == 0) {
        return std::nullopt;
    }
    // Some programs count the byte that pads 8-bit samples.
    const auto present = static_cast<std::uint64_t>(layout->frames);
    return declared > present + 1 || declared + 1 < present ? std::optional(declared)
                                                            : std::nullopt;
}

std::string DescribeCounts(const Truncation& truncation) {
    return fmt::format("declares {} and contains {}",
                       Count(truncation.declared, truncation.isInFrames ? "frame" : "byte"),
                       truncation.present);
}

std::optional<ChunkList> ReadAllChunks(HeaderReader& header, std::uint64_t fileBytes) {
    auto chunks = ReadChunkList(header, fileBytes);
    return chunks.has_value() ? ChunkJudge(header, *std::move(chunks)).Run().chunks : std::nullopt;
}

std::optional<InputHeader> ReadInputHeader(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
    auto chunks = ReadChunkList(header, input->bytes);
    auto result =
        chunks.has_value() ? ChunkJudge(header, *chunks).Run() : JudgeAU(header, input->bytes);
    if (!result.has_value()) {
        result = JudgeVOC(header, input->bytes);
    }
    if (!result.has_value()) {
        result = JudgeOther(header, input->bytes);
    }
    if (!result.has_value() || !result->Layout().has_value()) {
        SkimEnds(header, input->bytes);
    }
    if (chunks.has_value()) {
        result->stored = ReadLinearFormat(header, *chunks);
        SkimOtherChunks(header, *chunks);
    }
    return result;
}

} // namespace kel::host
