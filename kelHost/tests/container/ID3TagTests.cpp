#include "container/ID3Tag.h"

#include "MetadataText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kel::host {

namespace {

using test::BigEndian;
using test::Field;

const std::string kZero(1, '\0');

// A tag; numbers below 128 are the same in all versions.
std::string ID3(char version, char flags, const std::string& frames) {
    const std::size_t size = frames.size();
    return std::string("ID3") + version + '\0' + flags + '\0' +
           static_cast<char>(size / (128 * 128) % 128) + static_cast<char>(size / 128 % 128) +
           static_cast<char>(size % 128) + frames;
}

std::string Frame(const std::string& id, const std::string& content, std::uint64_t flags = 0) {
    return id + BigEndian(content.size(), 4) + BigEndian(flags, 2) + content;
}

// In a chunk of a WAVE file.
std::string DescribeID3(const std::string& tag) {
    return test::DescribeFile(test::Chunk("RIFF", "WAVE" + test::Chunk("id3 ", tag)));
}

} // namespace

TEST(ID3Tag, HasTheTextsOfEveryVersion) {
    EXPECT_EQ(DescribeID3(ID3(2, 0,
                              "TT2" + BigEndian(4, 3) + kZero + "Old" + "TYE" + BigEndian(5, 3) +
                                  kZero + "1999" + "PIC" + BigEndian(3, 3) + "abc")),
              "title=Old\ndate=1999\nPIC of 3\n");
    EXPECT_EQ(DescribeID3(ID3(
                  3, 0, Frame("TIT2", kZero + "New") + Frame("TPE1", "\1\xFF\xFE\xE9" + kZero))),
              "title=New\nartist=\xC3\xA9\n");
    EXPECT_EQ(DescribeID3(ID3(4, 0,
                              Frame("TRCK", "\3"
                                            "7/9") +
                                  Frame("TPE1", "\3One" + kZero + "Two") +
                                  Frame("TCOM", "\2" + kZero + "C") + std::string(20, '\0'))),
              "track=7/9\nartist=One\nartist=Two\ntcom=C\n");
}

TEST(ID3Tag, HasCommentsLinksAndTextsOfTheUser) {
    EXPECT_EQ(DescribeID3(ID3(3, 0,
                              Frame("COMM", kZero + "eng" + kZero + "Plain") +
                                  Frame("COMM", kZero + "engMore" + kZero + "Named") +
                                  Frame("USLT", kZero + "eng" + kZero + "La la") +
                                  Frame("TXXX", kZero + "LICENSE" + kZero + "Free") +
                                  Frame("WCOP", "https://example.org") +
                                  Frame("WXXX", kZero + "Shop" + kZero + "none"))),
              "comment=Plain\ncomment:more=Named\nlyrics=La la\nlicense=Free\n"
              "wcop=https://example.org\nshop=none\n"
              "omission: languages of comments\nomission: languages of lyrics\n");
}

TEST(ID3Tag, HasCommentsWithoutALanguage) {
    for (const std::string& language : {std::string("XXX"), std::string("xxx"), Field("", 3)}) {
        EXPECT_EQ(DescribeID3(ID3(3, 0, Frame("COMM", kZero + language + kZero + "Plain"))),
                  "comment=Plain\n");
    }
}

// The description of a link has an encoding, the link itself does not.
TEST(ID3Tag, HasLinksInLatinLetters) {
    const std::string wide = "\xFF\xFES" + kZero + "h" + kZero;
    EXPECT_EQ(DescribeID3(ID3(3, 0, Frame("WXXX", "\1" + wide + kZero + kZero + "http://a"))),
              "sh=http://a\n");
    EXPECT_EQ(DescribeID3(ID3(3, 0, Frame("WXXX", kZero + kZero + "http://a"))), "wxxx=http://a\n");
    EXPECT_EQ(DescribeID3(ID3(3, 0, Frame("WXXX", kZero + "Shop"))), "omission: empty tags\n");
}

TEST(ID3Tag, NamesGenres) {
    for (const auto& [stored, genre] : {std::pair("17", "Rock"),
                                        {"(17)", "Rock"},
                                        {"(17)Hard", "Rock\ngenre=Hard"},
                                        {"(17)Rock", "Rock"},
                                        {"(17)(18)", "Rock\ngenre=Techno"},
                                        {"(RX)(CR)", "Remix\ngenre=Cover"},
                                        {"(200)", "(200)"},
                                        {"1984", "1984"},
                                        {"(17", "(17"},
                                        {"Folk", "Folk"}}) {
        EXPECT_EQ(DescribeID3(ID3(3, 0, Frame("TCON", kZero + stored))),
                  std::string("genre=") + genre + "\n");
    }
}

TEST(ID3Tag, RemovesUnsynchronisation) {
    const std::string text = "\1\xFF" + kZero + "\xFE" + "a" + kZero;
    EXPECT_EQ(DescribeID3(ID3(3, '\x80', "TIT2" + BigEndian(5, 4) + BigEndian(0, 2) + text)),
              "title=a\n");
    EXPECT_EQ(DescribeID3(ID3(4, 0, Frame("TIT2", text, 2))), "title=a\n");
}

TEST(ID3Tag, SkipsItsExtendedHeader) {
    const std::string title = Frame("TIT2", kZero + "New");
    EXPECT_EQ(DescribeID3(ID3(3, '\x40', BigEndian(6, 4) + std::string(6, '\0') + title)),
              "title=New\n");
    EXPECT_EQ(DescribeID3(ID3(4, '\x40', BigEndian(6, 4) + std::string(2, '\0') + title)),
              "title=New\n");
}

TEST(ID3Tag, NamesFramesThatAreNoReadableText) {
    EXPECT_EQ(DescribeID3(ID3(3, 0,
                              Frame("APIC", "picture") + Frame("TIT2", "packed", 0x80) +
                                  Frame("TALB", "secret", 0x40) +
                                  Frame("TPE1", "g" + kZero + "A", 0x20))),
              "artist=A\nAPIC of 7\nTIT2 of 6\nTALB of 6\n");
    EXPECT_EQ(DescribeID3(ID3(4, 0,
                              Frame("TIT2", "packed", 0x08) + Frame("TALB", "secret", 0x04) +
                                  Frame("TPE1", "g1234" + kZero + "A", 0x41))),
              "artist=A\nTIT2 of 6\nTALB of 6\n");
}

TEST(ID3Tag, EndsAtAFrameThatReachesBeyondIt) {
    EXPECT_EQ(
        DescribeID3(ID3(3, 0, Frame("TIT2", kZero + "New") + "TPE1" + BigEndian(99, 4) + "\0\0")),
        "title=New\n");
    EXPECT_EQ(DescribeID3(ID3(3, 0, "TPE1" + BigEndian(0xFFFFFFFF, 4) + BigEndian(0, 2) + "abc")),
              "problem: TPE1 in id3 declares 4294967295 bytes and has 3\n");
}

TEST(ID3Tag, EndsWithItsChunk) {
    EXPECT_EQ(
        DescribeID3(ID3(3, 0, Frame("TIT2", kZero + "New") + std::string(20, '\0')).substr(0, 24)),
        "title=New\nproblem: id3 declares 44 bytes and has 24\n");
    EXPECT_EQ(
        test::DescribeFile(test::Chunk(
            "RIFF", "WAVE" +
                        test::Chunk("id3 ", ID3(3, 0, Frame("TIT2", kZero + "New")).substr(0, 22)) +
                        test::Chunk("JUNK", "other"))),
        "problem: id3 declares 24 bytes and has 22\n"
        "problem: TIT2 in id3 declares 4 bytes and has 2\n");
}

TEST(ID3Tag, NeedsAKnownVersion) {
    EXPECT_EQ(DescribeID3(ID3(5, 0, Frame("TIT2", kZero + "New"))),
              "problem: id3 has a version that is not known\n");
}

TEST(ID3Tag, HasSizesOfSevenBitsPerByteInItsLastVersion) {
    const std::string title(199, 'x');
    const std::string frame = "TIT2" + BigEndian(0x148, 4) + BigEndian(0, 2) + "\3" + title;
    EXPECT_EQ(DescribeID3(ID3(4, 0,
                              frame + Frame("TPE1", "\3"
                                                    "A"))),
              "title=" + title + "\nartist=A\n");
}

TEST(ID3Tag, HasALimitedNumberOfFrames) {
    constexpr std::size_t kFrames = 4096;
    std::string frames = Frame("TIT2", "\3New");
    for (std::size_t i = 1; i < kFrames; ++i) {
        frames += Frame("TALB", "\3");
    }
    EXPECT_EQ(DescribeID3(ID3(3, 0, frames)), "title=New\nomission: empty tags\n");
    EXPECT_EQ(DescribeID3(ID3(3, 0,
                              frames + Frame("TPE1", "\3"
                                                     "A"))),
              "title=New\nomission: empty tags\nproblem: id3 has more than 4096 frames\n");
}

} // namespace kel::host
