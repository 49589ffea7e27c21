/// Options that all commands share. Used by one thread.
#pragma once

#include "commands/Option.h"
#include "elements/HostLogger.h"
#include "jobs/Console.h"

#include <chrono>
#include <string>
#include <vector>

namespace kel::host {

/// The interpreted values of the common options.
struct CommonOptions {
    ConsoleStyle style;
    Verbosity verbosity = Verbosity::Usual;
    std::chrono::milliseconds openTimeout{10000};
    std::chrono::milliseconds stallTimeout{60000}; ///< 0 for no limit
    unsigned jobs = 1;                             ///< maximum number of files worked on at once
    std::vector<std::string> plugins; ///< files to load instead of the installed plug-ins
};

/// The common options as they are typed.
struct CommonArguments {
    std::vector<std::string> plugins;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::string progress = "auto";
    std::optional<std::string> jobs;
    std::string openTimeout = "10";
    std::string stallTimeout = "60";

    /// Returns the options, which refer to this object.
    std::vector<Option> Options();

    /// Interprets the values, the environment variable KEL_LOG, and whether standard error is a
    /// terminal.
    /// @throws UsageError when a value is invalid
    CommonOptions Interpret() const;
};

} // namespace kel::host
