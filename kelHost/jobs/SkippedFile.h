/// Files with which nothing was to be done. Pure functions.
#pragma once

#include "base/FileName.h"
#include "jobs/Job.h"

#include <cstddef>
#include <map>
#include <string>

namespace kel::host {

/// The reason why nothing was to be done with a file.
enum class SkipReason {
    Exists,       ///< its output exists
    UpToDate,     ///< its output is not older
    NotAudio,     ///< it was found in a directory, and is not audio
    SymbolicLink, ///< the same
    SpecialFile,  ///< the same: a pipe, a socket or a device
};

/// Numbers of files by the reason.
using SkipCounts = std::map<SkipReason, std::size_t>;

/// A file with which nothing was to be done.
struct SkippedFile {
    FileName input;
    FileName output; ///< without a path for none
    SkipReason reason = SkipReason::Exists;
};

/// Returns the result of a job that had nothing to do: its document has "input", "output" (null for
/// none), their paths, and "reason"; its report is one line.
JobResult DescribeSkipped(const SkippedFile& file);

/// Returns the reason in the document of a skipped file.
SkipReason ReasonIn(const std::string& document);

/// Returns the number of all files.
std::size_t CountAll(const SkipCounts& counts);

/// Returns the counts in words: "3 skipped"; with reasons "3 skipped (2 not audio, 1 symbolic
/// link)".
std::string FormatSkipped(const SkipCounts& counts, bool withReasons);

} // namespace kel::host
