/// The command line of the program. Used by the main thread.
#pragma once

namespace kel::host {

/// Parses the command line and executes the command. Results go to standard output, everything else
/// to standard error: records, warnings, errors, progress. Called first in main.
/// @param argc number of arguments, the program's name included
/// @param argv the arguments
/// @return the exit status: 0 success, 1 the job failed, 2 usage error, 130 interrupted, 143
/// terminated
int Run(int argc, const char* const* argv);

} // namespace kel::host
