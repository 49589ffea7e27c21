#include "audio/ChannelLayout.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// One character for each channel: "-" no weight, "1" full, "S" surround.
std::string Weights(std::uint32_t channels, std::optional<std::uint32_t> mask) {
    std::string text;
    for (const LoudnessWeight weight : LoudnessWeights(channels, mask)) {
        text.push_back("-1S"[static_cast<int>(weight)]);
    }
    return text;
}

} // namespace

TEST(ChannelLayout, HasTheUsualName) {
    struct Row {
        std::uint32_t channels;
        std::uint32_t mask;
        const char* name;
    };
    for (const Row& row : {Row{1, 0x4, "mono"},
                           Row{2, 0x3, "stereo"},
                           Row{3, 0xB, "2.1"},
                           Row{3, 0x7, "3.0"},
                           Row{3, 0x103, "3.0(back)"},
                           Row{4, 0x107, "4.0"},
                           Row{4, 0x33, "quad"},
                           Row{4, 0x603, "quad(side)"},
                           Row{4, 0xF, "3.1"},
                           Row{5, 0x37, "5.0"},
                           Row{5, 0x607, "5.0(side)"},
                           Row{5, 0x10F, "4.1"},
                           Row{6, 0x3F, "5.1"},
                           Row{6, 0x60F, "5.1(side)"},
                           Row{6, 0x707, "6.0"},
                           Row{6, 0x6C3, "6.0(front)"},
                           Row{6, 0x137, "hexagonal"},
                           Row{7, 0x70F, "6.1"},
                           Row{7, 0x13F, "6.1(back)"},
                           Row{7, 0x6CB, "6.1(front)"},
                           Row{7, 0x637, "7.0"},
                           Row{7, 0x6C7, "7.0(front)"},
                           Row{8, 0x63F, "7.1"},
                           Row{8, 0xFF, "7.1(wide)"},
                           Row{8, 0x6CF, "7.1(wide-side)"},
                           Row{8, 0x503F, "7.1(top)"},
                           Row{8, 0x737, "octagonal"},
                           Row{8, 0x2D033, "cube"},
                           Row{10, 0x2D03F, "5.1.4"},
                           Row{12, 0x2D63F, "7.1.4"}}) {
        EXPECT_EQ(DescribeLayout(row.channels, row.mask), row.name);
    }
}

TEST(ChannelLayout, WithoutANameIsItsSpeakers) {
    EXPECT_EQ(DescribeLayout(3, 0x803), "FL+FR+TC");
    EXPECT_EQ(DescribeLayout(1, 0x1), "FL");
    EXPECT_EQ(DescribeLayout(2, 0x80000002), "FR+USR31");
}

TEST(ChannelLayout, IsMissingWithoutAMask) {
    EXPECT_EQ(DescribeLayout(2, std::nullopt), "no layout");
    EXPECT_EQ(DescribeLayout(2, 0), "no layout");
}

TEST(ChannelLayout, CountsChannelsWithoutASpeakerAndNotSpeakersWithoutAChannel) {
    EXPECT_EQ(DescribeLayout(4, 0x3), "FL+FR and 2 others");
    EXPECT_EQ(DescribeLayout(2, 0x4), "FC and 1 other");
    EXPECT_EQ(DescribeLayout(2, 0x3F), "stereo");
}

TEST(LoudnessWeights, AreThoseOfTheSpeakers) {
    EXPECT_EQ(Weights(1, 0x4), "1");
    EXPECT_EQ(Weights(2, 0x3), "11");
    EXPECT_EQ(Weights(6, 0x3F), "111-SS");
    EXPECT_EQ(Weights(6, 0x60F), "111-SS");
    // The speakers at the back are no surrounds beside those at the sides.
    EXPECT_EQ(Weights(8, 0x63F), "111-11SS");
    EXPECT_EQ(Weights(8, 0xFF), "111-SS11");
    EXPECT_EQ(Weights(7, 0x70F), "111-1SS");
    EXPECT_EQ(Weights(12, 0x2D63F), "111-11SS1111");
}

TEST(LoudnessWeights, AreNoneForChannelsWithoutASpeaker) {
    EXPECT_EQ(Weights(4, 0x3), "11--");
    // Only the speakers in use decide about the surrounds.
    EXPECT_EQ(Weights(4, 0x633), "11SS");
}

TEST(LoudnessWeights, AreThoseOfTheSpeakersInAnyOrder) {
    using Weight = LoudnessWeight;
    EXPECT_EQ(
        LoudnessWeights({0x4, 0x1, 0x10, 0x8, 0}),
        (std::vector{Weight::Full, Weight::Full, Weight::Surround, Weight::None, Weight::None}));
}

TEST(LoudnessWeights, WithoutAMaskAreThoseOfTheNumberOfChannels) {
    EXPECT_EQ(Weights(1, std::nullopt), "1");
    EXPECT_EQ(Weights(2, std::nullopt), "11");
    EXPECT_EQ(Weights(3, 0), "111");
    EXPECT_EQ(Weights(4, std::nullopt), "11SS");
    EXPECT_EQ(Weights(5, std::nullopt), "111SS");
    EXPECT_EQ(Weights(6, std::nullopt), "111-SS");
    EXPECT_EQ(Weights(7, std::nullopt), "111-1SS");
    EXPECT_EQ(Weights(8, 0), "111-11SS");
    EXPECT_EQ(Weights(9, std::nullopt), "---------");
}

} // namespace kel::host
