#include "base/TemporaryFile.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace kel::host {

TEST(TemporaryFile, HasNoNameAndIsForItsOwner) {
    const test::TemporaryDirectory directory;
    const TemporaryFile file(directory.Path());
    EXPECT_EQ(directory.Names(), std::vector<std::string>());
    ASSERT_EQ(write(file.Number(), "take", 4), 4);
    EXPECT_EQ(test::ReadFile(file.Path()), "take");
    struct stat status {};
    ASSERT_EQ(stat(file.Path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(status.st_nlink, 0U);
}

TEST(TemporaryFile, NeedsADirectory) {
    const test::TemporaryDirectory directory;
    EXPECT_LT(TemporaryFile(directory / "missing").Number(), 0);
    EXPECT_EQ(errno, ENOENT);
}

} // namespace kel::host
