// Memory: each allocation of a run of calls is refused, by itself and with all that follow it; and
// the allocations of a sample are counted.

#include "Noise.h"
#include "Transcript.h"

#include <AllocationFaults.h>
#include <AudioFiles.h>
#include <Child.h>
#include <OpenDescriptors.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace kel::test {
namespace {

namespace fs = std::filesystem;

// The allocation that is refused.
struct Refusal {
    unsigned number;
    bool lasts;
};

// The result of a sweep over all allocations of a run.
struct Sweep {
    int refusals = 0;
    std::set<std::string> crashes; // where, and at which refusal
    std::set<std::string> losses;  // of memory, and at which refusal
};

// The first refusal on one line, in memory that is there.
const char* DescribeRefusal() {
    static char text[96];
    const PlaceOfRefusal place = FirstRefusal();
    std::snprintf(text, sizeof text, "allocation %u of %s", place.number, place.library);
    return text;
}

// The result of an attempt in which nothing was refused and nothing is wrong.
constexpr const char* kUndisturbed = "undisturbed";

// Refuses one allocation after the other until a run has no more of them.
// @param name what the sweep is called where its counts are printed
// @param attempt made in a process of its own; answers what is wrong, one finding a line; "" if
// nothing is, or kUndisturbed
Sweep RefuseEach(const std::string& name, const std::function<std::string(Refusal)>& attempt) {
    constexpr unsigned kEnough = 4000;
    Sweep sweep;
    for (const bool lasts : {false, true}) {
        const std::string tail = lasts ? ", and all after it" : "";
        bool isOver = false;
        for (unsigned number = 1; !isOver; ++number) {
            SCOPED_TRACE("allocation " + std::to_string(number) + tail);
            const ChildResult result = RunInChild([&] {
                CrashDetails() = DescribeRefusal;
                std::cerr.rdbuf(nullptr); // where records go for which there is no memory
                return attempt({number, lasts});
            });
            isOver = result.text == kUndisturbed || number == kEnough;
            if (!result.crashedIn.empty()) {
                sweep.crashes.insert(result.crashedIn + " at " + result.details + tail);
            } else if (result.text.rfind("lost: ", 0) == 0) {
                sweep.losses.insert(result.text.substr(6) + tail);
            } else if (!isOver) {
                EXPECT_EQ(result.text, "");
            }
            EXPECT_LT(number, kEnough) << "the run never ends";
            ++sweep.refusals;
        }
        --sweep.refusals; // nothing was refused at last
    }
    std::cout << name << ": " << sweep.refusals << " refusals, " << sweep.crashes.size()
              << " places of crashes\n";
    return sweep;
}

// True if only the last call of a run failed, and that for lack of memory.
bool IsCutShort(const std::string& text, const std::string& undisturbed) {
    const std::size_t lastLine = text.rfind('\n', text.size() - 2) + 1;
    if (text.empty() || text.back() != '\n' ||
        text.compare(0, lastLine, undisturbed, 0, lastLine) != 0) {
        return false;
    }
    const std::string line = text.substr(lastLine);
    const std::string name = line.substr(0, line.find(' '));
    if (undisturbed.compare(lastLine, name.size(), name) != 0) {
        return false;
    }
    if (line == name + " has no memory\n") {
        return true;
    }
    for (const char* reason :
         {"can not implement ", "Unable to open file \"", "[could not get a memory block of "}) {
        if (line.find(std::string(" fails: ") + reason) != std::string::npos ||
            line.find(std::string(" fails: [") + reason) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// The findings of an attempt.
class Findings {
public:
    void Require(bool condition, const std::string& text) {
        if (!condition) {
            m_text += text + "\n";
        }
    }

    // The result.
    // @param refused how many allocations were
    // @param left see LeftSince
    std::string Answer(unsigned refused, const std::string& left) const {
        if (!m_text.empty()) {
            return m_text + left;
        }
        if (!left.empty()) {
            return "lost: " + left + "at " + DescribeRefusal();
        }
        return refused == 0 ? kUndisturbed : "";
    }

private:
    std::string m_text;
};

constexpr int kMostFrames = 200; // in a sample
constexpr int kFileFrames = 500;
constexpr int kSoughtFrame = 300;
constexpr int kPushes = 3;

// A file in a container, and how it is described.
struct Kind {
    std::string name;
    std::string type; // the label of the container
    int format;       // as libsndfile counts them
    Layout layout;    // of its samples
};

void PrintTo(const Kind& kind, std::ostream* stream) {
    *stream << kind.name;
}

// For the names of tests.
std::string NameOfKind(const testing::TestParamInfo<Kind>& info) {
    return info.param.name;
}

const std::vector<Kind> kKinds{
    {"WAVE", "WAVE", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, {}},
    {"RF64", "BWAVE", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, {AudioPCMType::Float, 4, 32}},
    {"AIFF",
     "AIFF",
     SF_FORMAT_AIFF | SF_FORMAT_PCM_24 | SF_ENDIAN_BIG,
     {AudioPCMType::Integer, 3, 24, PCMEndianness::Big}}};

// libsndfile's own allocations are counted anew in each opening, so that the numbers of those at
// which it crashes do not depend on the calls before.

// The source.
class ElementSource {
public:
    ElementSource(const std::string& path, Transcript& transcript)
        : m_transcript(transcript), m_path(ConvertPlatformStringToWideString(path)),
          m_settings(MakeSourceSettings()) {
        // Too long to be copied without memory, which the source needs with its file open already.
        const std::string allocator = "an allocator that only has to exist";
        if (GetAllocator(allocator) == nullptr) {
            RegisterAllocator(allocator, ImplementElement<ElementFactoryType::MemoryBlockAllocator>(
                                             "kel", "Recycler", nullptr));
        }
        m_settings->SetStringValue("AllocatorRef", allocator);
        m_settings->SetIntegerValue("MaxSamplesPerBuffer", kMostFrames);
    }

    void Make() {
        if (m_element == nullptr) {
            m_element = ImplementElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource",
                                                                          "WAVE", nullptr);
        }
        m_element->SetInitConfig(m_settings);
    }

    void Open() {
        CountAllocationsOfLibrariesAnew();
        m_element->Open(m_path);
        const auto info = m_element->GetDefinedOutput("")->GetAudioInfos().front();
        const TimeLimits limits = m_element->GetTimeLimits("");
        m_transcript << " " << info->GetChannelInfo()->GetNumberOfChannels() << " channels, "
                     << limits.start.GetEditRate().numerator << " Hz, " << limits.duration
                     << " frames";
    }

    bool Read() {
        m_container = m_element->GetSample();
        if (m_container == nullptr) {
            m_transcript << " nothing";
            return false;
        }
        const auto sample = m_container->GetAudioSamples(nullptr, nullptr).front();
        const TimeLimits& limits = sample->GetTimeLimits();
        const auto buffer = sample->GetBuffer();
        m_transcript << " " << limits.duration << " frames, "
                     << Fingerprint(buffer->GetData(), buffer->GetSize());
        if (limits.start.GetTimeNumber() != m_delivered) {
            m_transcript << ", stamped " << limits.start.GetTimeNumber() << " instead of "
                         << m_delivered;
        }
        m_delivered += limits.duration;
        m_container = nullptr;
        return true;
    }

    void Seek() {
        MediaTime time = m_element->GetTimeLimits("").start;
        time.SetTimeNumber(kSoughtFrame);
        const MediaTime reached = m_element->GotoTimeOffset(time, "");
        m_transcript << " " << reached.GetTimeNumber();
    }

    void Release() { m_element->Release(); }

    // For what comes after a failure.

    bool IsOpen() const { return m_element != nullptr && m_element->IsMediaOpen(); }
    void MakeClosed() {
        if (m_element != nullptr) {
            m_element->Release();
        }
        // A sample that was delivered, but into which there was no memory to look.
        if (m_container != nullptr) {
            const auto sample = m_container->GetAudioSamples(nullptr, nullptr).front();
            m_delivered += sample->GetTimeLimits().duration;
            m_container = nullptr;
        }
    }

private:
    Transcript& m_transcript;
    std::wstring m_path;
    std::shared_ptr<IParametersCollectionInstance> m_settings;
    std::shared_ptr<IAudioSource> m_element;
    std::shared_ptr<const ISampleContainer> m_container;
    std::int64_t m_delivered = 0;
};

// Opens a file, reads it to its end, seeks, reads on, and opens it again.
void RunSource(ElementSource& source, Transcript& transcript) {
    const auto readToTheEnd = [&] {
        bool more = true;
        while (more) {
            if (!transcript.Do("read", [&] { more = source.Read(); })) {
                return false;
            }
        }
        return true;
    };
    const auto open = [&] {
        return transcript.Do("open", [&] { source.Open(); });
    };
    const auto release = [&] {
        return transcript.Do("release", [&] { source.Release(); });
    };
    static_cast<void>(transcript.Do("make", [&] { source.Make(); }) && open() && readToTheEnd() &&
                      transcript.Do("seek", [&] { source.Seek(); }) && readToTheEnd() &&
                      release() && open() && transcript.Do("read", [&] { source.Read(); }) &&
                      release());
}

// The bytes of a sample that goes into a file.
std::string BytesToPush(int number) {
    std::string bytes(1200, '\0'); // whole frames of every layout with two channels
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7 + static_cast<std::size_t>(number) * 31);
    }
    return bytes;
}

// The sink. Its calls return nothing for a transcript.
class ElementSink {
public:
    ElementSink(const Kind& kind, const std::string& path)
        : m_type(kind.type), m_path(ConvertPlatformStringToWideString(path)),
          m_settings(MakeSinkSettings()), m_input(MakeInput(kind.layout)) {
        for (int i = 0; i < kPushes; ++i) {
            m_samples.push_back(MakeContainer(BytesToPush(i)));
        }
    }

    void Make() {
        if (m_element == nullptr) {
            m_element = ImplementElement<ElementFactoryType::AudioSink>("kel.LibsndfileSink",
                                                                        m_type, nullptr);
        }
        m_element->SetInitConfig(m_settings);
    }

    void Open() { m_element->Open(m_path); }
    void Define() {
        CountAllocationsOfLibrariesAnew();
        m_element->DefineInput(m_input, "");
    }
    void Push(int number) {
        m_element->PushSample(m_samples[static_cast<std::size_t>(number)]);
        ++m_pushed;
    }
    void Close() { m_element->Close(false); }

    // For what comes after a failure.

    // The number of samples that were pushed without a failure.
    int Pushed() const { return m_pushed; }
    bool HasInput() const {
        return m_element != nullptr && m_element->GetDefinedInput("") == m_input;
    }
    // True if the sink has a file open; if not, it gets its path again.
    bool IsOpen() {
        try {
            if (m_element != nullptr) {
                m_element->Open(m_path);
            }
            return false;
        } catch (const KELRuntimeError&) {
            return true;
        }
    }
    void MakeClosed() {
        if (m_element != nullptr) {
            m_element->Close(false);
        }
        m_pushed = 0;
    }

private:
    std::string m_type;
    std::wstring m_path;
    std::shared_ptr<IParametersCollectionInstance> m_settings;
    std::shared_ptr<IInfoContainer> m_input;
    std::vector<std::shared_ptr<ISampleContainer>> m_samples;
    std::shared_ptr<IAudioSink> m_element;
    int m_pushed = 0;
};

// Writes a file of some samples.
void RunSink(ElementSink& sink, Transcript& transcript) {
    const auto push = [&] {
        for (int i = 0; i < kPushes; ++i) {
            if (!transcript.Do("push", [&] { sink.Push(i); })) {
                return false;
            }
        }
        return true;
    };
    static_cast<void>(transcript.Do("make", [&] { sink.Make(); }) &&
                      transcript.Do("open", [&] { sink.Open(); }) &&
                      transcript.Do("define", [&] { sink.Define(); }) && push() &&
                      transcript.Do("close", [&] { sink.Close(); }));
}

// libsndfile 1.2.0 itself crashes where its fourth allocation for opening a file to read is
// refused, in the first opening of a run and in the second one, whatever the container.
const std::set<std::string> kCrashesOfOpening{
    "libsndfile.so.1 at allocation 4 of libsndfile.so.1",
    "libsndfile.so.1 at allocation 4 of libsndfile.so.1, and all after it"};

class EachAllocationOfASource : public testing::TestWithParam<Kind> {
protected:
    EachAllocationOfASource() {
        WriteAudio(m_path, GetParam().format, 2, 48000, CopyBits<int>(MakeNoise(2 * kFileFrames)));
        SetCurrentLoggerWriter(std::make_shared<ErrorsInto>(m_transcript));
        m_undisturbed = Run();
    }
    ~EachAllocationOfASource() override { SetCurrentLoggerWriter(nullptr); }

    std::string Run() {
        m_transcript.Clear();
        ElementSource source(m_path, m_transcript);
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
            ElementSource source(m_path, m_transcript);
            RefuseAllocation(refusal.number, refusal.lasts);
            RunSource(source, m_transcript);
            RefuseNoAllocation();
            refused = RefusedAllocations();
            findings.Require(m_transcript.Text() == m_undisturbed ||
                                 (refused > 0 && IsCutShort(m_transcript.Text(), m_undisturbed)),
                             "neither right nor refused:\n" + m_transcript.Text());
            findings.Require(OpenDescriptors() == descriptors + (source.IsOpen() ? 1 : 0),
                             "the source reports a wrong state of its file");
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

INSTANTIATE_TEST_SUITE_P(Of, EachAllocationOfASource, testing::ValuesIn(kKinds), NameOfKind);

class EachAllocationOfASink : public testing::TestWithParam<Kind> {
protected:
    EachAllocationOfASink() {
        SetCurrentLoggerWriter(std::make_shared<ErrorsInto>(m_transcript));
        // The contents of the file after each number of samples.
        for (int pushes = 0; pushes <= kPushes; ++pushes) {
            m_transcript.Clear();
            ElementSink sink(GetParam(), m_path);
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

    std::string Content() const { return fs::exists(m_path) ? WithoutTime(ReadFile(m_path)) : ""; }

    std::string Run() {
        m_transcript.Clear();
        ElementSink sink(GetParam(), m_path);
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
            ElementSink sink(GetParam(), m_path);
            RefuseAllocation(refusal.number, refusal.lasts);
            RunSink(sink, m_transcript);
            RefuseNoAllocation();
            refused = RefusedAllocations();
            findings.Require(m_transcript.Text() == m_undisturbed ||
                                 (refused > 0 && IsCutShort(m_transcript.Text(), m_undisturbed)),
                             "neither right nor refused:\n" + m_transcript.Text());
            const bool isOpen = sink.IsOpen();
            findings.Require(OpenDescriptors() == descriptors + (isOpen ? 1 : 0),
                             "the sink reports a wrong state of its file");
            findings.Require(!fs::exists(m_path) || sink.HasInput(),
                             "there is a file, but no input is defined");
            // The file contains exactly the samples that were pushed without a failure.
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

INSTANTIATE_TEST_SUITE_P(Of, EachAllocationOfASink, testing::ValuesIn(kKinds), NameOfKind);

// Registering

std::vector<std::string> RegisteredTypes(const std::string& name) {
    std::vector<std::string> types;
    for (const Registration& registration : GetRegistrations()) {
        if (registration.name == name) {
            types.push_back(registration.entry->GetStringValue("implementation") + " " +
                            registration.entry->GetStringValue("type"));
        }
    }
    return types;
}

TEST(EachAllocationOfRegistering, IsRefusedWithoutHarm) {
    const std::string name = "registering";
    auto* const registerAll =
        reinterpret_cast<void (*)(const char*)>(dlsym(LoadPlugin(), "RegisterAll"));
    registerAll(name.c_str());
    const std::vector<std::string> all = RegisteredTypes(name);
    UnregisterFactories(name);

    const Sweep sweep = RefuseEach("registering", [&](Refusal refusal) {
        Findings findings;
        const unsigned long allocations = AllocationsSoFar();
        RefuseAllocation(refusal.number, refusal.lasts);
        bool failed = false;
        try {
            registerAll(name.c_str());
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        RefuseNoAllocation();
        const unsigned refused = RefusedAllocations();
        findings.Require(failed == (refused > 0), "a refusal is not reported");
        {
            const std::vector<std::string> made = RegisteredTypes(name);
            findings.Require(failed ? made.size() < all.size() : made == all,
                             "too many or too few");
            findings.Require(std::equal(made.begin(), made.end(), all.begin()), "another order");
        }
        UnregisterFactories(name);
        return findings.Answer(refused, LeftSince(allocations));
    });
    EXPECT_GT(sweep.refusals, 100);
    EXPECT_EQ(sweep.crashes, std::set<std::string>());
    EXPECT_EQ(sweep.losses, std::set<std::string>());
}

// Counts

template <typename Operation>
unsigned long AllocationsOf(Operation operation) {
    const unsigned long before = AllocationsSoFar();
    operation();
    return AllocationsSoFar() - before;
}

// GetSample makes a buffer, a sample and a container. The pool reuses the blocks.
TEST(SampleAllocations, AreThreeForEachSampleThatIsReadAndOneForEachThatIsWritten) {
    const TemporaryDirectory directory;
    const std::string path = directory / "in.wav";
    WriteAudio(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000,
               std::vector<float>(2 * 1024 * 100, 0.25F));
    const auto source = OpenSource(path);
    auto settings = MakeSinkSettings();
    settings->SetStringValue("FilePath", directory / "out.wav");
    const auto sink = MakeSink();
    sink->SetInitConfig(settings);
    sink->DefineInput(source->GetDefinedOutput(""), "");
    sink->PushSample(source->GetSample());
    for (int i = 1; i < 100; ++i) {
        std::shared_ptr<const ISampleContainer> container;
        EXPECT_EQ(AllocationsOf([&] { container = source->GetSample(); }), 3U);
        EXPECT_EQ(AllocationsOf([&] { sink->PushSample(container); }), 1U);
    }
    EXPECT_EQ(AllocationsOf([&] { source->GetSample(); }), 1U) << "the buffer, at the end";
    sink->Close(false);
}

} // namespace
} // namespace kel::test
