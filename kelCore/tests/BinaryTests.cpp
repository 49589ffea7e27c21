#include <Binary.h>

#include <gmock/gmock.h>

#include <string>

namespace kel::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST(TheCoreLibrary, IsHardenedAndWhole) {
    ExpectHardened(Binary(KEL_TEST_CORE));
}

TEST(TheCoreLibrary, IsAskedForByItsMajorVersion) {
    EXPECT_THAT(Binary(KEL_TEST_CORE).Soname(), ElementsAre("libkelCore.so.0"));
}

TEST(TheCoreLibrary, NeedsTheStandardLibraryAlone) {
    // The loader itself is asked for where the addresses of thread-local data come from.
    EXPECT_THAT(Binary(KEL_TEST_CORE).Needed(),
                testing::IsSubsetOf({"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6",
                                     "ld-linux-x86-64.so.2"}));
}

TEST(TheCoreLibrary, LooksForLibrariesWhereTheSystemDoes) {
    EXPECT_THAT(Binary(KEL_TEST_CORE).RunPath(), IsEmpty());
}

TEST(TheCoreLibrary, ExportsItsNamespaceAlone) {
    const SymbolNames exported = Binary(KEL_TEST_CORE).Exported();
    EXPECT_THAT(exported, Each(MatchesRegex("_Z(N|NK|T.|Th.*|Tv.*)N?K?3kel.*")));
    EXPECT_THAT(exported, Contains("_ZN3kel22GetCurrentLoggerWriterEv"));
}

} // namespace
} // namespace kel::test
