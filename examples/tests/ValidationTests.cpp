#include "Examples.h"

#include <Process.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

namespace kel::test {

TEST(TheToneExample, PassesTheChecksOfTheHost) {
    const TemporaryDirectory directory;
    Command command;
    command.program = KEL_TEST_PREFIX "/bin/kelhost";
    command.arguments = {"validate", "--quiet", InstalledPlugin("kelTone")};
    command.directory = directory.Path();
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "") << "findings";
    EXPECT_EQ(result.err, "");
}

} // namespace kel::test
