/// What the program can do, as the command line asks for it.
#pragma once

#include "analysis/WaveformPlot.h"
#include "elements/HostLogger.h"
#include "jobs/Console.h"
#include "transfer/Copy.h"

#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// What holds for every command.
struct CommonOptions {
    ConsoleStyle style;
    Verbosity verbosity = Verbosity::Usual;
    std::chrono::milliseconds openTimeout{10000};
    unsigned jobs = 1; ///< most files worked on at once
};

/// `kelhost copy`.
struct CopyCommand {
    std::vector<std::string> files; ///< input and output; with a directory, inputs alone
    std::optional<std::string> outputDirectory;
    CopyOptions options;
};

/// `kelhost run`.
struct RunCommand {
    std::vector<std::string> words; ///< the source with its settings, "!", the sink with its own
    bool allowShort = false;
    bool replace = false;
};

/// `kelhost info`.
struct InfoCommand {
    std::vector<std::string> files;
    std::optional<std::string> field; ///< only this member of each file's result, "a.b" for nested
    bool measure = false;             ///< whether the files are read and measured
};

/// Each command gives its results to @p out, everything else to @p err, and returns the exit
/// status.
/// @throws UsageError, JobError and Interrupted
int RunCopy(const CopyCommand& command, const CommonOptions& common, std::ostream& out,
            std::ostream& err);
int RunRun(const RunCommand& command, const CommonOptions& common, std::ostream& out,
           std::ostream& err);
int RunInfo(const InfoCommand& command, const CommonOptions& common, std::ostream& out,
            std::ostream& err);
int RunPlot(const PlotRequest& request, const CommonOptions& common, std::ostream& out,
            std::ostream& err);
int RunFormats(const CommonOptions& common, std::ostream& out);
int RunDemo(const std::string& directory, const CommonOptions& common, std::ostream& out,
            std::ostream& err);

} // namespace kel::host
