#include "validation/CheckSelection.h"

#include "base/Errors.h"
#include "base/Suggestion.h"
#include "elements/SharedLibrary.h"
#include "validation/TestInputs.h"

#include <ParametersCollection.h>
#include <WrapperFormat.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void FailUnknown(std::string_view what, const std::string& name,
                              const std::vector<std::string>& known) {
    throw UsageError(DescribeUnknown(what, name, known));
}

void RequirePlugin(const std::string& plugin) {
    std::error_code error;
    const fs::file_status status = fs::status(plugin, error);
    if (!fs::exists(status)) {
        throw JobError(plugin, "cannot load the plug-in: " + error.message());
    }
    if (fs::is_directory(status)) {
        throw JobError(plugin, "cannot load the plug-in: it is a directory");
    }
}

// These checks examine the file itself, of any kind.
bool ExaminesFile(const std::string& check) {
    return check == "plugin.loads" || check == "plugin.one-entry-point";
}

void RequireLibrary(const std::string& plugin) {
    if (access(plugin.c_str(), R_OK) != 0) {
        throw JobError(plugin, std::string("cannot load the plug-in: ") + std::strerror(errno));
    }
    if (!IsLibrary(plugin)) {
        throw JobError(plugin, "cannot load the plug-in: it is not a library for this machine; "
                               "name the plug-in's .so file");
    }
}

std::string RequireInput(const std::string& input) {
    std::error_code error;
    if (!fs::is_regular_file(input, error)) {
        throw InvalidValue("--input", input, "an existing file");
    }
    return fs::absolute(input).string();
}

} // namespace

std::string NameOf(const CheckRun& run) {
    return run.element != nullptr ? run.element->Name() : "";
}

CheckResult NotMade(const CheckRun& run) {
    CheckResult result;
    result.verdict = CheckVerdict::NotApplicable;
    result.message = run.obstacle;
    return result;
}

CheckSelection::CheckSelection(const ValidationRequest& request) : m_request(request) {
    m_subject.plugin = fs::absolute(request.plugin).string();
    m_subject.seed = request.seed.has_value() ? *request.seed : std::random_device()();
    m_subject.verbosity = request.verbosity;
    m_subject.settings = request.settings;
    if (request.input.has_value()) {
        m_subject.input = RequireInput(*request.input);
        m_subject.isOwnInput = true;
    }
    RequireKnownChecks();
    RequirePlugin(request.plugin);
    if (std::none_of(request.checks.begin(), request.checks.end(), ExaminesFile)) {
        RequireLibrary(request.plugin);
    }
}

void CheckSelection::SelectFrom(std::optional<std::vector<ProbedElement>> elements) {
    m_elements = std::move(elements);
    if (m_elements.has_value()) {
        RequireKnownElements();
        RequireKnownSettings();
    }
    const auto& selected = m_request.checks;
    for (const Check& check : Checks()) {
        if (selected.empty() ||
            std::find(selected.begin(), selected.end(), check.name) != selected.end()) {
            AddRuns(check);
        }
    }
    // Element by element, each with all its checks.
    std::stable_sort(m_runs.begin(), m_runs.end(), [](const CheckRun& left, const CheckRun& right) {
        return std::less<>()(left.element, right.element);
    });
}

CheckSubject CheckSelection::SubjectOf(const CheckRun& run, const std::string& directory) {
    CheckSubject subject = m_subject;
    if (run.element != nullptr) {
        subject.registration = run.element->registration;
        if (!subject.input.has_value()) {
            subject.input = Recording(directory, run.element->type);
            if (!subject.input.has_value()) {
                subject.foreignInput = Recording(directory, GetLabel(WrapperFormat::WAVE));
            }
        }
    }
    return subject;
}

void CheckSelection::RequireKnownChecks() const {
    std::vector<std::string> names;
    for (const Check& check : Checks()) {
        names.emplace_back(check.name);
    }
    for (const std::string& name : m_request.checks) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            FailUnknown("check", name, names);
        }
    }
}

void CheckSelection::RequireKnownElements() const {
    for (const std::string& name : m_request.elements) {
        if (std::none_of(m_elements->begin(), m_elements->end(),
                         [&](const auto& element) { return element.HasName(name); })) {
            std::vector<std::string> names;
            for (const ProbedElement& element : *m_elements) {
                names.push_back(element.Name());
            }
            FailUnknown("element", name, names);
        }
    }
}

void CheckSelection::RequireKnownSettings() const {
    std::set<std::string> known;
    for (const ProbedElement& element : *m_elements) {
        for (const auto& [name, kind] : element.settings) {
            known.insert(name);
        }
    }
    for (const auto& [name, value] : m_request.settings) {
        if (known.count(name) == 0) {
            FailUnknown("setting", name, {known.begin(), known.end()});
        }
        for (const ProbedElement& element : *m_elements) {
            const auto setting = element.settings.find(name);
            if (setting != element.settings.end() &&
                !ParseSetting(setting->second, value).has_value()) {
                throw InvalidValue("--set", fmt::format("{}={}", name, value),
                                   fmt::format("a value of kind {}, as {} declares it",
                                               ToString(setting->second), element.Name()));
            }
        }
    }
}

void CheckSelection::AddRuns(const Check& check) {
    if (check.scope == CheckScope::Plugin) {
        m_runs.push_back({&check, nullptr, ""});
        return;
    }
    if (!m_elements.has_value()) {
        m_runs.push_back({&check, nullptr,
                          "no element is known, because the plug-in cannot be loaded or does not "
                          "register"});
        return;
    }
    bool hasElement = false;
    for (const ProbedElement& element : *m_elements) {
        if (element.kind.has_value() && AppliesTo(check.scope, *element.kind) &&
            IsSelected(element)) {
            m_runs.push_back({&check, &element, ""});
            hasElement = true;
        }
    }
    if (!hasElement) {
        m_runs.push_back({&check, nullptr, "there is no element to which it applies"});
    }
}

bool CheckSelection::IsSelected(const ProbedElement& element) const {
    const auto& selected = m_request.elements;
    return selected.empty() ||
           std::any_of(selected.begin(), selected.end(),
                       [&](const std::string& name) { return element.HasName(name); });
}

// Returns the file that sources of a type open; written once.
std::optional<std::string> CheckSelection::Recording(const std::string& directory,
                                                     const std::string& type) {
    const auto [recording, isNew] = m_recordings.emplace(type, std::nullopt);
    if (isNew) {
        recording->second = WriteRecording(directory, type);
    }
    return recording->second;
}

} // namespace kel::host
