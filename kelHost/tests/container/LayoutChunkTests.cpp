#include "container/LayoutChunk.h"

#include "AudioFiles.h"
#include "LayoutFiles.h"
#include "container/StoredFormat.h"

#include <TemporaryDirectory.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using test::LayoutContent;
using test::MakeCAF;

// The layout of a file in words.
std::string DescribeSpeakers(const std::string& bytes, std::uint32_t channels) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", bytes);
    const auto layout = ReadSpeakerLayout(directory / "take", channels);
    if (!layout.has_value()) {
        return "none";
    }
    std::string text = layout->name;
    text += layout->mask.has_value() ? fmt::format("{:x}", *layout->mask) : "";
    for (const std::uint32_t speaker : layout->speakers) {
        text += fmt::format(" {:x}", speaker);
    }
    return text;
}

std::string DescribeTag(std::uint32_t number, std::uint32_t channels) {
    return DescribeSpeakers(MakeCAF(channels, LayoutContent((number << 16U) | channels)), channels);
}

} // namespace

TEST(LayoutChunk, HasAMaskWhereItsOrderIsThatOfWave) {
    struct Row {
        std::uint32_t number;
        std::uint32_t channels;
        std::string mask;
    };
    for (const Row& row :
         {Row{100, 1, "4"}, Row{101, 2, "3"}, Row{113, 3, "7"}, Row{115, 4, "107"},
          Row{121, 6, "3f"}, Row{125, 7, "13f"}, Row{126, 8, "ff"}, Row{133, 3, "b"},
          Row{186, 5, "37"}, Row{188, 7, "70f"}, Row{189, 8, "63f"}}) {
        EXPECT_EQ(DescribeTag(row.number, row.channels), row.mask) << row.number;
    }
}

TEST(LayoutChunk, NamesTheSpeakersOfAnotherOrder) {
    EXPECT_EQ(DescribeTag(124, 6), "C L R Ls Rs LFE 4 1 2 10 20 8");
    EXPECT_EQ(DescribeTag(128, 8), "L R C LFE Ls Rs Rls Rrs 1 2 4 8 200 400 10 20");
    EXPECT_EQ(DescribeTag(130, 8), "L R C LFE Ls Rs Lt Rt 1 2 4 8 10 20 0 0");
    EXPECT_EQ(DescribeTag(107, 4), "W X Y Z 0 0 0 0");
}

TEST(LayoutChunk, NamesTheNumberOfAnUnknownLayout) {
    EXPECT_EQ(DescribeTag(999, 2), "0x03E70002");
    EXPECT_EQ(DescribeSpeakers(MakeCAF(5, LayoutContent(0x00790006)), 5), "0x00790006")
        << "a layout of six channels";
}

TEST(LayoutChunk, MayDeclareNoSpeakers) {
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, ""), 2), "none");
    EXPECT_EQ(DescribeTag(147, 4), "none");
    EXPECT_EQ(DescribeTag(0xFFFF, 4), "none");
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, LayoutContent(0)), 2), "none");
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, LayoutContent(0, 0, {0x10001, 0xFFFFFFFF})), 2), "none");
    EXPECT_EQ(DescribeSpeakers("RIFF", 2), "none");
    EXPECT_FALSE(ReadSpeakerLayout(FileName("/missing"), 2).has_value());
}

TEST(LayoutChunk, MayHaveABitmap) {
    EXPECT_EQ(DescribeSpeakers(MakeCAF(7, LayoutContent(0x10000, 0x70F)), 7), "70f");
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, LayoutContent(0x10000, 0x600000)), 2), "0x00600000");
}

TEST(LayoutChunk, MayDescribeEachChannel) {
    const auto describe = [](const std::vector<std::uint32_t>& labels) {
        const auto channels = static_cast<std::uint32_t>(labels.size());
        return DescribeSpeakers(MakeCAF(channels, LayoutContent(0, 0, labels)), channels);
    };
    EXPECT_EQ(describe({1, 2, 3, 4, 5, 6}), "3f");
    EXPECT_EQ(describe({1, 2, 3, 4, 10, 11}), "60f");
    EXPECT_EQ(describe({2, 1}), "R L 2 1");
    EXPECT_EQ(describe({1, 77}), "L 77 1 0");
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, LayoutContent(0, 0, {1, 2, 3})), 2), "3")
        << "more descriptions than channels";
}

TEST(LayoutChunk, MayBeCutOff) {
    const std::string content = LayoutContent(0, 0, {1, 2});
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, content.substr(0, 32)), 2), "1")
        << "one whole description";
    EXPECT_EQ(DescribeSpeakers(MakeCAF(2, content.substr(0, 3)), 2), "none");
    const std::string bytes = MakeCAF(2, LayoutContent(0x00650002));
    EXPECT_EQ(DescribeSpeakers(bytes.substr(0, bytes.find("chan") + 12), 2), "none");
}

TEST(LayoutChunk, IsThatOfAIFF) {
    const test::TemporaryDirectory directory;
    for (const int encoding : {SF_FORMAT_PCM_16, SF_FORMAT_ULAW}) {
        test::WriteAudio(directory / "take", SF_FORMAT_AIFF | encoding, 6, 48000,
                         test::MakeValues(60));
        const std::string bytes = test::ReadFile(directory / "take");
        test::WriteFile(directory / "take",
                        bytes + "CHAN" + test::BigEndian(12, 4) + LayoutContent(0x007C0006));
        const StoredFormat format = ReadStoredFormat(directory / "take");
        EXPECT_EQ(format.otherLayout, "C L R Ls Rs LFE");
        EXPECT_EQ(format.speakers, (std::vector<std::uint32_t>{4, 1, 2, 0x10, 0x20, 8}));
        EXPECT_FALSE(format.channelMask.has_value());
    }
}

} // namespace kel::host
