/// Temporary directory of a validation. One thread at a time.
#pragma once

#include <string>

namespace kel::host {

/// A directory for the files of a validation, removed at its end with everything in it.
class WorkDirectory {
public:
    /// @throws JobError when it cannot be created
    WorkDirectory();
    ~WorkDirectory();
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;

    /// The directory of files for sources.
    std::string Inputs() const { return m_path + "/inputs"; }

    /// Creates an empty directory for the next check, in place of the one before.
    std::string MakeEmpty() const;

private:
    std::string m_path;
};

} // namespace kel::host
