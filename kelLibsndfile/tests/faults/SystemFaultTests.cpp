// What the elements do when the system refuses what libsndfile asks for: each call of a kind fails,
// by itself and with all that follow it.

#include "ComparedRuns.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace kel::test {
namespace {

// A way in which a system call fails.
struct SystemFault {
    std::string name;
    std::string call;
    int error = 0;       ///< an error number; 0 for a call that does half of what it is asked for
    bool mayLast = true; ///< it makes sense that it does so again and again
};

const std::vector<SystemFault> kSourceFaults{{"open", "open", EIO},
                                             {"full table", "open", EMFILE},
                                             {"fstat", "fstat", EIO},
                                             {"lseek", "lseek", EIO},
                                             {"read", "read", EIO},
                                             {"short read", "read"},
                                             {"interrupted read", "read", EINTR, false},
                                             {"close", "close", EIO}};

const std::vector<SystemFault> kSinkFaults{{"open", "open", EACCES},
                                           {"full table", "open", EMFILE},
                                           {"fstat", "fstat", EIO},
                                           {"lseek", "lseek", EIO},
                                           {"read", "read", EIO},
                                           {"full disk", "write", ENOSPC},
                                           {"write", "write", EIO},
                                           {"short write", "write"},
                                           {"interrupted write", "write", EINTR, false},
                                           {"close", "close", EIO}};

// The n-th call of its kind on a file in a directory fails, see testSupport/systemFaults.cpp.
Disturbance MakeDisturbance(const std::string& directory, const std::string& notes,
                            const SystemFault& fault, int number, bool lasts) {
    const std::string marker = notes + "/marker";
    const std::string stray = notes + "/stray";
    std::filesystem::remove(marker);
    const auto begin = [=] {
        setenv("KEL_TEST_FAULTY_FILE", directory.c_str(), 1);
        setenv("KEL_TEST_FAULTY_NUMBER", std::to_string(number).c_str(), 1);
        setenv("KEL_TEST_FAULT_LASTS", lasts ? "1" : "", 1);
        setenv("KEL_TEST_FAULT_ERROR", std::to_string(fault.error).c_str(), 1);
        setenv("KEL_TEST_FAULT_SHORT", fault.error == 0 ? "1" : "", 1);
        setenv("KEL_TEST_FAULT_MARKER", marker.c_str(), 1);
        setenv("KEL_TEST_STRAY_CLOSE_MARKER", stray.c_str(), 1);
        setenv("KEL_TEST_FAULTY_CALL", fault.call.c_str(), 1);
    };
    const auto findings = [stray]() -> std::string {
        return std::filesystem::exists(stray) ? "a descriptor is closed that is not open\n" : "";
    };
    return {begin, [] { unsetenv("KEL_TEST_FAULTY_CALL"); },
            [marker] { return std::filesystem::exists(marker); }, findings};
}

void DisturbAll(ComparedRuns& runs, const std::vector<SystemFault>& faults) {
    const TemporaryDirectory notes(DirectoryPlace::Memory);
    for (const SystemFault& fault : faults) {
        for (const bool lasts : {false, true}) {
            if (fault.mayLast || !lasts) {
                runs.DisturbEach(fault.name, [&](int number) {
                    return MakeDisturbance(runs.Directory(), notes.Path(), fault, number, lasts);
                });
            }
        }
    }
}

class EachSystemCallOfASource : public testing::TestWithParam<Kind> {};
class EachSystemCallOfASink : public testing::TestWithParam<Kind> {};

TEST_P(EachSystemCallOfASource, FailsAsItDoesForLibsndfile) {
    SourceRuns runs(GetParam());
    DisturbAll(runs, kSourceFaults);
    // What fails while libsndfile reads a header, it takes for zeros or for the end of the file.
    // And by the source's own rules nothing read is the end.
    std::set<std::string> untold{"lseek in open", "read in open", "read in read"};
    if (GetParam().type == "BWAVE") {
        untold.insert("fstat in open");
    }
    EXPECT_EQ(runs.Tell("a source of " + GetParam().name).untold, untold);
}

TEST_P(EachSystemCallOfASink, FailsAsItDoesForLibsndfile) {
    SinkRuns runs(GetParam());
    DisturbAll(runs, kSinkFaults);
    // libsndfile does not tell whether a header could be written at last, and a sink would not
    // either.
    const std::set<std::string> untold{"fstat in close", "full disk in close", "lseek in close",
                                       "write in close"};
    EXPECT_EQ(runs.Tell("a sink of " + GetParam().name).untold, untold);
}

INSTANTIATE_TEST_SUITE_P(Of, EachSystemCallOfASource, testing::ValuesIn(Kinds()), NameOfKind);
INSTANTIATE_TEST_SUITE_P(Of, EachSystemCallOfASink, testing::ValuesIn(Kinds()), NameOfKind);

} // namespace
} // namespace kel::test
