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
json AsJSON(const Registration& registration) {
    const auto kind = KindOf(*registration.factory);
    auto settings = json::object();
    for (const ParameterDescription& parameter : SettingsOf(registration)) {
        settings[parameter.name] = parameter.kind;
    }
    return json::array({registration.entry->GetStringValue("implementation"),
                        registration.entry->GetStringValue("type"),
                        kind.has_value() ? json(static_cast<std::int32_t>(*kind)) : json(),
                        settings});
}

std::string ListElements(const CheckSubject& subject, ChildNote& note) {
    try {
        CheckContext context(subject, note);
        auto elements = json::array();
        for (const Registration& registration : context.Registrations()) {
            elements.push_back(AsJSON(registration));
        }
        return DumpJSON(elements);
    } catch (...) {
        return ""; // the checks of the plug-in find the reason
    }
}

// The texts become lines of UTF-8, whatever the plug-in's texts contain.
std::string Verdict(CheckVerdict verdict, const std::string& message,
                    const std::string& warning = "") {
    return DumpJSON(json::array({static_cast<int>(verdict), Escape(message), Escape(warning)}));
}

// Makes a check, in its child process.
std::string MakeCheck(const Check& check, const CheckSubject& subject, ChildNote& note) {
    try {
        CheckContext context(subject, note);
        check.run(context);
        return Verdict(CheckVerdict::Passed, "",
                       fmt::format("{}", fmt::join(context.Warnings(), "; ")));
    } catch (const NotApplicable& reason) {
        return Verdict(CheckVerdict::NotApplicable, reason.what());
    } catch (const std::exception& error) { // CheckFailed among them
        return Verdict(CheckVerdict::Failed, error.what());
    } catch (...) {
        return Verdict(CheckVerdict::Failed, "it threw something other than an exception");
    }
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

std::optional<std::vector<ProbedElement>> ProbeElements(const CheckSubject& subject,
                                                        const ProcessLimits& limits) {
    ChildNote note;
    const ChildOutcome outcome = RunInChild([&] { return ListElements(subject, note); },
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
    const ChildOutcome outcome = RunInChild([&] { return MakeCheck(check, subject, note); },
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
