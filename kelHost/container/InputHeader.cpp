#include "container/InputHeader.h"

#include "base/Descriptor.h"
#include "container/HeaderReader.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>

namespace kel::host {

namespace {

constexpr std::uint64_t kHeaderBytes = 65536; // that are read at both ends
// Of all other chunks. Some files contain pictures, and reading takes time.
constexpr std::uint64_t kMaxSkimmedBytes = std::uint64_t{16} << 20U;
constexpr std::uint64_t kUnknownSize = 0xFFFFFFFF; // of the samples in a stream

// A regular file.
struct InputFile {
    Descriptor descriptor;
    std::uint64_t bytes = 0;
};

// Opening a pipe would take the place of its reader.
std::optional<InputFile> OpenRegularFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    InputFile file{Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)), 0};
    if (file.descriptor.Number() < 0 || fstat(file.descriptor.Number(), &status) != 0) {
        return std::nullopt;
    }
    file.bytes = static_cast<std::uint64_t>(status.st_size);
    return file;
}

// A chunk: the place and the size of its content.
struct Chunk {
    std::string name;
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
};

// Reads the chunks of one file, and collects what they declare.
class ChunkReader {
public:
    ChunkReader(HeaderReader& header, std::uint64_t fileBytes)
        : m_header(header), m_fileBytes(fileBytes), m_form(header.Name(0)) {
        m_header.SetBigEndian(m_form == "FORM" || m_form == "RIFX");
    }

    bool IsKnown() const {
        const std::string kind = m_header.Name(8);
        return m_form == "FORM"
                   ? kind == "AIFF" || kind == "AIFC"
                   : (m_form == "RIFF" || m_form == "RIFX" || m_form == "RF64") && kind == "WAVE";
    }

    void Read() {
        // A damaged file may have any number of chunks without content.
        constexpr int kMaxChunks = 1000;
        std::uint64_t offset = kFirstChunk;
        for (int i = 0; i < kMaxChunks && offset + kChunkHeader <= m_fileBytes; ++i) {
            Chunk chunk{m_header.Name(offset), offset + kChunkHeader,
                        m_header.Number(offset + 4, 4)};
            if (chunk.name == "data" && m_form == "RF64" && chunk.bytes == kSizeInDs64) {
                chunk.bytes = m_data64;
            }
            Add(chunk);
            if (chunk.bytes > m_fileBytes) {
                return;
            }
            offset = chunk.offset + chunk.bytes + chunk.bytes % 2;
        }
    }

    std::optional<SampleLayout> Layout() const {
        if (m_channels == 0 || m_bits == 0 || !m_isLinear || m_samples == 0 || m_first == 0 ||
            m_first >= m_fileBytes || m_sampleChunks != 1) {
            return std::nullopt;
        }
        const std::uint64_t frameBytes = std::uint64_t{m_channels} * ((m_bits + 7) / 8);
        const std::uint64_t bytes = std::min(m_samples, m_fileBytes - m_first);
        return SampleLayout{m_channels, m_rate, static_cast<std::int64_t>(bytes / frameBytes),
                            m_first};
    }

private:
    void Add(const Chunk& chunk) {
        if (chunk.name == "data" || chunk.name == "SSND") {
            AddSamples(chunk);
            return;
        }
        const std::uint64_t bytes = std::min(chunk.bytes, m_skimmable);
        m_header.Skim(chunk.offset, bytes);
        m_skimmable -= bytes;
        if (chunk.name == "fmt ") {
            AddFormat(chunk.offset);
        } else if (chunk.name == "ds64") {
            m_data64 = m_header.Number(chunk.offset + 8, 8);
        } else if (chunk.name == "COMM") {
            AddCommon(chunk);
        }
    }

    void AddSamples(const Chunk& chunk) {
        ++m_sampleChunks;
        m_first = chunk.offset;
        m_samples = chunk.bytes;
        if (chunk.name == "SSND") {
            // An offset and a block size precede the samples.
            constexpr std::uint64_t kBeforeSamples = 8;
            const std::uint64_t before = kBeforeSamples + m_header.Number(chunk.offset, 4);
            m_first += before;
            m_samples = chunk.bytes > before ? chunk.bytes - before : 0;
        } else if (m_samples == kUnknownSize) {
            m_samples = 0;
        }
    }

    void AddFormat(std::uint64_t offset) {
        constexpr std::uint64_t kInteger = 1;
        constexpr std::uint64_t kFloat = 3;
        constexpr std::uint64_t kExtensible = 0xFFFE;
        constexpr std::uint64_t kSubformat = 24;
        std::uint64_t tag = m_header.Number(offset, 2);
        if (tag == kExtensible) {
            tag = m_header.Number(offset + kSubformat, 2);
        }
        m_isLinear = tag == kInteger || tag == kFloat;
        m_channels = static_cast<std::uint32_t>(m_header.Number(offset + 2, 2));
        m_rate = static_cast<std::uint32_t>(m_header.Number(offset + 4, 4));
        m_bits = m_header.Number(offset + 14, 2);
    }

    void AddCommon(const Chunk& chunk) {
        constexpr std::uint64_t kPlainBytes = 18;
        m_channels = static_cast<std::uint32_t>(m_header.Number(chunk.offset, 2));
        m_bits = m_header.Number(chunk.offset + 6, 2);
        // A floating-point number of 80 bits.
        constexpr std::uint64_t kBias = 16383;
        constexpr std::uint64_t kFractionBits = 63;
        const std::uint64_t exponent = m_header.Number(chunk.offset + 8, 2);
        const std::uint64_t mantissa = m_header.Number(chunk.offset + 10, 8);
        if (exponent >= kBias && exponent <= kBias + kFractionBits) {
            m_rate = static_cast<std::uint32_t>(mantissa >> (kBias + kFractionBits - exponent));
        }
        const std::string compression =
            chunk.bytes > kPlainBytes ? m_header.Name(chunk.offset + kPlainBytes) : "NONE";
        m_isLinear = compression == "NONE" || compression == "twos" || compression == "sowt" ||
                     compression == "in24" || compression == "in32";
    }

    HeaderReader& m_header;
    std::uint64_t m_fileBytes;
    std::string m_form;
    std::uint64_t m_skimmable = kMaxSkimmedBytes;
    std::uint64_t m_data64 = 0; // size of the samples in ds64
    std::uint32_t m_channels = 0;
    std::uint32_t m_rate = 0;
    std::uint64_t m_bits = 0;
    bool m_isLinear = false;
    int m_sampleChunks = 0;
    std::uint64_t m_first = 0;
    std::uint64_t m_samples = 0; // bytes
};

} // namespace

std::optional<SampleLayout> ReadInputHeader(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
    header.Skim(0, kHeaderBytes);
    header.Skim(input->bytes - std::min(input->bytes, kHeaderBytes), kHeaderBytes);
    ChunkReader chunks(header, input->bytes);
    if (!chunks.IsKnown()) {
        return std::nullopt;
    }
    chunks.Read();
    return chunks.Layout();
}

} // namespace kel::host
