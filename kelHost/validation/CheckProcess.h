/// Checks and queries of a plug-in, in this process or each in a child process. Used by one thread.
#pragma once

#include "jobs/Posix.h"
#include "validation/Check.h"
#include "validation/Report.h"

#include <ElementFactoryType.h>
#include <ParametersCollection.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// An element as the plug-in registers it.
struct ProbedElement {
    std::size_t registration = 0; ///< index among the plug-in's registrations
    std::string implementation;
    std::string type;
    std::optional<ElementFactoryType> kind; ///< none for a factory of another kind
    std::map<std::string, ParameterKind> settings;

    std::string Name() const { return implementation + ":" + type; }

    /// True for the implementation, with or without the type.
    bool HasName(const std::string& name) const { return name == implementation || name == Name(); }
};

/// Returns the elements of a plug-in, which is loaded into this process; none when it cannot be
/// loaded or does not register.
std::optional<std::vector<ProbedElement>> ListElements(CheckContext& context);

/// Makes a check in this process.
/// @return the result, without the check, the element and its cost
CheckResult MakeCheck(const Check& check, CheckContext& context);

/// Conditions of a child process.
struct ProcessLimits {
    std::string directory;          ///< its working directory
    std::chrono::milliseconds time; ///< maximum time
    const SignalReader& signals;    ///< interrupts the wait
};

/// Returns the elements that a plug-in registers; none when it cannot be loaded or does not
/// register.
/// @throws Interrupted when a signal arrived, JobError when no process can be started
std::optional<std::vector<ProbedElement>> ProbeElements(const CheckSubject& subject,
                                                        const ProcessLimits& limits);

/// Makes a check. Crashes and timeouts are failures that name the last call.
/// @return the result, without the check and the element
/// @throws Interrupted when a signal arrived, JobError when no process can be started
CheckResult RunCheck(const Check& check, const CheckSubject& subject, const ProcessLimits& limits);

} // namespace kel::host
