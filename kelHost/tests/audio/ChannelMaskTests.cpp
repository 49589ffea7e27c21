#include "audio/ChannelMask.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace kel::host {

TEST(ChannelMask, KeepsTheSpeakersOfChannelsInAscendingOrder) {
    struct Row {
        std::uint32_t mask;
        std::uint32_t channels;
        std::vector<std::uint32_t> picked;
        std::uint32_t result;
    };
    constexpr std::uint32_t k51 = 0x3F;
    constexpr std::uint32_t kSides = 0x60F;
    for (const Row& row : {
             Row{k51, 6, {}, k51},
             Row{k51, 6, {0, 1, 2, 3, 4, 5}, k51},
             Row{k51, 6, {0, 1}, 0x3},
             Row{k51, 6, {2}, 0x4},
             Row{kSides, 6, {3, 4, 5}, 0x608},
             Row{kSides, 6, {1, 0}, 0},
             Row{kSides, 6, {0, 0}, 0},
             Row{0, 4, {}, 0},
             Row{0, 4, {1}, 0},
             // More channels than speakers, and more speakers than channels.
             Row{0x3, 4, {}, 0x3},
             Row{0x3, 4, {0, 1, 2, 3}, 0x3},
             Row{0x3, 4, {0, 2}, 0},
             Row{k51, 2, {}, k51},
             Row{k51, 2, {1}, 0x2},
             Row{0x80000001, 2, {1}, 0x80000000},
         }) {
        EXPECT_EQ(PickSpeakers(row.mask, row.channels, row.picked), row.result)
            << row.mask << testing::PrintToString(row.picked);
    }
}

TEST(ChannelMask, HasTheSpeakersOfChannelsThatArePickedInTheirOrder) {
    const std::vector<std::uint32_t> speakers{0x4, 0x1, 0x2, 0};
    EXPECT_EQ(PickSpeakers(speakers, {1, 2, 0}), 0x7U);
    EXPECT_EQ(PickSpeakers(speakers, {0, 1, 2}), 0U);
    EXPECT_EQ(PickSpeakers(speakers, {}), 0U);
}

TEST(ChannelMask, OrdersChannelsThatHaveASpeakerEach) {
    using Channels = std::vector<std::uint32_t>;
    EXPECT_EQ(OrderBySpeakers({0x4, 0x1, 0x2}), (Channels{1, 2, 0}));
    EXPECT_EQ(OrderBySpeakers({0x4, 0x1, 0}), Channels());
    EXPECT_EQ(OrderBySpeakers({0x4, 0x1, 0x4}), Channels());
    EXPECT_EQ(OrderBySpeakers({}), Channels());
}

} // namespace kel::host
