/// Comparison of the audio in two directory trees. Used by one thread.
#pragma once

#include "analysis/AudioComparison.h"
#include "base/FileTree.h"
#include "commands/Command.h"
#include "commands/CommonOptions.h"

#include <string>

namespace kel::host {

/// Statuses of comparisons, as of other programs that compare files.
enum ComparisonStatus : int { kSameAudio = 0, kDifferentAudio = 1, kComparisonFailed = 2 };

/// Compares the files of two trees in pairs, and shows the results. Files that are not audio are
/// skipped if they have no counterpart, or one that is not audio either.
/// @param request how to compare each pair
/// @return the status: kDifferentAudio also when an audio file exists in one of them only
/// @throws UsageError when one of both is not a directory; JobError and Interrupted when the work
/// could not go on
int CompareTrees(const std::string& directoryA, const std::string& directoryB,
                 const TreeSelection& selection, const ComparisonRequest& request,
                 const CommonOptions& common, const Streams& streams);

} // namespace kel::host
