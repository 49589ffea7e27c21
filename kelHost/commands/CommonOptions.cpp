#include "commands/CommonOptions.h"

#include "commands/OptionParsing.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::vector<std::string> ProgressChoices() {
    return {"auto", "none", "json"};
}

} // namespace

std::vector<Option> CommonArguments::Options() {
    std::vector<Option> options{
        Option("--plugin", "FILE", &plugins,
               "Load this plug-in instead of those in KEL_PLUGIN_PATH or next to the program; "
               "repeatable")
            .Completes(Option::Values::Files),
        Option("--json", "", &json, "Write results, errors and log records as JSON"),
        Option("-q,--quiet", "", &quiet, "Show no progress and no reports of written files"),
        Option("--progress", "STYLE", &progress,
               "auto (on a terminal), none, or json: lines of JSON on standard error")
            .Choices(ProgressChoices()),
        Option("-j,--jobs", "N", &jobs,
               "Work on N files at once (default: the number of processors)"),
        Option("--open-timeout", "SECONDS", &openTimeout, "Maximum time for opening a file"),
        Option("--stall-timeout", "SECONDS", &stallTimeout,
               "Maximum time without data from a file that is read; 0: no limit"),
        Option("-v,--verbose", "", &verbose,
               "Show all log records; KEL_LOG=none, error, warning, milestone or info selects "
               "some")};
    std::vector<Option> general;
    for (Option& option : options) {
        general.push_back(std::move(option).InGroup("General options"));
    }
    return general;
}

CommonOptions CommonArguments::Interpret() const {
    constexpr unsigned kMaxJobs = 256;
    CommonOptions common;
    common.style.json = json;
    common.style.quiet = quiet;
    common.style.colours = !json && UsesColour(STDERR_FILENO);
    common.plugins = plugins;
    RequireChoice("--progress", progress, ProgressChoices());
    if (progress == "json") {
        common.style.progress = ProgressStyle::JSON;
    } else if (progress == "auto" && !json && isatty(STDERR_FILENO) == 1) {
        common.style.progress = ProgressStyle::Line;
        common.style.width = TerminalWidth(STDERR_FILENO);
    }
    const char* level = std::getenv("KEL_LOG");
    if (level != nullptr && *level != '\0') {
        common.verbosity = ParseVerbosity(level);
    }
    if (verbose) {
        common.verbosity = Verbosity::Everything;
    }
    common.style.showsPrinted =
        common.verbosity == Verbosity::Usual || common.verbosity >= Verbosity::Warnings;
    common.openTimeout = ParseSecondsOption("--open-timeout", openTimeout);
    common.stallTimeout = ParseLimitOption("--stall-timeout", stallTimeout);
    common.jobs = jobs.has_value() ? ParseIntegerOption("--jobs", *jobs, 1U, kMaxJobs)
                                   : std::max(1U, std::thread::hardware_concurrency());
    return common;
}

} // namespace kel::host
