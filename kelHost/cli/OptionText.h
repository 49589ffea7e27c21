/// Options in words, for the help and the manual page. Pure functions.
#pragma once

#include "commands/Option.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

class Command;
struct Example;

/// Returns words in one line, with a separator between them.
std::string JoinWords(const std::vector<std::string>& words, std::string_view separator);

/// Returns the names with the name of the value: "-o, --output PICTURE".
std::string DisplayedNames(const Option& option);

/// Returns the description with the choices, unless it names them itself, the options that it
/// excludes or needs, and the default.
std::string DescribeOption(const Option& option);

/// Returns the titles of the groups of options, in their order.
std::vector<std::string> GroupTitles(const std::vector<Option>& options);

/// Returns the options that show something and exit. They have no variables.
std::vector<Option> ShowingOptions();

/// Returns the forms of a command's arguments: its own, or the one that its options imply, such as
/// "FILE..." or "[DIRECTORY]".
std::vector<std::string> UsagesOf(const Command& command);

/// Returns the lines of an example. A line that is too long continues after a backslash.
/// @param width the maximum number of characters in a line
std::vector<std::string> ExampleLines(const Example& example, std::size_t width);

/// Returns the lines of a text.
std::vector<std::string> SplitLines(std::string_view text);

/// Divides a text between its words into lines.
/// @param width the maximum number of characters in a line; longer words stay whole
std::vector<std::string> WrapWords(std::string_view text, std::size_t width);

} // namespace kel::host
