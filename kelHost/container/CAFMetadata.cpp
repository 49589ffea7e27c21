#include "container/CAFMetadata.h"

#include "container/StoredBytes.h"
#include "container/StoredText.h"
#include "container/TagNames.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

constexpr std::size_t kMaxCAFChunks = 65536;

// Chunks that describe the samples, and padding.
bool DescribesCAFSamplesOrNothing(std::string_view name) {
    constexpr std::array<std::string_view, 8> kNames{"desc", "data", "pakt", "kuki",
                                                     "chan", "peak", "free", "ovvw"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

// The name of a tag. Most keys are those of Vorbis comments.
std::string NameOfKey(const std::string& key) {
    constexpr std::array<std::array<const char*, 2>, 5> kNames{
        {{"comments", "comment"},
         {"track number", "track"},
         {"year", "date"},
         {"recorded date", "date"},
         {"encoding application", "software"}}};
    const auto* name =
        std::find_if(kNames.begin(), kNames.end(),
                     [lower = LowerCase(key)](const auto& names) { return lower == names[0]; });
    return name != kNames.end() ? (*name)[1] : NameOfComment(key);
}

// Keys and values, each of them with a final 0, after their number.
void AddInformation(std::string_view content, MetadataBuilder& builder) {
    std::size_t offset = 4;
    const auto next = [&] {
        const std::size_t start = std::min(offset, content.size());
        const std::string_view text = content.substr(start, content.find('\0', start) - start);
        offset = start + text.size() + 1;
        return DecodeText(text);
    };
    while (offset < content.size()) {
        const std::string key = next();
        builder.AddTag(NameOfKey(key), next());
    }
}

} // namespace

void AddCAFMetadata(const HeaderReader& header, std::uint64_t fileBytes, MetadataBuilder& builder) {
    constexpr std::uint64_t kFileHeader = 8;
    constexpr std::uint64_t kCAFChunkHeader = 12;
    std::uint64_t offset = kFileHeader;
    for (std::size_t i = 0; i < kMaxCAFChunks && offset + kCAFChunkHeader <= fileBytes; ++i) {
        const std::string start = header.Bytes(offset, kCAFChunkHeader);
        const std::string name = start.substr(0, 4);
        const std::uint64_t bytes = StoredBytes(start, StoredOrder::Big).Number(4, 8);
        offset += kCAFChunkHeader;
        if (name == "info") {
            AddInformation(builder.Read(name, offset, bytes), builder);
        } else if (!DescribesCAFSamplesOrNothing(name)) {
            builder.AddOther(name, bytes);
        }
        if (bytes > fileBytes - std::min(offset, fileBytes)) {
            return; // samples up to the end of the file have the size -1
        }
        offset += bytes;
    }
}

} // namespace kel::host
