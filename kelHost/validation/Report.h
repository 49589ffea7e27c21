/// What came of the checks of a plug-in, for people and for programs.
#pragma once

#include "validation/Check.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

/// What came of a check.
enum class CheckVerdict { Passed, Failed, NotApplicable };

/// One check of the plug-in or of one element, and what came of it.
struct CheckResult {
    const Check* check = nullptr;
    std::string element; ///< IMPLEMENTATION:TYPE; empty for the plug-in as a whole
    CheckVerdict verdict = CheckVerdict::Passed;
    std::string message; ///< what is wrong, or why the check could not be made; a line
    double seconds = 0;
    long peakKiB = 0;   ///< 0 when no process was needed
    std::string output; ///< what the plug-in printed
};

/// A whole run.
struct ValidationReport {
    std::string plugin; ///< as the user named it
    std::uint64_t seed = 0;
    std::vector<CheckResult> results;

    /// How many have a verdict.
    std::size_t Count(CheckVerdict verdict) const;
};

/// How wide the columns of the lines are.
struct ReportColumns {
    std::size_t check = 0;
    std::size_t element = 0;
};

/// A line of text for a result, with its end.
std::string FormatLine(const CheckResult& result, const ReportColumns& columns);

/// The last line of text: how many there are of each verdict, and the seed.
std::string FormatSummary(const ValidationReport& report);

/// The members of the JSON document.
nlohmann::json ReportAsJSON(const ValidationReport& report);

/// The report as JUnit writes them: a test case for each result.
std::string ReportAsJUnit(const ValidationReport& report);

} // namespace kel::host
