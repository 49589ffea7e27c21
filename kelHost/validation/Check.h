/// Requirements for a plug-in, as checks. Each check runs in a process of its own, see
/// ChildProcess.h, and need not clean up. Used by one thread.
#pragma once

#include "elements/HostLogger.h"
#include "elements/PluginLoader.h"
#include "jobs/ChildProcess.h"

#include <ElementFactory.h>
#include <ElementFactoryType.h>
#include <IAudioSink.h>
#include <IAudioSource.h>
#include <IMemoryBlockAllocator.h>
#include <KELRuntimeError.h>
#include <Logging.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel::host {

/// A check found something wrong.
class CheckFailed : public std::runtime_error {
public:
    explicit CheckFailed(const std::string& message) : std::runtime_error(message) {}
};

/// A check does not apply to this plug-in or element; the message has the reason.
class NotApplicable : public std::runtime_error {
public:
    explicit NotApplicable(const std::string& message) : std::runtime_error(message) {}
};

/// The subject of a check.
struct CheckSubject {
    std::string plugin;           ///< absolute path
    std::size_t registration = 0; ///< of the plug-in's, in their order; for checks of an element
    std::uint64_t seed = 0;       ///< for random sequences
    /// Settings that every element gets which declares them: names and values.
    std::vector<std::pair<std::string, std::string>> settings;
    std::optional<std::string> input; ///< what a source that reads files is to open
    bool isOwnInput = false;          ///< the user has named the input, which may be damaged
    /// A recording of another type, for a source of a type whose files are not known.
    std::optional<std::string> foreignInput;
    Verbosity verbosity = Verbosity::Usual;
};

class CheckLog;

/// Reads the text of a setting.
/// @return the value of that kind; none when the text is no such value
std::optional<ParameterValue> ParseSetting(ParameterKind kind, const std::string& text);

/// Returns the settings of an element; empty when its registration has none.
std::vector<ParameterDescription> SettingsOf(const Registration& registration);

/// The plug-in under test, and calls whose failures are reported with the name of the call.
class CheckContext {
public:
    /// @param note receives the name of each call
    CheckContext(CheckSubject subject, ChildNote& note);

    const CheckSubject& Subject() const { return m_subject; }

    /// Replaces the subject by another one of the same plug-in, which stays loaded.
    void SetSubject(CheckSubject subject) { m_subject = std::move(subject); }

    /// Returns the registrations of the plug-in, which the first call loads. It stays loaded until
    /// the process ends.
    /// @throws NotApplicable when loading fails, which other checks report
    const std::vector<Registration>& Registrations();

    /// The registration of the element that is checked.
    const Registration& Element();

    /// Returns whether the element works on a file: it has a setting FilePath.
    bool WorksOnFile();

    /// Returns settings for the element in which nothing is set.
    std::shared_ptr<IParametersCollectionInstance> MakeDefaultSettings();

    /// Returns settings for the element: its defaults and the values that the user has set.
    std::shared_ptr<IParametersCollectionInstance> MakeSettings();

    /// Number of records at level Error so far.
    std::size_t CountErrors() const;

    /// Notes the current activity, for the report of a crash or timeout.
    void Note(const std::string& what) {
        m_note.Set(m_place.empty() ? what : what + " " + m_place);
    }

    /// Sets the place that is added to all later notes.
    void SetPlace(const std::string& place) { m_place = place; }

    /// Adds a warning to the result, once. A check with warnings passes.
    void Warn(const std::string& warning);

    /// The warnings so far.
    const std::vector<std::string>& Warnings() const { return m_warnings; }

    /// Collects, from now on, errors that are logged by a call which succeeds.
    void WatchLog();

    /// @throws CheckFailed with the first of these errors since the last such question
    void RequireNoLoggedErrors();

    /// Warns of these errors since the last such question.
    void WarnOfLoggedErrors();

    /// Ignores these errors since the last such question.
    void ForgetLoggedErrors() { m_loggedErrors.clear(); }

    /// Makes a call that must succeed.
    /// @throws CheckFailed when it does not
    template <typename Operation>
    auto Call(const std::string& what, Operation operation) {
        try {
            Begin(what);
            if constexpr (std::is_void_v<decltype(operation())>) {
                operation();
                NoteSuccess(what);
            } else {
                auto result = operation();
                NoteSuccess(what);
                return result;
            }
        } catch (const KELRuntimeError& error) {
            throw CheckFailed(fmt::format("{} failed: {}", what, error.what()));
        } catch (...) {
            FailAsForeign(what);
        }
    }

    /// Makes a call that may be refused. Returns true when it was not.
    /// @throws CheckFailed when it fails in another way than with a KELRuntimeError
    template <typename Operation>
    bool Try(const std::string& what, Operation operation) {
        try {
            Begin(what);
            static_cast<void>(operation());
            NoteSuccess(what);
            return true;
        } catch (const KELRuntimeError&) {
            return false;
        } catch (...) {
            FailAsForeign(what);
        }
    }

    /// Makes a call that must be refused, with a KELRuntimeError.
    /// @throws CheckFailed when it is not
    template <typename Operation>
    void Refuse(const std::string& what, Operation operation) {
        if (Try(what, operation)) {
            throw CheckFailed(fmt::format("{} was not refused", what));
        }
    }

private:
    // Notes a call. Errors that were logged before it belong to no call.
    void Begin(const std::string& what);
    void NoteSuccess(const std::string& what);

    // Called while an exception is handled that is no KELRuntimeError.
    [[noreturn]] static void FailAsForeign(const std::string& what);

    CheckSubject m_subject;
    ChildNote& m_note;
    std::string m_place;
    std::vector<std::string> m_warnings;
    std::vector<std::string> m_loggedErrors; // by calls that succeeded
    std::shared_ptr<CheckLog> m_log;
    std::optional<std::vector<Registration>> m_registrations;
};

/// Fails unless a condition is true.
/// @throws CheckFailed
inline void Require(bool condition, const std::string& otherwise) {
    if (!condition) {
        throw CheckFailed(otherwise);
    }
}

/// Does something that a check needs and another check verifies.
/// @throws NotApplicable with @p otherwise where that fails
template <typename Operation>
auto Prepare(const std::string& otherwise, Operation operation) {
    try {
        return operation();
    } catch (const CheckFailed&) {
        throw NotApplicable(otherwise);
    }
}

/// Makes an element of the registration that is checked, which must be of kind @p T.
/// @throws CheckFailed when the creator fails or returns none
template <ElementFactoryType T>
std::shared_ptr<typename ElementFactoryType_traits<T>::InstanceType>
MakeElement(CheckContext& context) {
    const Registration& registration = context.Element();
    const auto factory = std::dynamic_pointer_cast<ElementFactory<T>>(registration.factory);
    auto element =
        context.Call("the creator", [&] { return factory->creator(registration.entry); });
    Require(element != nullptr, "the creator returned no element");
    return element;
}

/// Reason why a check does not apply when its element cannot be created.
constexpr const char* kCannotBeMade = "it cannot be created, see element.new-each-time";

/// Requirement of the checks for errors that are only logged.
constexpr const char* kReportsErrors = "A call that logs an error fails.";

/// Subjects of a check: the plug-in as a whole, or each element of a kind.
enum class CheckScope { Plugin, Element, Source, Sink, Allocator };

/// One check.
struct Check {
    const char* name = nullptr;        ///< stable
    const char* requirement = nullptr; ///< a sentence
    CheckScope scope = CheckScope::Plugin;
    void (*run)(CheckContext&) = nullptr; ///< throws CheckFailed or NotApplicable, or returns
};

/// Returns all checks in the order in which they are made.
const std::vector<Check>& Checks();

/// The parts of that table.
std::vector<Check> PluginChecks();
std::vector<Check> ElementChecks();
std::vector<Check> SourceChecks();
std::vector<Check> SinkChecks();

/// Returns whether a check applies to elements of a kind.
bool AppliesTo(CheckScope scope, ElementFactoryType kind);

/// Returns the kind of element that a factory creates, independent of its registration; none for a
/// factory that is not the framework's.
std::optional<ElementFactoryType> KindOf(const IElementFactory& factory);

} // namespace kel::host
