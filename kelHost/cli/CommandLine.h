/// The command line of the program. Used by the main thread.
#pragma once

#include <ostream>

namespace kel::host {

/// Parses the command line and executes the command.
/// @param argc number of arguments, the program's name included
/// @param argv the arguments
/// @param out receives results
/// @param err receives everything else: records, warnings, errors, progress
/// @return the exit status: 0 success, 1 the job failed, 2 usage error, 130 interrupted, 143
/// terminated
int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace kel::host
