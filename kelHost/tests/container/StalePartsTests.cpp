#include "container/StaleParts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel::host {

TEST(StaleParts, OfARangeAreTimesThatAreNotAdjusted) {
    const std::string zero(1, '\0');
    for (const char* name : {"axml", "bxml", "sxml", "acid", "strc", "regn", "basc", "trns"}) {
        EXPECT_TRUE(IsStaleInRange(name, "")) << name;
        EXPECT_TRUE(MayBeStale(name)) << name;
    }
    for (const char* frame : {"CHAP", "SYLT", "ETCO", "SYTC", "MLLT", "POSS", "ASPI"}) {
        EXPECT_TRUE(IsStaleInRange("id3 ", "ID3" + (frame + zero))) << frame;
    }
    EXPECT_TRUE(IsStaleInRange("ID3 ", "ID3CHAP" + zero));
    EXPECT_FALSE(IsStaleInRange("id3 ", "ID3TIT2" + zero + "CHAPTER"));
    EXPECT_TRUE(IsStaleInRange("iXML", "<SYNC_POINT_LIST><SYNC_POINT>"));
    EXPECT_TRUE(IsStaleInRange("iXML", "<LOUDNESS>"));
    EXPECT_FALSE(IsStaleInRange("iXML", "<SYNC_POINT_LIST/>"));
    EXPECT_TRUE(IsStaleInRange("_PMX", "<rdf:li xmpDM:startTime=\"5\"/>"));
    EXPECT_FALSE(IsStaleInRange("_PMX", "<x:xmpmeta/>"));
    EXPECT_FALSE(IsStaleInRange("abcd", "ID3CHAP" + zero));
    for (const char* name : {"id3 ", "ID3 ", "iXML", "_PMX"}) {
        EXPECT_TRUE(MayBeStale(name)) << name;
    }
    EXPECT_FALSE(MayBeStale("cart"));
}

TEST(StaleParts, OfChannelsAreTheirListsAndTheirLoudness) {
    EXPECT_TRUE(IsStaleInChannels("iXML", "<TRACK_LIST><TRACK>"));
    EXPECT_TRUE(IsStaleInChannels("iXML", "<LOUDNESS>"));
    EXPECT_TRUE(IsStaleInChannels("dbmd", ""));
    EXPECT_TRUE(MayBeStale("dbmd"));
    EXPECT_FALSE(IsStaleInChannels("iXML", "<TRACK_LIST/>"));
    EXPECT_FALSE(IsStaleInChannels("abcd", "<TRACK>"));
}

TEST(StaleParts, AreLoudnessValuesThatAreKnown) {
    Broadcast broadcast;
    EXPECT_FALSE(DeclaresLoudness(broadcast));
    broadcast.loudness = BroadcastLoudness{0x7FFF, 0, 0x7FFF, 0x7FFF, 0x7FFF};
    EXPECT_FALSE(DeclaresLoudness(broadcast));
    broadcast.loudness->shortTerm = -2300;
    EXPECT_TRUE(DeclaresLoudness(broadcast));
}

TEST(StaleParts, AreTagsWithPositions) {
    for (const char* name : {"chapter001", "cuesheet", "time_reference", "timereference"}) {
        EXPECT_TRUE(IsStaleTag(name)) << name;
    }
    for (const char* name : {"chapter001name", "chapter", "chapter01x", "title", "chap"}) {
        EXPECT_FALSE(IsStaleTag(name)) << name;
    }
}

} // namespace kel::host
