#include "validation/CheckProcess.h"

#include "base/JSONDocument.h"
#include "base/Text.h"
#include "jobs/ChildProcess.h"

#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

// The elements cross from the child as arrays: name, type, kind, settings.
json AsJSON(const ProbedElement& element) {
    auto settings = json::object();
    for (const auto& [name, kind] : element.settings) {
        settings[name] = kind;
    }
    return json::array(
        {element.implementation, element.type,
         element.kind.has_value() ? json(static_cast<std::int32_t>(*element.kind)) : json(),
         settings});
}

// Lists the elements, in the child process. Empty when that fails.
std::string DescribeElements(const CheckSubject& subject, ChildNote& note) {
    CheckContext context(subject, note);
    const auto elements = ListElements(context);
    if (!elements.has_value()) {
        return "";
    }
    auto described = json::array();
    for (const ProbedElement& element : *elements) {
        described.push_back(AsJSON(element));
    }
    return DumpJSON(described);
}

// Makes a check, in its child process.
std::string DescribeResult(const Check& check, const CheckSubject& subject, ChildNote& note) {
    CheckContext context(subject, note);
    const CheckResult result = MakeCheck(check, context);
    return DumpJSON(
        json::array({static_cast<int>(result.verdict), result.message, result.warning}));
}

// The texts become lines of UTF-8, whatever the plug-in's texts contain.
CheckResult Judged(CheckVerdict verdict, const std::string& message) {
    CheckResult result;
    result.verdict = verdict;
    result.message = Escape(message);
    return result;
}

// Describes the end of a process that did not return its result.
std::string DescribeTermination(const ChildOutcome& outcome, std::chrono::milliseconds limit,
                                const std::string& note) {
    const std::string place = note.empty() ? "" : " during " + note;
    switch (outcome.end) {
    case ChildEnd::Signal: {
        const std::string line = outcome.output.substr(0, outcome.output.find('\n'));
        return fmt::format("signal {} ({}) ended the process{}{}{}", outcome.code,
                           strsignal(outcome.code), place, line.empty() ? "" : ": ", line);
    }
    case ChildEnd::TimedOut:
        return fmt::format("it did not return within {} s{}",
                           std::chrono::duration<double>(limit).count(), place);
    case ChildEnd::Exited:
    case ChildEnd::Finished:
        break;
    }
    return fmt::format("it ended the process with status {}{}", outcome.code, place);
}

} // namespace

std::optional<std::vector<ProbedElement>> ListElements(CheckContext& context) {
    try {
        std::vector<ProbedElement> elements;
        for (const Registration& registration : context.Registrations()) {
            ProbedElement element;
            element.registration = elements.size();
            element.implementation = registration.entry->GetStringValue("implementation");
            element.type = registration.entry->GetStringValue("type");
            element.kind = KindOf(*registration.factory);
            for (const ParameterDescription& parameter : SettingsOf(registration)) {
                element.settings[parameter.name] = parameter.kind;
            }
            elements.push_back(element);
        }
        return elements;
    } catch (...) {
        return std::nullopt; // the checks of the plug-in find the reason
    }
}

CheckResult MakeCheck(const Check& check, CheckContext& context) {
    try {
        check.run(context);
        CheckResult result = Judged(CheckVerdict::Passed, "");
        result.warning = Escape(fmt::format("{}", fmt::join(context.Warnings(), "; ")));
        return result;
    } catch (const NotApplicable& reason) {
        return Judged(CheckVerdict::NotApplicable, reason.what());
    } catch (const std::exception& error) { // CheckFailed among them
        return Judged(CheckVerdict::Failed, error.what());
    } catch (...) {
        return Judged(CheckVerdict::Failed, "it threw something other than an exception");
    }
}

std::optional<std::vector<ProbedElement>> ProbeElements(const CheckSubject& subject,
                                                        const ProcessLimits& limits) {
    ChildNote note;
    const ChildOutcome outcome = RunInChild([&] { return DescribeElements(subject, note); },
                                            limits.directory, limits.time, limits.signals);
    if (outcome.end != ChildEnd::Finished) {
        return std::nullopt;
    }
    std::vector<ProbedElement> elements;
    for (const json& listed : ParseJSON(outcome.result)) {
        ProbedElement element;
        element.registration = elements.size();
        element.implementation = listed[0];
        element.type = listed[1];
        if (!listed[2].is_null()) {
            element.kind = static_cast<ElementFactoryType>(listed[2].get<std::int32_t>());
        }
        for (const auto& [name, kind] : listed[3].items()) {
            element.settings[name] = kind.get<ParameterKind>();
        }
        elements.push_back(element);
    }
    return elements;
}

CheckResult RunCheck(const Check& check, const CheckSubject& subject, const ProcessLimits& limits) {
    ChildNote note;
    const ChildOutcome outcome = RunInChild([&] { return DescribeResult(check, subject, note); },
                                            limits.directory, limits.time, limits.signals);
    CheckResult result;
    result.seconds = outcome.seconds;
    result.peakKiB = outcome.peakKiB;
    result.output = outcome.output;
    if (outcome.end == ChildEnd::Finished) {
        const json verdict = ParseJSON(outcome.result);
        result.verdict = static_cast<CheckVerdict>(verdict[0].get<int>());
        result.message = verdict[1];
        result.warning = verdict[2];
    } else {
        result.verdict = CheckVerdict::Failed;
        result.message = Escape(DescribeTermination(outcome, limits.time, note.Get()));
    }
    return result;
}

} // namespace kel::host
