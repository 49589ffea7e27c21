#include "container/HeaderMetadata.h"

#include "MetadataText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kel::host {

namespace {

using test::BigChunk;
using test::BigEndian;
using test::DescribeFile;
using test::Field;

std::string VoiceHeader(std::uint64_t repeatedFrames) {
    return BigChunk("VHDR", BigEndian(4, 4) + BigEndian(repeatedFrames, 4) + Field("", 12));
}

} // namespace

TEST(HeaderMetadata, Of8SVXAreItsTextsAndTheNamesOfOtherChunks) {
    const std::string chunks = BigChunk("NAME", "odd") + BigChunk("AUTH", "Me") +
                               BigChunk("(c) ", "Us") + BigChunk("ANNO", "One") +
                               BigChunk("CHAN", "1234") + BigChunk("ATAK", "123456") +
                               BigChunk("BODY", "samples");
    const std::string expected = "title=odd\nartist=Me\ncopyright=Us\ncomment=One\nATAK of 6\n";
    EXPECT_EQ(DescribeFile(BigChunk("FORM", "8SVX" + VoiceHeader(0) + chunks)), expected);
    EXPECT_EQ(DescribeFile(BigChunk("FORM", "16SV" + VoiceHeader(7) + chunks)),
              expected + "omission: loops\n");
    EXPECT_EQ(DescribeFile(BigChunk("FORM", "8SVXANNO" + BigEndian(9, 4) + "Four")),
              "comment=Four\nproblem: ANNO declares 9 bytes and has 4\n");
    EXPECT_EQ(DescribeFile(BigChunk("FORM", "ILBM" + chunks)), "");
}

TEST(HeaderMetadata, OfNISTAreItsFieldsThatDoNotDescribeSamples) {
    EXPECT_EQ(
        DescribeFile("NIST_1A\n   1024\nsample_count -i 9\nspeaker_id -s3 mjw\n"
                     "Recording_Site -s9 Room 3 -s\nCaf\xE9 -s1 y\nsample_sig_bits -i 16\nno type\n"
                     "end_head\nafter -s1 x\n"),
        "speaker_id=mjw\nrecording_site=Room 3 -s\ncaf\xC3\xA9=y\n");
    EXPECT_EQ(DescribeFile("NIST_1A\n   1024\nspeaker_id -s3 mjw\n"), "");
}

TEST(HeaderMetadata, OfIRCAMAreItsCommentsAndTheNumbersOfOtherItems) {
    const auto item = [](std::uint64_t code, const std::string& content, bool isBig) {
        const auto number = [&](std::uint64_t value) {
            return isBig ? BigEndian(value, 2) : test::LittleEndian(value, 2);
        };
        return number(code) + number(4 + content.size()) + content;
    };
    for (const bool isBig : {false, true}) {
        const std::string magic =
            isBig ? std::string("\0\2\xA3\x64", 4) : std::string("\x64\xA3\1\0", 4);
        EXPECT_EQ(DescribeFile(Field(magic + Field("", 12) + item(1, "peak", isBig) +
                                         item(2, "Hello", isBig) + item(7, "other", isBig) +
                                         item(0, "", isBig) + item(2, "after", isBig),
                                     1024)),
                  "comment=Hello\nitem 7 of 5\n");
        // Some programs do not count the bytes of the code and the length.
        std::string text = item(2, "Hello there", isBig);
        text[isBig ? 3 : 2] = 11;
        EXPECT_EQ(DescribeFile(Field(magic + Field("", 12) + text + item(7, "other", isBig), 1024)),
                  "comment=Hello there\nitem 7 of 5\n");
    }
}

TEST(HeaderMetadata, OfAVRAreItsNameAndItsText) {
    const auto describe = [](std::uint64_t isLooped, std::uint64_t start, std::uint64_t end,
                             std::uint64_t keys) {
        return DescribeFile("2BIT" + Field("A long n", 8) + Field("", 6) + BigEndian(isLooped, 2) +
                            BigEndian(keys, 2) + BigEndian(48000, 4) + BigEndian(100, 4) +
                            BigEndian(start, 4) + BigEndian(end, 4) + Field("", 6) +
                            Field("ame", 20) + Field("Notes", 64) + "samples");
    };
    const std::string texts = "title=A long name\ncomment=Notes\n";
    EXPECT_EQ(describe(0, 5, 9, 0xFFFF), texts);
    EXPECT_EQ(describe(0xFFFF, 0, 100, 0xFFFF), texts);
    EXPECT_EQ(describe(0xFFFF, 1, 100, 0xFFFF), texts + "omission: loops\n");
    EXPECT_EQ(describe(0xFFFF, 0, 99, 60), texts + "omission: loops\nomission: MIDI notes\n");
    EXPECT_EQ(DescribeFile("2BIT" + Field("", 124)), "");
}

TEST(HeaderMetadata, OfMPC2000AreItsName) {
    const auto describe = [](const std::string& name, char loop) {
        return DescribeFile("\1\4" + name + std::string(20, '\0') + loop + Field("", 3));
    };
    EXPECT_EQ(describe("Snare 1         ", '\0'), "title=Snare 1\n");
    EXPECT_EQ(describe(std::string(16, ' '), '\1'), "omission: loops\n");
}

TEST(HeaderMetadata, OfSDSAreItsLoops) {
    const auto describe = [](const std::string& loopEnd, char kind) {
        return DescribeFile("\xF0\x7E" + Field("", 11) + loopEnd + Field("", 3) + kind + "\xF7");
    };
    EXPECT_EQ(describe("\5\5\5", '\x7F'), "");
    EXPECT_EQ(describe(Field("", 3), '\0'), "");
    EXPECT_EQ(describe("\5\5\5", '\0'), "omission: loops\n");
}

TEST(HeaderMetadata, OfXIAreItsNames) {
    const auto describe = [](const std::string& instrument, const std::string& sample, char kind) {
        return DescribeFile("Extended Instrument: " + Field(instrument, 22) + "\x1A" +
                            "Tracker             " + Field("", 248) + kind + Field("", 3) +
                            Field(sample, 22) + "samples");
    };
    EXPECT_EQ(describe("Bass  ", "Low", '\x10'), "title=Bass\nsoftware=Tracker\nsample name=Low\n");
    EXPECT_EQ(describe("", "", '\x11'), "software=Tracker\nomission: loops\n");
}

} // namespace kel::host
