#include <Binary.h>

#include <gmock/gmock.h>

namespace kel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

TEST(TheHostProgram, IsHardenedAndWhole) {
    ExpectHardened(Binary(KEL_TEST_HOST));
}

// It uses libsndfile for facts that the elements do not deliver, such as the tags of a file.
TEST(TheHostProgram, DependsOnTheFrameworkAndLibsndfileAndNotOnThePlugIn) {
    const auto needed = Binary(KEL_TEST_HOST).Needed();
    EXPECT_THAT(needed, Contains("libkelCore.so.0"));
    EXPECT_THAT(needed, Contains("libsndfile.so.1"));
    EXPECT_THAT(needed, Contains(testing::HasSubstr("kelLibsndfile")).Times(0));
}

TEST(TheHostProgram, LooksForTheCoreInTheDirectoryBesideItsOwn) {
    EXPECT_THAT(Binary(KEL_TEST_HOST).RunPath(), ElementsAre("$ORIGIN/../lib"));
}

} // namespace
} // namespace kel::test
