#include <Binary.h>

#include <gmock/gmock.h>

namespace kel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSubsetOf;

TEST(ThePlugIn, IsHardenedAndWhole) {
    ExpectHardened(Binary(KEL_TEST_PLUGIN));
}

TEST(ThePlugIn, ExportsOnlyItsEntryPoint) {
    EXPECT_THAT(Binary(KEL_TEST_PLUGIN).Exported(), ElementsAre("RegisterAll"));
}

TEST(ThePlugIn, NeedsOnlyTheCoreLibsndfileAndTheStandardLibrary) {
    const auto needed = Binary(KEL_TEST_PLUGIN).Needed();
    EXPECT_THAT(needed, IsSubsetOf({"libkelCore.so.0", "libsndfile.so.1", "libstdc++.so.6",
                                    "libm.so.6", "libgcc_s.so.1", "libc.so.6"}));
    EXPECT_THAT(needed, Contains("libkelCore.so.0"));
    EXPECT_THAT(needed, Contains("libsndfile.so.1"));
}

TEST(ThePlugIn, HasNoNameThatProgramsCanLinkTo) {
    EXPECT_THAT(Binary(KEL_TEST_PLUGIN).Soname(), IsEmpty());
}

TEST(ThePlugIn, LooksForTheCoreInTheParentDirectory) {
    EXPECT_THAT(Binary(KEL_TEST_PLUGIN).RunPath(), ElementsAre("$ORIGIN/.."));
}

} // namespace
} // namespace kel::test
