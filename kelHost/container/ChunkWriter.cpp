#include "container/ChunkWriter.h"

#include "base/Errors.h"
#include "container/FileBytes.h"
#include "container/HeaderReader.h"
#include "container/StoredBytes.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <string>
#include <sys/stat.h>

namespace kel::host {

namespace {

// The most bytes that are in memory, of chunks of any size.
constexpr std::uint64_t kMaxPiece = 1U << 20U;

} // namespace

std::uint64_t ChunkFileBytes(std::uint64_t bytes) {
    return kChunkHeader + bytes + bytes % 2;
}

ChunkWriter::ChunkWriter(const FileName& file)
    : m_file(file), m_descriptor(open(file.path.c_str(), O_RDWR | O_CLOEXEC)) {
    struct stat status {};
    if (m_descriptor.Number() < 0 || fstat(m_descriptor.Number(), &status) != 0) {
        throw JobError(file.shown,
                       std::string("cannot write its metadata: ") + std::strerror(errno));
    }
    m_end = static_cast<std::uint64_t>(status.st_size);
    const std::string start = m_end < kFirstChunk ? std::string(kFirstChunk, '\0')
                                                  : ReadBytes(file, m_descriptor, 0, kFirstChunk);
    m_form = start.substr(0, 4);
    m_order = m_form == "FORM" ? StoredOrder::Big : StoredOrder::Little;
    if (m_form != "RIFF" && m_form != "RF64" && m_form != "FORM") {
        throw JobError(file.shown, "cannot write its metadata: its header is of another kind");
    }
    m_start = m_end;
    Pad();
}

void ChunkWriter::Append(const NewChunk& chunk) {
    AppendHeader(chunk.name, chunk.content.size());
    AppendBytes(chunk.content);
    Pad();
}

void ChunkWriter::Append(const std::string& name, const ByteRange& range, const ByteReader& read) {
    AppendHeader(name, range.bytes);
    for (std::uint64_t done = 0; done < range.bytes;) {
        const std::uint64_t count = std::min(range.bytes - done, kMaxPiece);
        AppendBytes(read(range.offset + done, static_cast<std::size_t>(count)));
        done += count;
    }
    Pad();
}

AppendedBytes ChunkWriter::Finish() {
    constexpr std::uint64_t kSizeInHeader = 4;
    constexpr std::uint64_t kSizeInDs64Chunk = kFirstChunk + kChunkHeader; // the first chunk
    const std::uint64_t size = m_end - kChunkHeader;
    if (m_form == "RF64") {
        WriteBytes(m_file, m_descriptor, kSizeInDs64Chunk,
                   NumberBytes(size, 8, StoredOrder::Little));
    } else if (size > std::numeric_limits<std::uint32_t>::max()) {
        throw JobError(m_file.shown, "cannot write its metadata: the file would be larger than "
                                     "4 GiB; use --format bwave or --metadata none");
    } else {
        WriteBytes(m_file, m_descriptor, kSizeInHeader, NumberBytes(size, 4, m_order));
    }
    return {{m_start, m_end - m_start}, m_hash.Value()};
}

void ChunkWriter::AppendHeader(const std::string& name, std::uint64_t bytes) {
    AppendBytes(name + NumberBytes(bytes, 4, m_order));
}

void ChunkWriter::AppendBytes(const std::string& bytes) {
    WriteBytes(m_file, m_descriptor, m_end, bytes);
    m_hash.Add(bytes);
    m_end += bytes.size();
}

void ChunkWriter::Pad() {
    if (m_end % 2 != 0) {
        AppendBytes(std::string(1, '\0'));
    }
}

void VerifyAppended(const FileName& file, const AppendedBytes& appended) {
    const auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        throw JobError(file.shown,
                       std::string("cannot read its metadata: ") + std::strerror(errno));
    }
    FloatHash hash;
    for (std::uint64_t done = 0; done < appended.range.bytes;) {
        const std::uint64_t count = std::min(appended.range.bytes - done, kMaxPiece);
        hash.Add(ReadBytes(file, input->descriptor, appended.range.offset + done,
                           static_cast<std::size_t>(count)));
        done += count;
    }
    if (hash.Value() != appended.hash) {
        throw JobError(file.shown, "differs from the written metadata when it is read back; do "
                                   "not trust this disk");
    }
}

} // namespace kel::host
