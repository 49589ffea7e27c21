/// Owner, mode, access control list and extended attributes of files.
#pragma once

#include <string>
#include <vector>

namespace kel::host {

/// Gives a file the owner, group, mode, access control list and extended attributes in the
/// namespace "user" of another file. The set-id and sticky bits are left out: they were granted to
/// other contents. An access control list that cannot be preserved as a whole is not preserved at
/// all, and the group has no access then.
/// @param from a descriptor of the other file, which may be one of O_PATH
/// @param to a descriptor of the file to change
/// @return names of what could not be preserved: "owner", "access control list"; empty for nothing
/// @throws std::system_error when the mode cannot be set
std::vector<std::string> CopyAttributes(int from, int to);

} // namespace kel::host
