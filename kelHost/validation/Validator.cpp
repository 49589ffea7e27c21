#include "validation/Validator.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "jobs/ChildProcess.h"
#include "jobs/Console.h"
#include "validation/Check.h"
#include "validation/Report.h"
#include "validation/TestInputs.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// A directory for the files of a run, removed with everything in it.
class WorkDirectory {
public:
    WorkDirectory() : m_path((fs::temp_directory_path() / "kelhost-validate-XXXXXX").string()) {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw JobError(
                fmt::format("{}: cannot be made: {}", Escape(m_path), std::strerror(errno)));
        }
        fs::create_directory(Inputs());
    }
    ~WorkDirectory() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;

    std::string Inputs() const { return m_path + "/inputs"; }

    // An empty directory for the next check.
    std::string Fresh() const {
        std::string directory = m_path + "/check";
        fs::remove_all(directory);
        fs::create_directory(directory);
        return directory;
    }

private:
    std::string m_path;
};

// An element as the plug-in registers it.
struct ProbedElement {
    std::size_t registration = 0;
    std::string implementation;
    std::string type;
    std::optional<ElementFactoryType> kind;
    std::map<std::string, ParameterKind> settings;

    std::string Name() const { return implementation + ":" + type; }
    bool IsCalled(const std::string& name) const {
        return name == implementation || name == Name();
    }
};

void to_json(json& members, const ProbedElement& element) {
    members = {{"registration", element.registration},
               {"implementation", element.implementation},
               {"type", element.type},
               {"kind", element.kind.has_value() ? json(static_cast<std::int32_t>(*element.kind))
                                                 : json(nullptr)},
               {"settings", element.settings}};
}

void from_json(const json& members, ProbedElement& element) {
    members.at("registration").get_to(element.registration);
    members.at("implementation").get_to(element.implementation);
    members.at("type").get_to(element.type);
    if (!members.at("kind").is_null()) {
        element.kind = static_cast<ElementFactoryType>(members.at("kind").get<std::int32_t>());
    }
    members.at("settings").get_to(element.settings);
}

std::string Dump(const json& message) {
    return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

// Whatever the plug-in said, the message is a line of UTF-8.
json Verdict(CheckVerdict verdict, const std::string& message) {
    return {{"verdict", static_cast<int>(verdict)}, {"message", Escape(message)}};
}

// Makes one check, in its child process.
std::string MakeCheck(const Check& check, const CheckSubject& subject, ChildNote& note) {
    try {
        CheckContext context(subject, note);
        check.run(context);
        return Dump(Verdict(CheckVerdict::Passed, ""));
    } catch (const NotApplicable& reason) {
        return Dump(Verdict(CheckVerdict::NotApplicable, reason.what()));
    } catch (const std::exception& error) { // CheckFailed among them
        return Dump(Verdict(CheckVerdict::Failed, error.what()));
    } catch (...) {
        return Dump(Verdict(CheckVerdict::Failed, "something was thrown that is no exception"));
    }
}

// What the plug-in registers, in a child process; empty when it cannot be loaded.
std::string ListElements(const CheckSubject& subject, ChildNote& note) {
    try {
        CheckContext context(subject, note);
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
        return Dump(elements);
    } catch (...) {
        return "";
    }
}

// What a process that did not come back is told to have done.
std::string DescribeTermination(const ChildOutcome& outcome, std::chrono::milliseconds limit,
                                const std::string& note) {
    const std::string place = note.empty() ? "" : " during " + note;
    switch (outcome.end) {
    case ChildEnd::Signal: {
        const std::string line = outcome.output.substr(0, outcome.output.find('\n'));
        return fmt::format("the process was ended by signal {} ({}){}{}{}", outcome.code,
                           strsignal(outcome.code), place, line.empty() ? "" : ": ", line);
    }
    case ChildEnd::TimedOut:
        return fmt::format("it did not come back within {} s{}",
                           std::chrono::duration<double>(limit).count(), place);
    case ChildEnd::Exited:
    case ChildEnd::Finished:
        break;
    }
    return fmt::format("it ended the process with status {}{}", outcome.code, place);
}

// One run of one check.
struct Run {
    const Check* check = nullptr;
    const ProbedElement* element = nullptr;
    std::string whyNot; // why it cannot be made at all
};

class Validator {
public:
    Validator(const ValidateCommand& command, const CommonOptions& common)
        : m_command(command), m_limit(command.timeout) {
        m_subject.plugin = fs::absolute(command.plugin).string();
        m_subject.seed = command.seed.has_value() ? *command.seed : std::random_device()();
        m_subject.verbosity = common.verbosity;
        for (const std::string& setting : command.settings) {
            const std::size_t sign = setting.find('=');
            if (sign == std::string::npos || sign == 0) {
                throw UsageError(fmt::format("--set does not understand \"{}\"; it is NAME=VALUE",
                                             Escape(setting)));
            }
            m_subject.settings.emplace_back(setting.substr(0, sign), setting.substr(sign + 1));
        }
        CheckInput();
        CheckNames();
        Probe();
        CheckElements();
        CheckSettings();
        MakeRuns();
    }

    const std::vector<Run>& Runs() const { return m_runs; }
    std::uint64_t Seed() const { return m_subject.seed; }

    ReportColumns Columns() const {
        ReportColumns columns;
        for (const Run& run : m_runs) {
            columns.check = std::max(columns.check, std::string_view(run.check->name).size());
            if (run.element != nullptr) {
                columns.element =
                    std::max(columns.element, CountCharacters(Escape(run.element->Name())));
            }
        }
        return columns;
    }

    CheckResult Make(const Run& run) {
        CheckResult result;
        result.check = run.check;
        if (run.element != nullptr) {
            result.element = run.element->Name();
        }
        if (!run.whyNot.empty()) {
            result.verdict = CheckVerdict::NotApplicable;
            result.message = run.whyNot;
            return result;
        }
        CheckSubject subject = m_subject;
        if (run.element != nullptr) {
            subject.registration = run.element->registration;
            if (!subject.input.has_value()) {
                subject.input = Recording(run.element->type);
            }
        }
        ChildNote note;
        const ChildOutcome outcome =
            RunInChild([&] { return MakeCheck(*run.check, subject, note); }, m_directory.Fresh(),
                       m_limit, m_signals);
        result.seconds = outcome.seconds;
        result.peakKiB = outcome.peakKiB;
        result.output = outcome.output;
        if (outcome.end == ChildEnd::Finished) {
            const json verdict = json::parse(outcome.result);
            result.verdict = static_cast<CheckVerdict>(verdict.at("verdict").get<int>());
            result.message = verdict.at("message").get<std::string>();
        } else {
            result.verdict = CheckVerdict::Failed;
            result.message = Escape(DescribeTermination(outcome, m_limit, note.Get()));
        }
        return result;
    }

private:
    void CheckInput() {
        if (m_command.input.has_value()) {
            std::error_code error;
            if (!fs::is_regular_file(*m_command.input, error)) {
                throw UsageError(
                    fmt::format("--input {}: there is no such file", Escape(*m_command.input)));
            }
            m_subject.input = fs::absolute(*m_command.input).string();
        }
    }

    void CheckNames() const {
        std::vector<std::string_view> names;
        for (const Check& check : Checks()) {
            names.emplace_back(check.name);
        }
        for (const std::string& name : m_command.checks) {
            if (std::find(names.begin(), names.end(), name) == names.end()) {
                throw UsageError(fmt::format("there is no check \"{}\"; choose from {}",
                                             Escape(name), fmt::join(names, ", ")));
            }
        }
    }

    void Probe() {
        ChildNote note;
        const ChildOutcome outcome = RunInChild([&] { return ListElements(m_subject, note); },
                                                m_directory.Fresh(), m_limit, m_signals);
        if (outcome.end == ChildEnd::Finished) {
            m_elements = json::parse(outcome.result).get<std::vector<ProbedElement>>();
            m_isLoaded = true;
        }
    }

    bool IsWanted(const ProbedElement& element) const {
        const auto& wanted = m_command.elements;
        return wanted.empty() ||
               std::any_of(wanted.begin(), wanted.end(),
                           [&](const std::string& name) { return element.IsCalled(name); });
    }

    void CheckElements() const {
        for (const std::string& name : m_command.elements) {
            if (m_isLoaded &&
                std::none_of(m_elements.begin(), m_elements.end(),
                             [&](const auto& element) { return element.IsCalled(name); })) {
                std::vector<std::string> names;
                for (const ProbedElement& element : m_elements) {
                    names.push_back(Escape(element.Name()));
                }
                throw UsageError(fmt::format("there is no element \"{}\"; choose from {}",
                                             Escape(name), fmt::join(names, ", ")));
            }
        }
    }

    void CheckSettings() const {
        std::map<std::string, ParameterKind> known;
        for (const ProbedElement& element : m_elements) {
            known.insert(element.settings.begin(), element.settings.end());
        }
        for (const auto& [name, value] : m_subject.settings) {
            if (m_isLoaded && known.count(name) == 0) {
                std::vector<std::string> names;
                for (const auto& [knownName, kind] : known) {
                    names.push_back(Escape(knownName));
                }
                throw UsageError(fmt::format("there is no setting \"{}\"; choose from {}",
                                             Escape(name), fmt::join(names, ", ")));
            }
            for (const ProbedElement& element : m_elements) {
                const auto setting = element.settings.find(name);
                if (setting != element.settings.end() &&
                    !ParseSetting(setting->second, value).has_value()) {
                    throw UsageError(fmt::format(
                        "--set {}={}: the setting of {} is of kind {}", Escape(name), Escape(value),
                        Escape(element.Name()), ToString(setting->second)));
                }
            }
        }
    }

    void MakeRuns() {
        const auto& wanted = m_command.checks;
        for (const Check& check : Checks()) {
            if (wanted.empty() ||
                std::find(wanted.begin(), wanted.end(), check.name) != wanted.end()) {
                AddRuns(check);
            }
        }
        // Element by element, each with all its checks.
        std::stable_sort(m_runs.begin(), m_runs.end(), [](const Run& left, const Run& right) {
            return std::less<>()(left.element, right.element);
        });
    }

    void AddRuns(const Check& check) {
        if (check.scope == CheckScope::Plugin) {
            m_runs.push_back({&check, nullptr, ""});
            return;
        }
        bool hasElement = false;
        for (const ProbedElement& element : m_elements) {
            if (element.kind.has_value() && AppliesTo(check.scope, *element.kind) &&
                IsWanted(element)) {
                m_runs.push_back({&check, &element, ""});
                hasElement = true;
            }
        }
        if (!hasElement) {
            m_runs.push_back({&check, nullptr,
                              m_isLoaded ? "there is no element that it is made of"
                                         : "no element is known, as the plug-in cannot be loaded "
                                           "or does not register"});
        }
    }

    // What is opened for a type; made once.
    std::optional<std::string> Recording(const std::string& type) {
        const auto [place, isNew] = m_recordings.emplace(type, std::nullopt);
        if (isNew) {
            place->second = WriteRecording(m_directory.Inputs(), type);
        }
        return place->second;
    }

    const ValidateCommand& m_command;
    std::chrono::milliseconds m_limit;
    SignalReader m_signals;
    WorkDirectory m_directory;
    CheckSubject m_subject;
    bool m_isLoaded = false;
    std::vector<ProbedElement> m_elements;
    std::vector<Run> m_runs;
    std::map<std::string, std::optional<std::string>> m_recordings;
};

// With --verbose or KEL_LOG, what was logged during a check.
void ShowOutput(const CheckResult& result, Console& console) {
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        console.ShowLog(Escape(line));
    }
}

void WriteReport(const OutputFile& file, const std::string& text) {
    std::ofstream stream(file.TemporaryPath(), std::ios::binary);
    if (!(stream << text << std::flush)) {
        throw JobError(fmt::format("{}: cannot be written", Escape(file.Path())));
    }
}

} // namespace

int RunValidate(const ValidateCommand& command, const CommonOptions& common, std::ostream& out,
                std::ostream& err) {
    Console console(err, common.style);
    std::optional<OutputFile> junit;
    if (command.junit.has_value()) {
        junit.emplace(*command.junit, true);
    }
    Validator validator(command, common);
    const ReportColumns columns = validator.Columns();
    ValidationReport report;
    report.plugin = command.plugin;
    report.seed = validator.Seed();
    for (const Run& run : validator.Runs()) {
        const CheckResult result = validator.Make(run);
        if (common.verbosity != Verbosity::Usual) {
            ShowOutput(result, console);
        }
        const bool isShown = !common.style.quiet || result.verdict == CheckVerdict::Failed;
        if (isShown && !common.style.json) {
            out << FormatLine(result, columns) << std::flush;
        }
        report.results.push_back(result);
    }
    if (common.style.json) {
        out << FormatDocument("validate", ReportAsJSON(report));
    } else if (!common.style.quiet) {
        out << FormatSummary(report);
    }
    if (junit.has_value()) {
        WriteReport(*junit, ReportAsJUnit(report));
        junit->Commit();
    }
    return report.Count(CheckVerdict::Failed) == 0 ? kSuccess : kFailure;
}

} // namespace kel::host
