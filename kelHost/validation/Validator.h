/// Validation of a plug-in: the choice of checks, and their runs. Used by one thread.
#pragma once

#include "elements/HostLogger.h"
#include "jobs/Posix.h"
#include "validation/CheckProcess.h"
#include "validation/Report.h"
#include "validation/WorkDirectory.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

/// A validation to make.
struct ValidationRequest {
    std::string plugin;
    std::vector<std::string> checks;   ///< names; empty: all
    std::vector<std::string> elements; ///< IMPLEMENTATION or IMPLEMENTATION:TYPE; empty: all
    std::vector<std::pair<std::string, std::string>> settings; ///< for elements that have them
    std::optional<std::string> input;                          ///< file for sources that read files
    std::optional<std::uint64_t> seed;        ///< of random sequences; none: another one each time
    std::chrono::milliseconds timeout{30000}; ///< for each check
    Verbosity verbosity = Verbosity::Usual;
};

/// One run of one check.
struct CheckRun {
    const Check* check = nullptr;
    const ProbedElement* element = nullptr; ///< null for the plug-in as a whole
    std::string obstacle;                   ///< reason why it cannot be made; usually empty
};

/// Runs the checks of a request, each in a process of its own. Nothing of the plug-in is loaded
/// into this process.
class Validator {
public:
    /// Probes the plug-in and selects the checks.
    /// @param request outlives the validator
    /// @throws UsageError when the request names something unknown, JobError when the plug-in is
    /// missing or no process can be started, Interrupted when a signal arrived
    explicit Validator(const ValidationRequest& request);

    /// The selected checks: those of the plug-in, then all of each element.
    const std::vector<CheckRun>& Runs() const { return m_runs; }

    /// Seed of the random sequences.
    std::uint64_t Seed() const { return m_subject.seed; }

    /// Column widths for the results of all runs.
    ReportColumns Columns() const;

    /// Makes one run.
    /// @throws JobError when no process can be started, Interrupted when a signal arrived
    CheckResult Make(const CheckRun& run);

private:
    void RequireKnownChecks() const;
    void RequireKnownElements() const;
    void RequireKnownSettings() const;
    void AddRuns(const Check& check);
    bool IsSelected(const ProbedElement& element) const;
    ProcessLimits Limits() const;
    std::optional<std::string> Recording(const std::string& type);

    const ValidationRequest& m_request;
    SignalReader m_signals;
    WorkDirectory m_directory;
    CheckSubject m_subject;
    std::optional<std::vector<ProbedElement>> m_elements; // none when it cannot be loaded
    std::vector<CheckRun> m_runs;
    std::map<std::string, std::optional<std::string>> m_recordings; // by type
};

} // namespace kel::host
