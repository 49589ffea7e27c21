/// The command line of the program.
#pragma once

#include <ostream>

namespace kel::host {

/// Parses the command line and does what it says.
/// @param argc number of arguments, the program's name included
/// @param argv the arguments
/// @param out where results go
/// @param err where everything else goes: records, warnings, errors
/// @return the exit status: 0 all of it worked, 1 the job failed, 2 the command line was wrong
int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace kel::host
