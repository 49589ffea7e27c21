/// The frames that a source lost with a failed read.
#pragma once

#include "audio/Samples.h"
#include "elements/SourceReader.h"

#include <cstdint>
#include <memory>

namespace kel::host {

/// Reads on where a source ended before the last frame that it declares. Where a read fails,
/// libraries discard the frames that they decoded in this read before the failure: the larger the
/// samples, the more is lost. This reader opens the file again, skips what was delivered, and reads
/// the rest frame by frame, so that the same frames are delivered whatever the size of the samples.
/// One thread at a time.
class TailReader {
public:
    /// @param source has ended; outlives the reader. Unless it reads a regular file in samples of
    /// more than one frame, nothing is delivered.
    /// @param first the frame at which the source began
    /// @param delivered frames that it has delivered since
    /// @throws JobError when the file cannot be opened again
    TailReader(const SourceReader& source, std::int64_t first, std::int64_t delivered);

    /// Returns the next sample; empty at the end.
    SampleHandle Pull();

private:
    void Skip(std::int64_t frames);

    std::unique_ptr<SourceReader> m_source; // null: nothing is delivered
};

} // namespace kel::host
