#include "container/ChunkAdjustment.h"

#include "container/StoredBytes.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace kel::host {

namespace {

// Frames 100 to 199.
const FramePart kPart{100, 100, false};

std::string Little(std::uint64_t number, std::size_t bytes = 4) {
    return NumberBytes(number, bytes, StoredOrder::Little);
}

std::string Big(std::uint64_t number, std::size_t bytes) {
    return NumberBytes(number, bytes, StoredOrder::Big);
}

std::string CuePoint(std::uint64_t number, std::uint64_t position, std::uint64_t frame) {
    return Little(number) + Little(position) + "data" + Little(0) + Little(0) + Little(frame);
}

// A text of a list "adtl".
std::string Text(const std::string& name, const std::string& content) {
    return name + Little(content.size()) + content + std::string(content.size() % 2, '\0');
}

std::string Loop(std::uint64_t first, std::uint64_t last) {
    return Little(7) + Little(0) + Little(first) + Little(last) + Little(0) + Little(2);
}

std::string Sampler(std::uint64_t count, const std::string& loops) {
    return std::string(28, 's') + Little(count) + Little(3) + loops;
}

std::string Marker(std::uint64_t number, std::uint64_t frame, const std::string& text) {
    return Big(number, 2) + Big(frame, 4) + Big(text.size(), 1) + text +
           std::string((text.size() + 1) % 2, '\0');
}

std::string Comment(std::uint64_t marker, const std::string& text) {
    return Big(1234, 4) + Big(marker, 2) + Big(text.size(), 2) + text +
           std::string(text.size() % 2, '\0');
}

const std::string kCue = Little(4) + CuePoint(1, 99, 99) + CuePoint(2, 100, 100) +
                         CuePoint(3, 0, 200) + CuePoint(4, 201, 201);

// Adjusts a chunk of a WAVE file with the points of kCue.
std::optional<std::string> AdjustWAVE(const std::string& name, const std::string& content) {
    ChunkAdjustment adjustment(false, kPart);
    adjustment.AddPoints(kCue);
    return adjustment.Adjust(name, content);
}

// The points: 99 is before the part, 200 between its last frame and the next, 201 after it.
const std::string kMarkers = Big(4, 2) + Marker(1, 99, "a") + Marker(2, 100, "bc") +
                             Marker(3, 200, "") + Marker(4, 201, "d");

std::optional<std::string> AdjustAIFF(const std::string& name, const std::string& content) {
    ChunkAdjustment adjustment(true, kPart);
    adjustment.AddPoints(kMarkers);
    return adjustment.Adjust(name, content);
}

std::string Instrument(const std::string& sustain, const std::string& release) {
    return std::string(8, 'i') + sustain + release;
}

using Removed = std::map<std::string, std::uint64_t>;

} // namespace

TEST(ChunkAdjustment, ConcernsNothingInAWholeFile) {
    for (const bool isAIFF : {false, true}) {
        const ChunkAdjustment adjustment(isAIFF, {0, 100, true});
        for (const char* name : {"bext", "cue ", "LIST adtl", "smpl", "MARK", "INST", "COMT"}) {
            EXPECT_FALSE(adjustment.Concerns(name)) << name;
            EXPECT_FALSE(adjustment.DefinesPoints(name)) << name;
        }
    }
}

TEST(ChunkAdjustment, ConcernsTheTimeReferenceOnlyAfterTheStart) {
    EXPECT_TRUE(ChunkAdjustment(false, kPart).Concerns("bext"));
    EXPECT_FALSE(ChunkAdjustment(false, {0, 100, false}).Concerns("bext"));
}

TEST(ChunkAdjustment, IncreasesTheTimeReference) {
    const std::string start(338, 'x');
    const std::string end(300, 'y');
    EXPECT_EQ(AdjustWAVE("bext", start + Little(0xFFFFFFFF, 8) + end),
              start + Little(0x100000063, 8) + end);
    EXPECT_EQ(AdjustWAVE("bext", start + Little(5, 7)), std::nullopt) << "truncated";
    EXPECT_EQ(AdjustWAVE("bext", start + Little(0 - std::uint64_t{100}, 8)), std::nullopt)
        << "wraps";
}

TEST(ChunkAdjustment, IncreasesTheTimesInIXML) {
    const auto times = [](const std::string& high, const std::string& low) {
        return "<BWFXML><SPEED><TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>" + high +
               "</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>\n<TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>" +
               low +
               "</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO></SPEED><BEXT><BWF_TIME_REFERENCE_LOW>" +
               low + "</BWF_TIME_REFERENCE_LOW><BWF_TIME_REFERENCE_HIGH>" + high +
               "</BWF_TIME_REFERENCE_HIGH></BEXT></BWFXML>";
    };
    EXPECT_EQ(AdjustWAVE("iXML", times("0", "5")), times("0", "105"));
    EXPECT_EQ(AdjustWAVE("iXML", times("9", "4294967295")), times("10", "99"));
    EXPECT_EQ(AdjustWAVE("iXML", times("4294967295", "4294967295")), std::nullopt) << "wraps";
    EXPECT_EQ(AdjustWAVE("iXML", times("0", "5 ")), std::nullopt) << "no number";
    const std::string low = "<BWF_TIME_REFERENCE_LOW>5</BWF_TIME_REFERENCE_LOW>";
    EXPECT_EQ(AdjustWAVE("iXML", low), std::nullopt) << "half a number";
    EXPECT_EQ(AdjustWAVE("iXML", "<BWFXML/>"), "<BWFXML/>");
    const std::string padded("<BWFXML/>\0\0", 11);
    EXPECT_EQ(AdjustWAVE("iXML", padded), padded);
    EXPECT_EQ(AdjustWAVE("iXML", std::string("<\0B\0", 4)), std::nullopt) << "UTF-16";
}

TEST(ChunkAdjustment, MovesAndRemovesTimersOfCart) {
    const std::string start(684, 'x');
    const std::string end(1300, 'y');
    const std::string unused = std::string(4, '\0') + Little(150);
    const auto timers = [&](const std::string& first) {
        return start + first + unused + unused + end;
    };
    const std::string last = "AUDe" + Little(200) + unused;
    ChunkAdjustment adjustment(false, kPart);
    EXPECT_EQ(adjustment.Adjust("cart", timers("AUDs" + Little(100) + "INTs" + Little(99) + last +
                                               "SEGs" + Little(201) + unused)),
              timers("AUDs" + Little(0) + std::string(8, '\0') + "AUDe" + Little(100) + unused +
                     std::string(8, '\0') + unused));
    EXPECT_EQ(adjustment.Removed(), (Removed{{"timer", 2}}));
    EXPECT_EQ(adjustment.Adjust("cart", start + std::string(63, '\0')), std::nullopt)
        << "truncated";
    EXPECT_TRUE(adjustment.Concerns("cart"));
}

TEST(ChunkAdjustment, MovesAndRemovesCuePoints) {
    ChunkAdjustment adjustment(false, kPart);
    adjustment.AddPoints(kCue);
    EXPECT_EQ(adjustment.Adjust("cue ", kCue), Little(2) + CuePoint(2, 0, 0) + CuePoint(3, 0, 100));
    EXPECT_EQ(adjustment.Removed(), (Removed{{"cue point", 2}}));
}

TEST(ChunkAdjustment, LeavesNothingOfChunksWhosePointsAreRemoved) {
    ChunkAdjustment adjustment(false, kPart);
    const std::string cue = Little(1) + CuePoint(1, 5, 5);
    adjustment.AddPoints(cue);
    EXPECT_EQ(adjustment.Adjust("cue ", cue), "");
    EXPECT_EQ(adjustment.Adjust("LIST adtl", "adtl" + Text("labl", Little(1) + "a")), "");
    ChunkAdjustment markers(true, kPart);
    const std::string mark = Big(1, 2) + Marker(1, 5, "");
    markers.AddPoints(mark);
    EXPECT_EQ(markers.Adjust("MARK", mark), "");
    EXPECT_EQ(markers.Adjust("COMT", Big(1, 2) + Comment(1, "a")), "");
}

TEST(ChunkAdjustment, RemovesTheTextsOfCuePointsAndShortensRegions) {
    const std::string region = "rgn " + std::string(8, '\0');
    EXPECT_EQ(AdjustWAVE("LIST adtl",
                         "adtl" + Text("labl", Little(1) + "gone") +
                             Text("labl", Little(2) + "kept") + Text("note", Little(4) + "gone") +
                             Text("ltxt", Little(1) + Little(50) + region) +
                             Text("ltxt", Little(2) + Little(101) + region) +
                             Text("ltxt", Little(3) + Little(60) + region) +
                             Text("labl", Little(9) + "of no point") + Text("more", "abc")),
              "adtl" + Text("labl", Little(2) + "kept") +
                  Text("ltxt", Little(2) + Little(100) + region) +
                  Text("ltxt", Little(3) + Little(0) + region) +
                  Text("labl", Little(9) + "of no point") + Text("more", "abc"));
}

TEST(ChunkAdjustment, RefusesTextsThatEndAfterTheirList) {
    EXPECT_EQ(AdjustWAVE("LIST adtl", "adtllabl" + Little(9) + Little(2) + "abcd"), std::nullopt);
    EXPECT_EQ(AdjustWAVE("LIST adtl", "adtllabl" + Little(0xFFFFFFFF) + Little(2)), std::nullopt);
    EXPECT_EQ(AdjustWAVE("LIST adtl", "adtllabl"), std::nullopt);
}

TEST(ChunkAdjustment, RefusesEverythingThatRefersToDamagedPoints) {
    for (const auto& points : {std::optional<std::string>(), std::optional<std::string>("abc"),
                               std::optional(Little(3) + CuePoint(1, 100, 100)),
                               std::optional(Little(0xFFFFFFFF) + CuePoint(1, 100, 100))}) {
        ChunkAdjustment adjustment(false, kPart);
        adjustment.AddPoints(points);
        EXPECT_EQ(adjustment.Adjust("cue ", points.value_or("")), std::nullopt);
        EXPECT_EQ(adjustment.Adjust("LIST adtl", "adtl"), std::nullopt);
        EXPECT_NE(adjustment.Adjust("smpl", Sampler(0, "")), std::nullopt);
    }
    for (const std::string& points : {Big(2, 2) + Marker(1, 100, "a"), Big(1, 2) + Big(1, 6),
                                      Big(1, 2) + Big(1, 6) + "\xFF" + "abc", std::string("a")}) {
        ChunkAdjustment adjustment(true, kPart);
        adjustment.AddPoints(points);
        EXPECT_EQ(adjustment.Adjust("MARK", points), std::nullopt);
        EXPECT_EQ(adjustment.Adjust("INST", Instrument(Big(0, 6), Big(0, 6))), std::nullopt);
        EXPECT_EQ(adjustment.Adjust("COMT", Big(0, 2)), std::nullopt);
    }
}

TEST(ChunkAdjustment, RefusesMorePointsThanUsefulFilesHave) {
    ChunkAdjustment adjustment(false, kPart);
    std::string points;
    for (std::uint64_t i = 0; i < 40000; ++i) {
        points += CuePoint(i, 0, 100);
    }
    adjustment.AddPoints(Little(40000) + points);
    EXPECT_EQ(adjustment.Adjust("LIST adtl", "adtlabcd" + Little(0)), "adtlabcd" + Little(0));
    for (std::size_t i = 0; i < 40000; ++i) {
        ReplaceNumber(points, i * 24, 4, 40000 + i, StoredOrder::Little);
    }
    adjustment.AddPoints(Little(40000) + points);
    EXPECT_EQ(adjustment.Adjust("LIST adtl", "adtlabcd" + Little(0)), std::nullopt);
}

TEST(ChunkAdjustment, KeepsTheTextsOfANumberThatIsUsedTwice) {
    ChunkAdjustment adjustment(false, kPart);
    const std::string cue = Little(2) + CuePoint(1, 150, 150) + CuePoint(1, 5, 5);
    adjustment.AddPoints(cue);
    EXPECT_EQ(adjustment.Adjust("cue ", cue), Little(1) + CuePoint(1, 50, 50));
    const std::string texts = "adtl" + Text("labl", Little(1) + "a");
    EXPECT_EQ(adjustment.Adjust("LIST adtl", texts), texts);
}

TEST(ChunkAdjustment, MovesAndRemovesLoops) {
    ChunkAdjustment adjustment(false, kPart);
    EXPECT_EQ(adjustment.Adjust("smpl", Sampler(4, Loop(100, 199) + Loop(99, 150) + Loop(150, 200) +
                                                       Loop(120, 130)) +
                                            "abc"),
              Sampler(2, Loop(0, 99) + Loop(20, 30)) + "abc");
    EXPECT_EQ(adjustment.Removed(), (Removed{{"loop", 2}}));
    EXPECT_EQ(adjustment.Adjust("smpl", Sampler(2, Loop(100, 199))), std::nullopt);
    EXPECT_EQ(adjustment.Adjust("smpl", std::string(35, '\0')), std::nullopt);
}

TEST(ChunkAdjustment, RefusesPlaylists) {
    EXPECT_TRUE(ChunkAdjustment(false, kPart).Concerns("plst"));
    EXPECT_EQ(AdjustWAVE("plst", Little(0)), std::nullopt);
}

TEST(ChunkAdjustment, MovesAndRemovesMarkers) {
    ChunkAdjustment adjustment(true, kPart);
    adjustment.AddPoints(kMarkers);
    EXPECT_EQ(adjustment.Adjust("MARK", kMarkers),
              Big(2, 2) + Marker(2, 0, "bc") + Marker(3, 100, ""));
    EXPECT_EQ(adjustment.Removed(), (Removed{{"marker", 2}}));
}

TEST(ChunkAdjustment, RemovesLoopsBetweenRemovedMarkers) {
    const std::string none = Big(0, 6);
    const std::string kept = Big(1, 2) + Big(2, 2) + Big(3, 2);
    const std::string first = Big(1, 2) + Big(1, 2) + Big(3, 2);
    const std::string last = Big(2, 2) + Big(2, 2) + Big(4, 2);
    EXPECT_EQ(AdjustAIFF("INST", Instrument(kept, last)), Instrument(kept, none));
    EXPECT_EQ(AdjustAIFF("INST", Instrument(first, kept)), Instrument(none, kept));
    EXPECT_EQ(AdjustAIFF("INST", Instrument(none, none)), Instrument(none, none));
    EXPECT_EQ(AdjustAIFF("INST", Instrument(none, none).substr(1)), std::nullopt);
}

TEST(ChunkAdjustment, RemovesCommentsOfRemovedMarkers) {
    EXPECT_EQ(
        AdjustAIFF("COMT", Big(3, 2) + Comment(0, "all") + Comment(1, "gone") + Comment(2, "kept")),
        Big(2, 2) + Comment(0, "all" + std::string(1, '\0')) + Comment(2, "kept"));
    EXPECT_EQ(AdjustAIFF("COMT", Big(1, 2) + Comment(0, "ab").substr(0, 9)), std::nullopt);
    EXPECT_EQ(AdjustAIFF("COMT", Big(1, 2)), std::nullopt);
}

TEST(CodingHistory, GetsALineAfterTheOthers) {
    const std::string fields(602, 'f');
    EXPECT_EQ(AddToCodingHistory(fields + "A=X\r\n", "A=PCM"), fields + "A=X\r\nA=PCM\r\n");
    EXPECT_EQ(AddToCodingHistory(fields + "A=X\r\n" + std::string(9, '\0'), "A=PCM"),
              fields + "A=X\r\nA=PCM\r\n");
    EXPECT_EQ(AppendHistoryLine("A=X", "A=PCM"), "A=X\r\nA=PCM\r\n");
    EXPECT_EQ(AppendHistoryLine("A=X\n", "A=PCM"), "A=X\r\nA=PCM\r\n");
}

TEST(CodingHistory, StaysEmpty) {
    for (const std::string& content :
         {std::string(602, 'f'), std::string(602, 'f') + std::string(5, '\0'),
          std::string(100, 'f')}) {
        EXPECT_EQ(AddToCodingHistory(content, "A=PCM"), content);
    }
    EXPECT_EQ(AppendHistoryLine("", "A=PCM"), "");
}

} // namespace kel::host
