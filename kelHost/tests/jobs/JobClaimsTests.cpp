#include "jobs/JobClaims.h"

#include "jobs/Posix.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace kel::host {

TEST(JobClaims, AreMadeInOrderUntilNoJobIsLeft) {
    JobClaims claims(3);
    EXPECT_EQ(claims.LastOf(1), std::nullopt);
    EXPECT_EQ(claims.Take(1), std::size_t{0});
    EXPECT_EQ(claims.Take(2), std::size_t{1});
    EXPECT_TRUE(claims.AreLeft());
    EXPECT_EQ(claims.Take(1), std::size_t{2});
    EXPECT_FALSE(claims.AreLeft());
    EXPECT_EQ(claims.Take(2), std::nullopt);
    EXPECT_EQ(claims.LastOf(1), std::size_t{2});
    EXPECT_EQ(claims.LastOf(2), std::size_t{1});
    EXPECT_TRUE(claims.IsOf(0, 1));
    EXPECT_FALSE(claims.IsOf(1, 1));
    EXPECT_FALSE(claims.IsOf(3, 1)) << "there is no such job";
}

TEST(JobClaims, OfNoJobsAreNeverLeft) {
    JobClaims claims(0);
    EXPECT_FALSE(claims.AreLeft());
    EXPECT_EQ(claims.Take(1), std::nullopt);
}

TEST(JobClaims, OfOtherProcessesAreSeen) {
    JobClaims claims(2);
    const pid_t child = ForkChild();
    if (child == 0) {
        _exit(claims.Take(7) == std::size_t{0} ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(claims.LastOf(7), std::size_t{0});
    EXPECT_EQ(claims.Take(1), std::size_t{1});
}

} // namespace kel::host
