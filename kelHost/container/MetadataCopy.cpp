#include "container/MetadataCopy.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "container/BroadcastChunk.h"
#include "container/CarriedChunk.h"
#include "container/ChunkNames.h"
#include "container/ChunkWriter.h"
#include "container/CutPositions.h"
#include "container/FileBytes.h"
#include "container/HeaderReader.h"
#include "container/LossWarnings.h"
#include "container/MetadataChunks.h"
#include "container/StaleParts.h"
#include "container/StoredBytes.h"
#include "container/UniqueNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <map>
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

} // namespace

// One pass over the chunks of a copy.
class MetadataCopy::Writing {
public:
    Writing(const MetadataCopy& copy, const FileName& output, const CopiedSamples& samples,
            const ReadWatch& watch)
        : m_copy(copy), m_output(output), m_samples(samples), m_watch(watch),
          m_ofAIFF(true, samples.part), m_ofWAVE(false, samples.part) {}

    MetadataReport Run(const Container& container) {
        for (const SelectedChunk& chunk : m_copy.m_selection.chunks) {
            if (AdjustmentOf(chunk).DefinesPoints(chunk.content.name)) {
                AdjustmentOf(chunk).AddPoints(Load(chunk.content));
            }
        }
        for (const SelectedChunk& chunk : m_copy.m_selection.chunks) {
            Copy(chunk);
        }
        if (m_copy.m_selection.translated.has_value()) {
            Translate(*m_copy.m_selection.translated);
        }
        MetadataReport report = Report(container);
        if (m_writer.has_value()) {
            report.appended = m_writer->Finish();
        }
        return report;
    }

private:
    ChunkAdjustment& AdjustmentOf(const SelectedChunk& chunk) {
        return chunk.isWAVE ? m_ofWAVE : m_ofAIFF;
    }

    void Copy(const SelectedChunk& chunk) {
        const std::string& name = chunk.content.name;
        if (m_samples.hasOtherChannels && DescribesChannels(name)) {
            m_ofChannels.Add(TrimChunkName(name));
            return;
        }
        const bool isList = name.size() > kNameBytes;
        if (isList && HasEndlessItem(Load(chunk.content).value_or("LIST"))) {
            m_damage.Add(TrimChunkName(name));
            return;
        }
        const bool isPositional = AdjustmentOf(chunk).Concerns(name);
        const bool getsHistoryLine = name == "bext";
        auto content =
            isPositional || getsHistoryLine ? Load(chunk.content) : std::optional<std::string>();
        if (isPositional && content.has_value()) {
            content = AdjustmentOf(chunk).Adjust(name, *content);
        }
        if (!content.has_value()) {
            isPositional ? m_unadjusted.Add(TrimChunkName(name)) : Stream(chunk);
        } else if (!content->empty() || chunk.content.bytes == 0) {
            Append(chunk, getsHistoryLine
                              ? AddToCodingHistory(*content, CodingHistoryLine(m_samples))
                              : *content);
        }
    }

    // Notes what describes the whole input in a chunk that is kept.
    void NoteStale(const SelectedChunk& chunk) {
        const std::string& name = chunk.content.name;
        if (IsAsInInput() || (!MayBeStale(name) && name != "bext")) {
            return;
        }
        const std::string content = Load(chunk.content).value_or("");
        if (name == "bext") {
            NoteStale(ParseBroadcast({content, StoredOrder::Little}));
            return;
        }
        if (!m_samples.part.isWhole && IsStaleInRange(name, content)) {
            m_staleInRange.Add(TrimChunkName(name));
        }
        if (m_samples.hasOtherChannels && IsStaleInChannels(name, content)) {
            m_staleInChannels.Add(TrimChunkName(name));
        }
    }

    void NoteStale(const Broadcast& broadcast) {
        if (!IsAsInInput() && DeclaresLoudness(broadcast)) {
            (m_samples.part.isWhole ? m_staleInChannels : m_staleInRange).Add("loudness in bext");
        }
    }

    bool IsAsInInput() const { return m_samples.part.isWhole && !m_samples.hasOtherChannels; }

    // Appends a chunk with other content.
    void Append(const SelectedChunk& chunk, const std::string& content) {
        Writer().Append({NameInOutput(chunk), Header(chunk, content.size()) + content});
        m_kept.Add(TrimChunkName(chunk.content.name));
        NoteStale(chunk);
    }

    void Stream(const SelectedChunk& chunk) {
        const std::string header = Header(chunk, chunk.content.bytes);
        Writer().Append(NameInOutput(chunk), {0, header.size() + chunk.content.bytes},
                        [&](std::uint64_t offset, std::size_t count) {
                            return offset == 0
                                       ? header + Read(chunk.content.offset, count - header.size())
                                       : Read(chunk.content.offset + offset - header.size(), count);
                        });
        m_kept.Add(TrimChunkName(chunk.content.name));
        NoteStale(chunk);
    }

    std::string NameInOutput(const SelectedChunk& chunk) const {
        return m_copy.HeaderBytes(chunk) == 0 ? chunk.content.name.substr(0, kNameBytes) : kCarrier;
    }

    std::string Header(const SelectedChunk& chunk, std::uint64_t bytes) const {
        return m_copy.HeaderBytes(chunk) == 0
                   ? ""
                   : CarriedHeader(chunk.content.name.substr(0, kNameBytes), bytes);
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
        NoteStaleTags(metadata.tags);
        if (metadata.broadcast.has_value()) {
            NoteStale(*metadata.broadcast);
            std::string& history = metadata.broadcast->codingHistory;
            history = AppendHistoryLine(std::move(history), CodingHistoryLine(m_samples));
        }
        for (const NewChunk& chunk : MakeChunks(metadata, m_copy.OutputForm())) {
            Writer().Append(chunk);
            m_kept.Add(ShownName(chunk));
        }
    }

    // WAVE has no place for such tags.
    void NoteStaleTags(const std::vector<Tag>& tags) {
        for (const Tag& tag : tags) {
            if (m_copy.m_toAIFF && !m_samples.part.isWhole && IsStaleTag(tag.name)) {
                m_staleInRange.Add(tag.name);
            }
        }
    }

    static std::string ShownName(const NewChunk& chunk) {
        if (chunk.name == "LIST") {
            return TrimChunkName("LIST " + chunk.content.substr(0, kNameBytes));
        }
        return TrimChunkName(chunk.name == kCarrier ? chunk.content.substr(kNameBytes, kNameBytes)
                                                    : chunk.name);
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
        LossWarnings losses(m_copy.m_file.shown);
        m_refused.Add(m_copy.m_selection.refused);
        losses.Add(fmt::format(" in {}", container.title), m_refused.Names());
        UniqueNames truncated;
        truncated.Add(m_copy.m_selection.truncated);
        losses.Add(", because the file ends before them", truncated.Names());
        losses.Add(", because they describe all channels", m_ofChannels.Names());
        losses.Add(", because they cannot be adjusted to the range", m_unadjusted.Names());
        losses.Add(", because of damage", m_damage.Names());
        losses.Add(", because of damage", m_problems);
        losses.Add(" outside of the range", Outside());
        losses.AddUnadjusted(" to the range", m_staleInRange.Names());
        losses.AddUnadjusted(" to the channels", m_staleInChannels.Names());
        UniqueNames notPreserved;
        for (const UniqueNames* names : std::array<const UniqueNames*, 5>{
                 &m_refused, &truncated, &m_ofChannels, &m_unadjusted, &m_damage}) {
            notPreserved.Add(names->Names());
        }
        return {m_kept.Names(), notPreserved.Names(), std::move(losses.warnings), std::nullopt};
    }

    // Points and loops that are not in the copied part.
    std::vector<std::string> Outside() const {
        std::map<std::string, std::uint64_t> removed = m_ofWAVE.Removed();
        for (const auto& [noun, number] : m_ofAIFF.Removed()) {
            removed[noun] += number;
        }
        if (m_translatedOutside > 0) {
            removed["cue point"] += m_translatedOutside;
        }
        std::vector<std::string> counts;
        for (const auto& [noun, number] : removed) {
            counts.push_back(Count(number, noun));
        }
        return counts;
    }

    const MetadataCopy& m_copy;
    const FileName& m_output;
    const CopiedSamples& m_samples;
    const ReadWatch& m_watch;
    ChunkAdjustment m_ofAIFF;            // its own chunks
    ChunkAdjustment m_ofWAVE;            // carried ones, too
    std::optional<ChunkWriter> m_writer; // from the first chunk on
    UniqueNames m_kept;
    UniqueNames m_refused;
    UniqueNames m_damage;
    std::vector<std::string> m_problems;   // of a translation
    std::uint64_t m_translatedOutside = 0; // cue points
    UniqueNames m_ofChannels;
    UniqueNames m_unadjusted;
    UniqueNames m_staleInRange;
    UniqueNames m_staleInChannels;
};

MetadataCopy::MetadataCopy(FileName file, const Container& container)
    : m_file(std::move(file)), m_toAIFF(container.format == WrapperFormat::AIFF) {
    constexpr const char* kFailure = "cannot read its metadata";
    auto input = OpenRegularFile(m_file.path);
    if (!input.has_value()) {
        throw JobError(m_file.shown, fmt::format("{}: {}", kFailure, std::strerror(errno)));
    }
    m_descriptor = std::move(input->descriptor);
    Descriptor same(fcntl(m_descriptor.Number(), F_DUPFD_CLOEXEC, 0));
    if (same.Number() < 0) {
        throw JobError(m_file.shown, fmt::format("{}: {}", kFailure, std::strerror(errno)));
    }
    HeaderReader header(m_file, std::move(same), kFailure);
    m_selection = SelectMetadata(m_file, header, input->bytes, m_toAIFF);
}

ChunkForm MetadataCopy::OutputForm() const {
    return m_toAIFF ? ChunkForm::AIFC : ChunkForm::RIFF;
}

// Bytes before the content of a chunk, within one of AIFF.
std::uint64_t MetadataCopy::HeaderBytes(const SelectedChunk& chunk) const {
    return m_toAIFF && chunk.isWAVE ? kCarriedHeader : 0;
}

std::uint64_t MetadataCopy::MaxBytes() const {
    std::uint64_t bytes = 1; // padding before them
    if (m_selection.translated.has_value()) {
        bytes += m_selection.translated->broadcast.has_value() ? kMaxHistoryLine : 0;
        for (const NewChunk& chunk : MakeChunks(*m_selection.translated, OutputForm())) {
            bytes += ChunkFileBytes(chunk.content.size());
        }
    }
    for (const SelectedChunk& chunk : m_selection.chunks) {
        bytes += ChunkFileBytes(HeaderBytes(chunk) + chunk.content.bytes) +
                 (chunk.content.name == "bext" ? kMaxHistoryLine : 0);
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
