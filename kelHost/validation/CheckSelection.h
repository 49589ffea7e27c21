/// The choice of the checks of a validation, and their subjects. Used by one thread.
#pragma once

#include "elements/HostLogger.h"
#include "validation/Check.h"
#include "validation/CheckProcess.h"

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

/// Returns the name of the element of a run; empty for the plug-in as a whole.
std::string NameOf(const CheckRun& run);

/// Returns the result of a run that cannot be made.
CheckResult NotMade(const CheckRun& run);

/// The checks of a request.
class CheckSelection {
public:
    /// @param request outlives the selection
    /// @throws UsageError when the request names an unknown check or input, JobError when the
    /// plug-in is missing
    explicit CheckSelection(const ValidationRequest& request);

    /// Selects checks; to be called once.
    /// @param elements those of the plug-in; none when it cannot be loaded
    /// @throws UsageError when the request names an unknown element or setting
    void SelectFrom(std::optional<std::vector<ProbedElement>> elements);

    /// The selected checks: those of the plug-in, then all of each element.
    const std::vector<CheckRun>& Runs() const { return m_runs; }

    /// The plug-in with the conditions of the request, without an element.
    const CheckSubject& Subject() const { return m_subject; }

    /// Returns the subject of a run, and writes the file that its source needs.
    /// @param directory for such files
    /// @throws JobError when the file cannot be written
    CheckSubject SubjectOf(const CheckRun& run, const std::string& directory);

private:
    void RequireKnownChecks() const;
    void RequireKnownElements() const;
    void RequireKnownSettings() const;
    void AddRuns(const Check& check);
    bool IsSelected(const ProbedElement& element) const;
    std::optional<std::string> Recording(const std::string& directory, const std::string& type);

    const ValidationRequest& m_request;
    CheckSubject m_subject;
    std::optional<std::vector<ProbedElement>> m_elements; // none when it cannot be loaded
    std::vector<CheckRun> m_runs;
    std::map<std::string, std::optional<std::string>> m_recordings; // by type
};

} // namespace kel::host
