/// Runs in which something below the elements fails, compared with the same runs of libsndfile
/// alone: what an element does then is what libsndfile says, no more and no less.
#pragma once

#include "Runs.h"

#ifdef KEL_TEST_COUNTS_MEMORY
#include <AllocationFaults.h>
#endif
#include <AudioFiles.h>
#include <Child.h>
#include <OpenDescriptors.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>

namespace kel::test {

/// Makes something fail, and ends that.
struct Disturbance {
    std::function<void()> begin;
    std::function<void()> end;
    std::function<bool()> hasHappened;
    /// What went wrong beside the answers of the calls; empty if nothing did.
    std::function<std::string()> findings;
};

/// What is taken from now on and not given back. Told where KEL_TEST_COUNTS_MEMORY says that the
/// program can: a sanitizer's allocator does not let it.
class MemoryMark {
public:
#ifdef KEL_TEST_COUNTS_MEMORY
    std::string Left() const {
        return LeftSince(m_allocations);
    }

private:
    const unsigned long m_allocations = AllocationsSoFar();
#else
    static std::string Left() {
        return "";
    }
#endif
};

/// The call during which the disturbance happened, then the transcript of the run, then what there
/// is to say against what came after it.
struct Observation {
    std::string call;
    std::string text;
};

inline bool operator==(const Observation& left, const Observation& right) {
    return left.call == right.call && left.text == right.text;
}

inline void PrintTo(const Observation& observation, std::ostream* stream) {
    *stream << "in \"" << observation.call << "\":\n" << observation.text;
}

/// What the disturbances of a run have led to.
struct Outcomes {
    int disturbances = 0;
    int told = 0;                 ///< by an exception or a record
    std::set<std::string> untold; ///< with another result all the same: "read in open"
};

/// A run of an element and its like on libsndfile alone.
class ComparedRuns {
public:
    ComparedRuns() { SetCurrentLoggerWriter(std::make_shared<ErrorsInto>(m_transcript)); }
    virtual ~ComparedRuns() { SetCurrentLoggerWriter(nullptr); }
    ComparedRuns(const ComparedRuns&) = delete;
    ComparedRuns& operator=(const ComparedRuns&) = delete;

    /// Disturbs runs one after the other until there is nothing more to disturb.
    /// @param name of the calls that fail
    /// @param make the disturbance of that number, counted from 1
    void DisturbEach(const std::string& name, const std::function<Disturbance(int number)>& make) {
        constexpr int kEnough = 400;
        for (int number = 1; number < kEnough; ++number) {
            SCOPED_TRACE(name + " " + std::to_string(number));
            const Observation element = Observe(make(number), true);
            EXPECT_EQ(element, Observe(make(number), false));
            if (element.call.empty()) {
                EXPECT_EQ(element.text, m_undisturbed);
                return;
            }
            ++m_outcomes.disturbances;
            if (IsTold(element.text)) {
                ++m_outcomes.told;
            } else if (element.text != m_undisturbed) {
                m_outcomes.untold.insert(name + " in " + element.call);
            }
        }
        ADD_FAILURE() << name << " goes on and on";
    }

    /// Prints the counts.
    /// @param name what the sweep is called there
    const Outcomes& Tell(const std::string& name) const {
        std::cout << name << ": " << m_outcomes.disturbances << " faults, " << m_outcomes.told
                  << " told, " << m_outcomes.untold.size() << " kinds not told\n";
        return m_outcomes;
    }

    const std::string& Directory() const { return m_directoryName; }

protected:
    /// To be called when everything is there; the run must go well.
    void LearnUndisturbed() {
        const Disturbance none{[] {}, [] {}, [] { return false; },
                               [] {
                                   return "";
                               }};
        // What is made once in a process and kept is made here.
        Run(none, true);
        Run(none, false);
        m_undisturbed = Observe(none, true).text;
        EXPECT_FALSE(IsTold(m_undisturbed)) << m_undisturbed;
        EXPECT_EQ(m_undisturbed.find(" left by "), std::string::npos) << m_undisturbed;
    }

    /// An empty text that takes no memory while it grows.
    static std::string RoomForText() {
        std::string text;
        text.reserve(std::size_t{1} << 16);
        return text;
    }

    const TemporaryDirectory m_directory{DirectoryPlace::Memory};
    Transcript m_transcript;

private:
    /// A run, and what comes after it, as text. Undisturbed, it is the transcript and nothing else.
    virtual std::string Run(const Disturbance& disturbance, bool isElement) = 0;

    // Whether there is an exception or a record in it.
    static bool IsTold(const std::string& text) {
        return text.find(" fails: ") != std::string::npos || text.find(" (") != std::string::npos;
    }

    Observation Observe(const Disturbance& disturbance, bool isElement) {
        const ChildResult result = RunInChild([&] {
            m_transcript.Clear();
            m_transcript.WatchFor(disturbance.hasHappened);
            const std::string text = Run(disturbance, isElement);
            return m_transcript.CallWithEvent() + "\n" + text + disturbance.findings();
        });
        EXPECT_EQ(result.crashedIn, "");
        const std::size_t end = result.text.find('\n');
        return {result.text.substr(0, end), result.text.substr(end + 1)};
    }

    const std::string m_directoryName = m_directory.Path();
    std::string m_undisturbed;
    Outcomes m_outcomes;
};

/// Runs of sources that read one file.
class SourceRuns final : public ComparedRuns {
public:
    explicit SourceRuns(const Kind& kind) {
        WriteAudioFile(m_path, MakeSfInfo(kind.format, 2, 48000),
                       CopyBits<int>(MakeNoise(2 * kFileFrames)));
        LoadPlugin();
        LearnUndisturbed();
    }

private:
    std::string Run(const Disturbance& disturbance, bool isElement) override {
        return isElement ? RunOf<ElementSource>(disturbance) : RunOf<BareSource>(disturbance);
    }

    template <typename Source>
    std::string RunOf(const Disturbance& disturbance) {
        const std::size_t descriptors = OpenDescriptors();
        std::string text = RoomForText();
        disturbance.begin();
        const MemoryMark memory;
        RunWith<Source>(disturbance, descriptors, text);
        return text += memory.Left();
    }

    template <typename Source>
    void RunWith(const Disturbance& disturbance, std::size_t descriptors, std::string& text) {
        Source source(m_path, m_transcript);
        RunSource(source, m_transcript);
        disturbance.end();
        text += m_transcript.Text();
        if constexpr (std::is_same_v<Source, ElementSource>) {
            if (OpenDescriptors() != descriptors + (source.IsOpen() ? 1 : 0)) {
                text += "the source does not know whether its file is open\n";
            }
        }
        source.MakeClosed();
        if (OpenDescriptors() != descriptors) {
            text += "the file is not closed\n";
        }
        const std::string again = RunAgain(source);
        if (again != RunAnew<Source>()) {
            text += "the same source does not work any more:\n" + again;
        }
    }

    template <typename Source>
    std::string RunAgain(Source& source) {
        m_transcript.Clear();
        RunSource(source, m_transcript);
        return m_transcript.Text();
    }

    template <typename Source>
    std::string RunAnew() {
        Source source(m_path, m_transcript);
        return RunAgain(source);
    }

    const std::string m_path = m_directory / "in";
};

/// Runs of sinks that write one file.
class SinkRuns final : public ComparedRuns {
public:
    explicit SinkRuns(const Kind& kind) : m_kind(kind) {
        LoadPlugin();
        LearnUndisturbed();
    }

private:
    std::string Run(const Disturbance& disturbance, bool isElement) override {
        return isElement ? RunOf<ElementSink>(disturbance) : RunOf<BareSink>(disturbance);
    }

    template <typename Sink>
    std::string RunOf(const Disturbance& disturbance) {
        std::filesystem::remove(m_path);
        const std::size_t descriptors = OpenDescriptors();
        std::string text = RoomForText();
        disturbance.begin();
        const MemoryMark memory;
        RunWith<Sink>(disturbance, descriptors, text);
        return text += memory.Left();
    }

    template <typename Sink>
    void RunWith(const Disturbance& disturbance, std::size_t descriptors, std::string& text) {
        Sink sink(m_kind, m_path, m_transcript);
        RunSink(sink, m_transcript);
        disturbance.end();
        text += m_transcript.Text();
        if constexpr (std::is_same_v<Sink, ElementSink>) {
            if (OpenDescriptors() != descriptors + (sink.IsOpen() ? 1 : 0)) {
                text += "the sink does not know whether its file is open\n";
            }
        }
        sink.MakeClosed();
        text += DescribeFile();
        if (OpenDescriptors() != descriptors) {
            text += "the file is not closed\n";
        }
        const std::string again = RunAgain(sink);
        if (again != RunAnew<Sink>()) {
            text += "the same sink does not work any more:\n" + again;
        }
    }

    template <typename Sink>
    std::string RunAgain(Sink& sink) {
        m_transcript.Clear();
        RunSink(sink, m_transcript);
        return m_transcript.Text() + DescribeFile();
    }

    template <typename Sink>
    std::string RunAnew() {
        Sink sink(m_kind, m_path, m_transcript);
        return RunAgain(sink);
    }

    std::string DescribeFile() const {
        if (!std::filesystem::exists(m_path)) {
            return "no file\n";
        }
        const std::string bytes = WithoutWritingTime(ReadFile(m_path));
        return "file of " + std::to_string(bytes.size()) + " bytes, " +
               std::to_string(Fingerprint(bytes.data(), bytes.size())) + "\n";
    }

    Kind m_kind;
    const std::string m_path = m_directory / "out";
};

} // namespace kel::test
