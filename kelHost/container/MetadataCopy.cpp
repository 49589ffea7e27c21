#include "container/MetadataCopy.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "container/ChunkNames.h"
#include "container/ChunkWriter.h"
#include "container/CutPositions.h"
#include "container/FileBytes.h"
#include "container/HeaderReader.h"
#include "container/MetadataChunks.h"
#include "container/StoredBytes.h"
#include "container/UniqueNames.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kNameBytes = 4;

// The largest chunk that is adjusted, in bytes. Useful ones have some kilobytes.
constexpr std::uint64_t kMaxAdjusted = 1U << 20U;

// An upper bound of a line of the coding history, in bytes.
constexpr std::uint64_t kMaxHistoryLine = 256;

// True when an item of a list has a size that readers may take for a negative one, with which they
// never find the end of the list.
bool HasEndlessItem(std::string_view list) {
    constexpr std::size_t kSize = 4;
    constexpr std::uint64_t kNegative = 0x80000000;
    for (std::size_t offset = kNameBytes; list.size() - offset >= kChunkHeader;) {
        const std::uint64_t bytes =
            StoredBytes(list, StoredOrder::Little).Number(offset + kNameBytes, kSize);
        if (bytes >= kNegative) {
            return true;
        }
        offset += static_cast<std::size_t>(
            std::min<std::uint64_t>(ChunkFileBytes(bytes), list.size() - offset));
    }
    return false;
}

bool IsPrintable(std::string_view name) {
    return std::all_of(name.begin(), name.end(),
                       [](char character) { return character >= ' ' && character <= '~'; });
}

// Calls the functions of a watch in any case.
class WatchScope {
public:
    explicit WatchScope(const ReadWatch& watch) : m_watch(watch) { m_watch.begin(); }
    ~WatchScope() { m_watch.end(); }
    WatchScope(const WatchScope&) = delete;
    WatchScope& operator=(const WatchScope&) = delete;

private:
    const ReadWatch& m_watch;
};

// What is not preserved, by reason.
class Losses {
public:
    explicit Losses(const std::string& file) : m_file(file) {}

    // The reason follows "not preserved".
    void Add(const std::string& reason, const std::vector<std::string>& names) {
        if (!names.empty()) {
            m_warnings.push_back(
                fmt::format("{}: not preserved{}: {}", m_file, reason, List(names)));
        }
    }

    std::vector<std::string> Warnings() { return std::move(m_warnings); }

private:
    static std::string List(const std::vector<std::string>& names) {
        constexpr std::size_t kMaxShown = 20;
        const std::size_t shown = std::min(names.size(), kMaxShown);
        const auto last = names.begin() + static_cast<std::ptrdiff_t>(shown);
        return fmt::format("{}{}", fmt::join(names.begin(), last, ", "),
                           shown < names.size() ? fmt::format(" and {} more", names.size() - shown)
                                                : "");
    }

    const std::string& m_file;
    std::vector<std::string> m_warnings;
};

} // namespace

// One pass over the chunks of a copy.
class MetadataCopy::Writing {
public:
    Writing(const MetadataCopy& copy, const FileName& output, const CopiedSamples& samples,
            const ReadWatch& watch)
        : m_copy(copy), m_output(output), m_samples(samples), m_watch(watch),
          m_adjustment(copy.m_toAIFF, samples.part) {}

    MetadataReport Run(const Container& container) {
        for (const Chunk& chunk : m_copy.m_chunks) {
            if (m_adjustment.DefinesPoints(chunk.name)) {
                m_adjustment.AddPoints(Load(chunk));
            }
        }
        for (const Chunk& chunk : m_copy.m_chunks) {
            Copy(chunk);
        }
        if (m_copy.m_translated.has_value()) {
            Translate(*m_copy.m_translated);
        }
        MetadataReport report = Report(container);
        if (m_writer.has_value()) {
            report.appended = m_writer->Finish();
        }
        return report;
    }

private:
    void Copy(const Chunk& chunk) {
        if (m_samples.hasOtherChannels && DescribesChannels(chunk.name)) {
            m_ofChannels.Add(TrimChunkName(chunk.name));
            return;
        }
        if (chunk.name.size() > kNameBytes && HasEndlessItem(Load(chunk).value_or("LIST"))) {
            m_damage.Add(TrimChunkName(chunk.name));
            return;
        }
        const bool isPositional = m_adjustment.Concerns(chunk.name);
        if (!isPositional && chunk.name != "bext") {
            Stream(chunk);
            return;
        }
        auto content = Load(chunk);
        if (isPositional && content.has_value()) {
            content = m_adjustment.Adjust(chunk.name, *content);
        }
        if (!content.has_value()) {
            isPositional ? m_unadjusted.Add(TrimChunkName(chunk.name)) : Stream(chunk);
        } else if (!content->empty() || chunk.bytes == 0) {
            if (chunk.name == "bext") {
                content = AddToCodingHistory(*std::move(content), CodingHistoryLine(m_samples));
            }
            Writer().Append({chunk.name.substr(0, kNameBytes), *content});
            m_kept.Add(TrimChunkName(chunk.name));
        }
    }

    void Translate(Metadata metadata) {
        m_problems = metadata.problems;
        if (!m_samples.part.isWhole) {
            CutResult cut =
                CutPositions(std::move(metadata), m_samples.part.first, m_samples.part.frames);
            metadata = std::move(cut.metadata);
            m_translatedOutside = cut.droppedPoints;
        }
        m_refused.Add(NotExpressible(metadata, m_copy.OutputForm()));
        if (metadata.broadcast.has_value()) {
            std::string& history = metadata.broadcast->codingHistory;
            history = AppendHistoryLine(std::move(history), CodingHistoryLine(m_samples));
        }
        for (const NewChunk& chunk : MakeChunks(metadata, m_copy.OutputForm())) {
            Writer().Append(chunk);
            m_kept.Add(TrimChunkName(
                chunk.name == "LIST" ? "LIST " + chunk.content.substr(0, kNameBytes) : chunk.name));
        }
    }

    void Stream(const Chunk& chunk) {
        Writer().Append(
            chunk.name.substr(0, kNameBytes), {chunk.offset, chunk.bytes},
            [this](std::uint64_t offset, std::size_t count) { return Read(offset, count); });
        m_kept.Add(TrimChunkName(chunk.name));
    }

    // The content of a chunk; none when it is too large to be a useful one.
    std::optional<std::string> Load(const Chunk& chunk) const {
        return chunk.bytes > kMaxAdjusted
                   ? std::nullopt
                   : std::optional(Read(chunk.offset, static_cast<std::size_t>(chunk.bytes)));
    }

    std::string Read(std::uint64_t offset, std::size_t count) const {
        const WatchScope scope(m_watch);
        return ReadBytes(m_copy.m_file, m_copy.m_descriptor, offset, count);
    }

    ChunkWriter& Writer() { return m_writer.has_value() ? *m_writer : m_writer.emplace(m_output); }

    MetadataReport Report(const Container& container) {
        Losses losses(m_copy.m_file.shown);
        m_refused.Add(m_copy.m_refused);
        losses.Add(fmt::format(" in {}", container.title), m_refused.Names());
        UniqueNames truncated;
        truncated.Add(m_copy.m_truncated);
        losses.Add(", because the file ends before them", truncated.Names());
        losses.Add(", because they describe all channels", m_ofChannels.Names());
        losses.Add(", because they cannot be adjusted to the range", m_unadjusted.Names());
        losses.Add(", because of damage", m_damage.Names());
        losses.Add(", because of damage", m_problems);
        std::vector<std::string> outside;
        if (m_translatedOutside > 0) {
            outside.push_back(Count(m_translatedOutside, "cue point"));
        }
        for (const auto& [noun, number] : m_adjustment.Removed()) {
            outside.push_back(Count(number, noun));
        }
        losses.Add(" outside of the range", outside);
        UniqueNames notPreserved;
        for (const UniqueNames* names : std::array<const UniqueNames*, 5>{
                 &m_refused, &truncated, &m_ofChannels, &m_unadjusted, &m_damage}) {
            notPreserved.Add(names->Names());
        }
        return {m_kept.Names(), notPreserved.Names(), losses.Warnings(), std::nullopt};
    }

    const MetadataCopy& m_copy;
    const FileName& m_output;
    const CopiedSamples& m_samples;
    const ReadWatch& m_watch;
    ChunkAdjustment m_adjustment;
    std::optional<ChunkWriter> m_writer; // from the first chunk on
    UniqueNames m_kept;
    UniqueNames m_refused;
    UniqueNames m_damage;
    std::vector<std::string> m_problems;   // of a translation
    std::uint64_t m_translatedOutside = 0; // cue points
    UniqueNames m_ofChannels;
    UniqueNames m_unadjusted;
};

MetadataCopy::MetadataCopy(FileName file, const Container& container)
    : m_file(std::move(file)), m_toAIFF(container.format == WrapperFormat::AIFF) {
    constexpr const char* kFailure = "cannot read its metadata";
    auto input = OpenRegularFile(m_file.path);
    if (!input.has_value()) {
        return; // a pipe can be read only once
    }
    m_descriptor = std::move(input->descriptor);
    Descriptor same(fcntl(m_descriptor.Number(), F_DUPFD_CLOEXEC, 0));
    if (same.Number() < 0) {
        throw JobError(m_file.shown, fmt::format("{}: {}", kFailure, std::strerror(errno)));
    }
    HeaderReader header(m_file, std::move(same), kFailure);
    const auto list = ReadChunkList(header, input->bytes);
    const bool isOneFamily = list.has_value() && IsAIFF(list->form) == m_toAIFF &&
                             list->form != ChunkForm::RIFX; // its numbers are big-endian
    if (isOneFamily) {
        Select(*list);
    } else {
        m_translated = ReadMetadata(m_file);
    }
}

void MetadataCopy::Select(const ChunkList& list) {
    for (Chunk chunk : list.chunks) {
        const auto name = NameInFamily(list, chunk);
        chunk.name = name.has_value() ? *name : DescribeGUID(chunk);
        if (DescribesSamples(chunk.name, m_toAIFF)) {
            continue;
        }
        if (list.Present(chunk) < chunk.bytes) {
            m_truncated.push_back(TrimChunkName(chunk.name));
        } else if (name.has_value() && chunk.bytes <= kMaxChunkBytes) {
            m_chunks.push_back(chunk);
        } else {
            m_refused.push_back(TrimChunkName(chunk.name));
        }
    }
    if (!list.isComplete) {
        m_refused.push_back(fmt::format("chunks after the first {}", kMaxChunks));
    }
}

ChunkForm MetadataCopy::OutputForm() const {
    return m_toAIFF ? ChunkForm::AIFC : ChunkForm::RIFF;
}

// The GUID of a chunk of W64, before its size and its content.
std::string MetadataCopy::ReadGUID(const Chunk& chunk) const {
    constexpr std::uint64_t kToGUID = 24;
    constexpr std::size_t kGUID = 16;
    return ReadBytes(m_file, m_descriptor, chunk.offset - kToGUID, kGUID);
}

// The usual form; its first three numbers are little-endian.
std::string MetadataCopy::DescribeGUID(const Chunk& chunk) const {
    const std::string guid = ReadGUID(chunk);
    const StoredBytes littleEndian(guid, StoredOrder::Little);
    const StoredBytes bigEndian(guid, StoredOrder::Big);
    return fmt::format("{:08X}-{:04X}-{:04X}-{:04X}-{:012X}", littleEndian.Number(0, 4),
                       littleEndian.Number(4, 2), littleEndian.Number(6, 2), bigEndian.Number(8, 2),
                       bigEndian.Number(10, 6));
}

// The name of a chunk, with the kind of a list. None for a chunk of W64 whose GUID has no name in
// RIFF.
std::optional<std::string> MetadataCopy::NameInFamily(const ChunkList& list,
                                                      const Chunk& chunk) const {
    std::string name = chunk.name;
    if (list.form == ChunkForm::W64) {
        // After the name; the second form is that of the chunks that RIFF began with.
        constexpr std::string_view kUsual{"\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 12};
        constexpr std::string_view kOldest{"\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00", 12};
        const std::string rest = ReadGUID(chunk).substr(kNameBytes);
        if (rest == kOldest && name == "list") {
            name = "LIST";
        } else if (rest != kUsual || !IsPrintable(name)) {
            return std::nullopt;
        }
    }
    if (name == "LIST" && list.Present(chunk) >= kNameBytes && !IsAIFF(list.form)) {
        name += " " + ReadBytes(m_file, m_descriptor, chunk.offset, kNameBytes);
    }
    return name;
}

std::uint64_t MetadataCopy::MaxBytes() const {
    std::uint64_t bytes = 1; // padding before them
    if (m_translated.has_value()) {
        bytes += m_translated->broadcast.has_value() ? kMaxHistoryLine : 0;
        for (const NewChunk& chunk : MakeChunks(*m_translated, OutputForm())) {
            bytes += ChunkFileBytes(chunk.content.size());
        }
    }
    for (const Chunk& chunk : m_chunks) {
        bytes += ChunkFileBytes(chunk.bytes) + (chunk.name == "bext" ? kMaxHistoryLine : 0);
    }
    return bytes == 1 ? 0 : bytes;
}

MetadataReport MetadataCopy::Write(const FileName& output, const Container& container,
                                   const CopiedSamples& samples, const ReadWatch& watch) const {
    return Writing(*this, output, samples, watch).Run(container);
}

std::string CodingHistoryLine(const CopiedSamples& samples) {
    const char* mode = samples.channels == 1 ? ",M=mono" : samples.channels == 2 ? ",M=stereo" : "";
    return fmt::format("A=PCM,F={},W={}{},T=kelhost", samples.rate, samples.bits, mode);
}

} // namespace kel::host
