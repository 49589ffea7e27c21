#include "commands/Command.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "commands/OptionParsing.h"
#include "validation/Check.h"
#include "validation/DebugRun.h"
#include "validation/Report.h"
#include "validation/Validator.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <ios>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::pair<std::string, std::string> ParseSetting(const std::string& text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0) {
        throw InvalidValue("--set", text, "NAME=VALUE");
    }
    return {text.substr(0, sign), text.substr(sign + 1)};
}

std::vector<std::string> CheckNames() {
    std::vector<std::string> names;
    for (const Check& check : Checks()) {
        names.emplace_back(check.name);
    }
    return names;
}

// Returns the line of a result with its first word, the verdict, in colour.
std::string ColouredLine(const std::string& line, CheckVerdict verdict, bool colours) {
    const std::size_t end = line.find(' ');
    const bool isColoured = colours && verdict != CheckVerdict::NotApplicable;
    const Colour colour = verdict == CheckVerdict::Failed ? Colour::Red : Colour::Green;
    return Coloured(line.substr(0, end), colour, isColoured) + line.substr(end);
}

// Shows the records that were logged during a check.
void ShowRecords(const CheckResult& result, Console& console) {
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        console.ShowLog(Escape(line));
    }
}

void WriteReport(const OutputFile& file, const std::string& text) {
    std::ofstream stream(file.TemporaryPath(), std::ios::binary);
    if (!(stream << text << std::flush)) {
        throw JobError(file.Path(), "cannot write the report");
    }
}

// Shows the line of a result as soon as its check has ended.
void ShowResult(const CheckResult& result, const ReportColumns& columns,
                const CommonOptions& common, std::ostream& out) {
    const bool isShown = !common.style.quiet || result.verdict == CheckVerdict::Failed;
    if (isShown && !common.style.json) {
        out << ColouredLine(FormatLine(result, columns), result.verdict, UsesColour(STDOUT_FILENO))
            << std::flush;
    }
}

// Shows the end of a report. Returns the exit status.
int Finish(const ValidationReport& report, const CommonOptions& common, std::ostream& out) {
    const std::size_t failures = report.Count(CheckVerdict::Failed);
    if (common.style.json) {
        out << FormatDocument("validate", ReportAsJSON(report));
    } else if (!common.style.quiet || failures > 0) {
        out << FormatSummary(report); // with the seed that repeats a failure
    }
    return failures == 0 ? kSuccess : kFailure;
}

class ValidateCommand final : public Command {
public:
    ValidateCommand() {
        Add(Option("PLUGIN", "", &m_request.plugin, "Library of the plug-in")
                .Completes(Option::Values::Files)
                .Required());
        BeginGroup("Selection");
        Add(Option("--check", "NAME", &m_request.checks, "Make only this check; repeatable")
                .Offers(CheckNames)
                .Excludes("--debug"));
        Add(Option("--element", "NAME", &m_request.elements,
                   "Check only this element, IMPLEMENTATION or IMPLEMENTATION:TYPE; repeatable")
                .Completes(Option::Values::Elements));
        BeginGroup("Conditions");
        Add(Option("--input", "FILE", &m_request.input,
                   "File for sources that read files; default: a short recording of their type")
                .Completes(Option::Values::Files));
        Add(Option("--set", "SETTING", &m_settings,
                   "Set NAME=VALUE in the elements that have such a setting; repeatable"));
        Add(Option("--seed", "NUMBER", &m_seed,
                   "Seed of the random calls; the same seed makes the same calls"));
        Add(Option("--timeout", "SECONDS", &m_timeout, "Maximum time for each check")
                .Excludes("--debug"));
        Add(Option("--debug", "CHECK", &m_debug,
                   "Make only this check, without a process of its own, a time limit or caught "
                   "signals, for a debugger")
                .Offers(CheckNames));
        BeginGroup("Report");
        Add(Option("--junit", "FILE", &m_junit, "Write a report in JUnit's format as well")
                .Completes(Option::Values::Files)
                .Excludes("--debug"));
        Add(Option("-f,--force", "", &m_force, "Replace an existing report").Excludes("--debug"));
        AddExample("kelhost validate libkelLibsndfile.so", "Make all checks");
        AddExample("kelhost validate libkelLibsndfile.so --check source.seek-to-each-edge",
                   "Make one check");
        AddExample("kelhost validate libkelLibsndfile.so --element kel.LibsndfileSink --seed 7 "
                   "--junit report.xml",
                   "Check an element, and write a report for a build server");
        AddExample("kelhost validate libkelLibsndfile.so --element kel.LibsndfileSource:WAVE "
                   "--input take.wav",
                   "Check a source with a file of your own");
        SetNotes("Each check runs in a process of its own, except with --debug.\n"
                 "Exit status: 0 no check failed, 1 a check failed.");
    }

    // No plug-in is loaded into this process, not even another one.
    bool NeedsPlugins() const override { return false; }

    void Interpret(const CommonOptions& common) override {
        m_request.timeout = ParseSecondsOption("--timeout", m_timeout);
        m_request.verbosity = common.verbosity;
        if (m_seed.has_value()) {
            m_request.seed = ParseIntegerOption<std::uint64_t>(
                "--seed", *m_seed, 0, std::numeric_limits<std::uint64_t>::max());
        }
        for (const std::string& setting : m_settings) {
            m_request.settings.push_back(ParseSetting(setting));
        }
        if (!common.plugins.empty()) {
            throw UsageError("validate expects the plug-in as its argument; remove --plugin");
        }
        if (m_debug.has_value()) {
            if (common.style.json) {
                throw UsageError("--debug prints text, between the output of the plug-in; remove "
                                 "--json");
            }
            m_request.checks = {*m_debug};
        }
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        return m_debug.has_value() ? Debug(common, streams.out) : Validate(common, streams);
    }

private:
    int Debug(const CommonOptions& common, std::ostream& out) const {
        const ValidationReport report = DebugCheck(m_request);
        ShowResult(report.results.front(), {}, common, out);
        return Finish(report, common, out);
    }

    int Validate(const CommonOptions& common, const Streams& streams) {
        Console console(streams.err, common.style);
        std::optional<OutputFile> junit;
        if (m_junit.has_value()) {
            junit.emplace(*m_junit, m_force);
        }
        Validator validator(m_request);
        const ReportColumns columns = validator.Columns();
        ValidationReport report;
        report.plugin = m_request.plugin;
        report.seed = validator.Seed();
        for (const CheckRun& run : validator.Runs()) {
            const CheckResult result = validator.Make(run);
            if (common.verbosity != Verbosity::Usual) {
                ShowRecords(result, console);
            }
            ShowResult(result, columns, common, streams.out);
            report.results.push_back(result);
        }
        const int status = Finish(report, common, streams.out);
        if (junit.has_value()) {
            WriteReport(*junit, ReportAsJUnit(report));
            for (const std::string& warning : junit->Finish()) {
                console.ShowLog(WarningLine(warning));
            }
            junit->Commit();
        }
        return status;
    }

    ValidationRequest m_request;
    std::vector<std::string> m_settings;
    std::optional<std::string> m_seed;
    std::string m_timeout = "30";
    std::optional<std::string> m_debug;
    std::optional<std::string> m_junit;
    bool m_force = false;
};

} // namespace

std::unique_ptr<Command> MakeValidateCommand() {
    return std::make_unique<ValidateCommand>();
}

} // namespace kel::host
