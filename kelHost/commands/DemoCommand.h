/// A short tone, to show and hear what the program does.
#pragma once

#include "elements/HostLogger.h"

#include <string>

namespace kel::host {

/// Writes a short stereo tone, 4 seconds of 48 kHz, as 32-bit float WAVE. A file that stands there
/// is replaced.
/// @param log the current logger writer
/// @throws JobError when the file cannot be written
void WriteTone(const std::string& path, const HostLogger& log);

} // namespace kel::host
