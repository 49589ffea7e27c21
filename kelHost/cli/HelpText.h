/// Help of the program and of its commands. Written from the options that the program itself
/// parses. Used by one thread.
#pragma once

#include "commands/Command.h"

#include <cstddef>
#include <ostream>

namespace kel::host {

/// Returns the number of characters in a line of the help: that of the variable COLUMNS or of the
/// terminal at standard output, within limits that can be read; 80 elsewhere.
std::size_t HelpWidth();

/// Writes the help of the program: its tasks, commands and general options.
/// @param width the maximum number of characters in a line
void WriteProgramHelp(std::size_t width, std::ostream& out);

/// Writes the help of a command: examples first, then its options by task.
/// @param width the maximum number of characters in a line
void WriteCommandHelp(const CommandEntry& entry, std::size_t width, std::ostream& out);

} // namespace kel::host
