#include "container/InputHeader.h"

#include "container/ChunkList.h"
#include "container/FormatChunk.h"
#include "container/HeaderReader.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace kel::host {

namespace {

constexpr std::uint64_t kHeaderBytes = 65536; // that are read at both ends
// Of all other chunks. Some files contain pictures, and reading takes time.
constexpr std::uint64_t kMaxSkimmedBytes = std::uint64_t{16} << 20U;
constexpr std::uint64_t kUnknownSize = 0xFFFFFFFF; // of the samples in a stream

bool HasSamples(const Chunk& chunk) {
    return chunk.name == "data" || chunk.name == "SSND";
}

void SkimOtherChunks(const HeaderReader& header, const ChunkList& list) {
    std::uint64_t left = kMaxSkimmedBytes;
    for (const Chunk& chunk : list.chunks) {
        if (!HasSamples(chunk)) {
            const std::uint64_t bytes = std::min(chunk.bytes, left);
            header.Skim(chunk.offset, bytes);
            left -= bytes;
        }
    }
}

// The offset of the samples and their declared size, as a chunk without a name.
Chunk SamplesIn(const HeaderReader& header, const Chunk& chunk) {
    if (chunk.name != "SSND") {
        return {"", chunk.offset, chunk.bytes == kUnknownSize ? 0 : chunk.bytes};
    }
    // An offset and a block size precede the samples.
    constexpr std::uint64_t kBeforeSamples = 8;
    const std::uint64_t before = kBeforeSamples + header.Number(chunk.offset, 4);
    return {"", chunk.offset + before, chunk.bytes > before ? chunk.bytes - before : 0};
}

std::optional<SampleLayout> LayoutOf(const HeaderReader& header, const ChunkList& list) {
    const auto format = ReadFormatChunk(header, list);
    const auto chunk = std::find_if(list.chunks.begin(), list.chunks.end(), HasSamples);
    if (!format.has_value() || format->frameBytes == 0 || chunk == list.chunks.end() ||
        std::count_if(chunk, list.chunks.end(), HasSamples) != 1) {
        return std::nullopt;
    }
    const Chunk samples = SamplesIn(header, *chunk);
    const std::uint64_t bytes = list.Present(samples);
    if (bytes == 0) {
        return std::nullopt;
    }
    return SampleLayout{format->channels, format->rate,
                        static_cast<std::int64_t>(bytes / format->frameBytes), samples.offset};
}

} // namespace

std::optional<SampleLayout> ReadInputHeader(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
    const auto chunks = ReadChunkList(header, input->bytes);
    std::optional<SampleLayout> layout;
    if (chunks.has_value() && chunks->form != ChunkForm::W64) {
        SkimOtherChunks(header, *chunks);
        layout = LayoutOf(header, *chunks);
    }
    if (!layout.has_value()) { // the header may be anywhere, and the source opens the file twice
        header.Skim(0, kHeaderBytes);
        header.Skim(input->bytes - std::min(input->bytes, kHeaderBytes), kHeaderBytes);
    }
    return layout;
}

} // namespace kel::host
