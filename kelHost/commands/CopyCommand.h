/// Copies of files for commands. Used by one thread.
#pragma once

#include "base/Errors.h"
#include "base/FileTree.h"
#include "commands/Command.h"
#include "jobs/SkippedFile.h"
#include "transfer/Copy.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace kel::host {

/// Copies to make.
struct CopyJobs {
    std::size_t count = 0;
    /// Returns a copy by its number. Copies are described when they are needed, because a tree may
    /// have a million.
    std::function<CopyRequest(std::size_t)> request;
    std::vector<UnusedFile> unused; ///< skipped
    std::vector<JobError> failures; ///< of directories
    bool areWritten = true;         ///< false when copies are only planned
};

/// Numbers of copies that were not made.
struct CopyCounts {
    std::size_t failed = 0; ///< failed jobs and directories
    SkipCounts skipped;
};

/// Makes copies and shows each as soon as it is complete, or all in one document.
/// @throws JobError and Interrupted when the work could not go on
CopyCounts MakeCopies(const CopyJobs& jobs, const CommonOptions& common, const Streams& streams);

} // namespace kel::host
