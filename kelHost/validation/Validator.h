/// Validation of a plug-in, each check in a process of its own. Used by one thread.
#pragma once

#include "jobs/Posix.h"
#include "validation/CheckProcess.h"
#include "validation/CheckSelection.h"
#include "validation/Report.h"
#include "validation/WorkDirectory.h"

#include <cstdint>
#include <vector>

namespace kel::host {

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
    const std::vector<CheckRun>& Runs() const { return m_selection.Runs(); }

    /// Seed of the random sequences.
    std::uint64_t Seed() const { return m_selection.Subject().seed; }

    /// Column widths for the results of all runs.
    ReportColumns Columns() const;

    /// Makes one run.
    /// @throws JobError when no process can be started, Interrupted when a signal arrived
    CheckResult Make(const CheckRun& run);

private:
    ProcessLimits Limits() const;

    const ValidationRequest& m_request;
    SignalReader m_signals;
    WorkDirectory m_directory;
    CheckSelection m_selection;
};

} // namespace kel::host
