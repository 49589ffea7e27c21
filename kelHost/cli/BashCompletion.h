/// Completion for bash. Written from the options that the program itself parses.
#pragma once

#include "commands/Command.h"
#include "commands/Option.h"

#include <memory>
#include <ostream>
#include <vector>

namespace kel::host {

/// Writes the script by which bash completes commands, options and their values.
/// @param commonOptions options of all commands
/// @param out receives the script
void WriteCompletion(const std::vector<Option>& commonOptions,
                     const std::vector<std::unique_ptr<Command>>& commands, std::ostream& out);

} // namespace kel::host
