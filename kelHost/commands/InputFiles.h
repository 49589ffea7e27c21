/// Input files of commands: named one by one, or found in directories. Used by one thread.
#pragma once

#include "base/Errors.h"
#include "base/FileTree.h"
#include "commands/Option.h"
#include "jobs/Job.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// A file to work on.
struct ListedFile {
    std::string path;
    std::uint32_t keptAt = 0; ///< offset of the part of the path that an output keeps
    bool isFound = false;     ///< in a directory, and not named by the user

    /// The part of the path that an output keeps.
    std::string Kept() const { return path.substr(keptAt); }
};

/// Files to work on.
struct InputList {
    std::vector<ListedFile> files;
    std::vector<UnusedFile> unused; ///< links and special files in directories
    std::vector<JobError> failures; ///< directories that cannot be read
};

/// The options that select files in directories, as they are typed.
struct TreeArguments {
    bool recursive = false;
    std::vector<std::string> include;
    std::vector<std::string> exclude;
    bool followLinks = false;

    /// Returns the options, which refer to this object.
    std::vector<Option> Options();

    /// @throws UsageError when a pattern is invalid
    TreeSelection Interpret() const;
};

/// The options that name files in a list, as they are typed.
struct ListArguments {
    std::optional<std::string> file;
    bool null = false;

    /// Returns the options, which refer to this object.
    std::vector<Option> Options();

    /// Adds the names in the list, if there is one.
    /// @throws JobError when it cannot be read or has an invalid name
    void Append(std::vector<std::string>& names) const;

    /// Verifies that files are named at all.
    /// @param names those on the command line
    /// @throws UsageError when not
    void RequireNames(const std::vector<std::string>& names) const;
};

/// Returns the files of names, in their order, and the files of each directory among them in the
/// order of their bytes. Outputs keep the last part of a name, and of a directory also the path
/// below it. As with rsync, they do not keep the name of a directory that ends with "/", "." or
/// "..".
/// @param selection the files of directories; none: directories are not read
/// @param keepsParents outputs keep the whole names instead, from the current or the root directory
/// @throws UsageError when a name with ".." would have to be kept
InputList ListInputs(const std::vector<std::string>& names,
                     const std::optional<TreeSelection>& selection, bool keepsParents = false);

/// Returns whether a file is audio, or fails to open for another reason than its format. To be
/// called in a worker.
bool MayBeAudio(const std::string& path, Reporter& reporter);

} // namespace kel::host
