/// Lists of file names in a file. Any thread.
#pragma once

#include <string>
#include <vector>

namespace kel::host {

/// Separator of the names in a list.
enum class NameSeparator : char { Newline = '\n', Null = '\0' };

/// Reads a list of file names, of any bytes. Empty lines are ignored, because no file has an empty
/// name. Between NUL characters, which only programs write, an empty name is an error. The name "-"
/// is that of a file, "./-".
/// @param path the file; "-" for standard input
/// @throws JobError when the list cannot be read or has an invalid name
std::vector<std::string> ReadFileList(const std::string& path, NameSeparator separator);

} // namespace kel::host
