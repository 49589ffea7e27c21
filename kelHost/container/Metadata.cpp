#include "container/Metadata.h"

#include "base/Errors.h"
#include "container/AIFFMetadata.h"
#include "container/ChunkList.h"
#include "container/HeaderReader.h"
#include "container/MetadataBuilder.h"
#include "container/RIFFMetadata.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace kel::host {

namespace {

constexpr const char* kCannotReadMetadata = "cannot read its metadata";

} // namespace

Metadata ReadMetadata(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        if (access(file.path.c_str(), R_OK) != 0) {
            throw JobError(file.shown,
                           fmt::format("{}: {}", kCannotReadMetadata, std::strerror(errno)));
        }
        return {}; // a pipe can only be read once
    }
    HeaderReader header(file, std::move(input->descriptor), kCannotReadMetadata);
    MetadataBuilder builder(header, input->bytes);
    const auto chunks = ReadChunkList(header, input->bytes);
    if (chunks.has_value()) {
        (IsAIFF(chunks->form) ? AddAIFFMetadata : AddRIFFMetadata)(header, *chunks, builder);
    }
    return std::move(builder.metadata);
}

} // namespace kel::host
