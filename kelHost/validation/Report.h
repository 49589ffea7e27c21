/// Results of checks, for people and for programs. Pure functions.
#pragma once

#include "validation/Check.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

/// Outcome of a check.
enum class CheckVerdict { Passed, Failed, NotApplicable };

/// One check of the plug-in or of one element, with its result.
struct CheckResult {
    const Check* check = nullptr;
    std::string element; ///< IMPLEMENTATION:TYPE; empty for the plug-in as a whole
    CheckVerdict verdict = CheckVerdict::Passed;
    std::string message; ///< the fault, or the reason why the check does not apply; one line
    std::string warning; ///< a remark about a check that passed; one line, usually empty
    double seconds = 0;
    long peakKiB = 0;   ///< 0 when no process was needed
    std::string output; ///< output of the plug-in
};

/// Results of a validation.
struct ValidationReport {
    std::string plugin; ///< as the user named it
    std::uint64_t seed = 0;
    std::vector<CheckResult> results;

    /// Returns the number of results with a verdict.
    std::size_t Count(CheckVerdict verdict) const;

    /// Returns the number of results with a warning.
    std::size_t CountWarnings() const;
};

/// Column widths of the lines.
struct ReportColumns {
    std::size_t check = 0;
    std::size_t element = 0;
};

/// Returns a result as a line of text, with its newline.
std::string FormatLine(const CheckResult& result, const ReportColumns& columns);

/// Returns the last line of text: the number of each verdict, and the seed.
std::string FormatSummary(const ValidationReport& report);

/// Returns the members of the JSON document.
nlohmann::json ReportAsJSON(const ValidationReport& report);

/// Returns the report in JUnit's format: a test case for each result.
std::string ReportAsJUnit(const ValidationReport& report);

} // namespace kel::host
