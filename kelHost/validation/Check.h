/// What is demanded of a plug-in, check by check.
///
/// Each check runs in a process of its own, see ChildProcess.h: it may leave behind what it likes.
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
#include <utility>
#include <vector>

namespace kel::host {

/// A check found something wrong.
class CheckFailed : public std::runtime_error {
public:
    explicit CheckFailed(const std::string& message) : std::runtime_error(message) {}
};

/// A check cannot be made of this plug-in or element; the message says why.
class NotApplicable : public std::runtime_error {
public:
    explicit NotApplicable(const std::string& message) : std::runtime_error(message) {}
};

/// What a check is made of.
struct CheckSubject {
    std::string plugin;           ///< absolute path
    std::size_t registration = 0; ///< of the plug-in's, in their order; for checks of an element
    std::uint64_t seed = 0;       ///< for random sequences
    /// Settings that every element gets which declares them: names and values.
    std::vector<std::pair<std::string, std::string>> settings;
    std::optional<std::string> input; ///< what a source that reads files is to open
    Verbosity verbosity = Verbosity::Usual;
};

class CheckLog;

/// Reads the text of a setting.
/// @return the value of that kind; none when the text is no such value
std::optional<ParameterValue> ParseSetting(ParameterKind kind, const std::string& text);

/// What an element can be set to; nothing where its registration does not say.
std::vector<ParameterDescription> SettingsOf(const Registration& registration);

/// What the check functions work with: the plug-in, and calls whose failures are told by name.
class CheckContext {
public:
    /// @param note is told what is being called
    CheckContext(CheckSubject subject, ChildNote& note);

    const CheckSubject& Subject() const { return m_subject; }

    /// What the plug-in registered when it was loaded, which the first call does. It stays loaded:
    /// the process goes before it.
    /// @throws NotApplicable when that fails, as other checks tell
    const std::vector<Registration>& Registrations();

    /// The registration of the element that is checked.
    const Registration& Element();

    /// True when the element that is checked works on a file: it has a setting FilePath.
    bool WorksOnFile();

    /// Settings for the element that is checked in which nothing is set.
    std::shared_ptr<IParametersCollectionInstance> MakeDefaultSettings();

    /// Settings for the element that is checked: its defaults and what the user wants.
    std::shared_ptr<IParametersCollectionInstance> MakeSettings();

    /// Number of records at level Error so far.
    std::size_t CountErrors() const;

    /// Says what is being done, for when the process does not come back from it.
    void Note(const std::string& what) {
        m_note.Set(m_place.empty() ? what : what + " " + m_place);
    }

    /// Says where all that follows is done.
    void SetPlace(const std::string& place) { m_place = place; }

    /// Makes a call that must work.
    /// @throws CheckFailed when it does not
    template <typename Operation>
    auto Call(const std::string& what, Operation operation) {
        try {
            Note(what);
            return operation();
        } catch (const KELRuntimeError& error) {
            throw CheckFailed(fmt::format("{} failed: {}", what, error.what()));
        } catch (...) {
            FailAsForeign(what);
        }
    }

    /// Makes a call that may be refused; true when it was not.
    /// @throws CheckFailed when it fails in another way than with a KELRuntimeError
    template <typename Operation>
    bool Try(const std::string& what, Operation operation) {
        try {
            Note(what);
            static_cast<void>(operation());
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
    // Called while an exception is handled that is no KELRuntimeError.
    [[noreturn]] static void FailAsForeign(const std::string& what);

    CheckSubject m_subject;
    ChildNote& m_note;
    std::string m_place;
    std::shared_ptr<CheckLog> m_log;
    std::optional<std::vector<Registration>> m_registrations;
};

/// Fails unless a condition holds.
/// @throws CheckFailed
inline void Require(bool condition, const std::string& otherwise) {
    if (!condition) {
        throw CheckFailed(otherwise);
    }
}

/// Does what a check needs and another check is about.
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
/// @throws CheckFailed when the creator fails or gives none
template <ElementFactoryType T>
std::shared_ptr<typename ElementFactoryType_traits<T>::InstanceType>
MakeElement(CheckContext& context) {
    const Registration& registration = context.Element();
    const auto factory = std::dynamic_pointer_cast<ElementFactory<T>>(registration.factory);
    auto element =
        context.Call("the creator", [&] { return factory->creator(registration.entry); });
    Require(element != nullptr, "the creator gave no element");
    return element;
}

/// What is said where an element cannot be made.
constexpr const char* kCanNotBeMade = "it cannot be made, see element.new-each-time";

/// What a check is made of: the plug-in as a whole, or each element of a kind.
enum class CheckScope { Plugin, Element, Source, Sink, Allocator };

/// One check.
struct Check {
    const char* name = nullptr;   ///< stable
    const char* demand = nullptr; ///< what the plug-in must do, a sentence
    CheckScope scope = CheckScope::Plugin;
    void (*run)(CheckContext&) = nullptr; ///< throws CheckFailed or NotApplicable, or returns
};

/// All checks in the order in which they are made.
const std::vector<Check>& Checks();

/// The parts of that table.
std::vector<Check> PluginChecks();
std::vector<Check> ElementChecks();
std::vector<Check> SourceChecks();
std::vector<Check> SinkChecks();

/// True when a check is made of elements of a kind.
bool AppliesTo(CheckScope scope, ElementFactoryType kind);

/// The kind of element that a factory makes, whatever its registration says; none for a factory
/// that is not the framework's.
std::optional<ElementFactoryType> KindOf(const IElementFactory& factory);

} // namespace kel::host
