// Files that do not open on several threads at once.

#include "ElementThreads.h"

#include <gtest/gtest.h>

// The thread checker looks for this name in the program. libsndfile writes and hands out its words
// about a failed opening without a lock; that race is known, is not ours, and must not stop the
// program before it has shown that everything else of a failure belongs to its own thread.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "race:libsndfile.so\n";
}

namespace kel::test {
namespace {

TEST(ElementsOfManyThreads, CopyTheirOwnFilesOrFailWithTheirOwnErrors) {
    RunJobsAtOnce(kThreads, 10, RunJob);
}

// Many more threads than processors, each with a source and a sink, half of which meet bad files.
TEST(ElementsOfSixtyFourThreads, CopyTheirOwnFilesOrFailWithTheirOwnErrors) {
    RunJobsAtOnce(64, 2, RunJob);
}

} // namespace
} // namespace kel::test
