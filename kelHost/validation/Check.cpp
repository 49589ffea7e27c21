#include "validation/Check.h"

#include "base/Errors.h"
#include "base/Numbers.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kel::host {

// Counts errors and shows the records that the user requested. It keeps no records, which would
// look like memory that the element has lost, unless it watches for errors.
class CheckLog final : public ILoggerWriter {
public:
    explicit CheckLog(Verbosity verbosity) : m_verbosity(verbosity) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override {
        if (level == LogLevel::Error) {
            ++m_errors;
            KeepError(message);
        }
        HostLogger([](const std::string& text) { std::cerr << text << "\n"
                                                           << std::flush; },
                   m_verbosity)
            .Write(level, message, context, file, line, reserved, threadId, time);
    }

    std::size_t CountErrors() const { return m_errors; }

    void Watch() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isWatching = true;
    }

    // Returns the first error since the last call.
    std::optional<std::string> TakeError() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_error, std::nullopt);
    }

private:
    void KeepError(const char* message) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isWatching && !m_error.has_value()) {
            m_error = message;
        }
    }

    std::mutex m_mutex;
    bool m_isWatching = false;
    std::optional<std::string> m_error;
    Verbosity m_verbosity;
    std::atomic<std::size_t> m_errors{0};
};

namespace {

// The prototype of an element's settings; empty where its registration does not say.
std::shared_ptr<const IParametersCollectionPrototype>
PrototypeOf(const Registration& registration) {
    try {
        return registration.entry->GetCollectionValue("init_config");
    } catch (const KELRuntimeError&) {
        return nullptr; // an entry of another prototype than the framework's
    }
}

} // namespace

std::optional<ParameterValue> ParseSetting(ParameterKind kind, const std::string& text) {
    if (kind == ParameterKind::String) {
        return text;
    }
    const auto number = ParseInteger<std::int32_t>(text);
    return kind == ParameterKind::Integer && number.has_value()
               ? std::optional<ParameterValue>(*number)
               : std::nullopt;
}

std::vector<ParameterDescription> SettingsOf(const Registration& registration) {
    const auto prototype = PrototypeOf(registration);
    return prototype != nullptr ? prototype->GetParameters() : std::vector<ParameterDescription>{};
}

CheckContext::CheckContext(CheckSubject subject, ChildNote& note)
    : m_subject(std::move(subject)), m_note(note),
      m_log(std::make_shared<CheckLog>(m_subject.verbosity)) {
    SetCurrentLoggerWriter(m_log);
}

const std::vector<Registration>& CheckContext::Registrations() {
    if (!m_registrations.has_value()) {
        Note("loading");
        const std::vector<Registration> before = GetRegistrations();
        try {
            // Never unloaded: another check unloads it. Tools that look for lost memory find it
            // here.
            static auto& kept = *new std::vector<LoadedPlugin>;
            kept.emplace_back(m_subject.plugin);
        } catch (const JobError&) {
            throw NotApplicable("it cannot be loaded, see plugin.loads and plugin.registers");
        }
        std::vector<Registration> all = GetRegistrations();
        m_registrations.emplace(
            std::make_move_iterator(all.begin() + static_cast<std::ptrdiff_t>(before.size())),
            std::make_move_iterator(all.end()));
    }
    return *m_registrations;
}

const Registration& CheckContext::Element() {
    return Registrations().at(m_subject.registration);
}

bool CheckContext::WorksOnFile() {
    const auto settings = SettingsOf(Element());
    return std::any_of(settings.begin(), settings.end(), [](const auto& parameter) {
        return parameter.name == "FilePath" && parameter.kind == ParameterKind::String;
    });
}

std::shared_ptr<IParametersCollectionInstance> CheckContext::MakeDefaultSettings() {
    const auto prototype = PrototypeOf(Element());
    return CreateParametersCollectionInstance(
        prototype != nullptr ? prototype : CreateParametersCollectionPrototype());
}

std::shared_ptr<IParametersCollectionInstance> CheckContext::MakeSettings() {
    auto settings = MakeDefaultSettings();
    for (const ParameterDescription& parameter : SettingsOf(Element())) {
        for (const auto& [name, value] : m_subject.settings) {
            if (name != parameter.name) {
                continue;
            }
            // The validator has verified the text.
            const ParameterValue parsed = ParseSetting(parameter.kind, value).value();
            if (const auto* number = std::get_if<std::int32_t>(&parsed)) {
                settings->SetIntegerValue(name, *number);
            } else {
                settings->SetStringValue(name, value);
            }
        }
    }
    return settings;
}

std::size_t CheckContext::CountErrors() const {
    return m_log->CountErrors();
}

void CheckContext::Warn(const std::string& warning) {
    if (std::find(m_warnings.begin(), m_warnings.end(), warning) == m_warnings.end()) {
        m_warnings.push_back(warning);
    }
}

void CheckContext::WatchLog() {
    m_log->Watch();
}

void CheckContext::RequireNoLoggedErrors() {
    if (!m_loggedErrors.empty()) {
        throw CheckFailed(m_loggedErrors.front());
    }
}

void CheckContext::WarnOfLoggedErrors() {
    for (const std::string& error : m_loggedErrors) {
        Warn(error);
    }
    m_loggedErrors.clear();
}

void CheckContext::Begin(const std::string& what) {
    Note(what);
    m_log->TakeError();
}

void CheckContext::NoteSuccess(const std::string& what) {
    if (const auto error = m_log->TakeError(); error.has_value()) {
        m_loggedErrors.push_back(
            fmt::format("{} succeeded and logged the error \"{}\"", what, *error));
    }
}

void CheckContext::FailAsForeign(const std::string& what) {
    try {
        throw;
    } catch (const CheckFailed&) {
        throw;
    } catch (const NotApplicable&) {
        throw;
    } catch (const std::exception& error) {
        throw CheckFailed(fmt::format("{} threw an exception other than KELRuntimeError: {}", what,
                                      error.what()));
    } catch (...) {
        throw CheckFailed(fmt::format("{} threw something other than an exception", what));
    }
}

const std::vector<Check>& Checks() {
    static const std::vector<Check> checks = [] {
        std::vector<Check> all;
        for (const auto& part : {PluginChecks(), ElementChecks(), SourceChecks(), SinkChecks()}) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }();
    return checks;
}

bool AppliesTo(CheckScope scope, ElementFactoryType kind) {
    switch (scope) {
    case CheckScope::Element:
        return true;
    case CheckScope::Source:
        return kind == ElementFactoryType::AudioSource;
    case CheckScope::Sink:
        return kind == ElementFactoryType::AudioSink;
    case CheckScope::Allocator:
        return kind == ElementFactoryType::MemoryBlockAllocator;
    case CheckScope::Plugin:
        break;
    }
    return false;
}

std::optional<ElementFactoryType> KindOf(const IElementFactory& factory) {
    if (dynamic_cast<const ElementFactory<ElementFactoryType::AudioSource>*>(&factory) != nullptr) {
        return ElementFactoryType::AudioSource;
    }
    if (dynamic_cast<const ElementFactory<ElementFactoryType::AudioSink>*>(&factory) != nullptr) {
        return ElementFactoryType::AudioSink;
    }
    if (dynamic_cast<const ElementFactory<ElementFactoryType::MemoryBlockAllocator>*>(&factory) !=
        nullptr) {
        return ElementFactoryType::MemoryBlockAllocator;
    }
    return std::nullopt;
}

} // namespace kel::host
