// Copies while the system refuses memory to the host and to its worker.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <ostream>
#include <string>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kFrames = 70001; // so many that threads read and write them

struct Sweep {
    const char* name;
    bool lasts; // whether all allocations after the first refused one are refused as well
    int step;   // how many numbers are left out, unless all are asked for
};

void PrintTo(const Sweep& sweep, std::ostream* out) {
    *out << sweep.name;
}

// A copy for which one allocation is refused.
class StarvedCopy {
public:
    StarvedCopy(int number, bool lasts)
        : m_command(Kelhost(m_directory, {"copy", "in.wav", "out.aiff"})) {
        WriteTake(m_directory / "in.wav", kFrames);
        m_command.environment["LD_PRELOAD"] = KEL_TEST_PLUGIN_DIRECTORY "/librefusedMemory.so";
        m_command.environment["KEL_TEST_REFUSED_NUMBER"] = std::to_string(number);
        m_command.environment["KEL_TEST_REFUSAL_LASTS"] =
            lasts ? std::optional<std::string>("1") : std::nullopt;
        m_command.environment["KEL_TEST_REFUSAL_MARKER"] = m_marker / "marker";
    }

    ProcessResult Run() const { return RunCommand(m_command); }

    bool WasRefused() const { return fs::exists(m_marker / "marker"); }

    bool HasOutput() const { return fs::exists(m_directory / "out.aiff"); }
    std::string Output() const { return ReadFile(m_directory / "out.aiff"); }

    // Expects only the input and, maybe, the output.
    void ExpectNothingElse() const {
        EXPECT_EQ(SortedNames(m_directory),
                  HasOutput() ? (Names{"in.wav", "out.aiff"}) : Names{"in.wav"});
    }

private:
    TemporaryDirectory m_directory;
    TemporaryDirectory m_marker;
    Command m_command;
};

class RefusedMemory : public testing::TestWithParam<Sweep> {};

} // namespace

// An existing output is whole, even if the host could no longer report it.
TEST_P(RefusedMemory, CostsACopyNothingButItsSuccess) {
    const int step = std::getenv("KEL_FAULTS_IN_ALL_KINDS") != nullptr ? 1 : GetParam().step;
    const StarvedCopy undisturbed(0, false);
    ASSERT_EQ(undisturbed.Run().status, 0);
    const std::string whole = undisturbed.Output();
    int refusals = 0;
    int succeeded = 0;
    for (int number = 1;; number += step) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const StarvedCopy copy(number, GetParam().lasts);
        const ProcessResult result = copy.Run();
        copy.ExpectNothingElse();
        if (copy.HasOutput()) {
            EXPECT_TRUE(copy.Output() == whole) << "it is not what an undisturbed copy gives";
        }
        if (result.status == 0) {
            EXPECT_TRUE(copy.HasOutput());
            ++succeeded;
        } else {
            EXPECT_EQ(result.status, 1) << result.err;
            EXPECT_NE(result.err.find("kelhost: "), std::string::npos) << result.err;
        }
        if (!copy.WasRefused()) {
            EXPECT_EQ(result.status, 0);
            break;
        }
        ++refusals;
    }
    std::cout << "a copy: " << refusals << " refusals, " << succeeded << " without a loss\n";
    EXPECT_GT(refusals, 1000 / step);
}

INSTANTIATE_TEST_SUITE_P(Each, RefusedMemory,
                         testing::Values(Sweep{"Once", false, 23}, Sweep{"FromThenOn", true, 41}),
                         [](const testing::TestParamInfo<Sweep>& sweep) {
                             return sweep.param.name;
                         });

} // namespace kel::test
