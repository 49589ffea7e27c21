#include "container/RIFFMetadata.h"

#include "MetadataText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using test::BigEndian;
using test::LittleEndian;

std::string DescribeWAVE(const std::string& chunks) {
    return test::DescribeFile(test::Chunk("RIFF", "WAVE" + chunks));
}

// The fields of "bext", with a time reference of 5 * 2^32 + 48000.
std::string BroadcastFields(std::uint16_t version, const std::string& description) {
    return test::Field(description, 256) + test::Field("Recorder", 32) + test::Field("REF-1", 32) +
           "2026-11-22" + "10:11:12" + LittleEndian(48000, 4) + LittleEndian(5, 4) +
           LittleEndian(version, 2) + std::string(64, 'u') + LittleEndian(0xF6A0, 2) +
           LittleEndian(710, 2) + LittleEndian(0xFF6A, 2) + LittleEndian(0x7FFF, 2) +
           LittleEndian(0xF830, 2) + std::string(180, '\0');
}

std::string CuePointBytes(std::uint32_t id, std::uint32_t frame) {
    return LittleEndian(id, 4) + LittleEndian(frame, 4) + "data" + LittleEndian(0, 8) +
           LittleEndian(frame, 4);
}

} // namespace

TEST(RIFFMetadata, HasTheFieldsOfEachVersionOfBext) {
    const std::string fields = ": Caf\xC3\xA9|Recorder|REF-1|2026-11-22|10:11:12|21474884480|";
    const std::string umid(64, 'u');
    const std::string history = "A=PCM,F=48000\r\n";
    EXPECT_EQ(DescribeWAVE(test::Chunk("bext", BroadcastFields(0, "Caf\xE9") + history)),
              "bext 0" + fields + "||" + history + "\n");
    EXPECT_EQ(DescribeWAVE(test::Chunk("bext", BroadcastFields(1, "Caf\xE9") + history)),
              "bext 1" + fields + umid + "||" + history + "\n");
    EXPECT_EQ(DescribeWAVE(test::Chunk("bext", BroadcastFields(2, "Caf\xE9") + history)),
              "bext 2" + fields + umid + "|-2400 710 -150 32767 -2000|" + history + "\n");
}

TEST(RIFFMetadata, UsesThePresentFieldsOfATruncatedBext) {
    const std::string fields = BroadcastFields(2, "Scene");
    EXPECT_EQ(DescribeWAVE(test::Chunk("bext", fields.substr(0, 344))),
              "bext 0: Scene|Recorder|REF-1|2026-11-22|10:11:12|48000|||\n"
              "problem: bext has 344 bytes and needs 602\n");
    EXPECT_EQ(test::DescribeFile("RIFF" + LittleEndian(1000, 4) + "WAVEbext" +
                                 LittleEndian(610, 4) + fields.substr(0, 300)),
              "bext 0: Scene|Recorder|REF-1|||0|||\n"
              "problem: bext declares 610 bytes and has 300\n");
}

TEST(RIFFMetadata, HasTheTagsOfListInfo) {
    const std::string zero(1, '\0');
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + test::Chunk("INAM", "A title" + zero) +
                                                   test::Chunk("IART", "B\xF6"
                                                                       "b") +
                                                   zero + test::Chunk("IENG", "Me" + zero + zero) +
                                                   test::Chunk("IPRT", "3" + zero) +
                                                   test::Chunk("ITRK", "3" + zero) +
                                                   test::Chunk("ICMT", zero + zero))),
              "title=A title\nartist=B\xC3\xB6"
              "b\nieng=Me\ntrack=3\nomission: empty tags\n");
}

TEST(RIFFMetadata, NotesTextsAfterAZeroByte) {
    const std::string text = "one" + std::string(1, '\0') + "two";
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + test::Chunk("INAM", text + "\0"))),
              "title=one\nomission: texts after a zero byte\n");
}

TEST(RIFFMetadata, NotesBytesOfAListThatAreNoItems) {
    const std::string item = test::Chunk("INAM", "even");
    for (const auto& [rest, problem] : std::vector<std::pair<std::string, std::string>>{
             {std::string(9, '\0'), ""},
             {"no", "problem: LIST INFO has 2 bytes that are not part of an item\n"},
             {"\1\2\3\4some text",
              "problem: LIST INFO has 13 bytes that are not part of an item\n"}}) {
        EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + item + rest)),
                  "title=even\n" + problem);
    }
}

TEST(RIFFMetadata, FindsItemsOfOddSizeWithoutPadding) {
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + test::Chunk("INAM", "odd") +
                                                   test::Chunk("IART", "even"))),
              "title=odd\nartist=even\n");
}

TEST(RIFFMetadata, NotesAnItemThatReachesBeyondItsList) {
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + test::Chunk("INAM", "ok") + "ICMT" +
                                                   LittleEndian(0xFFFFFFF4, 4) + "some")),
              "title=ok\ncomment=some\n"
              "problem: ICMT in LIST INFO declares 4294967284 bytes and has 4\n");
}

TEST(RIFFMetadata, SkipsAListInsideOfAList) {
    EXPECT_EQ(DescribeWAVE(test::Chunk(
                  "LIST", "INFO" + test::Chunk("LIST", "INFO" + test::Chunk("INAM", "in")) +
                              test::Chunk("INAM", "out"))),
              "title=out\nproblem: LIST INFO contains a LIST, which is skipped\n");
}

TEST(RIFFMetadata, HasCuePointsWithTheirLabelsAndRegions) {
    const std::string zero(1, '\0');
    const std::string region = LittleEndian(2, 4) + LittleEndian(500, 4) + "rgn " +
                               std::string(8, '\0') + "Region" + std::string(2, '\0');
    EXPECT_EQ(
        DescribeWAVE(
            test::Chunk("LIST", "adtl" + test::Chunk("labl", LittleEndian(1, 4) + "One" + zero) +
                                    test::Chunk("note", LittleEndian(1, 4) + "Wow" + zero) +
                                    test::Chunk("ltxt", region) + test::Chunk("file", "1234")) +
            test::Chunk("cue ",
                        LittleEndian(2, 4) + CuePointBytes(2, 4000) + CuePointBytes(1, 100))),
        "cue 2 at 4000+500: Region|\ncue 1 at 100+0: One|Wow\nLIST adtl file of 4\n");
}

TEST(RIFFMetadata, NamesFurtherTextsOfACuePoint) {
    const std::string point = LittleEndian(1, 4);
    const std::string region = point + LittleEndian(500, 4) + "rgn " + std::string(8, '\0');
    EXPECT_EQ(DescribeWAVE(test::Chunk("cue ", LittleEndian(1, 4) + CuePointBytes(1, 100)) +
                           test::Chunk("LIST", "adtl" + test::Chunk("ltxt", region + "Region") +
                                                   test::Chunk("ltxt", region) +
                                                   test::Chunk("labl", point + "Same") +
                                                   test::Chunk("labl", point + "Same") +
                                                   test::Chunk("labl", point + "Others") +
                                                   test::Chunk("note", point + "Note") +
                                                   test::Chunk("note", point))),
              "cue 1 at 100+500: Same|Note\nLIST adtl ltxt of 20\nLIST adtl labl of 10\n"
              "LIST adtl note of 4\nLIST adtl ltxt of 6\n");
}

TEST(RIFFMetadata, NotesPurposesAndLanguagesOfRegions) {
    const std::string point = LittleEndian(1, 4) + LittleEndian(500, 4);
    const auto describe = [&](const std::string& region) {
        return DescribeWAVE(test::Chunk("cue ", LittleEndian(1, 4) + CuePointBytes(1, 100)) +
                            test::Chunk("LIST", "adtl" + test::Chunk("ltxt", point + region)));
    };
    const std::string cue = "cue 1 at 100+500: |\n";
    EXPECT_EQ(describe(std::string(12, '\0')), cue);
    EXPECT_EQ(describe("scrp" + std::string(8, '\0')), cue + "omission: purposes of regions\n");
    for (std::size_t i = 0; i < 4; ++i) { // country, language, dialect, code page
        EXPECT_EQ(
            describe("rgn " + std::string(2 * i, '\0') + "\x09" + std::string(7 - 2 * i, '\0')),
            cue + "omission: languages of regions\n");
    }
}

TEST(RIFFMetadata, NamesASecondRegionOfACuePointWhateverTheLengthOfTheFirst) {
    const auto region = [](std::uint64_t length, const std::string& text) {
        return test::Chunk("ltxt", LittleEndian(1, 4) + LittleEndian(length, 4) + "rgn " +
                                       std::string(8, '\0') + text);
    };
    EXPECT_EQ(DescribeWAVE(test::Chunk("cue ", LittleEndian(1, 4) + CuePointBytes(1, 100)) +
                           test::Chunk("LIST", "adtl" + region(0, "None") + region(5, "Long"))),
              "cue 1 at 100+0: None|\nLIST adtl ltxt of 24\n");
}

TEST(RIFFMetadata, NotesPositionsOfCuePointsOtherThanTheirFrames) {
    const auto describe = [](std::uint64_t position, const std::string& chunk, std::uint64_t start,
                             std::uint64_t block) {
        return DescribeWAVE(test::Chunk(
            "cue ", LittleEndian(1, 4) + LittleEndian(1, 4) + LittleEndian(position, 4) + chunk +
                        LittleEndian(start, 4) + LittleEndian(block, 4) + LittleEndian(9, 4)));
    };
    const std::string cue = "cue 1 at 9+0: |\n";
    EXPECT_EQ(describe(0, "data", 0, 0), cue);
    EXPECT_EQ(describe(9, std::string(4, '\0'), 0, 0), cue);
    const std::string omission = cue + "omission: other positions of cue points\n";
    EXPECT_EQ(describe(8, "data", 0, 0), omission);
    EXPECT_EQ(describe(9, "slnt", 0, 0), omission);
    EXPECT_EQ(describe(9, "data", 1, 0), omission);
    EXPECT_EQ(describe(9, "data", 0, 1), omission);
}

TEST(RIFFMetadata, NotesCuePointsThatAreDeclaredButMissing) {
    EXPECT_EQ(DescribeWAVE(test::Chunk("cue ", LittleEndian(9, 4) + CuePointBytes(1, 100) +
                                                   CuePointBytes(2, 200) + "rest")),
              "cue 1 at 100+0: |\ncue 2 at 200+0: |\nproblem: cue declares 9 points and has 2\n");
}

TEST(RIFFMetadata, HasNoMoreCuePointsThanAreDeclared) {
    EXPECT_EQ(DescribeWAVE(test::Chunk("cue ", LittleEndian(1, 4) + CuePointBytes(1, 100) +
                                                   CuePointBytes(2, 200))),
              "cue 1 at 100+0: |\n");
}

TEST(RIFFMetadata, NotesLabelsWithoutACuePoint) {
    EXPECT_EQ(DescribeWAVE(
                  test::Chunk("LIST", "adtl" + test::Chunk("labl", LittleEndian(7, 4) + "Lost"))),
              "problem: LIST adtl describes 1 point that cue does not have\n");
}

TEST(RIFFMetadata, ReadsBigEndianNumbersInRIFX) {
    const std::string cue = BigEndian(1, 4) + BigEndian(3, 4) + std::string(12, '\0') +
                            BigEndian(0, 4) + BigEndian(9, 4);
    const std::string info = "INFOINAM" + BigEndian(4, 4) + "Big\1";
    const std::string content =
        "WAVEcue " + BigEndian(cue.size(), 4) + cue + "LIST" + BigEndian(info.size(), 4) + info;
    EXPECT_EQ(test::DescribeFile("RIFX" + BigEndian(content.size(), 4) + content),
              "title=Big\1\ncue 3 at 9+0: |\n");
}

TEST(RIFFMetadata, NamesOtherChunksButNoPaddingAndNoneThatDescribesSamples) {
    std::string chunks;
    for (const char* name : {"fmt ", "PEAK", "levl", "JUNK", "junk", "PAD ", "FLLR", "filr", "fact",
                             "iXML", "smpl", "acid", "_PMX", "umid", "data"}) {
        chunks += test::Chunk(name, "1234");
    }
    EXPECT_EQ(DescribeWAVE(chunks + test::Chunk("LIST", "wavl") + test::Chunk("LIST", "exif") +
                           test::Chunk("id3 ", "no tag")),
              "iXML of 4\nsmpl of 4\nacid of 4\n_PMX of 4\numid of 4\nLIST exif of 4\n"
              "id3 of 6\nproblem: id3 has no ID3v2 tag\n");
}

TEST(RIFFMetadata, IsReadUpToALimit) {
    const std::string large(kMaxPartBytes, 'x');
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + test::Chunk("INAM", large))),
              "title=" + large.substr(0, kMaxTextBytes - 5) +
                  "\nproblem: LIST INFO has 1048588 bytes; only the first 1048576 are read\n"
                  "problem: INAM in LIST INFO declares 1048576 bytes and has 1048564\n"
                  "problem: there are more than 524288 bytes of text\n");
    std::string others;
    for (std::size_t i = 0; i <= kMaxOthers; ++i) {
        others += test::Chunk("abcd", "");
    }
    std::string expected;
    for (std::size_t i = 0; i < kMaxOthers; ++i) {
        expected += "abcd of 0\n";
    }
    EXPECT_EQ(DescribeWAVE(others), expected + "problem: there are more than 4096 other parts\n");
    std::string items;
    expected.clear();
    for (std::size_t i = 0; i < kMaxTags; ++i) {
        items += test::Chunk("INAM", std::to_string(1000 + i));
        expected += "title=" + std::to_string(1000 + i) + "\n";
    }
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + items)), expected);
    EXPECT_EQ(DescribeWAVE(test::Chunk("LIST", "INFO" + items + test::Chunk("IART", "A"))),
              expected + "problem: there are more than 4096 tags\n");
    std::string lists;
    for (std::uint64_t read = 0; read <= kMaxMetadataBytes; read += kMaxPartBytes) {
        lists += test::Chunk(
            "LIST", "INFO" + test::Chunk("INAM", "T" + std::string(large.size() - 13, '\0')));
    }
    EXPECT_EQ(DescribeWAVE(lists),
              "title=T\nproblem: LIST INFO has 1048576 bytes; only the first 0 are read\n");
}

TEST(RIFFMetadata, HasALimitedNumberOfCuePoints) {
    const auto cue = [](std::uint32_t count) {
        std::string points = LittleEndian(count, 4);
        for (std::uint32_t i = 0; i < count; ++i) {
            points += CuePointBytes(i, i);
        }
        return test::Chunk("cue ", points);
    };
    std::string expected;
    for (std::size_t i = 0; i < kMaxCuePoints; ++i) {
        expected += "cue " + std::to_string(i) + " at " + std::to_string(i) + "+0: |\n";
    }
    EXPECT_EQ(DescribeWAVE(cue(kMaxCuePoints)), expected);
    EXPECT_EQ(DescribeWAVE(cue(kMaxCuePoints + 1)),
              expected + "problem: there are more than 8192 cue points\n");
}

TEST(RIFFMetadata, HasALimitedAmountOfTextOfAllKinds) {
    // With the name of the tag, all bytes but those of a history of four and a label of three.
    const std::string tag(kMaxTextBytes - 12, 'x');
    const std::string chunks = test::Chunk("LIST", "INFO" + test::Chunk("INAM", tag)) +
                               test::Chunk("bext", std::string(602, '\0') + "A=PC") +
                               test::Chunk("cue ", LittleEndian(1, 4) + CuePointBytes(1, 9));
    const auto label = [](const std::string& text) {
        return test::Chunk("LIST", "adtl" + test::Chunk("labl", LittleEndian(1, 4) + text));
    };
    const std::string before = "bext 0: |||||0|||A=PC\ntitle=" + tag + "\ncue 1 at 9+0: ";
    EXPECT_EQ(DescribeWAVE(chunks + label("abc")), before + "abc|\n");
    // A character is not cut in two.
    EXPECT_EQ(DescribeWAVE(chunks + label("ab\xC3\xA9")),
              before + "ab|\nproblem: there are more than 524288 bytes of text\n");
}

TEST(RIFFMetadata, NotesThatThereAreTooManyChunks) {
    std::string chunks;
    for (std::size_t i = 0; i < kMaxChunks; ++i) {
        chunks += test::Chunk("fmt ", "");
    }
    EXPECT_EQ(DescribeWAVE(chunks), "");
    EXPECT_EQ(DescribeWAVE(chunks + test::Chunk("fmt ", "")),
              "problem: there are more than 65536 chunks\n");
}

TEST(RIFFMetadata, NotesALimitedNumberOfProblems) {
    std::string chunks;
    std::string expected;
    for (std::size_t i = 100; i <= 100 + kMaxProblems; ++i) {
        const std::string bytes = std::to_string(i);
        chunks += test::Chunk("LIST", "INFOINAM" + LittleEndian(i, 4));
        expected += i == 100 + kMaxProblems
                        ? ""
                        : "problem: INAM in LIST INFO declares " + bytes + " bytes and has 0\n";
    }
    EXPECT_EQ(DescribeWAVE(chunks), expected);
}

} // namespace kel::host
