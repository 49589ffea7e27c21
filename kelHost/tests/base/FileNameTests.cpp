#include "base/FileName.h"

#include <gtest/gtest.h>

namespace kel::host {

TEST(ShowName, ReplacesEachPathButNotThatOfAnotherDescriptor) {
    const FileName file("/proc/self/fd/3", "in.wav");
    EXPECT_EQ(ShowName("\"/proc/self/fd/3\" /proc/self/fd/31 /proc/self/fd/3", file),
              "\"in.wav\" /proc/self/fd/31 in.wav");
    EXPECT_EQ(ShowName("a.wav", FileName("a.wav")), "a.wav");
    EXPECT_EQ(ShowName("a.wav", FileName("", "A and B")), "a.wav");
}

TEST(PathToOpen, IsThatOfANamedFile) {
    EXPECT_EQ(PathToOpen(FileName("a.wav")), "a.wav");
    EXPECT_EQ(PathToOpen(FileName("/proc/self/fd/3", "a.wav")), "a.wav");
    EXPECT_EQ(PathToOpen(InputName("-")), "");
    EXPECT_EQ(PathToOpen(FileName("", "A and B")), "");
}

} // namespace kel::host
