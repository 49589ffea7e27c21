#include "container/AIFFMetadata.h"

#include "MetadataText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kel::host {

namespace {

using test::BigChunk;
using test::BigEndian;

std::string DescribeAIFF(const std::string& chunks) {
    return test::DescribeFile(BigChunk("FORM", "AIFF" + chunks));
}

// A marker whose name is a Pascal string.
std::string Marker(std::uint32_t id, std::uint32_t frame, const std::string& name) {
    return BigEndian(id, 2) + BigEndian(frame, 4) + BigEndian(name.size(), 1) + name +
           (name.size() % 2 == 0 ? "\1" : "");
}

std::string Comment(std::uint32_t marker, const std::string& text, std::uint32_t time = 0) {
    return BigEndian(time, 4) + BigEndian(marker, 2) + BigEndian(text.size(), 2) + text +
           (text.size() % 2 != 0 ? "\1" : "");
}

} // namespace

TEST(AIFFMetadata, HasItsTexts) {
    EXPECT_EQ(DescribeAIFF(BigChunk("NAME", "Tak\xE9") + BigChunk("AUTH", "Me") +
                           BigChunk("(c) ", "2026 Us") + BigChunk("ANNO", "One") +
                           BigChunk("ANNO", "Two") +
                           BigChunk("COMT", BigEndian(1, 2) + Comment(0, "Three"))),
              "title=Tak\xC3\xA9\nartist=Me\ncopyright=2026 Us\ncomment=One\ncomment=Two\n"
              "comment=Three\n");
}

TEST(AIFFMetadata, HasMarkersWithTheirComments) {
    EXPECT_EQ(
        DescribeAIFF(BigChunk("COMT", BigEndian(2, 2) + Comment(2, "Wow") + Comment(7, "Lost")) +
                     BigChunk("MARK", BigEndian(3, 2) + Marker(1, 100, "odd") +
                                          Marker(2, 200, "even") + Marker(3, 300, ""))),
        "comment=Lost\ncue 1 at 100+0: odd|\ncue 2 at 200+0: even|Wow\ncue 3 at 300+0: |\n"
        "problem: COMT describes 1 marker that MARK does not have\n");
}

TEST(AIFFMetadata, NotesTimesOfComments) {
    const std::string omission = "omission: times of comments\n";
    EXPECT_EQ(
        DescribeAIFF(BigChunk("COMT", BigEndian(2, 2) + Comment(0, "One", 1) + Comment(0, "Two"))),
        "comment=One\ncomment=Two\n" + omission);
    EXPECT_EQ(DescribeAIFF(BigChunk("MARK", BigEndian(1, 2) + Marker(1, 100, "odd")) +
                           BigChunk("COMT", BigEndian(1, 2) + Comment(1, "Wow", 0x80000000))),
              "cue 1 at 100+0: odd|Wow\n" + omission);
}

TEST(AIFFMetadata, JoinsCommentsOnOneMarker) {
    EXPECT_EQ(DescribeAIFF(BigChunk("MARK", BigEndian(1, 2) + Marker(1, 100, "odd")) +
                           BigChunk("COMT", BigEndian(1, 2) + Comment(1, "One")) +
                           BigChunk("COMT", BigEndian(1, 2) + Comment(1, "Two"))),
              "cue 1 at 100+0: odd|One; Two\nomission: separate comments on markers\n");
}

TEST(AIFFMetadata, NotesItemsThatAreDeclaredButMissing) {
    EXPECT_EQ(DescribeAIFF(BigChunk("MARK", BigEndian(9, 2) + Marker(1, 100, "odd"))),
              "cue 1 at 100+0: odd|\nproblem: MARK declares 9 markers and has 1\n");
    EXPECT_EQ(DescribeAIFF(BigChunk("COMT", BigEndian(9, 2) + Comment(0, "One"))),
              "comment=One\nproblem: COMT declares 9 comments and has 1\n");
}

TEST(AIFFMetadata, NamesOtherChunksButNoneThatDescribesSamples) {
    std::string chunks;
    for (const char* name : {"COMM", "SSND", "FVER", "PEAK", "CHAN", "FLLR", "INST", "APPL"}) {
        chunks += BigChunk(name, "1234");
    }
    EXPECT_EQ(DescribeAIFF(chunks), "INST of 4\nAPPL of 4\n");
}

TEST(AIFFMetadata, HasTheBroadcastFieldsOfACarriedChunk) {
    const auto carried = [](const std::string& name, const std::string& content) {
        return BigChunk("APPL", "kelW" + name + test::LittleEndian(content.size(), 4) + content);
    };
    const std::string fields = test::Field("A take", 338) + test::LittleEndian(48000, 8) +
                               test::Field("", 256) + "A=PCM\r\n";
    EXPECT_EQ(DescribeAIFF(carried("iXML", "<a/>") + carried("bext", fields) +
                           carried("LIST", "mine") + carried("bext", "second") +
                           BigChunk("APPL", "kelXbext" + test::LittleEndian(4, 4) + "text")),
              "bext 0: A take|||||48000|||A=PCM\r\n\niXML of 4\nLIST mine of 4\nbext of 6\n"
              "APPL of 16\n");
    EXPECT_EQ(DescribeAIFF(carried("bext", "short")),
              "bext 0: short|||||0|||\nproblem: bext has 5 bytes and needs 602\n");
}

TEST(AIFFMetadata, HasTheTextsOfAnID3Tag) {
    const std::string frame = "TALB" + BigEndian(4, 4) + BigEndian(0, 2) + "\3Alb";
    EXPECT_EQ(DescribeAIFF(BigChunk("ID3 ", "ID3\3" + std::string(2, '\0') +
                                                BigEndian(frame.size(), 4) + frame)),
              "album=Alb\n");
}

} // namespace kel::host
