/// `kelhost validate`: whether a plug-in does what the framework demands.
#pragma once

#include "commands/JobRunner.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// What is to be checked, and how.
struct ValidateCommand {
    std::string plugin;
    std::vector<std::string> checks;   ///< names of checks; none for all
    std::vector<std::string> elements; ///< IMPLEMENTATION or IMPLEMENTATION:TYPE; none for all
    std::vector<std::string> settings; ///< NAME=VALUE for the elements that have such a setting
    std::optional<std::string> input;  ///< what sources open that read files
    std::optional<std::uint64_t> seed; ///< of random sequences; without one, another each time
    std::chrono::milliseconds timeout{30000}; ///< for each check
    std::optional<std::string> junit;         ///< where a report in JUnit's format goes
};

/// Checks a plug-in, each check in a process of its own, and shows what comes of each, a line for
/// each check and a summary. Nothing of the plug-in is loaded into this process.
/// @return kSuccess when nothing failed, else kFailure
/// @throws UsageError, JobError and Interrupted
int RunValidate(const ValidateCommand& command, const CommonOptions& common, std::ostream& out,
                std::ostream& err);

} // namespace kel::host
