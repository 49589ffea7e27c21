/// Copies of files for commands. Used by one thread.
#pragma once

#include "commands/Command.h"
#include "transfer/Copy.h"

#include <cstddef>
#include <vector>

namespace kel::host {

/// Numbers of copies that were not made.
struct CopyCounts {
    std::size_t skipped = 0;
    std::size_t failed = 0;
};

/// Makes copies and shows each as soon as it is complete, or all in one document.
/// @throws JobError and Interrupted when the work could not go on
CopyCounts MakeCopies(const std::vector<CopyRequest>& requests, const CommonOptions& common,
                      const Streams& streams);

} // namespace kel::host
