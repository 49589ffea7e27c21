#include "container/MetadataChunks.h"

#include "MetadataText.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using test::BigEndian;
using test::LittleEndian;

std::string RoundTrip(const Metadata& metadata, ChunkForm form) {
    return test::DescribeFile(test::FileOf(MakeChunks(metadata, form), form));
}

Metadata MakeMetadata() {
    Metadata metadata;
    Broadcast& broadcast = metadata.broadcast.emplace();
    broadcast.description = "Scene \xC3\xA9";
    broadcast.originator = std::string(32, 'o'); // fills its field
    broadcast.originatorReference = "REF-1";
    broadcast.date = "2026-11-22";
    broadcast.time = "10:11:12";
    broadcast.timeReference = (std::uint64_t{5} << 32U) + 48000;
    broadcast.version = 2;
    broadcast.umid = std::string(64, 'u');
    broadcast.loudness = BroadcastLoudness{-2400, 710, -150, 0x7FFF, -2000};
    broadcast.codingHistory = "A=PCM,F=48000\r\n";
    metadata.tags = {{"title", "A title"}, {"artist", "Me"}, {"track", "3"}, {"ieng", "You"}};
    metadata.cuePoints = {
        {2, 4000, 500, "Region", ""}, {1, 100, 0, "odd", "Note"}, {9, 7, 0, "", ""}};
    return metadata;
}

std::vector<std::string> Names(const std::vector<NewChunk>& chunks) {
    std::vector<std::string> names;
    for (const NewChunk& chunk : chunks) {
        names.push_back(chunk.name + (chunk.name == "LIST" ? chunk.content.substr(0, 4) : ""));
    }
    return names;
}

} // namespace

TEST(MetadataChunks, RestoreEverythingInWAVEFiles) {
    const Metadata metadata = MakeMetadata();
    EXPECT_EQ(Names(MakeChunks(metadata, ChunkForm::RF64)),
              (std::vector<std::string>{"bext", "LISTINFO", "cue ", "LISTadtl"}));
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF), test::Describe(metadata));
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFX), test::Describe(metadata));
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::RIFF), std::vector<std::string>());
}

TEST(MetadataChunks, HaveTheDocumentedBytesInWAVEFiles) {
    Metadata metadata;
    metadata.tags = {{"title", "odd"}, {"genre", "even"}};
    metadata.cuePoints = {{3, 258, 5, "L", ""}};
    const auto chunks = MakeChunks(metadata, ChunkForm::RIFF);
    ASSERT_EQ(chunks.size(), 3U);
    EXPECT_EQ(chunks[0].content, "INFOINAM" + LittleEndian(4, 4) + std::string("odd\0", 4) +
                                     "IGNR" + LittleEndian(5, 4) + std::string("even\0\0", 6));
    EXPECT_EQ(chunks[1].content, LittleEndian(1, 4) + LittleEndian(3, 4) + LittleEndian(258, 4) +
                                     "data" + LittleEndian(0, 8) + LittleEndian(258, 4));
    EXPECT_EQ(chunks[2].content, "adtllabl" + LittleEndian(6, 4) + LittleEndian(3, 4) +
                                     std::string("L\0", 2) + "ltxt" + LittleEndian(20, 4) +
                                     LittleEndian(3, 4) + LittleEndian(5, 4) + "rgn " +
                                     std::string(8, '\0'));
}

TEST(MetadataChunks, RestoreTextsAndMarkersInAIFFFiles) {
    Metadata metadata;
    metadata.tags = {{"title", "odd"},     {"artist", "Me"},       {"copyright", "Us"},
                     {"comment", "One"},   {"comment", "Two"},     {"album", "Alb"},
                     {"track", "3"},       {"license", "Free"},    {"comment:more", "Named"},
                     {"software", "Tool"}, {"ieng", "Caf\xC3\xA9"}};
    metadata.cuePoints = {{2, 4000, 0, "even", ""}, {1, 100, 0, "odd", "Note"}};
    EXPECT_EQ(
        Names(MakeChunks(metadata, ChunkForm::AIFC)),
        (std::vector<std::string>{"NAME", "AUTH", "(c) ", "ANNO", "ANNO", "MARK", "COMT", "ID3 "}));
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), test::Describe(metadata));
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::AIFF), std::vector<std::string>());
}

TEST(MetadataChunks, HaveTheDocumentedBytesInAIFFFiles) {
    Metadata metadata;
    metadata.tags = {{"album", "Alb"}};
    metadata.cuePoints = {{3, 258, 0, "odd", "N"}};
    const auto chunks = MakeChunks(metadata, ChunkForm::AIFF);
    ASSERT_EQ(chunks.size(), 3U);
    EXPECT_EQ(chunks[0].content, BigEndian(1, 2) + BigEndian(3, 2) + BigEndian(258, 4) + "\3odd");
    EXPECT_EQ(chunks[1].content, BigEndian(1, 2) + BigEndian(0, 4) + BigEndian(3, 2) +
                                     BigEndian(1, 2) + std::string("N\0", 2));
    EXPECT_EQ(chunks[2].content, std::string("ID3\4\0\0\0\0\0\x0E", 10) + "TALB" + BigEndian(4, 4) +
                                     BigEndian(0, 2) + "\3Alb");
}

TEST(MetadataChunks, HaveTextsThatAreNotASCIIInAnID3TagToo) {
    Metadata metadata;
    metadata.tags = {{"title", "T\xC3\xA9"}, {"artist", "A"}, {"comment", "C"}};
    const auto chunks = MakeChunks(metadata, ChunkForm::AIFF);
    ASSERT_EQ(chunks.size(), 4U);
    EXPECT_EQ(chunks[0].content, "T\xC3\xA9");
    EXPECT_EQ(chunks[3].content, std::string("ID3\4\0\0\0\0\0\x0E", 10) + "TIT2" + BigEndian(4, 4) +
                                     BigEndian(0, 2) + "\3T\xC3\xA9");
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), test::Describe(metadata));
}

TEST(MetadataChunks, HaveTextsThatAreTooLongForAIFFOnlyInAnID3Tag) {
    Metadata metadata;
    metadata.tags = {{"title", std::string(8189, 't')},
                     {"copyright", std::string(8191, 'c')},
                     {"comment", std::string(8189, 'o')},
                     {"artist", std::string(8000, 'a')},
                     {"artist", std::string(188, 'b')}}; // "; " is between them
    EXPECT_EQ(Names(MakeChunks(metadata, ChunkForm::AIFF)),
              (std::vector<std::string>{"NAME", "(c) ", "AUTH", "ANNO"}));
    for (Tag& tag : metadata.tags) {
        tag.value += 'x';
    }
    EXPECT_EQ(Names(MakeChunks(metadata, ChunkForm::AIFF)), std::vector<std::string>{"ID3 "});
    const std::string tags = RoundTrip(metadata, ChunkForm::AIFF);
    metadata.tags[3].value += "; " + metadata.tags[4].value;
    metadata.tags.pop_back();
    EXPECT_EQ(tags, test::Describe(metadata));
}

// The library takes the 0 after "odd" for the first byte of the next comment, and 512 for its
// length.
TEST(MetadataChunks, HaveCommentsThatLibsndfileReads) {
    Metadata metadata;
    metadata.cuePoints = {{1, 5, 0, "", "odd"}, {2, 6, 0, "", "even"}};
    const auto chunks = MakeChunks(metadata, ChunkForm::AIFF);
    EXPECT_EQ(chunks.at(1).content, BigEndian(2, 2) + BigEndian(0, 4) + BigEndian(1, 2) +
                                        BigEndian(4, 2) + std::string("odd\0", 4) +
                                        BigEndian(0, 4) + BigEndian(2, 2) + BigEndian(4, 2) +
                                        "even");
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), test::Describe(metadata));
    // Here the second length would be 10240, which the library refuses.
    const std::string ones(8190, '\1');
    metadata.cuePoints = {
        {1, 5, 0, "", "a"}, {40, 6, 0, "", "bb"}, {3, 7, 0, "", ones}, {4, 8, 0, "", ones}};
    EXPECT_EQ(MakeChunks(metadata, ChunkForm::AIFF).at(1).content.substr(8, 4),
              BigEndian(2, 2) + std::string("a\0", 2));
}

TEST(MetadataChunks, CarryBroadcastFieldsInAIFFFiles) {
    Metadata metadata;
    metadata.broadcast = MakeMetadata().broadcast;
    EXPECT_EQ(Names(MakeChunks(metadata, ChunkForm::AIFC)), std::vector<std::string>{"APPL"});
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFC), test::Describe(metadata));
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::AIFC), std::vector<std::string>());
}

TEST(MetadataChunks, KeepGenresThatLookLikeNumbersAndShortForms) {
    Metadata metadata;
    for (const char* genre : {"17", "RX", "CR"}) {
        metadata.tags = {{"genre", "(17)(18)"}, {"genre", genre}};
        EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), test::Describe(metadata));
        metadata.tags.erase(metadata.tags.begin());
        EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), test::Describe(metadata));
    }
}

TEST(MetadataChunks, JoinTagsOfOneName) {
    Metadata metadata;
    metadata.tags = {{"artist", "One"}, {"title", "T"}, {"artist", "Two"}};
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF), "artist=One; Two\ntitle=T\n");
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), "artist=One; Two\ntitle=T\n");
}

TEST(MetadataChunks, NameValuesThatAreJoined) {
    using Names = std::vector<std::string>;
    Metadata metadata;
    metadata.tags = {{"artist", "One"}, {"artist", "Two"}, {"comment", "A"}, {"description", "B"}};
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::RIFF),
              (Names{"separate values of artist", "separate values of description"}));
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::AIFC), Names{"separate values of artist"});
    metadata.tags = {
        {"album", "A"}, {"album", "B"}, {"title", "T"}, {"title", std::string(9000, 't')}};
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::AIFC), Names());
    metadata.tags = {{"", "no name"}};
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::RIFF), Names{"tags without a name"});
}

TEST(MetadataChunks, TranslateNamesOfOtherContainers) {
    Metadata metadata;
    metadata.tags = {{"composer", "C"}, {"isrc", "X1"}, {"description", "D"}, {"tyer", "1999"}};
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF), "imus=C\nisrc=X1\ncomment=D\n");
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), "comment=D\ntcom=C\ntsrc=X1\ntyer=1999\n");
}

TEST(MetadataChunks, NumberPointsAnew) {
    Metadata metadata;
    using Names = std::vector<std::string>;
    metadata.cuePoints = {{5, 1, 0, "a", ""}, {5, 2, 0, "b", ""}};
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::RIFF), Names{"numbers of cue points"});
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF), "cue 1 at 1+0: a|\ncue 2 at 2+0: b|\n");
    for (const std::uint32_t number : {0U, 32768U}) {
        metadata.cuePoints[0].id = number;
        EXPECT_EQ(RoundTrip(metadata, ChunkForm::AIFF), "cue 1 at 1+0: a|\ncue 2 at 2+0: b|\n");
        EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF),
                  "cue " + std::to_string(number) + " at 1+0: a|\ncue 5 at 2+0: b|\n");
        EXPECT_EQ(NotExpressible(metadata, ChunkForm::AIFF), Names{"numbers of cue points"});
        EXPECT_EQ(NotExpressible(metadata, ChunkForm::RIFF), Names());
    }
}

TEST(MetadataChunks, OmitPartsThatAreNamed) {
    constexpr std::uint64_t kLarge = std::uint64_t{1} << 32U;
    Metadata metadata;
    metadata.tags = {{"license", "Free"}, {"license", "Too"}, {"title", "T"}};
    metadata.cuePoints = {{1, kLarge, 0, "far", ""}, {2, 5, kLarge, "long", ""}};
    metadata.others = {{"PICTURE", 5}, {"iXML", 7}, {"PICTURE", 9}};
    metadata.omissions = {"times of comments"};
    EXPECT_EQ(
        NotExpressible(metadata, ChunkForm::RIFF),
        (std::vector<std::string>{"license", "cue points after frame 4294967295",
                                  "lengths of regions", "PICTURE", "iXML", "times of comments"}));
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF), "title=T\ncue 2 at 5+4294967295: long|\n");
}

TEST(MetadataChunks, NameWhatAIFFDoesNotHave) {
    Metadata metadata = MakeMetadata();
    metadata.cuePoints[0].label = std::string(254, 'x') + "\xC3\xA9";
    metadata.cuePoints[1].note = std::string(8191, 'n');
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::AIFF),
              (std::vector<std::string>{"lengths of regions", "ends of long labels",
                                        "ends of long notes"}));
    metadata.broadcast.reset();
    EXPECT_EQ(
        RoundTrip(metadata, ChunkForm::AIFF),
        "title=A title\nartist=Me\ntrack=3\nieng=You\ncue 2 at 4000+0: " + std::string(254, 'x') +
            "|\ncue 1 at 100+0: odd|" + std::string(8190, 'n') + "\ncue 9 at 7+0: |\n");
    metadata = {};
    metadata.cuePoints.resize(32768);
    EXPECT_EQ(
        NotExpressible(metadata, ChunkForm::AIFF),
        (std::vector<std::string>{"numbers of cue points", "cue points after the first 32767"}));
}

TEST(MetadataChunks, CutTextsThatAreTooLongForBext) {
    Metadata metadata;
    Broadcast& broadcast = metadata.broadcast.emplace();
    broadcast.originator = std::string(31, 'o') + "\xC3\xA9";
    EXPECT_EQ(NotExpressible(metadata, ChunkForm::RIFF),
              (std::vector<std::string>{"ends of texts in bext"}));
    EXPECT_EQ(RoundTrip(metadata, ChunkForm::RIFF),
              "bext 0: |" + std::string(31, 'o') + "||||0|||\n");
}

} // namespace kel::host
