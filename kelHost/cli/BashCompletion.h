/// Completion for bash. Written from the options that the program itself parses.
#pragma once

#include "commands/Option.h"

#include <ostream>
#include <vector>

namespace kel::host {

/// Writes the script by which bash completes commands, options and their values.
/// @param commonOptions options of all commands
/// @param out receives the script
void WriteCompletion(const std::vector<Option>& commonOptions, std::ostream& out);

} // namespace kel::host
