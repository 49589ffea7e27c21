#include "audio/ChannelLayout.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using Mask = std::uint32_t;

// Abbreviations of the speakers, in the order of the bits.
constexpr std::array<std::string_view, 18> kSpeakers{"FL",  "FR",  "FC",  "LFE", "BL",  "BR",
                                                     "FLC", "FRC", "BC",  "SL",  "SR",  "TC",
                                                     "TFL", "TFC", "TFR", "TBL", "TBC", "TBR"};

constexpr Mask kLowFrequencies = 0x8;
constexpr Mask kBack = 0x10 | 0x20; // left and right
constexpr Mask kSide = 0x200 | 0x400;

constexpr std::array<std::pair<Mask, std::string_view>, 30> kLayouts{{{0x4, "mono"},
                                                                      {0x3, "stereo"},
                                                                      {0xB, "2.1"},
                                                                      {0x7, "3.0"},
                                                                      {0x103, "3.0(back)"},
                                                                      {0x107, "4.0"},
                                                                      {0x33, "quad"},
                                                                      {0x603, "quad(side)"},
                                                                      {0xF, "3.1"},
                                                                      {0x37, "5.0"},
                                                                      {0x607, "5.0(side)"},
                                                                      {0x10F, "4.1"},
                                                                      {0x3F, "5.1"},
                                                                      {0x60F, "5.1(side)"},
                                                                      {0x707, "6.0"},
                                                                      {0x6C3, "6.0(front)"},
                                                                      {0x137, "hexagonal"},
                                                                      {0x70F, "6.1"},
                                                                      {0x13F, "6.1(back)"},
                                                                      {0x6CB, "6.1(front)"},
                                                                      {0x637, "7.0"},
                                                                      {0x6C7, "7.0(front)"},
                                                                      {0x63F, "7.1"},
                                                                      {0xFF, "7.1(wide)"},
                                                                      {0x6CF, "7.1(wide-side)"},
                                                                      {0x737, "octagonal"},
                                                                      {0x503F, "7.1(top)"},
                                                                      {0x2D03F, "5.1.4"},
                                                                      {0x2D63F, "7.1.4"},
                                                                      {0x2D033, "cube"}}};

// Returns the speakers of the channels: the lowest bits, at most one for each channel.
std::vector<Mask> Speakers(std::uint32_t channels, Mask mask) {
    std::vector<Mask> speakers;
    for (; mask != 0 && speakers.size() < channels; mask &= mask - 1) {
        speakers.push_back(mask & (~mask + 1));
    }
    return speakers;
}

std::string SpeakerName(Mask speaker) {
    std::size_t bit = 0;
    while (speaker >> bit != 1) {
        ++bit;
    }
    return bit < kSpeakers.size() ? std::string(kSpeakers.at(bit)) : fmt::format("USR{}", bit);
}

// The back speakers are the surrounds, at 110 degrees, unless there are others at the sides. Then
// they are at 135 degrees.
LoudnessWeight WeightOf(Mask speaker, Mask mask) {
    if (speaker == kLowFrequencies) {
        return LoudnessWeight::None;
    }
    const Mask surrounds = (mask & kSide) != 0 ? kSide : kBack;
    return (speaker & surrounds) != 0 ? LoudnessWeight::Surround : LoudnessWeight::Full;
}

// The masks of WAVE files with 1 to 8 channels that are usually meant where there is no mask.
constexpr std::array<Mask, 8> kUsualMasks{0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x70F, 0x63F};

// Returns 0 where more channels than those have no usual order.
Mask UsualMask(std::uint32_t channels) {
    return channels > 0 && channels <= kUsualMasks.size() ? kUsualMasks.at(channels - 1) : 0;
}

} // namespace

std::string DescribeLayout(std::uint32_t channels, std::optional<std::uint32_t> mask) {
    const std::vector<Mask> speakers = Speakers(channels, mask.value_or(0));
    if (speakers.empty()) {
        return "no layout";
    }
    Mask used = 0;
    std::string names;
    for (const Mask speaker : speakers) {
        used |= speaker;
        names += (names.empty() ? "" : "+") + SpeakerName(speaker);
    }
    if (speakers.size() < channels) {
        return fmt::format("{} and {}", names, Count(channels - speakers.size(), "other"));
    }
    const auto* const layout =
        std::find_if(kLayouts.begin(), kLayouts.end(),
                     [used](const auto& entry) { return entry.first == used; });
    return layout != kLayouts.end() ? std::string(layout->second) : names;
}

std::vector<LoudnessWeight> LoudnessWeights(std::uint32_t channels,
                                            std::optional<std::uint32_t> mask) {
    const Mask declared = mask.value_or(0);
    const std::vector<Mask> speakers =
        Speakers(channels, declared != 0 ? declared : UsualMask(channels));
    Mask used = 0;
    for (const Mask speaker : speakers) {
        used |= speaker;
    }
    std::vector<LoudnessWeight> weights(channels, LoudnessWeight::None);
    std::transform(speakers.begin(), speakers.end(), weights.begin(),
                   [used](Mask speaker) { return WeightOf(speaker, used); });
    return weights;
}

std::vector<LoudnessWeight> LoudnessWeights(const std::vector<std::uint32_t>& speakers) {
    const Mask used = std::accumulate(speakers.begin(), speakers.end(), Mask{0}, std::bit_or<>());
    std::vector<LoudnessWeight> weights(speakers.size(), LoudnessWeight::None);
    std::transform(speakers.begin(), speakers.end(), weights.begin(), [used](Mask speaker) {
        return speaker != 0 ? WeightOf(speaker, used) : LoudnessWeight::None;
    });
    return weights;
}

} // namespace kel::host
