#include "container/RepairedCopy.h"

#include "base/Errors.h"
#include "container/FileBytes.h"
#include "container/HeaderReader.h"
#include "container/MPEGStream.h"
#include "container/StoredBytes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <linux/fs.h>
#include <numeric>
#include <string>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kCannotRead = "cannot read its header";
constexpr std::uint64_t kMax32Bits = std::numeric_limits<std::uint32_t>::max();
// File systems share bytes in blocks.
constexpr std::uint64_t kBlock = 4096;

// Builds the header of a copy.
class HeaderWriter {
public:
    HeaderWriter(const FileName& file, const InputHeader& header, const HeaderReader& reader)
        : m_file(file), m_header(header), m_reader(reader) {}

    std::string Make(std::uint64_t sampleBytes) const {
        if (m_header.container == "VOC") {
            return MakeWave(FormatOfVOC(), ChunkForm::RIFF, sampleBytes);
        }
        if (m_header.container == "CAF") {
            return MakeCAF(sampleBytes);
        }
        if (!m_header.chunks.has_value()) {
            return MakeAU(sampleBytes);
        }
        if (IsAIFF(m_header.chunks->form)) {
            return MakeAIFF(sampleBytes);
        }
        return MakeWave(Description("fmt "), m_header.chunks->form, sampleBytes);
    }

private:
    std::string Number(std::uint64_t number, std::size_t bytes) const {
        return NumberBytes(number, bytes,
                           m_header.isBigEndian ? StoredOrder::Big : StoredOrder::Little);
    }

    std::string ChunkText(const std::string& name, const std::string& content) const {
        return name + Number(content.size(), 4) + content + std::string(content.size() % 2, '\0');
    }

    // The content of the chunk that describes the samples.
    std::string Description(const char* name) const {
        constexpr std::uint64_t kMaxBytes = 65536;
        const Chunk* chunk = m_header.chunks->Find(name);
        const std::uint64_t bytes = chunk != nullptr ? m_header.chunks->Present(*chunk) : 0;
        if (!m_header.format.has_value() || bytes > kMaxBytes) {
            throw JobError(m_file.shown, fmt::format("cannot be repaired: its chunk \"{}\" is "
                                                     "missing or damaged",
                                                     name));
        }
        return m_reader.Bytes(chunk->offset, static_cast<std::size_t>(bytes));
    }

    void RequireFits(std::uint64_t bytes) const {
        if (bytes > kMax32Bits) {
            throw JobError(m_file.shown, fmt::format("cannot be repaired: its samples are too "
                                                     "large for {}",
                                                     m_header.container));
        }
    }

    // The samples of VOC are those of WAVE.
    std::string FormatOfVOC() const {
        const FormatChunk& format = m_header.format.value();
        return Number(format.waveTag, 2) + Number(format.channels, 2) + Number(format.rate, 4) +
               Number(std::uint64_t{format.rate} * format.frameBytes, 4) +
               Number(format.frameBytes, 2) + Number(format.bits, 2);
    }

    // @param description content of the chunk "fmt "
    std::string MakeWave(const std::string& description, ChunkForm form,
                         std::uint64_t sampleBytes) const {
        constexpr std::uint64_t kTable = 28;
        const std::uint64_t padded = sampleBytes + sampleBytes % 2;
        std::string chunks = ChunkText("fmt ", description);
        const std::uint64_t maxHeader = chunks.size() + 2 * kBlock;
        const bool isLarge = padded > kMax32Bits - maxHeader;
        const bool isRIFX = form == ChunkForm::RIFX;
        if (isRIFX) {
            RequireFits(padded + maxHeader);
        }
        const std::uint64_t table = isLarge ? kChunkHeader + kTable : 0;
        chunks += Padding(kFirstChunk + table + chunks.size() + kChunkHeader);
        const std::uint64_t outer = 4 + table + chunks.size() + kChunkHeader + padded;
        if (!isLarge) {
            return (isRIFX ? "RIFX" : "RIFF") + Number(outer, 4) + "WAVE" + chunks + "data" +
                   Number(sampleBytes, 4);
        }
        const std::uint64_t frames =
            m_header.FrameBytes() > 0 ? sampleBytes / m_header.FrameBytes() : 0;
        return "RF64" + Number(kSizeInDs64, 4) + "WAVE" +
               ChunkText("ds64", Number(outer, 8) + Number(sampleBytes, 8) + Number(frames, 8) +
                                     Number(0, 4)) +
               chunks + "data" + Number(kSizeInDs64, 4);
    }

    // A chunk that moves the samples to the offset in a block that they have in the file.
    std::string Padding(std::uint64_t first) const {
        const std::uint64_t wanted = m_header.parts.front().offset % kBlock;
        std::uint64_t bytes = (wanted + kBlock - first % kBlock) % kBlock;
        if (bytes % 2 != 0 || bytes == 0) {
            return "";
        }
        bytes += bytes < kChunkHeader ? kBlock : 0;
        return ChunkText("JUNK", std::string(static_cast<std::size_t>(bytes - kChunkHeader), '\0'));
    }

    std::string MakeAIFF(std::uint64_t sampleBytes) const {
        constexpr std::uint64_t kBeforeSamples = 8;
        constexpr std::size_t kFramesInChunk = 2;
        std::string description = Description("COMM");
        if (m_header.FrameBytes() > 0) {
            description.replace(kFramesInChunk, 4, Number(sampleBytes / m_header.FrameBytes(), 4));
        }
        const bool isAIFC = m_header.chunks->form == ChunkForm::AIFC;
        constexpr std::uint64_t kVersion = 0xA2805140; // of AIFF-C
        const std::string chunks =
            (isAIFC ? ChunkText("FVER", Number(kVersion, 4)) : "") + ChunkText("COMM", description);
        const std::uint64_t size = sampleBytes + kBeforeSamples;
        const std::uint64_t outer = 4 + chunks.size() + kChunkHeader + size + size % 2;
        RequireFits(outer);
        return "FORM" + Number(outer, 4) + (isAIFC ? "AIFC" : "AIFF") + chunks + "SSND" +
               Number(size, 4) + std::string(kBeforeSamples, '\0');
    }

    std::string MakeAU(std::uint64_t sampleBytes) const {
        constexpr std::size_t kSizes = 4;
        constexpr std::size_t kHeader = 24;
        std::string header = m_reader.Bytes(0, kHeader);
        RequireFits(sampleBytes);
        return header.replace(kSizes, 8, Number(kHeader, 4) + Number(sampleBytes, 4));
    }

    // All chunks before the samples describe them.
    std::string MakeCAF(std::uint64_t sampleBytes) const {
        constexpr std::uint64_t kMaxCAFHeader = std::uint64_t{1} << 24U;
        constexpr std::uint64_t kEditCount = 4; // after the size
        const std::uint64_t first = m_header.parts.front().offset;
        if (first > kMaxCAFHeader) {
            throw JobError(m_file.shown, fmt::format("cannot be repaired: its samples follow {} "
                                                     "bytes of other chunks",
                                                     first));
        }
        std::string header = m_reader.Bytes(0, static_cast<std::size_t>(first));
        return header.replace(header.size() - kEditCount - 8, 8,
                              NumberBytes(sampleBytes + kEditCount, 8, StoredOrder::Big));
    }

    const FileName& m_file;
    const InputHeader& m_header;
    const HeaderReader& m_reader;
};

// Copies bytes between two files.
class ByteCopier {
public:
    ByteCopier(const FileName& file, int from, int to, std::string failure, std::uint64_t needed)
        : m_file(file), m_from(from), m_to(to), m_failure(std::move(failure)), m_needed(needed) {}

    void Write(const std::string& bytes, std::uint64_t offset) const {
        if (!WriteAll(m_to, offset, bytes)) {
            Fail();
        }
    }

    // Fails also where the file could not be opened, with the reason for that.
    void SetSize(std::uint64_t bytes) const {
        if (m_to < 0 || ftruncate(m_to, static_cast<off_t>(bytes)) != 0) {
            Fail();
        }
    }

    // Copies a piece, except its holes.
    void Copy(std::uint64_t from, std::uint64_t to, std::uint64_t bytes) const {
        const std::uint64_t end = from + bytes;
        const std::uint64_t shift = to - from; // may wrap
        while (from < end) {
            const off_t data = lseek(m_from, static_cast<off_t>(from), SEEK_DATA);
            if (data < 0 && errno == ENXIO) {
                return; // a hole to the end of the file
            }
            from = data < 0 ? from : static_cast<std::uint64_t>(data);
            if (from >= end) {
                return;
            }
            const off_t hole = lseek(m_from, static_cast<off_t>(from), SEEK_HOLE);
            const std::uint64_t dataEnd = hole <= static_cast<off_t>(from)
                                              ? end
                                              : std::min(end, static_cast<std::uint64_t>(hole));
            CopyData(from, from + shift, dataEnd - from);
            from = dataEnd;
        }
    }

    // Writes bytes of one value; a hole for 0.
    void Fill(std::uint64_t to, std::uint64_t bytes, std::uint8_t value) const {
        constexpr std::uint64_t kPiece = std::uint64_t{1} << 20U;
        for (std::uint64_t done = 0; done < bytes && value != 0; done += kPiece) {
            const std::uint64_t count = std::min(kPiece, bytes - done);
            Write(std::string(static_cast<std::size_t>(count), static_cast<char>(value)),
                  to + done);
        }
    }

private:
    void CopyData(std::uint64_t from, std::uint64_t to, std::uint64_t bytes) const {
        const std::uint64_t before = std::min(bytes, (kBlock - from % kBlock) % kBlock);
        const std::uint64_t whole = (bytes - before) / kBlock * kBlock;
        if (from % kBlock == to % kBlock && whole > 0 && Share(from + before, to + before, whole)) {
            CopyPlain(from, to, before);
            from += before + whole;
            to += before + whole;
            bytes -= before + whole;
        }
        CopyPlain(from, to, bytes);
    }

    // Lets both files refer to the same blocks. Returns false where that is not possible.
    bool Share(std::uint64_t from, std::uint64_t to, std::uint64_t bytes) const {
        file_clone_range range{};
        range.src_fd = m_from;
        range.src_offset = from;
        range.src_length = bytes;
        range.dest_offset = to;
        return ioctl(m_to, FICLONERANGE, &range) == 0;
    }

    void CopyPlain(std::uint64_t from, std::uint64_t to, std::uint64_t bytes) const {
        while (bytes > 0) {
            auto source = static_cast<off_t>(from);
            auto target = static_cast<off_t>(to);
            ssize_t count =
                copy_file_range(m_from, &source, m_to, &target, static_cast<std::size_t>(bytes), 0);
            if (count < 0 && errno != ENOSPC && errno != EDQUOT) {
                count = CopyThroughMemory(from, to, bytes);
            }
            if (count < 0) {
                Fail();
            }
            if (count == 0) {
                throw JobError(m_file.shown, "became shorter while it was read");
            }
            from += static_cast<std::uint64_t>(count);
            to += static_cast<std::uint64_t>(count);
            bytes -= static_cast<std::uint64_t>(count);
        }
    }

    ssize_t CopyThroughMemory(std::uint64_t from, std::uint64_t to, std::uint64_t bytes) const {
        constexpr std::uint64_t kPiece = std::uint64_t{1} << 20U;
        std::string piece(static_cast<std::size_t>(std::min(bytes, kPiece)), '\0');
        ssize_t count = 0;
        do {
            count = pread(m_from, piece.data(), piece.size(), static_cast<off_t>(from));
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            throw JobError(m_file.shown,
                           fmt::format("cannot read the file: {}", std::strerror(errno)));
        }
        piece.resize(static_cast<std::size_t>(count));
        Write(piece, to);
        return count;
    }

    [[noreturn]] void Fail() const {
        const int cause = errno;
        throw JobError(
            m_file.shown,
            fmt::format("{}: {}; --temp-dir DIRECTORY names a place with {} bytes of space",
                        m_failure, std::strerror(cause), m_needed));
    }

    const FileName& m_file;
    int m_from;
    int m_to;
    std::string m_failure; // the beginning of an error
    std::uint64_t m_needed;
};

// The parts of the samples that consist of whole frames.
std::vector<SamplePart> WholeFrames(const InputHeader& header) {
    std::vector<SamplePart> parts = header.parts;
    for (SamplePart& part : parts) {
        part.bytes -= header.FrameBytes() > 0 ? part.bytes % header.FrameBytes() : 0;
    }
    return parts;
}

std::uint64_t BytesIn(const std::vector<SamplePart>& parts) {
    return std::accumulate(
        parts.begin(), parts.end(), std::uint64_t{0},
        [](std::uint64_t sum, const SamplePart& part) { return sum + part.bytes; });
}

Descriptor OpenInput(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        throw JobError(file.shown, fmt::format("{}: {}", kCannotRead, std::strerror(errno)));
    }
    return std::move(input->descriptor);
}

struct CopyContent {
    std::string failure; // the beginning of an error
    std::string header;
    std::vector<SamplePart> parts;
    std::uint64_t padding = 0; // bytes
};

TemporaryFile MakeCopy(const FileName& file, const CopyContent& content,
                       const std::string& directory, const StepRunner& run) {
    constexpr std::uint64_t kStep = std::uint64_t{64} << 20U;
    const Descriptor input = OpenInput(file);
    const std::uint64_t size = content.header.size() + BytesIn(content.parts) + content.padding;
    TemporaryFile copy(directory);
    const ByteCopier copier(file, input.Number(), copy.Number(), content.failure + directory, size);
    copier.SetSize(size);
    copier.Write(content.header, 0);
    std::uint64_t to = content.header.size();
    for (const SamplePart& part : content.parts) {
        for (std::uint64_t done = 0; done < part.bytes; done += kStep) {
            const std::uint64_t bytes = std::min(kStep, part.bytes - done);
            run([&] {
                if (part.silence.has_value()) {
                    copier.Fill(to + done, bytes, *part.silence);
                } else {
                    copier.Copy(part.offset + done, to + done, bytes);
                }
            });
        }
        to += part.bytes;
    }
    return copy;
}

} // namespace

TemporaryFile MakeRepairedCopy(const FileName& file, const InputHeader& header,
                               const std::string& directory, const StepRunner& run) {
    HeaderReader reader(file, OpenInput(file), kCannotRead);
    std::vector<SamplePart> parts = WholeFrames(header);
    const std::uint64_t bytes = BytesIn(parts);
    const std::string text = HeaderWriter(file, header, reader).Make(bytes);
    return MakeCopy(file,
                    {"cannot make the copy for --repair in ", text, std::move(parts), bytes % 2},
                    directory, run);
}

TemporaryFile MakeCountedCopy(const FileName& file, const MPEGStream& stream,
                              const std::string& directory, const StepRunner& run) {
    const auto runHere = [](const std::function<void()>& step) {
        step();
    };
    const std::string header = stream.canDeclareFrames ? stream.MakeInfoFrame() : "";
    return MakeCopy(file,
                    {"cannot make a copy that declares its length in ", header, stream.parts,
                     stream.canDeclareFrames ? 0 : stream.MissingBytes()},
                    directory, run ? run : runHere);
}

} // namespace kel::host
