#include "commands/Command.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Numbers.h"
#include "base/Suggestion.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "commands/InputOptions.h"
#include "commands/JobRunner.h"
#include "commands/StreamedOutput.h"
#include "elements/Elements.h"
#include "transfer/Pipeline.h"

#include <ElementFactoryType.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::string_view kUsage = "run SOURCE key=value ... ! SINK key=value ...";

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
            throw UsageError(fmt::format("\"{}\", after {}, has no value; settings are key=value",
                                         *word, choice.implementation));
        }
        const std::string key = word->substr(0, equals);
        for (const auto& setting : choice.settings) {
            if (setting.first == key) {
                throw UsageError(
                    fmt::format("\"{}\" of {} is set twice", key, choice.implementation));
            }
        }
        choice.settings.emplace_back(key, word->substr(equals + 1));
    }
    return choice;
}

void AddNew(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
    }
}

// Returns the types that an element of a kind is registered for.
std::vector<std::string> TypesOf(ElementFactoryType kind, const std::string& implementation) {
    std::vector<std::string> types;
    std::vector<std::string> implementations;
    for (const Registration& registration : GetRegistrations()) {
        const IParametersCollectionInstance& entry = *registration.entry;
        if (entry.GetIntegerValue("class") != static_cast<std::int32_t>(kind)) {
            continue;
        }
        const std::string name = entry.GetStringValue("implementation");
        AddNew(implementations, name);
        if (name == implementation) {
            AddNew(types, entry.GetStringValue("type"));
        }
    }
    if (types.empty()) {
        throw UsageError(implementations.empty()
                             ? fmt::format("there is no {} \"{}\"; none is registered",
                                           GetLabel(kind), implementation)
                             : DescribeUnknown(GetLabel(kind), implementation, implementations));
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
    const std::string& name = choice.implementation;
    if (choice.type.has_value()) {
        throw UsageError(fmt::format("{} is not registered for the type \"{}\"; use {}", name,
                                     wanted, ListAlternatives(types)));
    }
    throw UsageError(fmt::format("{} is registered for several types; name one as {}:TYPE: {}",
                                 name, name, ListAlternatives(types)));
}

void Set(IParametersCollectionInstance& instance, const ParameterDescription& parameter,
         const std::string& implementation, const std::string& value) {
    const auto fail = [&](const std::string& expected) {
        throw InvalidValue(fmt::format("{} of {}", parameter.name, implementation), value,
                           expected);
    };
    switch (parameter.kind) {
    case ParameterKind::Integer: {
        const auto number = ParseInteger<std::int32_t>(value);
        if (!number.has_value()) {
            fail(fmt::format("an integer from {} to {}", std::numeric_limits<std::int32_t>::min(),
                             std::numeric_limits<std::int32_t>::max()));
        }
        instance.SetIntegerValue(parameter.name, *number);
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
        fail("a collection, which has no text form");
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
            const auto closest = ClosestName(key, keys);
            throw UsageError(
                fmt::format("{} has no setting \"{}\"; {}", choice.implementation, key,
                            closest.has_value()
                                ? "did you mean " + *closest + "?"
                                : "it has " + (keys.empty() ? "none" : ListAlternatives(keys))));
        }
        Set(*element.recipe.settings, *parameter, choice.implementation, value);
    }
    const auto path = find(kFilePath);
    if (path != parameters.end() && path->kind == ParameterKind::String) {
        element.file = element.recipe.settings->GetStringValue(kFilePath);
        const auto typed =
            std::find_if(choice.settings.begin(), choice.settings.end(),
                         [](const auto& setting) { return setting.first == kFilePath; });
        if (typed != choice.settings.end()) {
            element.file = kind == ElementFactoryType::AudioSource ? InputName(typed->second)
                                                                   : OutputName(typed->second);
        }
    }
    return element;
}

// Parses "SOURCE[:TYPE] key=value... ! SINK[:TYPE] key=value...". The type is the label of a
// format; it is required where the element is registered for several and the extension of its
// "FilePath" selects none of them. Values have the kind that the element declares.
PipelineRequest ParsePipeline(const std::vector<std::string>& words) {
    const auto marks = std::count(words.begin(), words.end(), "!");
    if (marks != 1) {
        throw UsageError(
            fmt::format("run expects a source and a sink with one \"!\" between them, not "
                        "{}: {}",
                        marks, kUsage));
    }
    const auto mark = std::find(words.begin(), words.end(), "!");
    if (mark == words.begin() || mark + 1 == words.end()) {
        throw UsageError(fmt::format("the {} the \"!\" is missing: {}",
                                     mark == words.begin() ? "source before" : "sink after",
                                     kUsage));
    }
    const Choice source = ParseChoice(words.begin(), mark);
    const Choice sink = ParseChoice(mark + 1, words.end());
    PipelineRequest request;
    request.source = MakeElement(ElementFactoryType::AudioSource, source);
    request.sink = MakeElement(ElementFactoryType::AudioSink, sink);
    return request;
}

class RunCommand final : public Command {
public:
    RunCommand() {
        AddUsage("SOURCE[:TYPE] KEY=VALUE... ! SINK[:TYPE] KEY=VALUE...");
        Add(Option("ELEMENT", "", &m_words,
                   "Names, types and keys of the source and the sink; kelhost inspect shows them")
                .Completes(Option::Values::Elements)
                .Required());
        BeginGroup("Output files");
        Add(Option("-f,--force", "", &m_replace, "Replace an existing file of the sink"));
        BeginGroup("Damaged inputs and pipes");
        for (Option& option : m_input.Options()) {
            Add(std::move(option));
        }
        AddExample("kelhost run kel.LibsndfileSource FilePath=take.wav ! kel.LibsndfileSink "
                   "FilePath=copy.wav",
                   "Copy a file, without any conversion");
        AddExample("kelhost run kel.LibsndfileSource:WAVE FilePath=take.wav "
                   "MaxSamplesPerBuffer=480 ! kel.LibsndfileSink:BWAVE FilePath=take.rf64",
                   "Choose types and a setting");
        SetNotes(
            "The type is required where an element has several and the extension of its FilePath "
            "selects none of them.\n"
            "Nothing is converted. The file that a sink's FilePath names appears when it is "
            "complete.");
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        PipelineRequest request = ParsePipeline(m_words);
        request.input = m_input.Interpret();
        request.replace = m_replace;
        const auto stream =
            request.sink.file.path.empty()
                ? nullptr
                : StreamedOutput::Open(request.sink.file, request.source.file,
                                       request.input.spool.directory, common.openTimeout);
        if (stream == nullptr) {
            return Execute(request, common, streams) ? kSuccess : kFailure;
        }
        request.sink.file = stream->File();
        request.isStreamed = true;
        return stream->Run(streams,
                           [&](const Streams& texts) { return Execute(request, common, texts); });
    }

private:
    static bool Execute(const PipelineRequest& request, const CommonOptions& common,
                        const Streams& streams) {
        JobRunner runner(common, streams.err);
        const FileName& file = request.source.file;
        runner.Add(file.path.empty() ? FileName("", request.source.Name()) : file,
                   request.isStreamed ? "" : request.sink.file.path,
                   [request](const HostLogger& log, Reporter& reporter) {
                       return RunPipeline(request, log, reporter);
                   });
        const std::size_t failed = runner.Run([&](const JobResult& result) {
            streams.out << (common.style.quiet ? "" : result.report) << result.output;
        });
        if (common.style.json) {
            streams.out << FormatDocument(
                "run", {{"results", runner.Results()}, {"failures", runner.Failures()}});
        }
        return failed == 0;
    }

    std::vector<std::string> m_words;
    InputArguments m_input;
    bool m_replace = false;
};

} // namespace

std::unique_ptr<Command> MakeRunCommand() {
    return std::make_unique<RunCommand>();
}

} // namespace kel::host
