/// Reading a part of a file.
#pragma once

#include "Elements.h"
#include "Pipeline.h"
#include "TimeRange.h"

#include <cstdint>

namespace kel::host {

/// Pulls a part of a source: whole samples, and a shorter last one where the part ends within. One
/// thread at a time.
class RangeReader {
public:
    /// Goes to the beginning of the part.
    /// @param source outlives the reader
    /// @throws JobError when the source can not go there
    RangeReader(const OpenSource& source, const FrameRange& range);

    /// The next sample; empty at the end of the part, or of the file if that is earlier.
    SampleHandle Pull();

    /// Frames of the part that have not been pulled.
    std::int64_t Left() const { return m_left; }

private:
    const OpenSource& m_source;
    std::uint32_t m_channels;
    std::int64_t m_left;
};

} // namespace kel::host
