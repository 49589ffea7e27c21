/// Files and addresses of plug-ins, examined without running anything in them. Any thread.
#pragma once

#include <string>

namespace kel {

/// Returns the damage of a library that the loader reports badly: it crashes on a truncated file,
/// and calls a library for another processor missing. Empty when the loader's own message will do.
/// @param path of a regular file
std::string FindLoadObstacle(const std::string& path);

/// Returns whether an address of a loaded library is a function. Data, too, may be in memory that
/// can be executed, and a function may have no symbol.
bool IsFunction(const void* address);

} // namespace kel
