// What the elements do when there is no memory: each allocation of a run is refused, by itself and
// with all that follow it.

#include "RefusedAllocations.h"
#include "Runs.h"

#include <AudioFiles.h>
#include <OpenDescriptors.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kel::test {
namespace {

namespace fs = std::filesystem;

// libsndfile's own allocations are counted anew in each opening, where the numbers of those at
// which it crashes do not depend on the calls before.
class CountedSource : public ElementSource {
public:
    using ElementSource::ElementSource;
    void Open() {
        CountAllocationsOfLibrariesAnew();
        ElementSource::Open();
    }
};

class CountedSink : public ElementSink {
public:
    using ElementSink::ElementSink;
    void Define() {
        CountAllocationsOfLibrariesAnew();
        ElementSink::Define();
    }
};

// libsndfile 1.2.0 itself crashes where its fourth allocation for opening a file to read is
// refused, in the first opening of a run and in the second one, whatever the container.
const std::set<std::string> kCrashesOfOpening{
    "libsndfile.so.1 at allocation 4 of libsndfile.so.1",
    "libsndfile.so.1 at allocation 4 of libsndfile.so.1, and all after it"};

class EachAllocationOfASource : public testing::TestWithParam<Kind> {
protected:
    EachAllocationOfASource() {
        WriteAudioFile(m_path, MakeSfInfo(GetParam().format, 2, 48000),
                       CopyBits<int>(MakeNoise(2 * kFileFrames)));
        SetCurrentLoggerWriter(std::make_shared<ErrorsInto>(m_transcript));
        m_undisturbed = Run();
    }
    ~EachAllocationOfASource() override { SetCurrentLoggerWriter(nullptr); }

    std::string Run() {
        m_transcript.Clear();
        CountedSource source(m_path, m_transcript);
        RunSource(source, m_transcript);
        return m_transcript.Text();
    }

    std::string Attempt(Refusal refusal) {
        Findings findings;
        m_transcript.Clear();
        const std::size_t descriptors = OpenDescriptors();
        const unsigned long allocations = AllocationsSoFar();
        unsigned refused = 0;
        {
            CountedSource source(m_path, m_transcript);
            RefuseAllocation(refusal.number, refusal.lasts);
            RunSource(source, m_transcript);
            RefuseNoAllocation();
            refused = RefusedAllocations();
            findings.Require(m_transcript.Text() == m_undisturbed ||
                                 (refused > 0 && IsCutShort(m_transcript.Text(), m_undisturbed)),
                             "neither right nor refused:\n" + m_transcript.Text());
            findings.Require(OpenDescriptors() == descriptors + (source.IsOpen() ? 1 : 0),
                             "the source does not know whether its file is open");
            source.MakeClosed();
            findings.Require(OpenDescriptors() == descriptors, "the file is not closed");
            m_transcript.Clear();
            RunSource(source, m_transcript);
            findings.Require(m_transcript.Text() == m_undisturbed,
                             "the same source does not work any more:\n" + m_transcript.Text());
        }
        findings.Require(Run() == m_undisturbed, "a new source does not work");
        findings.Require(OpenDescriptors() == descriptors, "a descriptor is left");
        return findings.Answer(refused, LeftSince(allocations));
    }

    const TemporaryDirectory m_directory{DirectoryPlace::Memory};
    const std::string m_path = m_directory / "in";
    Transcript m_transcript;
    std::string m_undisturbed;
};

TEST_P(EachAllocationOfASource, IsRefusedWithoutHarm) {
    const Sweep sweep = RefuseEach("a source of " + GetParam().name,
                                   [this](Refusal refusal) { return Attempt(refusal); });
    EXPECT_GT(sweep.refusals, 100);
    EXPECT_EQ(sweep.crashes, kCrashesOfOpening);
    EXPECT_EQ(sweep.losses, std::set<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Of, EachAllocationOfASource, testing::ValuesIn(Kinds()), NameOfKind);

class EachAllocationOfASink : public testing::TestWithParam<Kind> {
protected:
    EachAllocationOfASink() {
        SetCurrentLoggerWriter(std::make_shared<ErrorsInto>(m_transcript));
        // What is in the file after some of the samples.
        for (int pushes = 0; pushes <= kPushes; ++pushes) {
            m_transcript.Clear();
            CountedSink sink(GetParam(), m_path, m_transcript);
            sink.Make();
            sink.Open();
            sink.Define();
            for (int i = 0; i < pushes; ++i) {
                sink.Push(i);
            }
            sink.Close();
            m_contents.push_back(Content());
        }
        m_undisturbed = Run();
    }
    ~EachAllocationOfASink() override { SetCurrentLoggerWriter(nullptr); }

    std::string Content() const {
        return fs::exists(m_path) ? WithoutWritingTime(ReadFile(m_path)) : "";
    }

    std::string Run() {
        m_transcript.Clear();
        CountedSink sink(GetParam(), m_path, m_transcript);
        RunSink(sink, m_transcript);
        return m_transcript.Text();
    }

    std::string Attempt(Refusal refusal) {
        Findings findings;
        fs::remove(m_path);
        m_transcript.Clear();
        const std::size_t descriptors = OpenDescriptors();
        const unsigned long allocations = AllocationsSoFar();
        unsigned refused = 0;
        {
            CountedSink sink(GetParam(), m_path, m_transcript);
            RefuseAllocation(refusal.number, refusal.lasts);
            RunSink(sink, m_transcript);
            RefuseNoAllocation();
            refused = RefusedAllocations();
            findings.Require(m_transcript.Text() == m_undisturbed ||
                                 (refused > 0 && IsCutShort(m_transcript.Text(), m_undisturbed)),
                             "neither right nor refused:\n" + m_transcript.Text());
            const bool isOpen = sink.IsOpen();
            findings.Require(OpenDescriptors() == descriptors + (isOpen ? 1 : 0),
                             "the sink does not know whether its file is open");
            findings.Require(!fs::exists(m_path) || sink.HasInput(),
                             "there is a file, but no input is defined");
            // What was pushed without a failure is in the file, and nothing else.
            const auto pushed = static_cast<std::size_t>(sink.Pushed());
            findings.Require(isOpen || pushed == 0 || pushed == kPushes, "the file was closed");
            sink.MakeClosed();
            findings.Require((!isOpen && pushed == 0) || Content() == m_contents[pushed],
                             "the file is not that of " + std::to_string(pushed) + " samples");
            findings.Require(OpenDescriptors() == descriptors, "the file is not closed");
            m_transcript.Clear();
            RunSink(sink, m_transcript);
            findings.Require(m_transcript.Text() == m_undisturbed,
                             "the same sink does not work any more:\n" + m_transcript.Text());
            findings.Require(Content() == m_contents[kPushes], "its next file is another one");
        }
        findings.Require(Run() == m_undisturbed, "a new sink does not work");
        findings.Require(OpenDescriptors() == descriptors, "a descriptor is left");
        return findings.Answer(refused, LeftSince(allocations));
    }

    const TemporaryDirectory m_directory{DirectoryPlace::Memory};
    const std::string m_path = m_directory / "out";
    Transcript m_transcript;
    std::string m_undisturbed;
    std::vector<std::string> m_contents; // by the number of samples
};

TEST_P(EachAllocationOfASink, IsRefusedWithoutHarm) {
    const Sweep sweep = RefuseEach("a sink of " + GetParam().name,
                                   [this](Refusal refusal) { return Attempt(refusal); });
    EXPECT_GT(sweep.refusals, 100);
    EXPECT_EQ(sweep.crashes, std::set<std::string>());
    EXPECT_EQ(sweep.losses, std::set<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Of, EachAllocationOfASink, testing::ValuesIn(Kinds()), NameOfKind);

} // namespace
} // namespace kel::test
