/// Decides whether other users could have chosen the code of a plug-in. Any thread; the user
/// database of the system is read only for files that a group may change.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <sys/types.h>

namespace kel {

/// Users and groups who may change a plug-in or a directory on the way to it.
struct TrustedWriters {
    std::set<uid_t> users{0};
    std::set<gid_t> groups;
    bool everyone = false;
};

/// Returns root, the user who runs the program, and all who can replace the program or the core's
/// library: they need no plug-in. With raised rights, the user who runs it is not among them.
TrustedWriters FindTrustedWriters();

/// Returns those of the first call.
const TrustedWriters& Trusted();

/// Kind of file that a path must lead to.
enum class PathUse {
    Library,        ///< a regular file
    SearchDirectory ///< a directory in which no other user may create files
};

/// Returns why code must not be loaded from a path; empty when it may be.
///
/// Looks at every directory on the way, from the root directory to the file, those of symbolic
/// links included, and opens nothing. Each directory is looked at before its entries. If none has
/// an obstacle, the path leads to the same file until one of the trusted users changes it.
/// @param path absolute
/// @throws std::system_error when the path leads to no file
std::string FindPathObstacle(const std::filesystem::path& path, PathUse use,
                             const TrustedWriters& trusted);

} // namespace kel
