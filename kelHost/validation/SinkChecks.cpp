// Checks of sinks.

#include "validation/Check.h"
#include "validation/RepeatedUse.h"
#include "validation/TestInputs.h"

#include <IAudioSample.h>
#include <ICheckInputReport.h>
#include <IInfoContainer.h>
#include <ISampleContainer.h>
#include <PlatformString.h>
#include <WrapperFormat.h>

#include "audio/Formats.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kTakesNone = "it accepts none of the offered inputs";
constexpr const char* kCannotWrite = "an input cannot be defined, see sink.defines-and-writes";
constexpr std::uint32_t kFrames = 480;

// A sink whose failed calls are reported by name.
class CheckedSink {
public:
    explicit CheckedSink(CheckContext& context)
        : m_context(context), m_element(Prepare(kCannotBeMade, [&] {
              return MakeElement<ElementFactoryType::AudioSink>(context);
          })) {}

    IAudioSink& Element() const { return *m_element; }
    bool WritesFile() const { return m_context.WorksOnFile(); }

    void Configure() {
        const auto settings = m_context.MakeSettings();
        m_context.Call("SetInitConfig", [&] { m_element->SetInitConfig(settings); });
    }

    void ConfigureWithPath(const std::string& path) {
        const auto settings = m_context.MakeSettings();
        settings->SetStringValue("FilePath", path);
        m_context.Call("SetInitConfig with FilePath", [&] { m_element->SetInitConfig(settings); });
    }

    // Nothing for a sink that writes no file.
    void Open(const std::string& path) {
        if (WritesFile()) {
            m_context.Call("Open",
                           [&] { m_element->Open(ConvertPlatformStringToWideString(path)); });
        }
    }

    // Returns whether the sink accepts an input. An input that it cannot judge is refused.
    bool Accepts(const OfferedInput& input) const {
        bool accepts = false;
        const bool judged =
            m_context.Try(fmt::format("CheckInputAndAdaptIfNecessary with {}", input.name), [&] {
                const auto report = m_element->CheckInputAndAdaptIfNecessary(input.description, "");
                accepts = report == nullptr || report->GetErrorType() == 0;
            });
        return judged && accepts;
    }

    void Define(const OfferedInput& input) {
        m_context.Call(fmt::format("DefineInput with {}", input.name),
                       [&] { m_element->DefineInput(input.description, ""); });
    }

    bool TryDefine(const OfferedInput& input) {
        return m_context.Try(fmt::format("DefineInput with {}", input.name),
                             [&] { m_element->DefineInput(input.description, ""); });
    }

    std::shared_ptr<const IInfoContainer> Defined() const {
        return m_context.Call("GetDefinedInput", [&] { return m_element->GetDefinedInput(""); });
    }

    void Push(const std::shared_ptr<const ISampleContainer>& container) {
        m_context.Call("PushSample", [&] { m_element->PushSample(container); });
    }

    void Close() {
        m_context.Call("Close", [&] { m_element->Close(false); });
    }

    void Release() {
        m_context.Call("Release", [&] { m_element->Release(); });
    }

private:
    CheckContext& m_context;
    std::shared_ptr<IAudioSink> m_element;
};

// A name for an output, with the extension that belongs to the element's type.
std::string OutputName(CheckContext& context, const std::string& stem) {
    const std::string type = context.Element().entry->GetStringValue("type");
    for (const Container& container : Containers()) {
        if (GetLabel(container.format) == type) {
            return fmt::format("{}{}", stem, container.extensions.front());
        }
    }
    return stem + ".out";
}

std::vector<OfferedInput> AllInputs() {
    std::vector<OfferedInput> inputs = UsualInputs();
    for (OfferedInput& input : OddInputs()) {
        inputs.push_back(std::move(input));
    }
    return inputs;
}

// Returns the first of the usual inputs that the sink accepts.
OfferedInput FirstAccepted(CheckContext& context) {
    const CheckedSink sink(context);
    for (const OfferedInput& input : UsualInputs()) {
        if (sink.Accepts(input)) {
            return input;
        }
    }
    throw NotApplicable(kTakesNone);
}

// Names and contents of the files in the working directory.
std::map<std::string, std::string> Contents() {
    std::map<std::string, std::string> contents;
    for (const std::string& name : FilesHere()) {
        std::ifstream stream(name, std::ios::binary);
        std::ostringstream bytes;
        bytes << stream.rdbuf();
        contents[name] = bytes.str();
    }
    return contents;
}

void RequireNothingHere(const std::string& when) {
    const std::vector<std::string> names = FilesHere();
    Require(names.empty(), fmt::format("{} there is {}", when, fmt::join(names, ", ")));
}

void RemoveFilesHere() {
    for (const auto& entry : fs::directory_iterator(".")) {
        fs::remove_all(entry.path());
    }
}

void AnswersWhileClosed(CheckContext& context) {
    CheckedSink sink(context);
    Prepare("it cannot be configured, see sink.defines-and-writes", [&] { sink.Configure(); });
    Require(sink.Defined() == nullptr, "GetDefinedInput returns something before DefineInput");
    sink.Close();
    sink.Release();
    sink.Open(OutputName(context, "first"));
    sink.Open(OutputName(context, "second"));
    RequireNothingHere("before DefineInput");
    sink.Close();
    sink.Release();
    RequireNothingHere("without DefineInput");
}

void CheckAgreesWithDefine(CheckContext& context) {
    for (const OfferedInput& input : AllInputs()) {
        CheckedSink sink(context);
        Prepare("it cannot be configured, see sink.defines-and-writes", [&] {
            sink.Configure();
            sink.Open(OutputName(context, "output"));
        });
        const bool accepts = sink.Accepts(input);
        const bool defines = sink.TryDefine(input);
        Require(accepts == defines,
                fmt::format("CheckInputAndAdaptIfNecessary {} {}, and DefineInput {} it",
                            accepts ? "accepts" : "refuses", input.name,
                            defines ? "accepts" : "refuses"));
        sink.Close();
        RemoveFilesHere();
    }
}

void CheckChangesNothing(CheckContext& context) {
    CheckedSink sink(context);
    Prepare("it cannot be configured, see sink.defines-and-writes", [&] {
        sink.Configure();
        sink.Open(OutputName(context, "output"));
    });
    for (const OfferedInput& input : AllInputs()) {
        const bool first = sink.Accepts(input);
        Require(sink.Accepts(input) == first,
                fmt::format("{} is judged otherwise the second time", input.name));
        Require(sink.Defined() == nullptr,
                fmt::format("after CheckInputAndAdaptIfNecessary with {}, GetDefinedInput returns "
                            "something",
                            input.name));
        RequireNothingHere("after CheckInputAndAdaptIfNecessary");
    }
}

void RefusalsLeaveNoFile(CheckContext& context) {
    bool hasRefused = false;
    for (const OfferedInput& input : AllInputs()) {
        CheckedSink sink(context);
        Prepare("it cannot be configured, see sink.defines-and-writes", [&] {
            sink.Configure();
            sink.Open(OutputName(context, "output"));
        });
        const bool accepts = Prepare("it fails where it should refuse, see "
                                     "sink.check-agrees-with-define",
                                     [&] { return sink.TryDefine(input); });
        if (!accepts) {
            hasRefused = true;
            RequireNothingHere(fmt::format("after it has refused {},", input.name));
        }
        Prepare("it cannot be closed, see sink.closed", [&] { sink.Close(); });
        RemoveFilesHere();
    }
    if (!hasRefused) {
        throw NotApplicable("it refuses none of the inputs that are offered");
    }
}

// Pushes a few samples into a sink whose input is defined.
void PushSome(CheckedSink& sink, const OfferedInput& input) {
    for (int i = 0; i < 3; ++i) {
        sink.Push(MakeSilence(*input.description, i * std::int64_t{kFrames}, kFrames));
    }
}

void RequireOutput(const std::string& name) {
    std::error_code error;
    const auto size = fs::file_size(name, error);
    Require(!error && size > 0, fmt::format("after Close there is {} where it was to write",
                                            error ? "no file" : "an empty file"));
}

void DefinesAndWrites(CheckContext& context) {
    const OfferedInput input = FirstAccepted(context);
    for (const bool bySettings : {false, true}) {
        CheckedSink sink(context);
        if (bySettings && !sink.WritesFile()) {
            continue;
        }
        const std::string name = OutputName(context, bySettings ? "by-settings" : "by-open");
        if (bySettings) {
            sink.ConfigureWithPath(name);
        } else {
            sink.Configure();
            sink.Open(name);
        }
        const std::size_t errors = context.CountErrors();
        sink.Define(input);
        Require(sink.Defined() == input.description,
                "after DefineInput, GetDefinedInput does not give that input");
        PushSome(sink, input);
        sink.Close();
        Require(context.CountErrors() == errors, "it logged an error, and refused nothing");
        if (sink.WritesFile()) {
            RequireOutput(name);
        }
    }
}

// A sink with an input defined. Another check reports failures to define it.
OfferedInput PrepareDefined(CheckContext& context, CheckedSink& sink) {
    OfferedInput input = FirstAccepted(context);
    Prepare(kCannotWrite, [&] {
        sink.Configure();
        sink.Open(OutputName(context, "output"));
        sink.Define(input);
    });
    return input;
}

void OpensOnce(CheckContext& context) {
    CheckedSink sink(context);
    if (!sink.WritesFile()) {
        throw NotApplicable("it writes no file");
    }
    const OfferedInput input = PrepareDefined(context, sink);
    const std::wstring other = ConvertPlatformStringToWideString(OutputName(context, "other"));
    context.Refuse("Open while it writes", [&] { sink.Element().Open(other); });
    PushSome(sink, input);
    sink.Close();
    RequireOutput(OutputName(context, "output"));
}

void TellsOfLostSamples(CheckContext& context) {
    CheckedSink sink(context);
    const OfferedInput input = PrepareDefined(context, sink);
    Prepare(kCannotWrite, [&] {
        PushSome(sink, input);
        sink.Close();
    });
    const auto before = Contents();
    const std::size_t errors = context.CountErrors();
    const auto sample = MakeSilence(*input.description, 3 * std::int64_t{kFrames}, kFrames);
    const bool taken =
        context.Try("PushSample after Close", [&] { sink.Element().PushSample(sample); });
    Require(!taken || context.CountErrors() > errors,
            "PushSample after Close is neither refused nor logged as an error");
    sink.Close();
    Require(Contents() == before, "PushSample after Close changes what was written");
}

void Live(CheckContext& context, const OfferedInput& input,
          const std::optional<OfferedInput>& refused) {
    CheckedSink sink(context);
    sink.Configure();
    sink.Open(OutputName(context, "output"));
    if (refused.has_value()) {
        sink.TryDefine(*refused);
    }
    sink.Define(input);
    PushSome(sink, input);
    sink.Close();
    const auto sample = MakeSilence(*input.description, 0, kFrames);
    context.Try("PushSample after Close", [&] { sink.Element().PushSample(sample); });
    sink.Release();
    fs::remove(OutputName(context, "output"));
}

// Finds what a round of use is made of, and sees that it works.
template <typename Demand>
void RequireOfLives(CheckContext& context, Demand demand) {
    const OfferedInput input = FirstAccepted(context);
    std::optional<OfferedInput> refused;
    for (OfferedInput& other : UsualInputs()) {
        if (!CheckedSink(context).Accepts(other)) {
            refused = std::move(other);
            break;
        }
    }
    const Cycle cycle = [&] {
        Live(context, input, refused);
    };
    Prepare("it cannot be used repeatedly, as other checks report", cycle);
    demand(cycle);
}

void ClosesDescriptors(CheckContext& context) {
    RequireOfLives(context, RequireNoOpenDescriptors);
}

void LeavesNoFiles(CheckContext& context) {
    RequireOfLives(context, [](const Cycle& cycle) {
        RemoveFilesHere();
        RequireNoFiles(cycle);
    });
}

void FreesMemory(CheckContext& context) {
    RequireOfLives(context, RequireNoGrowth);
}

// Calls in random order, and what must be known of them. An input is defined once for each file, as
// the order of calls requires.
class RandomCalls {
public:
    explicit RandomCalls(CheckContext& context)
        : m_context(context), m_random(context), m_sink(context) {
        const OfferedInput first = FirstAccepted(context);
        for (OfferedInput& input : UsualInputs()) {
            (m_sink.Accepts(input) ? m_writable : m_refused).push_back(std::move(input));
        }
        Require(!m_writable.empty(), fmt::format("{} is judged otherwise than before", first.name));
        for (OfferedInput& input : OddInputs()) {
            (m_sink.Accepts(input) ? m_accepted : m_refused).push_back(std::move(input));
        }
        m_accepted.insert(m_accepted.end(), m_writable.begin(), m_writable.end());
        Prepare("it cannot be configured, see sink.defines-and-writes",
                [&] { m_sink.Configure(); });
    }

    void Run() {
        using Calls = RandomCalls;
        const std::vector<Step<Calls>> steps{
            {"CheckInputAndAdaptIfNecessary", &Calls::Check},
            {"Open", &Calls::Open},
            {"Open", &Calls::Open},
            {"DefineInput", &Calls::Define},
            {"DefineInput", &Calls::Define},
            {"DefineInput with what it refuses", &Calls::DefineRefused},
            {"PushSample", &Calls::Push},
            {"PushSample", &Calls::Push},
            {"PushSample", &Calls::Push},
            {"PushSample with no sample", &Calls::PushNothing},
            {"PushSample with two samples", &Calls::PushTwo},
            {"GetDefinedInput", &Calls::Query},
            {"Interrupt", &Calls::Interrupt},
            {"PushMetadata", &Calls::PushMetadata},
            {"Close", &Calls::Close},
            {"Release", &Calls::Release},
        };
        m_random.Run(*this, steps);
        Close();
    }

private:
    template <typename Item>
    const Item& OneOf(const std::vector<Item>& items) {
        return items[m_random.Below(items.size())];
    }

    void Check() {
        const bool expected = m_random.Below(2) == 0 || m_refused.empty();
        const OfferedInput& input = OneOf(expected ? m_accepted : m_refused);
        Require(m_sink.Accepts(input) == expected,
                fmt::format("{} is judged otherwise than before", input.name));
    }

    void Open() {
        const std::string name = OutputName(m_context, fmt::format("output-{}", ++m_names));
        if (m_defined != nullptr && m_sink.WritesFile()) {
            const std::wstring path = ConvertPlatformStringToWideString(name);
            m_context.Refuse("Open while it writes", [&] { m_sink.Element().Open(path); });
        } else {
            m_sink.Open(name);
            m_hasPath = true;
        }
    }

    void Define() {
        const OfferedInput& input = OneOf(m_writable);
        if (m_defined == nullptr && (m_hasPath || !m_sink.WritesFile())) {
            m_sink.Define(input);
            m_defined = &input;
        }
    }

    void DefineRefused() {
        if (m_defined == nullptr && !m_refused.empty()) {
            const OfferedInput& input = OneOf(m_refused);
            Require(!m_sink.TryDefine(input),
                    fmt::format("DefineInput accepts {}, which the check refuses", input.name));
        }
    }

    void Push() {
        const OfferedInput& input = m_defined != nullptr ? *m_defined : m_writable.front();
        const auto sample =
            MakeSilence(*input.description, 0, static_cast<std::uint32_t>(m_random.Below(3000)));
        if (m_defined != nullptr) {
            m_sink.Push(sample);
        } else {
            m_context.Try("PushSample without an input",
                          [&] { m_sink.Element().PushSample(sample); });
        }
    }

    void PushNothing() {
        const auto container =
            CreateSampleContainer(std::vector<std::shared_ptr<const ISample>>{}, nullptr);
        m_context.Try("PushSample with no sample", [&] { m_sink.Element().PushSample(container); });
    }

    void PushTwo() {
        const auto one = MakeSilence(*m_writable.front().description, 0, kFrames);
        const std::shared_ptr<const ISample> sample = one->GetAudioSamples({}, {}).front();
        const auto container = CreateSampleContainer(
            std::vector<std::shared_ptr<const ISample>>{sample, sample}, nullptr);
        m_context.Try("PushSample with two samples",
                      [&] { m_sink.Element().PushSample(container); });
    }

    void Query() {
        const auto defined = m_sink.Defined();
        Require(m_defined == nullptr || defined == m_defined->description,
                "GetDefinedInput does not give the input that was defined last");
    }

    void Interrupt() {
        m_context.Call("Interrupt", [this] { m_sink.Element().Interrupt(); });
    }

    void PushMetadata() {
        m_context.Try("PushMetadata", [this] { m_sink.Element().PushMetadata({}); });
    }

    void Close() {
        m_sink.Close();
        Forget();
    }

    void Release() {
        m_sink.Release();
        Forget();
    }

    void Forget() {
        m_defined = nullptr;
        m_hasPath = false;
        RemoveFilesHere();
    }

    CheckContext& m_context;
    RandomSequence m_random;
    CheckedSink m_sink;
    std::vector<OfferedInput> m_writable; // accepted, and samples of it can be made
    std::vector<OfferedInput> m_accepted; // all that are accepted
    std::vector<OfferedInput> m_refused;
    const OfferedInput* m_defined = nullptr;
    bool m_hasPath = false;
    std::uint64_t m_names = 0;
};

void SurvivesRandomCalls(CheckContext& context) {
    RandomCalls(context).Run();
}

} // namespace

std::vector<Check> SinkChecks() {
    constexpr auto kSink = CheckScope::Sink;
    return {
        {"sink.closed", "Before DefineInput it has no input and writes nothing; it can be closed.",
         kSink, AnswersWhileClosed},
        {"sink.check-agrees-with-define",
         "DefineInput accepts what CheckInputAndAdaptIfNecessary accepts, and nothing else.", kSink,
         CheckAgreesWithDefine},
        {"sink.check-changes-nothing",
         "CheckInputAndAdaptIfNecessary returns the same each time and changes nothing.", kSink,
         CheckChangesNothing},
        {"sink.refusals-leave-no-file", "An input that is refused leaves no file.", kSink,
         RefusalsLeaveNoFile},
        {"sink.defines-and-writes",
         "It defines an input that it accepts, writes samples, and creates its file.", kSink,
         DefinesAndWrites},
        {"sink.opens-once", "Open is refused while it writes, and what it writes stays whole.",
         kSink, OpensOnce},
        {"sink.push-after-close",
         "A sample that comes after Close is refused or logged as an error, and changes nothing.",
         kSink, TellsOfLostSamples},
        {"sink.closes-descriptors", "It leaves no descriptor open.", kSink, ClosesDescriptors},
        {"sink.leaves-no-files", "It leaves no file but its output.", kSink, LeavesNoFiles},
        {"sink.frees-memory", "Repeated use takes no more memory.", kSink, FreesMemory},
        {"sink.random-calls", "In whatever order it is called, it does what it must or refuses.",
         kSink, SurvivesRandomCalls},
    };
}

} // namespace kel::host
