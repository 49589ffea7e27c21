/// What others know of the command line: the manual page and the shell. Both are written from the
/// definitions that the program itself parses with, so that they name what there is.
#pragma once

#include <CLI/App.hpp>

#include <ostream>
#include <string>

namespace kel::host {

/// Writes the manual page, in the macros of man(7).
/// @param app the command line, defined
/// @param version of the program
/// @param out where the page goes
void WriteManual(const CLI::App& app, const std::string& version, std::ostream& out);

/// Writes the script by which bash completes commands, options and their values.
/// @param app the command line, defined
/// @param out where the script goes
void WriteCompletion(const CLI::App& app, std::ostream& out);

} // namespace kel::host
