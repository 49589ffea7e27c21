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
#include <iterator>
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

void RemoveFilesHere() {
    for (const auto& entry : fs::directory_iterator(".")) {
        fs::remove_all(entry.path());
    }
}

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

    // Before inputs are offered, which is the usual order of calls.
    void PrepareOpen() {
        Prepare("it cannot be configured, see sink.defines-and-writes", [this] {
            Configure();
            Open(OutputName(m_context, "output"));
        });
    }

    // Returns whether the sink accepts an input. An input that it cannot judge is refused.
    bool Accepts(const OfferedInput& input) const {
        std::shared_ptr<const ICheckInputReport> report;
        return Judges(input, report) && (report == nullptr || report->GetErrorType() == 0);
    }

    // Returns inputs of the encodings that the sink proposes instead of a usual one.
    std::vector<OfferedInput> Proposals() const {
        for (const OfferedInput& input : UsualInputs()) {
            std::shared_ptr<const ICheckInputReport> report;
            if (Judges(input, report) && report != nullptr &&
                !report->GetAcceptedEncodings().empty()) {
                return ProposedInputs(*report);
            }
        }
        return {};
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

    bool TryPush(const std::string& what,
                 const std::shared_ptr<const ISampleContainer>& container) {
        return m_context.Try(what, [&] { m_element->PushSample(container); });
    }

    void Close() {
        m_context.Call("Close", [&] { m_element->Close(false); });
    }

    void Release() {
        m_context.Call("Release", [&] { m_element->Release(); });
    }

private:
    // Returns false for an input that the sink refuses to judge.
    bool Judges(const OfferedInput& input, std::shared_ptr<const ICheckInputReport>& report) const {
        return m_context.Try(fmt::format("CheckInputAndAdaptIfNecessary with {}", input.name), [&] {
            report = m_element->CheckInputAndAdaptIfNecessary(input.description, "");
        });
    }

    CheckContext& m_context;
    std::shared_ptr<IAudioSink> m_element;
};

void Append(std::vector<OfferedInput>& inputs, std::vector<OfferedInput> others) {
    std::move(others.begin(), others.end(), std::back_inserter(inputs));
}

// Usual inputs first, then those that the sink proposes. The last ones need not be of any use.
std::vector<OfferedInput> AllInputs(CheckContext& context) {
    CheckedSink sink(context);
    sink.PrepareOpen();
    std::vector<OfferedInput> inputs = UsualInputs();
    Append(inputs, sink.Proposals());
    Append(inputs, OddInputs());
    RemoveFilesHere(); // another check finds those of a sink that leaves some
    return inputs;
}

// Returns the first input that the sink accepts and for which samples can be made.
std::optional<OfferedInput> FindAccepted(CheckContext& context) {
    CheckedSink sink(context);
    sink.PrepareOpen();
    std::vector<OfferedInput> inputs = UsualInputs();
    const auto isUsable = [&](const OfferedInput& input) {
        return HasAudio(*input.description) && sink.Accepts(input);
    };
    auto found = std::find_if(inputs.begin(), inputs.end(), isUsable);
    if (found == inputs.end()) {
        inputs = sink.Proposals();
        Append(inputs, OddInputs());
        found = std::find_if(inputs.begin(), inputs.end(), isUsable);
    }
    RemoveFilesHere();
    return found != inputs.end() ? std::optional(std::move(*found)) : std::nullopt;
}

OfferedInput FirstAccepted(CheckContext& context) {
    auto input = FindAccepted(context);
    if (!input.has_value()) {
        throw NotApplicable(kTakesNone);
    }
    return *std::move(input);
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
    for (const OfferedInput& input : AllInputs(context)) {
        CheckedSink sink(context);
        sink.PrepareOpen();
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
    const std::vector<OfferedInput> inputs = AllInputs(context);
    CheckedSink sink(context);
    sink.PrepareOpen();
    for (const OfferedInput& input : inputs) {
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
    for (const OfferedInput& input : AllInputs(context)) {
        CheckedSink sink(context);
        sink.PrepareOpen();
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

// Pushes a few samples into a sink whose input is defined. It may refuse them unless they are
// silence.
void PushSome(CheckedSink& sink, const OfferedInput& input) {
    for (int i = 0; i < 3; ++i) {
        const auto samples = MakeSamples(*input.description, i * std::int64_t{kFrames}, kFrames);
        if (IsCompletePCM(*input.description)) {
            sink.Push(samples);
        } else {
            sink.TryPush("PushSample", samples);
        }
    }
}

// Without a sample that the sink must accept, there may be nothing to write.
void RequireOutput(const std::string& name, const OfferedInput& input) {
    if (!IsCompletePCM(*input.description)) {
        return;
    }
    std::error_code error;
    const auto size = fs::file_size(name, error);
    Require(!error && size > 0, fmt::format("after Close there is {} where it was to write",
                                            error ? "no file" : "an empty file"));
}

void DefinesAndWrites(CheckContext& context) {
    CheckedSink(context).Configure();
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
        sink.Define(input);
        Require(sink.Defined() == input.description,
                "after DefineInput, GetDefinedInput does not give that input");
        PushSome(sink, input);
        sink.Close();
        if (sink.WritesFile()) {
            RequireOutput(name, input);
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

// Makes calls that nothing requires. They may find something to complain about.
void CallWithoutNeed(CheckContext& context, CheckedSink& sink) {
    IAudioSink& element = sink.Element();
    context.Try("a second Close", [&] { element.Close(false); });
    context.Try("Release after Close", [&] { element.Release(); });
    context.Try("Interrupt", [&] { element.Interrupt(); });
    context.Try("ClearInternalBuffer", [&] { element.ClearInternalBuffer(); });
    context.WarnOfLoggedErrors();
}

void ReportsErrors(CheckContext& context) {
    const OfferedInput input = FirstAccepted(context);
    context.WatchLog();
    CheckedSink sink(context);
    sink.PrepareOpen();
    Prepare("it changes its answer, see sink.check-changes-nothing",
            [&] { Require(sink.Accepts(input), "it is refused"); });
    Prepare(kCannotWrite, [&] { sink.Define(input); });
    context.RequireNoLoggedErrors();
    Prepare("it cannot write, see sink.defines-and-writes", [&] {
        PushSome(sink, input);
        sink.Close();
    });
    if (IsCompletePCM(*input.description)) {
        context.RequireNoLoggedErrors();
    } else {
        context.ForgetLoggedErrors(); // about bytes that may be no packets of this codec
    }
    CallWithoutNeed(context, sink);
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
    RequireOutput(OutputName(context, "output"), input);
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
    const bool taken =
        sink.TryPush("PushSample after Close",
                     MakeSamples(*input.description, 3 * std::int64_t{kFrames}, kFrames));
    Require(!taken || context.CountErrors() > errors,
            "PushSample after Close is neither refused nor logged as an error");
    sink.Close();
    Require(Contents() == before, "PushSample after Close changes what was written");
}

// The inputs of a round of use, which may lack one or the other.
struct LifeInputs {
    std::optional<OfferedInput> accepted;
    std::optional<OfferedInput> refused;
};

void WarnOfNoInput(CheckContext& context) {
    context.Warn("it was called without an input, because it accepts none of the offered ones");
}

LifeInputs FindLifeInputs(CheckContext& context) {
    LifeInputs inputs;
    inputs.accepted = FindAccepted(context);
    if (!inputs.accepted.has_value()) {
        WarnOfNoInput(context);
    }
    CheckedSink sink(context);
    sink.PrepareOpen();
    for (OfferedInput& input : UsualInputs()) {
        if (!sink.Accepts(input)) {
            inputs.refused = std::move(input);
            break;
        }
    }
    return inputs;
}

void Live(CheckContext& context, const LifeInputs& inputs) {
    CheckedSink sink(context);
    sink.Configure();
    sink.Open(OutputName(context, "output"));
    if (inputs.refused.has_value()) {
        sink.TryDefine(*inputs.refused);
    }
    if (inputs.accepted.has_value()) {
        sink.Define(*inputs.accepted);
        PushSome(sink, *inputs.accepted);
    }
    sink.Close();
    const OfferedInput& last =
        inputs.accepted.has_value() ? *inputs.accepted : inputs.refused.value();
    sink.TryPush("PushSample after Close", MakeSamples(*last.description, 0, kFrames));
    sink.Release();
    fs::remove(OutputName(context, "output"));
}

// Finds what a round of use is made of, and sees that it works.
template <typename Demand>
void RequireOfLives(CheckContext& context, Demand demand) {
    const LifeInputs inputs = FindLifeInputs(context);
    const Cycle cycle = [&] {
        Live(context, inputs);
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
        const auto first = FindAccepted(context);
        m_sink.PrepareOpen();
        for (OfferedInput& input : AllInputs(context)) {
            (m_sink.Accepts(input) ? m_accepted : m_refused).push_back(std::move(input));
        }
        if (!first.has_value()) {
            WarnOfNoInput(context);
        } else {
            Require(!m_accepted.empty(),
                    fmt::format("{} is judged otherwise than before", first->name));
        }
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
    using Samples = std::vector<std::shared_ptr<const ISample>>;

    template <typename Item>
    const Item& OneOf(const std::vector<Item>& items) {
        return items[m_random.Below(items.size())];
    }

    // True in the state in which the inputs were judged. In others a sink may judge otherwise: it
    // may ask for a path first, or have defined an input already.
    bool MayDefine() const { return m_defined == nullptr && (m_hasPath || !m_sink.WritesFile()); }

    void Check() {
        const bool expected = m_refused.empty() || (m_random.Below(2) == 0 && !m_accepted.empty());
        const OfferedInput& input = OneOf(expected ? m_accepted : m_refused);
        Require(m_sink.Accepts(input) == expected || !MayDefine(),
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
        if (MayDefine() && !m_accepted.empty()) {
            const OfferedInput& input = OneOf(m_accepted);
            m_sink.Define(input);
            m_defined = &input;
            m_position = 0;
        }
    }

    void DefineRefused() {
        if (MayDefine() && !m_refused.empty()) {
            const OfferedInput& input = OneOf(m_refused);
            Require(!m_sink.TryDefine(input),
                    fmt::format("DefineInput accepts {}, which the check refuses", input.name));
        }
    }

    // Some input, also where none is defined.
    const IInfoContainer& AnyInput() const {
        const auto& others = m_accepted.empty() ? m_refused : m_accepted;
        return m_defined != nullptr ? *m_defined->description : *others.front().description;
    }

    // Samples follow each other in time. A sink must accept silence; it may refuse a sample without
    // frames, and bytes of a codec that are not known to be valid.
    void Push() {
        const auto frames = static_cast<std::uint32_t>(m_random.Below(3000));
        const auto samples = MakeSamples(AnyInput(), m_position, frames);
        if (m_defined != nullptr && frames > 0 && IsCompletePCM(AnyInput())) {
            m_sink.Push(samples);
        } else if (!m_sink.TryPush("PushSample", samples)) {
            return;
        }
        m_position += frames;
    }

    void PushNothing() {
        m_sink.TryPush("PushSample with no sample", CreateSampleContainer(Samples{}, nullptr));
    }

    void PushTwo() {
        Samples samples;
        for (const std::int64_t start : {m_position, m_position + kFrames}) {
            for (const auto& sample :
                 MakeSamples(AnyInput(), start, kFrames)->GetAudioSamples({}, {})) {
                samples.push_back(sample);
            }
        }
        if (m_sink.TryPush("PushSample with two samples",
                           CreateSampleContainer(samples, nullptr))) {
            m_position += 2 * std::int64_t{kFrames};
        }
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
    std::vector<OfferedInput> m_accepted;
    std::vector<OfferedInput> m_refused;
    const OfferedInput* m_defined = nullptr;
    bool m_hasPath = true;       // PrepareOpen
    std::int64_t m_position = 0; // of the next sample
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
        {"sink.reports-errors", kReportsErrors, kSink, ReportsErrors},
        {"sink.random-calls", "In whatever order it is called, it does what it must or refuses.",
         kSink, SurvivesRandomCalls},
    };
}

} // namespace kel::host
