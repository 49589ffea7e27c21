#include <Binary.h>

#include <gmock/gmock.h>

namespace kel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

TEST(TheHostProgram, IsHardenedAndWhole) {
    ExpectHardened(Binary(KEL_TEST_HOST));
}

// Loading libraries takes most of the time of a start.
TEST(TheHostProgram, DependsOnTheFrameworkAndNotOnThePlugInOrLibrariesForPartOfTheWork) {
    const auto needed = Binary(KEL_TEST_HOST).Needed();
    EXPECT_THAT(needed, Contains("libkelCore.so.0"));
    for (const char* library : {"kelLibsndfile", "sndfile", "cairo", "ebur128", "nettle"}) {
        EXPECT_THAT(needed, Contains(testing::HasSubstr(library)).Times(0));
    }
}

TEST(TheHostProgram, LooksForTheCoreInTheDirectoryBesideItsOwn) {
    EXPECT_THAT(Binary(KEL_TEST_HOST).RunPath(), ElementsAre("$ORIGIN/../lib"));
}

} // namespace
} // namespace kel::test
