/// Parsing of arguments into the variables of options. Used by one thread.
#pragma once

#include "commands/Option.h"

#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The arguments of the program, divided at the command.
struct DividedArguments {
    std::optional<std::string> command; ///< the first argument that is no option and no value
    std::vector<std::string> others;    ///< all others, in their order
};

/// Finds the command among the arguments.
/// @param common the options that may precede it
DividedArguments DivideArguments(const std::vector<std::string>& arguments,
                                 const std::vector<Option>& common);

/// Returns whether a flag is among the arguments before "--".
bool HasFlag(const std::vector<std::string>& arguments, const std::vector<std::string>& names);

/// The outcome of parsing.
struct ParsedArguments {
    std::vector<const Option*> used;  ///< options and arguments by position that have a value
    std::vector<std::string> unknown; ///< arguments that no option and no position accepts
};

/// Parses arguments into the variables of the options. What follows "--" is no option.
/// @throws UsageError when an option has no value, or two
ParsedArguments ParseArguments(const std::vector<Option>& options,
                               const std::vector<std::string>& arguments);

/// Finds a word that other tools read as one option and the parser as several short ones:
/// "-normalize", "-output". Several flags in one word, and a number after its option, are not such
/// words: "-rv", "-j4".
std::optional<std::string> FindMangledOption(const std::vector<Option>& options,
                                             const std::vector<std::string>& arguments);

/// Verifies that no name of a file or directory is empty.
/// @throws UsageError that names the option or argument
void RequireNames(const ParsedArguments& parsed);

/// Verifies that required arguments exist and that options fit together.
/// @throws UsageError that names the option or argument
void RequireComplete(const std::vector<Option>& options, const ParsedArguments& parsed);

} // namespace kel::host
