#include "container/CarriedChunk.h"

#include "container/ChunkNames.h"
#include "container/StoredBytes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

constexpr std::string_view kSignature = "kelW";
constexpr std::size_t kFourBytes = 4;

} // namespace

std::string CarriedHeader(const std::string& name, std::uint64_t contentSize) {
    return std::string(kSignature) + name +
           NumberBytes(contentSize, kFourBytes, StoredOrder::Little);
}

std::optional<Chunk> FindCarried(const HeaderReader& header, const ChunkList& list,
                                 const Chunk& chunk) {
    if (chunk.name != kCarrier || chunk.bytes < kCarriedHeader ||
        list.Present(chunk) < chunk.bytes) {
        return std::nullopt;
    }
    const std::string bytes = header.Bytes(chunk.offset, kCarriedHeader);
    const StoredBytes start(bytes, StoredOrder::Little);
    Chunk carried{std::string(start.Part(kFourBytes, kFourBytes)), chunk.offset + kCarriedHeader,
                  start.Number(2 * kFourBytes, kFourBytes)};
    if (start.Part(0, kFourBytes) != kSignature || !IsChunkName(carried.name) ||
        carried.bytes != chunk.bytes - kCarriedHeader) {
        return std::nullopt;
    }
    if (carried.name == "LIST" && carried.bytes >= kFourBytes) {
        carried.name += " " + header.Name(carried.offset);
    }
    const bool isCarried =
        !DescribesSamples(carried.name, false) && !HasTagsOrCuePoints(carried.name);
    return isCarried ? std::optional(carried) : std::nullopt;
}

} // namespace kel::host
