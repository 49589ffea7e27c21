/// The manual page. Written from the options that the program itself parses, so that it is
/// complete.
#pragma once

#include "commands/Option.h"

#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// Writes the manual page, in the macros of man(7).
/// @param commonOptions options of all commands
/// @param version version of the program
/// @param out receives the page
void WriteManual(const std::vector<Option>& commonOptions, const std::string& version,
                 std::ostream& out);

} // namespace kel::host
