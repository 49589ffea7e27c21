#include "container/CutPositions.h"

#include "MetadataText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace kel::host {

namespace {

constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();

} // namespace

TEST(CutPositions, MovesPointsAndDropsThoseOutside) {
    Metadata metadata;
    metadata.cuePoints = {{1, 99, 0, "", ""},
                          {2, 100, 0, "", ""},
                          {3, 150, 0, "", ""},
                          {4, 200, 0, "", ""},
                          {5, 201, 0, "", ""}};
    const CutResult result = CutPositions(metadata, 100, 100);
    EXPECT_EQ(test::Describe(result.metadata),
              "cue 2 at 0+0: |\ncue 3 at 50+0: |\ncue 4 at 100+0: |\n");
    EXPECT_EQ(result.droppedPoints, 2U);
}

TEST(CutPositions, KeepsThePartOfARegionThatIsInside) {
    Metadata metadata;
    metadata.cuePoints = {{1, 50, 50, "", ""},   {2, 50, 51, "", ""},  {3, 120, 30, "", ""},
                          {4, 199, 90, "", ""},  {5, 200, 10, "", ""}, {6, 0, 1000, "", ""},
                          {7, 150, kMax, "", ""}};
    const CutResult result = CutPositions(metadata, 100, 100);
    EXPECT_EQ(test::Describe(result.metadata),
              "cue 2 at 0+1: |\ncue 3 at 20+30: |\ncue 4 at 99+1: |\ncue 6 at 0+100: |\n"
              "cue 7 at 50+50: |\n");
    EXPECT_EQ(result.droppedPoints, 2U);
}

TEST(CutPositions, IncreasesTheTimeReference) {
    Metadata metadata;
    metadata.broadcast.emplace().timeReference = 48000;
    EXPECT_EQ(CutPositions(metadata, 100, 1).metadata.broadcast.value().timeReference, 48100U);
    EXPECT_EQ(CutPositions(metadata, kMax, 1).metadata.broadcast.value().timeReference, kMax);
}

} // namespace kel::host
