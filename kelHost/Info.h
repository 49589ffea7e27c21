/// What is in audio files.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// Shows channels, rate, frames, duration and what the source delivers, a line for each file. A
/// file that can not be opened is told of in @p errors and does not stop the others.
/// @return true when all files could be opened
bool ShowInfo(const std::vector<std::string>& files, std::ostream& out, std::ostream& errors);

} // namespace kel::host
