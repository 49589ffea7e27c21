/// Copying a file through a source and a sink.
#pragma once

#include "audio/Formats.h"
#include "audio/TimeRange.h"
#include "base/FileName.h"
#include "container/InputPolicy.h"
#include "elements/HostLogger.h"
#include "jobs/Job.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Options of a copy that do not depend on the file.
struct CopyOptions {
    std::vector<std::uint32_t> channels; ///< of the input, in output order, from 1; empty: all
    TimeRange range;                     ///< the part to copy
    std::optional<std::uint64_t> dither; ///< seed of the noise; none: no noise
    std::optional<std::uint32_t>
        blockFrames;           ///< maximum number of frames in a sample; unset: chosen
    bool failOnClip = false;   ///< a clipped value fails the copy
    bool requireExact = false; ///< a value that may differ from the input's fails the copy
    InputPolicy input;         ///< which inputs are accepted
    std::optional<bool>
        verify; ///< read the output back and compare it; unset: where it may fail late
    bool keepMetadata = true;     ///< copy what the file has beside its samples
    bool replace = false;         ///< replace an existing file
    bool skip = false;            ///< leave an existing file and do nothing
    bool update = false;          ///< leave an existing file that is not older than the input
    bool dryRun = false;          ///< write nothing
    bool makeDirectories = false; ///< make the directory of the output
};

/// One copy to make.
struct CopyRequest {
    FileName input;
    FileName output;
    OutputFormat format;
    CopyOptions options;
    bool isFound = false;    ///< in a directory: a file that is not audio is skipped
    bool isStreamed = false; ///< the output is a temporary file that the caller sends elsewhere
};

/// Copies one file. The output appears under its name only when it is complete: closed, without a
/// record at level Error, and found to have the right frames, channels and rate when it is opened
/// again. Reading, converting and writing overlap. An existing output that is left as it is has to
/// fit the input: it opens, and has the channels, the rate and the number of frames of the copy.
/// @param log the current logger writer
/// @param reporter receives opening, progress and warnings
/// @return the document that docs/json.md describes, and a report: one line, and one for each
/// channel with clipped or non-finite values
/// @throws JobError when the copy failed; the output's name then has what it had before
JobResult Copy(const CopyRequest& request, const HostLogger& log, Reporter& reporter);

} // namespace kel::host
