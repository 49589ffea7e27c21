#include "container/StaleParts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

template <std::size_t Count>
bool IsNameIn(std::string_view name, const std::array<std::string_view, Count>& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool IsID3(std::string_view name) {
    return name == "id3 " || name == "ID3 ";
}

bool Contains(std::string_view content, std::string_view text) {
    return content.find(text) != std::string_view::npos;
}

// Frames with times. After the name is a size below 16 MiB.
bool HasTimedFrame(std::string_view tag) {
    static constexpr std::array<std::string_view, 7> kFrames{"CHAP", "SYLT", "ETCO", "SYTC",
                                                             "MLLT", "POSS", "ASPI"};
    return std::any_of(kFrames.begin(), kFrames.end(), [&](std::string_view frame) {
        return Contains(tag, std::string(frame) + '\0');
    });
}

} // namespace

bool MayBeStale(std::string_view name) {
    return name == "iXML" || name == "_PMX" || name == "dbmd" || IsID3(name) ||
           IsStaleInRange(name, "");
}

// "acid" and "basc" count beats; "strc" and "trns" have the positions of slices.
bool IsStaleInRange(std::string_view name, std::string_view content) {
    static constexpr std::array<std::string_view, 8> kNames{"axml", "bxml", "sxml", "acid",
                                                            "strc", "regn", "basc", "trns"};
    return IsNameIn(name, kNames) ||
           (name == "iXML" &&
            (Contains(content, "<SYNC_POINT>") || Contains(content, "<LOUDNESS>"))) ||
           (name == "_PMX" && Contains(content, "xmpDM:startTime")) ||
           (IsID3(name) && HasTimedFrame(content));
}

bool IsStaleInChannels(std::string_view name, std::string_view content) {
    return name == "dbmd" ||
           (name == "iXML" && (Contains(content, "<TRACK>") || Contains(content, "<LOUDNESS>")));
}

// Some programs store 0 for all values that they do not know.
bool DeclaresLoudness(const Broadcast& broadcast) {
    constexpr std::int16_t kUndeclared = std::numeric_limits<std::int16_t>::max();
    const BroadcastLoudness loudness = broadcast.loudness.value_or(BroadcastLoudness{});
    const std::array<std::int16_t, 5> values{loudness.integrated, loudness.range, loudness.truePeak,
                                             loudness.momentary, loudness.shortTerm};
    return std::any_of(values.begin(), values.end(),
                       [](std::int16_t value) { return value != 0 && value != kUndeclared; });
}

bool IsStaleTag(std::string_view name) {
    static constexpr std::array<std::string_view, 3> kNames{"cuesheet", "time_reference",
                                                            "timereference"};
    constexpr std::string_view kChapter = "chapter";
    constexpr std::size_t kDigits = 3;
    const std::string_view number = name.substr(std::min(name.size(), kChapter.size()));
    const bool isChapter = name.substr(0, kChapter.size()) == kChapter &&
                           number.size() == kDigits &&
                           number.find_first_not_of("0123456789") == std::string_view::npos;
    return isChapter || IsNameIn(name, kNames);
}

} // namespace kel::host
