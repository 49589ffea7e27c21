#include <Version.h>

#include <gtest/gtest.h>

#include <string>

namespace kel {

TEST(Version, IsTheOneOfTheProjectInTheHeadersAndInTheLibrary) {
    const std::string text = std::to_string(KEL_CORE_VERSION_MAJOR) + "." +
                             std::to_string(KEL_CORE_VERSION_MINOR) + "." +
                             std::to_string(KEL_CORE_VERSION_PATCH);
    EXPECT_EQ(text, KEL_EXPECTED_VERSION);
    EXPECT_EQ(kHeaderVersion,
              (Version{KEL_CORE_VERSION_MAJOR, KEL_CORE_VERSION_MINOR, KEL_CORE_VERSION_PATCH}));
    EXPECT_EQ(GetLibraryVersion(), kHeaderVersion);
}

} // namespace kel
