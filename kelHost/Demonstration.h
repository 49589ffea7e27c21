/// A short tone and its copies, to show and hear what the program does.
#pragma once

#include "HostLog.h"

#include <ostream>
#include <string>

namespace kel::host {

/// Writes a short stereo tone into a folder, copies it into every container, and tells what was
/// done and where the files are. Files of a former demonstration there are replaced.
/// @param folder made if it is missing
/// @param log the current logger writer
/// @throws JobError when a file can not be written
void Demonstrate(const std::string& folder, const HostLog& log, std::ostream& out);

} // namespace kel::host
