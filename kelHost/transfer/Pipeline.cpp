#include "transfer/Pipeline.h"

#include "audio/Formats.h"
#include "base/Errors.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "container/HeaderSizes.h"
#include "transfer/Transfer.h"

#include <ElementFactoryType.h>
#include <IAudioParameters_PCM.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <ISampleContainer.h>
#include <Logging.h>
#include <MediaTime.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::string_view kUsageOfRun = "run SOURCE key=value ... ! SINK key=value ...";

using Settings = std::vector<std::pair<std::string, std::string>>;

// An element as the command line names it.
struct Choice {
    std::string implementation;
    std::optional<std::string> type;
    Settings settings;
};

Choice ParseChoice(std::vector<std::string>::const_iterator word,
                   std::vector<std::string>::const_iterator end) {
    Choice choice;
    const std::size_t colon = word->rfind(':');
    choice.implementation = word->substr(0, colon);
    if (colon != std::string::npos) {
        choice.type = word->substr(colon + 1);
    }
    while (++word != end) {
        const std::size_t equals = word->find('=');
        if (equals == std::string::npos) {
            throw UsageError(fmt::format("\"{}\", behind {}, has no value; settings are key=value",
                                         Escape(*word), Escape(choice.implementation)));
        }
        const std::string key = word->substr(0, equals);
        for (const auto& setting : choice.settings) {
            if (setting.first == key) {
                throw UsageError(fmt::format("\"{}\" of {} is set twice", Escape(key),
                                             Escape(choice.implementation)));
            }
        }
        choice.settings.emplace_back(key, word->substr(equals + 1));
    }
    return choice;
}

// Without those that came before.
void AddNew(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
    }
}

std::string Join(const std::vector<std::string>& names) {
    return Escape(fmt::format("{}", fmt::join(names, ", ")));
}

// The types that an element of a kind is registered for.
std::vector<std::string> TypesOf(ElementFactoryType kind, const std::string& implementation) {
    std::vector<std::string> types;
    std::vector<std::string> others;
    for (const Registration& registration : GetRegistrations()) {
        const IParametersCollectionInstance& entry = *registration.entry;
        if (entry.GetIntegerValue("class") != static_cast<std::int32_t>(kind)) {
            continue;
        }
        const std::string name = entry.GetStringValue("implementation");
        AddNew(others, name);
        if (name == implementation) {
            AddNew(types, entry.GetStringValue("type"));
        }
    }
    if (types.empty()) {
        throw UsageError(
            fmt::format("there is no {} \"{}\"; {}", GetLabel(kind), Escape(implementation),
                        others.empty() ? "none is registered" : "choose from " + Join(others)));
    }
    return types;
}

std::string TypeForWriting(const std::string& path) {
    const Container* container = ContainerByExtension(path);
    return container != nullptr ? GetLabel(container->format) : "";
}

std::string ChooseType(ElementFactoryType kind, const Choice& choice) {
    const std::vector<std::string> types = TypesOf(kind, choice.implementation);
    if (!choice.type.has_value() && types.size() == 1) {
        return types.front();
    }
    std::string wanted = choice.type.value_or("");
    if (!choice.type.has_value()) {
        for (const auto& [key, value] : choice.settings) {
            if (key == kFilePath) {
                wanted = kind == ElementFactoryType::AudioSource ? TypeForReading(value)
                                                                 : TypeForWriting(value);
            }
        }
    }
    if (std::find(types.begin(), types.end(), wanted) != types.end()) {
        return wanted;
    }
    const std::string name = Escape(choice.implementation);
    if (choice.type.has_value()) {
        throw UsageError(fmt::format("{} is not registered for the type \"{}\"; choose from {}",
                                     name, Escape(wanted), Join(types)));
    }
    throw UsageError(fmt::format("{} is registered for several types; say which, {}:TYPE, with one "
                                 "of {}",
                                 name, name, Join(types)));
}

void Set(IParametersCollectionInstance& instance, const ParameterDescription& parameter,
         const std::string& implementation, const std::string& value) {
    const auto fail = [&](const std::string& expected) {
        throw UsageError(fmt::format(R"("{}" of {} cannot be "{}"; it is {})",
                                     Escape(parameter.name), Escape(implementation), Escape(value),
                                     expected));
    };
    switch (parameter.kind) {
    case ParameterKind::Integer: {
        std::int32_t number = 0;
        const char* end = value.data() + value.size();
        const auto read = std::from_chars(value.data(), end, number);
        if (read.ec != std::errc() || read.ptr != end) {
            fail(fmt::format("a whole number from {} to {}",
                             std::numeric_limits<std::int32_t>::min(),
                             std::numeric_limits<std::int32_t>::max()));
        }
        instance.SetIntegerValue(parameter.name, number);
        return;
    }
    case ParameterKind::String:
        if (parameter.name == kFilePath) {
            SetFilePath(instance, value);
        } else {
            instance.SetStringValue(parameter.name, value);
        }
        return;
    default:
        fail("a collection, which has no text");
    }
}

PipelineElement MakeElement(ElementFactoryType kind, const Choice& choice) {
    PipelineElement element;
    element.recipe.implementation = choice.implementation;
    element.recipe.type = ChooseType(kind, choice);
    auto prototype = GetManifest(kind, choice.implementation, element.recipe.type)
                         ->GetCollectionValue("init_config");
    if (prototype == nullptr) {
        prototype = CreateParametersCollectionPrototype();
    }
    const std::vector<ParameterDescription> parameters = prototype->GetParameters();
    const auto find = [&parameters](const std::string& key) {
        return std::find_if(parameters.begin(), parameters.end(),
                            [&key](const auto& parameter) { return parameter.name == key; });
    };
    element.recipe.settings = CreateParametersCollectionInstance(prototype);
    for (const auto& [key, value] : choice.settings) {
        const auto parameter = find(key);
        if (parameter == parameters.end()) {
            std::vector<std::string> keys;
            for (const ParameterDescription& known : parameters) {
                keys.push_back(known.name);
            }
            throw UsageError(fmt::format("{} has no setting \"{}\"; it has {}",
                                         Escape(choice.implementation), Escape(key),
                                         keys.empty() ? "none" : Join(keys)));
        }
        Set(*element.recipe.settings, *parameter, choice.implementation, value);
    }
    const auto path = find(kFilePath);
    if (path != parameters.end() && path->kind == ParameterKind::String) {
        element.file = element.recipe.settings->GetStringValue(kFilePath);
    }
    return element;
}

// Keeps what an element tells people of its work, and passes every record on.
class ReportKeeper final : public ILoggerWriter {
public:
    explicit ReportKeeper(std::shared_ptr<ILoggerWriter> next) : m_next(std::move(next)) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override {
        if (level == LogLevel::Info || level == LogLevel::Milestone) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_reports.push_back(Escape(message));
        }
        if (m_next != nullptr) {
            m_next->Write(level, message, context, file, line, reserved, threadId, time);
        }
    }

    std::vector<std::string> Reports() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reports;
    }

private:
    std::shared_ptr<ILoggerWriter> m_next;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_reports;
};

// The container that a type means, if the host knows it.
const Container* ContainerOfType(const std::string& type) {
    for (const Container& container : Containers()) {
        if (GetLabel(container.format) == type) {
            return &container;
        }
    }
    return nullptr;
}

// A run under way, step after step.
class PipelineJob {
public:
    PipelineJob(const PipelineRequest& request, const HostLogger& log, Reporter& reporter)
        : m_request(request), m_input(request.source.Name()), m_output(request.sink.Name()),
          m_reporter(reporter), m_transfer(m_input, m_output, log, reporter) {
        m_result.source = request.source;
        m_result.sink = request.sink;
    }

    PipelineResult Run() {
        const std::string& inputFile = m_request.source.file;
        const std::string& outputFile = m_request.sink.file;
        if (!inputFile.empty() && IsSameFile(inputFile, outputFile)) {
            throw JobError(fmt::format("{}: is the same file as the input {}; name another output",
                                       Escape(outputFile), Escape(inputFile)));
        }
        m_reporter.Opening(m_input);
        if (!inputFile.empty()) {
            RequireReadable(inputFile);
        }
        SourceReader source(m_input, m_request.source.recipe);
        m_reporter.Opened();
        m_transfer.CheckOpening();
        Look(source);
        if (outputFile.empty()) {
            PushAll(source);
            m_transfer.CheckWriting();
        } else {
            WriteFile(source);
        }
        return std::move(m_result);
    }

private:
    // Makes sure that what the source delivers is what the host can count.
    void Look(const SourceReader& source) {
        const auto pcm = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
            source.Info()->GetAudioParameters());
        const auto fail = [this](std::string_view what) {
            throw JobError(fmt::format("{}: {}", Escape(m_input), what));
        };
        if (source.Description()->GetAudioInfos().size() != 1) {
            fail("delivers several audio tracks at once, and run takes one");
        }
        if (pcm == nullptr) {
            fail("delivers no PCM, and run takes nothing else");
        } else if (!(source.Limits().start.GetEditRate() == EditRate(pcm->GetSampleRate(), 1))) {
            fail("does not count its time in frames, so that nobody can tell whether all came");
        } else {
            m_result.channels = source.Channels();
            m_frameBytes = std::uint64_t{m_result.channels} * pcm->GetSampleSize();
        }
        m_result.rate = source.Rate();
        m_result.encoding = DescribeDelivery(*source.Info());
        m_isGrowing = source.Element().IsGrowing();
    }

    void WriteFile(SourceReader& source) {
        const PipelineElement& sink = m_request.sink;
        const Container* container = ContainerOfType(sink.recipe.type);
        const std::uint64_t bytes = static_cast<std::uint64_t>(source.Frames()) * m_frameBytes;
        const std::uint64_t size = container != nullptr ? MaxFileSize(bytes, m_result.channels) : 0;
        if (container != nullptr) {
            RequireFits(*container, sink.file, bytes, m_result.channels,
                        "the type " + GetLabel(WrapperFormat::BWAVE));
        }
        OutputFile output(sink.file, m_request.replace);
        output.RequireSpace(size);
        SetFilePath(*sink.recipe.settings, output.TemporaryPath());
        try {
            PushAll(source);
            if (container != nullptr) {
                CheckFile({output.TemporaryPath(), sink.file});
            }
            m_transfer.CheckWriting();
        } catch (const JobError& error) {
            throw JobError(error.what() + output.DescribeShortage(size));
        }
        output.Commit();
    }

    void CheckFile(const FileName& file) const {
        const auto frames = static_cast<std::uint64_t>(m_result.frames);
        VerifyHeaderSizes(file, frames * m_frameBytes, frames);
        VerifyReopens(file, m_result.frames, m_result.channels, m_result.rate);
    }

    void PushAll(SourceReader& source) {
        const ElementRecipe& recipe = m_request.sink.recipe;
        SinkWriter sink(m_output, recipe, source.Description(),
                        fmt::format("{}:{} does not take {}", Escape(recipe.implementation),
                                    Escape(recipe.type), m_result.encoding));
        Stages stages;
        stages.pull = [&] {
            return Pull(source);
        };
        stages.push = [&](const SampleHandle& sample) {
            sink.Element().PushSample(sample);
        };
        // Threads cost more than they bring where there is hardly anything to overlap.
        constexpr std::int64_t kFewFrames = 32768;
        const std::int64_t promised = source.Frames();
        m_result.frames =
            m_transfer.Run(stages, {promised, m_result.rate}, m_isGrowing || promised > kFewFrames);
        Close(sink);
        m_transfer.CheckWriting();
        const auto warning = m_transfer.CheckLength(m_isGrowing ? m_result.frames : promised,
                                                    m_result.frames, m_request.allowShort);
        if (warning.has_value()) {
            m_result.warnings.push_back(*warning);
            m_reporter.Show("kelhost: warning: " + *warning);
        }
        source.Release();
    }

    // Makes sure that a sample is what it says, and that a source ends which has an end.
    SampleHandle Pull(const SourceReader& source) {
        SampleHandle container = source.Element().GetSample();
        if (container == nullptr) {
            return nullptr;
        }
        const auto samples = container->GetAudioSamples(nullptr, nullptr);
        if (samples.size() != 1 || samples.front()->GetBuffer() == nullptr) {
            throw JobError(fmt::format("{}: delivers a sample container with {} audio samples "
                                       "instead of one",
                                       Escape(m_input), samples.size()));
        }
        const std::int64_t frames = samples.front()->GetTimeLimits().duration;
        const std::uint64_t bytes = samples.front()->GetBuffer()->GetSize();
        if (bytes != static_cast<std::uint64_t>(frames) * m_frameBytes) {
            throw JobError(fmt::format("{}: delivers a sample of {} bytes that it stamps as {} "
                                       "frames of {} bytes",
                                       Escape(m_input), bytes, frames, m_frameBytes));
        }
        m_pulled += frames;
        if (m_pulled > source.Frames() && !m_isGrowing) {
            throw JobError(fmt::format("{}: promises {} frames and delivers more", Escape(m_input),
                                       source.Frames()));
        }
        return container;
    }

    // What a sink finds out about its input as a whole it tells when it is closed, in records that
    // nobody would see otherwise.
    void Close(SinkWriter& sink) {
        const std::shared_ptr<ILoggerWriter> former = GetCurrentLoggerWriter();
        const auto keeper = std::make_shared<ReportKeeper>(former);
        SetCurrentLoggerWriter(keeper);
        try {
            m_transfer.Close(sink);
        } catch (...) {
            SetCurrentLoggerWriter(former);
            throw;
        }
        SetCurrentLoggerWriter(former);
        m_result.reports = keeper->Reports();
    }

    const PipelineRequest& m_request;
    std::string m_input;
    std::string m_output;
    Reporter& m_reporter;
    Transfer m_transfer;
    PipelineResult m_result;
    std::uint64_t m_frameBytes = 0;
    std::int64_t m_pulled = 0;
    bool m_isGrowing = false;
};

nlohmann::json AsJSON(const PipelineElement& element) {
    return {{"implementation", Escape(element.recipe.implementation)},
            {"type", Escape(element.recipe.type)},
            {"file", Escape(element.file)}};
}

PipelineElement ElementFrom(const nlohmann::json& json) {
    return {{json.at("implementation"), json.at("type"), nullptr}, json.at("file")};
}

} // namespace

PipelineRequest ParsePipeline(const std::vector<std::string>& words) {
    const auto marks = std::count(words.begin(), words.end(), "!");
    if (marks != 1) {
        throw UsageError(fmt::format("run takes one source and one sink with one \"!\" between "
                                     "them, and got {}: {}",
                                     marks == 0 ? "none" : fmt::format("{}", marks), kUsageOfRun));
    }
    const auto mark = std::find(words.begin(), words.end(), "!");
    if (mark == words.begin() || mark + 1 == words.end()) {
        throw UsageError(fmt::format("there is no {} the \"!\": {}",
                                     mark == words.begin() ? "source before" : "sink behind",
                                     kUsageOfRun));
    }
    const Choice source = ParseChoice(words.begin(), mark);
    const Choice sink = ParseChoice(mark + 1, words.end());
    PipelineRequest request;
    request.source = MakeElement(ElementFactoryType::AudioSource, source);
    request.sink = MakeElement(ElementFactoryType::AudioSink, sink);
    return request;
}

PipelineResult RunPipeline(const PipelineRequest& request, const HostLogger& log,
                           Reporter& reporter) {
    const ContextScope context("run " + request.source.Name());
    return PipelineJob(request, log, reporter).Run();
}

void to_json(nlohmann::json& json, const PipelineResult& result) {
    json = {{"source", AsJSON(result.source)},
            {"sink", AsJSON(result.sink)},
            {"encoding", result.encoding},
            {"channels", result.channels},
            {"rate", result.rate},
            {"frames", result.frames},
            {"reports", result.reports},
            {"warnings", result.warnings}};
}

void from_json(const nlohmann::json& json, PipelineResult& result) {
    result.source = ElementFrom(json.at("source"));
    result.sink = ElementFrom(json.at("sink"));
    json.at("encoding").get_to(result.encoding);
    json.at("channels").get_to(result.channels);
    json.at("rate").get_to(result.rate);
    json.at("frames").get_to(result.frames);
    json.at("reports").get_to(result.reports);
    json.at("warnings").get_to(result.warnings);
}

std::string Describe(const PipelineResult& result) {
    return fmt::format("{} -> {}: {}, {} {}, {} Hz, {} frames, {}\n", result.source.Name(),
                       result.sink.Name(), result.encoding, result.channels,
                       result.channels == 1 ? "channel" : "channels", result.rate, result.frames,
                       FormatDuration(result.frames, result.rate));
}

} // namespace kel::host
