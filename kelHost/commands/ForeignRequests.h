/// Requests that users know from other tools: the equivalent here, or a pipe to a tool that does
/// it. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Returns a sentence about an option of other tools that ends in a line to type, with the files
/// and the value of the arguments. None for an option that no tool has.
/// @param option "--rate" or "--rate=44100"
/// @param arguments all arguments of the command
/// @param command empty for the program itself
std::optional<std::string> ExplainForeignOption(const std::string& option,
                                                const std::vector<std::string>& arguments,
                                                std::string_view command);

/// Returns such a sentence about a command, or an effect, of other tools.
/// @param arguments those of the command
std::optional<std::string> ExplainForeignCommand(std::string_view command,
                                                 const std::vector<std::string>& arguments);

/// Returns such a sentence about files that are named without a command.
/// @param words the arguments of the program, a file first
std::string ExplainMissingCommand(const std::vector<std::string>& words);

/// Returns such a sentence about a format that only other tools write.
/// @param format an extension without its dot, in upper or lower case: "flac"
/// @param output the name of the output
std::optional<std::string> ExplainForeignFormat(std::string_view format, const std::string& input,
                                                const std::string& output);

} // namespace kel::host
