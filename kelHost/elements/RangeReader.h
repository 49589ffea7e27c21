/// Reading a part of a file.
#pragma once

#include "audio/TimeRange.h"
#include "elements/Elements.h"
#include "elements/HostLogger.h"
#include "transfer/StageRunner.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kel::host {

/// Pulls a part of a source: whole samples, and a shorter last one where the part ends within. One
/// thread at a time.
class RangeReader {
public:
    /// Goes to the beginning of the part.
    /// @param source outlives the reader
    /// @throws JobError when the source cannot go there
    RangeReader(const SourceReader& source, const FrameRange& range);

    /// The next sample; empty at the end of the part, or of the file if that is earlier.
    SampleHandle Pull();

    /// Frames of the part that have not been pulled.
    std::int64_t Left() const { return m_left; }

private:
    const SourceReader& m_source;
    std::uint32_t m_channels;
    std::int64_t m_left;
};

/// Makes sure that a file was read to the end of what was wanted, and without an error.
/// @param log the current logger writer, with @p firstError records at level Error before
/// @param file the file, for the error
/// @param promised frames that it should have delivered
/// @throws JobError when it delivered fewer, or an error was logged
void RequireDelivered(const HostLogger& log, std::size_t firstError, const std::string& file,
                      std::int64_t promised, std::int64_t delivered);

} // namespace kel::host
