#include "container/ChunkNames.h"

#include "container/ChunkWriter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

template <std::size_t Count>
bool IsOneOf(std::string_view name, const std::array<std::string_view, Count>& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

// "slnt" and "wavl" contain samples.
bool DescribesSamples(std::string_view name, bool isAIFF) {
    static constexpr std::array<std::string_view, 10> kWAVE{
        "fmt ", "data", "fact", "ds64", "PEAK", "levl", "slnt", "wavl", "LIST wavl", "wave"};
    static constexpr std::array<std::string_view, 5> kAIFF{"COMM", "SSND", "FVER", "CHAN", "PEAK"};
    static constexpr std::array<std::string_view, 7> kPadding{"JUNK", "junk", "PAD ", "pad ",
                                                              "FLLR", "fllr", "filr"};
    return IsOneOf(name, kPadding) || (isAIFF ? IsOneOf(name, kAIFF) : IsOneOf(name, kWAVE));
}

bool DescribesChannels(std::string_view name) {
    static constexpr std::array<std::string_view, 4> kNames{"chna", "axml", "bxml", "sxml"};
    return IsOneOf(name, kNames);
}

bool HasTagsOrCuePoints(std::string_view name) {
    static constexpr std::array<std::string_view, 5> kNames{"LIST INFO", "LIST adtl", "cue ",
                                                            "id3 ", "ID3 "};
    return IsOneOf(name, kNames);
}

std::uint64_t MaxChunkInAIFF(std::string_view name) {
    return name == "NAME" || name == "ANNO" ? 8189
           : name == "AUTH"                 ? 8190
           : name == "(c) "                 ? 8191
                                            : kMaxChunkBytes;
}

std::string TrimChunkName(std::string name) {
    while (!name.empty() && (name.back() == ' ' || name.back() == '\0')) {
        name.pop_back();
    }
    return name;
}

} // namespace kel::host
