#include "container/LayoutChunk.h"

#include "container/StoredBytes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// A speaker, by its label in the chunk.
struct Speaker {
    std::uint32_t label;
    std::string_view name;
    std::uint32_t bit; // of dwChannelMask; 0 for none
};

enum SpeakerLabel : std::uint32_t {
    kLeftSurround = 5,
    kRightSurround = 6,
    kCentreSurround = 9,
    kRearLeft = 33,
    kUnknownLabel = 0xFFFFFFFF,
};

constexpr std::array<Speaker, 30> kSpeakers{{{1, "L", 0x1},
                                             {2, "R", 0x2},
                                             {3, "C", 0x4},
                                             {4, "LFE", 0x8},
                                             {kLeftSurround, "Ls", 0x10},
                                             {kRightSurround, "Rs", 0x20},
                                             {7, "Lc", 0x40},
                                             {8, "Rc", 0x80},
                                             {kCentreSurround, "Cs", 0x100},
                                             {10, "Lsd", 0x200},
                                             {11, "Rsd", 0x400},
                                             {12, "Ts", 0x800},
                                             {13, "Vhl", 0x1000},
                                             {14, "Vhc", 0x2000},
                                             {15, "Vhr", 0x4000},
                                             {16, "Tbl", 0x8000},
                                             {17, "Tbc", 0x10000},
                                             {18, "Tbr", 0x20000},
                                             {kRearLeft, "Rls", 0x10},
                                             {34, "Rrs", 0x20},
                                             {35, "Lw", 0},
                                             {36, "Rw", 0},
                                             {37, "LFE2", 0},
                                             {38, "Lt", 0},
                                             {39, "Rt", 0},
                                             {42, "C", 0x4}, // the only channel
                                             {200, "W", 0},
                                             {201, "X", 0},
                                             {202, "Y", 0},
                                             {203, "Z", 0}}};

// The layouts by their numbers, without the number of channels.
const std::map<std::uint32_t, std::string_view>& NumberedLayouts() {
    static const std::map<std::uint32_t, std::string_view> layouts{
        {100, "C"},
        {101, "L R"},
        {102, "L R"},
        {103, "Lt Rt"},
        {107, "W X Y Z"},
        {108, "L R Ls Rs"},
        {109, "L R Ls Rs C"},
        {110, "L R Ls Rs C Cs"},
        {111, "L R Ls Rs C Cs Lw Rw"},
        {113, "L R C"},
        {114, "C L R"},
        {115, "L R C Cs"},
        {116, "C L R Cs"},
        {117, "L R C Ls Rs"},
        {118, "L R Ls Rs C"},
        {119, "L C R Ls Rs"},
        {120, "C L R Ls Rs"},
        {121, "L R C LFE Ls Rs"},
        {122, "L R Ls Rs C LFE"},
        {123, "L C R Ls Rs LFE"},
        {124, "C L R Ls Rs LFE"},
        {125, "L R C LFE Ls Rs Cs"},
        {126, "L R C LFE Ls Rs Lc Rc"},
        {127, "C Lc Rc L R Ls Rs LFE"},
        {128, "L R C LFE Ls Rs Rls Rrs"},
        {129, "L R Ls Rs C LFE Lc Rc"},
        {130, "L R C LFE Ls Rs Lt Rt"},
        {131, "L R Cs"},
        {132, "L R Ls Rs"},
        {133, "L R LFE"},
        {134, "L R LFE Cs"},
        {135, "L R LFE Ls Rs"},
        {136, "L R C LFE"},
        {137, "L R C LFE Cs"},
        {138, "L R Ls Rs LFE"},
        {139, "L R Ls Rs C Cs"},
        {140, "L R Ls Rs C Rls Rrs"},
        {141, "C L R Ls Rs Cs"},
        {142, "C L R Ls Rs Cs LFE"},
        {143, "C L R Ls Rs Rls Rrs"},
        {144, "C L R Ls Rs Rls Rrs Cs"},
        {148, "L R Ls Rs C Lc Rc"},
        {149, "C LFE"},
        {150, "L C R"},
        {151, "L C R Cs"},
        {152, "L C R LFE"},
        {153, "L R Cs LFE"},
        {154, "L C R Cs LFE"},
        {155, "L C R Ls Rs Cs"},
        {156, "L C R Ls Rs Rls Rrs"},
        {157, "L C R Ls Rs LFE Cs"},
        {158, "L C R Ls Rs LFE Ts"},
        {159, "L C R Ls Rs LFE Vhc"},
        {160, "L C R Ls Rs LFE Rls Rrs"},
        {161, "L C R Ls Rs LFE Lc Rc"},
        {162, "L C R Ls Rs LFE Lsd Rsd"},
        {163, "L C R Ls Rs LFE Lw Rw"},
        {164, "L C R Ls Rs LFE Vhl Vhr"},
        {165, "L C R Ls Rs LFE Cs Ts"},
        {166, "L C R Ls Rs LFE Cs Vhc"},
        {167, "L C R Ls Rs LFE Ts Vhc"},
        {168, "C L R LFE"},
        {169, "C L R Cs LFE"},
        {170, "Lc Rc L R Ls Rs"},
        {171, "C L R Rls Rrs Ts"},
        {172, "C Cs L R Rls Rrs"},
        {173, "Lc Rc L R Ls Rs LFE"},
        {174, "C L R Rls Rrs Ts LFE"},
        {175, "C Cs L R Rls Rrs LFE"},
        {176, "Lc C Rc L R Ls Rs"},
        {177, "Lc C Rc L R Ls Rs LFE"},
        {182, "C L R Ls Rs LFE Cs"},
        {183, "C L R Ls Rs Rls Rrs LFE"},
        {185, "L R Rls Rrs"},
        {186, "L R C Rls Rrs"},
        {187, "L R C LFE Rls Rrs"},
        {188, "L R C LFE Cs Ls Rs"},
        {189, "L R C LFE Rls Rrs Ls Rs"}};
    return layouts;
}

std::vector<std::uint32_t> LabelsOf(std::string_view names) {
    std::vector<std::uint32_t> labels;
    while (!names.empty()) {
        const std::string_view name = names.substr(0, names.find(' '));
        const auto* speaker = std::find_if(kSpeakers.begin(), kSpeakers.end(),
                                           [&](const Speaker& one) { return one.name == name; });
        labels.push_back(speaker->label);
        names.remove_prefix(std::min(names.size(), name.size() + 1));
    }
    return labels;
}

const Speaker* FindSpeaker(std::uint32_t label) {
    const auto* speaker = std::find_if(kSpeakers.begin(), kSpeakers.end(),
                                       [&](const Speaker& one) { return one.label == label; });
    return speaker != kSpeakers.end() ? speaker : nullptr;
}

// The surround speakers are those at the back, unless others are there.
std::uint32_t BitOf(const Speaker& speaker, bool areSurroundsAtTheSide) {
    constexpr std::uint32_t kSideShift = 5;
    const bool isSurround = speaker.label == kLeftSurround || speaker.label == kRightSurround;
    return isSurround && areSurroundsAtTheSide ? speaker.bit << kSideShift : speaker.bit;
}

SpeakerLayout LayoutOf(const std::vector<std::uint32_t>& labels) {
    const auto place = [&](std::uint32_t label) {
        return std::find(labels.begin(), labels.end(), label);
    };
    const bool areAtTheSide =
        place(kRearLeft) != labels.end() || place(kCentreSurround) < place(kLeftSurround);
    SpeakerLayout layout;
    std::uint32_t mask = 0;
    bool isInOrder = true;
    for (const std::uint32_t label : labels) {
        const Speaker* speaker = FindSpeaker(label);
        const std::uint32_t bit = speaker != nullptr ? BitOf(*speaker, areAtTheSide) : 0;
        isInOrder = isInOrder && bit > mask;
        mask |= bit;
        layout.speakers.push_back(bit);
        layout.name += (layout.name.empty() ? "" : " ") +
                       (speaker != nullptr ? std::string(speaker->name) : std::to_string(label));
    }
    return isInOrder ? SpeakerLayout{mask, {}, ""} : layout;
}

// True for channels that are only numbered.
bool IsDiscrete(std::uint32_t label) {
    constexpr std::uint32_t kDiscrete = 400;
    constexpr std::uint32_t kFirstNumbered = 0x10000;
    constexpr std::uint32_t kLastNumbered = 0x1FFFF;
    return label == 0 || label == kUnknownLabel || label == kDiscrete ||
           (label >= kFirstNumbered && label <= kLastNumbered);
}

// @param offset of the content of a chunk, in bytes
// @param bytes of the content that the file has
std::optional<SpeakerLayout> ReadLayoutChunk(const HeaderReader& header, std::uint64_t offset,
                                             std::uint64_t bytes, std::uint32_t channels) {
    constexpr std::uint64_t kFixedBytes = 12;
    constexpr std::uint64_t kDescriptionBytes = 20;
    constexpr std::uint32_t kUseBitmap = 0x00010000;
    constexpr std::uint32_t kDiscreteLayout = 147;
    constexpr std::uint32_t kUnknownLayout = 0xFFFF;
    constexpr std::uint32_t kMaxBit = 0x3FFFF;
    const std::string start = header.Bytes(offset, kFixedBytes);
    const StoredBytes fields(std::string_view(start).substr(0, bytes), StoredOrder::Big);
    const auto tag = static_cast<std::uint32_t>(fields.Number(0, 4));
    const auto bitmap = static_cast<std::uint32_t>(fields.Number(4, 4));
    constexpr unsigned kShift = 16;
    if (tag == kUseBitmap) {
        return bitmap <= kMaxBit ? SpeakerLayout{bitmap, {}, ""}
                                 : SpeakerLayout{std::nullopt, {}, fmt::format("0x{:08X}", bitmap)};
    }
    if (tag == 0) {
        const std::uint64_t present = (bytes - std::min(bytes, kFixedBytes)) / kDescriptionBytes;
        const std::uint64_t count =
            std::min({fields.Number(8, 4), present, std::uint64_t{channels}});
        std::vector<std::uint32_t> labels;
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::string label = header.Bytes(offset + kFixedBytes + i * kDescriptionBytes, 4);
            labels.push_back(
                static_cast<std::uint32_t>(StoredBytes(label, StoredOrder::Big).Number(0, 4)));
        }
        const bool hasNone = std::all_of(labels.begin(), labels.end(), IsDiscrete);
        return hasNone ? std::nullopt : std::optional(LayoutOf(labels));
    }
    const std::uint32_t number = tag >> kShift;
    if (number == kDiscreteLayout || number == kUnknownLayout) {
        return std::nullopt;
    }
    const auto known = NumberedLayouts().find(number);
    const auto labels =
        known != NumberedLayouts().end() ? LabelsOf(known->second) : std::vector<std::uint32_t>();
    return !labels.empty() && labels.size() == channels
               ? LayoutOf(labels)
               : SpeakerLayout{std::nullopt, {}, fmt::format("0x{:08X}", tag)};
}

std::optional<SpeakerLayout> ReadCAFLayout(const HeaderReader& header, std::uint64_t fileBytes,
                                           std::uint32_t channels) {
    constexpr std::uint64_t kCAFHeader = 8;
    constexpr std::uint64_t kCAFChunkHeader = 12;
    std::uint64_t offset = kCAFHeader;
    for (std::size_t i = 0; i < kMaxChunks && offset + kCAFChunkHeader <= fileBytes; ++i) {
        const std::string start = header.Bytes(offset, kCAFChunkHeader);
        const std::uint64_t bytes = StoredBytes(start, StoredOrder::Big).Number(4, 8);
        offset += kCAFChunkHeader;
        const std::uint64_t left = fileBytes - offset;
        if (start.compare(0, 4, "chan") == 0) {
            return ReadLayoutChunk(header, offset, std::min(bytes, left), channels);
        }
        if (bytes > left) {
            return std::nullopt; // samples up to the end of the file have the size -1
        }
        offset += bytes;
    }
    return std::nullopt;
}

} // namespace

std::optional<SpeakerLayout> ReadAIFFLayout(const HeaderReader& header, const ChunkList& chunks,
                                            std::uint32_t channels) {
    const Chunk* chunk = chunks.Find("CHAN");
    return chunk != nullptr
               ? ReadLayoutChunk(header, chunk->offset, chunks.Present(*chunk), channels)
               : std::nullopt;
}

std::optional<SpeakerLayout> ReadSpeakerLayout(const FileName& file, std::uint32_t channels) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
    if (header.Name(0) == "caff") {
        return ReadCAFLayout(header, input->bytes, channels);
    }
    const auto chunks = ReadChunkList(header, input->bytes);
    return chunks.has_value() && IsAIFF(chunks->form) ? ReadAIFFLayout(header, *chunks, channels)
                                                      : std::nullopt;
}

} // namespace kel::host
