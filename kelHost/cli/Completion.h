/// Completion of commands, options and values by shells. Written from the options that the program
/// itself parses.
#pragma once

#include "commands/Option.h"

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Writes the script by which a shell completes command lines of the program.
/// @param shell "bash", "zsh" or "fish"
/// @param common options of all commands
/// @param out receives the script
/// @throws UsageError for another shell
void WriteCompletion(const std::string& shell, const std::vector<Option>& common,
                     std::ostream& out);

void WriteBashCompletion(const std::vector<Option>& common, std::ostream& out);
void WriteZshCompletion(const std::vector<Option>& common, std::ostream& out);
void WriteFishCompletion(const std::vector<Option>& common, std::ostream& out);

/// Returns a word in single quotes, for a POSIX shell.
std::string QuoteWord(std::string_view word);

} // namespace kel::host
