#include "container/OutputHeader.h"

#include "base/Errors.h"
#include "base/Numbers.h"
#include "container/ChunkList.h"
#include "container/FileBytes.h"
#include "container/StoredBytes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>

namespace kel::host {

namespace {

constexpr const char* kCannotComplete = "cannot complete its header";

// A finished file that is changed in place.
class HeaderEditor {
public:
    explicit HeaderEditor(const FileName& file)
        : m_file(file), m_descriptor(open(file.path.c_str(), O_RDWR | O_CLOEXEC)) {
        struct stat status {};
        if (m_descriptor.Number() < 0 || fstat(m_descriptor.Number(), &status) != 0) {
            Fail();
        }
        m_bytes = static_cast<std::uint64_t>(status.st_size);
        auto input = OpenRegularFile(file.path);
        m_reader.emplace(file, input.has_value() ? std::move(input->descriptor) : Descriptor(),
                         kCannotComplete);
        m_chunks = ReadChunkList(*m_reader, m_bytes);
        if (m_chunks.has_value() && IsAIFF(m_chunks->form)) {
            m_order = StoredOrder::Big;
        }
    }

    // The chunks; none for a file without any.
    const std::optional<ChunkList>& Chunks() const { return m_chunks; }

    const HeaderReader& Reader() const { return *m_reader; }

    // Returns the bytes of a number in the file's order.
    std::string Encode(std::uint64_t number, std::size_t bytes) const {
        return NumberBytes(number, bytes, m_order);
    }

    void Write(std::uint64_t offset, const std::string& bytes) const {
        if (!WriteAll(m_descriptor.Number(), offset, bytes)) {
            Fail();
        }
    }

    // Adds a chunk to the end of an AIFF file.
    void Append(const std::string& name, const std::string& content) const {
        const std::string padding(m_bytes % 2, '\0');
        const std::string chunk = padding + name + Encode(content.size(), 4) + content;
        Write(m_bytes, chunk);
        Write(4, Encode(m_bytes + chunk.size() - kChunkHeader, 4));
    }

private:
    [[noreturn]] void Fail() const {
        throw JobError(m_file.shown, fmt::format("{}: {}", kCannotComplete, std::strerror(errno)));
    }

    const FileName& m_file;
    Descriptor m_descriptor;
    std::uint64_t m_bytes = 0;
    std::optional<HeaderReader> m_reader;
    std::optional<ChunkList> m_chunks;
    StoredOrder m_order = StoredOrder::Little;
};

} // namespace

void WriteChannelMask(const FileName& file, std::uint32_t mask) {
    constexpr std::uint64_t kExtensibleTag = 0xFFFE;
    constexpr std::uint64_t kMaskOffset = 20;
    constexpr std::uint32_t kUseBitmap = 0x00010000;
    const HeaderEditor editor(file);
    if (!editor.Chunks().has_value()) {
        return;
    }
    if (IsAIFF(editor.Chunks()->form)) {
        if (mask != 0) { // the layout, the bitmap, and the number of descriptions
            editor.Append("CHAN", editor.Encode(kUseBitmap, 4) + editor.Encode(mask, 4) +
                                      editor.Encode(0, 4));
        }
        return;
    }
    const Chunk* format = editor.Chunks()->Find("fmt ");
    if (format != nullptr && format->bytes >= kMaskOffset + 4 &&
        editor.Reader().Number(format->offset, 2) == kExtensibleTag) {
        editor.Write(format->offset + kMaskOffset, editor.Encode(mask, 4));
    }
}

void WritePeaks(const FileName& file, const std::vector<ChannelPeak>& peaks, std::uint32_t time) {
    constexpr std::uint64_t kTime = 4; // after the version
    constexpr std::uint64_t kFirstPeak = 8;
    constexpr std::uint64_t kPeak = 8;
    constexpr std::uint64_t kMaxFrame = std::numeric_limits<std::uint32_t>::max();
    const HeaderEditor editor(file);
    const Chunk* chunk = editor.Chunks().has_value() ? editor.Chunks()->Find("PEAK") : nullptr;
    if (chunk == nullptr || chunk->bytes < kFirstPeak + kPeak * peaks.size()) {
        return;
    }
    std::string content = editor.Encode(time, 4);
    for (const ChannelPeak& peak : peaks) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &peak.magnitude, sizeof bits);
        content += editor.Encode(bits, 4) + editor.Encode(std::min(peak.frame, kMaxFrame), 4);
    }
    editor.Write(chunk->offset + kTime, content);
}

std::uint32_t TimeOfWriting() {
    const char* text = std::getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    const auto seconds = ParseInteger<std::uint32_t>(text);
    if (!seconds.has_value()) {
        throw JobError(fmt::format("invalid value \"{}\" of SOURCE_DATE_EPOCH: expected an integer "
                                   "from 0 to 4294967295",
                                   text));
    }
    return *seconds;
}

} // namespace kel::host
