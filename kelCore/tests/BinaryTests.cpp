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

TEST(TheCoreLibrary, IsNamedByItsMajorVersion) {
    EXPECT_THAT(Binary(KEL_TEST_CORE).Soname(), ElementsAre("libkelCore.so.0"));
}

TEST(TheCoreLibrary, NeedsOnlyTheStandardLibrary) {
    // The loader is needed for the addresses of thread-local data.
    EXPECT_THAT(Binary(KEL_TEST_CORE).Needed(),
                testing::IsSubsetOf({"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6",
                                     "ld-linux-x86-64.so.2"}));
}

TEST(TheCoreLibrary, HasNoSearchPathOfItsOwn) {
    EXPECT_THAT(Binary(KEL_TEST_CORE).RunPath(), IsEmpty());
}

TEST(TheCoreLibrary, ExportsOnlyItsNamespace) {
    const SymbolNames exported = Binary(KEL_TEST_CORE).Exported();
    EXPECT_THAT(exported, Each(MatchesRegex("_Z(N|NK|T.|Th.*|Tv.*)N?K?3kel.*")));
    EXPECT_THAT(exported, Contains("_ZN3kel22GetCurrentLoggerWriterEv"));
}

} // namespace
} // namespace kel::test
