#include "container/ChannelOrder.h"

#include "AudioFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using Order = std::vector<std::uint32_t>;

// A page with one packet of at most 254 bytes.
std::string Page(const std::string& packet) {
    return "OggS" + std::string(22, '\0') + '\x01' + static_cast<char>(packet.size()) + packet;
}

std::string OpusHead(char family) {
    return "OpusHead\x01\x06" + std::string(8, '\0') + family;
}

// The order of six channels in a file.
Order OrderIn(const std::string& bytes) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", bytes);
    return ReadChannelOrder(directory / "take", 6);
}

const Order kVorbisOrder{0, 2, 1, 5, 3, 4};
const std::string kVorbisHead = "\x01vorbis" + std::string(23, '\0');

} // namespace

TEST(ChannelOrder, IsThatOfVorbisWhereItsHeaderSaysSo) {
    EXPECT_EQ(OrderIn(Page(kVorbisHead)), kVorbisOrder);
    EXPECT_EQ(OrderIn(Page(OpusHead(1))), kVorbisOrder);
    EXPECT_EQ(OrderIn(Page("fishead") + Page(kVorbisHead)), kVorbisOrder);
}

TEST(ChannelOrder, IsTheFilesOwnElsewhere) {
    for (const std::string& bytes :
         {std::string(), Page(OpusHead(2)), Page(OpusHead(3)), Page(OpusHead('\xFF')),
          Page("\x7F"
               "FLAC"),
          Page("\x01"
               "vorbit"),
          "RIFF" + Page(kVorbisHead), Page("fishead") + "x" + Page(kVorbisHead)}) {
        EXPECT_EQ(OrderIn(bytes), Order{});
    }
}

TEST(ChannelOrder, IsNotSearchedForever) {
    std::string pages;
    for (int i = 0; i < 100; ++i) {
        pages += Page("fishead");
    }
    EXPECT_EQ(OrderIn(pages + Page(kVorbisHead)), Order{});
    EXPECT_EQ(OrderIn(Page("").substr(0, 26)), Order{}); // no table of segments
}

TEST(ChannelOrder, PutsTheSpeakersOfVorbisIntoWaveOrder) {
    struct Row {
        std::string speakers; // in the order of Vorbis: L, C and R in front, l and r at the side, a
                              // and b at the back, B between them, and S for the low frequencies
        std::string wave;
    };
    for (const Row& row :
         {Row{"M", "M"}, Row{"LR", "LR"}, Row{"LCR", "LRC"}, Row{"LRab", "LRab"},
          Row{"LCRab", "LRCab"}, Row{"LCRabS", "LRCSab"}, Row{"LCRlrBS", "LRCSBlr"},
          Row{"LCRlrabS", "LRCSablr"}, Row{"123456789", "123456789"}}) {
        const test::TemporaryDirectory directory;
        test::WriteFile(directory / "take", Page(kVorbisHead));
        const Order order =
            ReadChannelOrder(directory / "take", static_cast<std::uint32_t>(row.speakers.size()));
        std::string ordered;
        for (const std::uint32_t channel : order) {
            ordered += row.speakers.at(channel);
        }
        EXPECT_EQ(order.empty() ? row.speakers : ordered, row.wave);
    }
}

} // namespace kel::host
