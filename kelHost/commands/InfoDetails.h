/// Facts about one file for people. Pure functions.
#pragma once

#include "analysis/FileInfo.h"

#include <string>

namespace kel::host {

/// Returns all facts: a line for each, then broadcast fields, tags, cue points, other chunks,
/// problems and the measurement, where present.
std::string FormatDetails(const FileInfo& info);

} // namespace kel::host
