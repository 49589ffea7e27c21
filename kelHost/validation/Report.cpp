#include "validation/Report.h"

#include "base/DisplayWidth.h"
#include "base/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

// Returns the name of a verdict in texts and documents.
struct VerdictNames {
    std::string_view text;
    std::string_view json;
};

VerdictNames NamesOf(CheckVerdict verdict) {
    switch (verdict) {
    case CheckVerdict::Passed:
        return {"passed", "passed"};
    case CheckVerdict::Failed:
        return {"FAILED", "failed"};
    case CheckVerdict::NotApplicable:
        break;
    }
    return {"n/a", "not-applicable"};
}

// Lines stay lines; everything else is escaped as file names are.
std::string EscapeLines(std::string_view text) {
    std::string escaped;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        escaped += Escape(text.substr(begin, end - begin)) + "\n";
        begin = end + 1;
    }
    return escaped;
}

// Text within XML, in quotes or between tags. Two characters that Unicode knows and XML does not
// are left out.
std::string EscapeXML(std::string_view text) {
    std::string escaped;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string_view rest = text.substr(i);
        switch (text[i]) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            if (rest.substr(0, 3) == "\xEF\xBF\xBE" || rest.substr(0, 3) == "\xEF\xBF\xBF") {
                i += 2;
            } else {
                escaped += text[i];
            }
            break;
        }
    }
    return escaped;
}

std::string XMLAttribute(std::string_view text) {
    return EscapeXML(Escape(text));
}

std::string TestCase(const CheckResult& result) {
    std::string inner;
    if (result.verdict == CheckVerdict::Failed) {
        inner += fmt::format("      <failure message=\"{}\">{}</failure>\n",
                             EscapeXML(result.message), XMLAttribute(result.check->requirement));
    } else if (result.verdict == CheckVerdict::NotApplicable) {
        inner += fmt::format("      <skipped message=\"{}\"/>\n", EscapeXML(result.message));
    }
    if (!result.warning.empty()) {
        inner +=
            fmt::format("      <system-out>warning: {}</system-out>\n", EscapeXML(result.warning));
    }
    if (!result.output.empty()) {
        inner += fmt::format("      <system-err>{}</system-err>\n",
                             EscapeXML(EscapeLines(result.output)));
    }
    const std::string head =
        fmt::format(R"(    <testcase classname="{}" name="{}" time="{:.3f}")",
                    XMLAttribute(result.element.empty() ? "plug-in" : result.element),
                    result.check->name, result.seconds);
    return inner.empty() ? head + "/>\n" : head + ">\n" + inner + "    </testcase>\n";
}

} // namespace

std::size_t ValidationReport::Count(CheckVerdict verdict) const {
    return static_cast<std::size_t>(
        std::count_if(results.begin(), results.end(),
                      [&](const CheckResult& result) { return result.verdict == verdict; }));
}

std::size_t ValidationReport::CountWarnings() const {
    return static_cast<std::size_t>(
        std::count_if(results.begin(), results.end(),
                      [](const CheckResult& result) { return !result.warning.empty(); }));
}

std::string FormatLine(const CheckResult& result, const ReportColumns& columns) {
    const std::string cost = result.peakKiB == 0
                                 ? fmt::format("{:>8}  {:>9}", "-", "-")
                                 : fmt::format("{:>5.0f} ms  {:>5.1f} MiB", result.seconds * 1000,
                                               static_cast<double>(result.peakKiB) / 1024);
    const std::string message = result.message.empty() ? "" : "  " + result.message;
    const std::string warning = result.warning.empty() ? "" : "  warning: " + result.warning;
    return fmt::format("{:<6}  {:<{}}  {}  {}{}{}\n", NamesOf(result.verdict).text,
                       result.check->name, columns.check,
                       Pad(Escape(result.element), columns.element), cost, message, warning);
}

std::string FormatSummary(const ValidationReport& report) {
    const std::size_t warnings = report.CountWarnings();
    return fmt::format("{} check{}: {} passed{}, {} failed, {} not applicable; --seed {} repeats "
                       "the random calls\n",
                       report.results.size(), report.results.size() == 1 ? "" : "s",
                       report.Count(CheckVerdict::Passed),
                       warnings == 0 ? ""
                                     : fmt::format(" ({} with {})", warnings,
                                                   warnings == 1 ? "a warning" : "warnings"),
                       report.Count(CheckVerdict::Failed),
                       report.Count(CheckVerdict::NotApplicable), report.seed);
}

nlohmann::json ReportAsJSON(const ValidationReport& report) {
    auto results = nlohmann::json::array();
    for (const CheckResult& result : report.results) {
        results.push_back({{"check", result.check->name},
                           {"requirement", result.check->requirement},
                           {"element", Escape(result.element)},
                           {"verdict", NamesOf(result.verdict).json},
                           {"message", result.message},
                           {"warning", result.warning},
                           {"seconds", result.seconds},
                           {"peak_kib", result.peakKiB},
                           {"output", EscapeLines(result.output)}});
    }
    return {{"plugin", Escape(report.plugin)},
            {"seed", report.seed},
            {"passed", report.Count(CheckVerdict::Passed)},
            {"failed", report.Count(CheckVerdict::Failed)},
            {"not_applicable", report.Count(CheckVerdict::NotApplicable)},
            {"results", results}};
}

std::string ReportAsJUnit(const ValidationReport& report) {
    double seconds = 0;
    std::string cases;
    for (const CheckResult& result : report.results) {
        seconds += result.seconds;
        cases += TestCase(result);
    }
    const std::string counts = fmt::format(
        R"(tests="{}" failures="{}" errors="0" skipped="{}" time="{:.3f}")", report.results.size(),
        report.Count(CheckVerdict::Failed), report.Count(CheckVerdict::NotApplicable), seconds);
    const std::string plugin = XMLAttribute(report.plugin);
    return fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<testsuites name=\"kelhost validate\" {}>\n"
                       "  <testsuite name=\"{}\" {}>\n"
                       "    <properties>\n"
                       "      <property name=\"seed\" value=\"{}\"/>\n"
                       "    </properties>\n"
                       "{}"
                       "  </testsuite>\n"
                       "</testsuites>\n",
                       counts, plugin, counts, report.seed, cases);
}

} // namespace kel::host
