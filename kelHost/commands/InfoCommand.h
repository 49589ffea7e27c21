/// Facts about files for commands. Used by one thread.
#pragma once

#include "commands/Command.h"

#include <string>
#include <vector>

namespace kel::host {

/// Shows the facts about files as a table, or in one document.
/// @return the exit status
/// @throws JobError and Interrupted when the work could not go on
int ShowInfo(const std::vector<std::string>& files, const CommonOptions& common,
             const Streams& streams);

} // namespace kel::host
