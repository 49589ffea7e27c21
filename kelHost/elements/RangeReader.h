/// Reading a part of a file.
#pragma once

#include "audio/Samples.h"
#include "audio/TimeRange.h"
#include "elements/SourceReader.h"
#include "elements/TailReader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kel::host {

/// Delivers samples, one after the other. One thread at a time.
class SampleReader {
public:
    virtual ~SampleReader() = default;

    /// Returns the next sample; empty at the end.
    /// @throws JobError when the source fails
    virtual SampleHandle Pull() = 0;
};

/// Delivers a part of a source: whole samples, and a shorter last one where the part ends within a
/// sample. The channels are in WAVE order. Reads within ReadingContext of the source's name.
class RangeReader final : public SampleReader {
public:
    /// Seeks to the beginning of the part.
    /// @param source outlives the reader
    /// @throws JobError when the source cannot seek there
    RangeReader(const SourceReader& source, const FrameRange& range);

    /// @throws JobError also when a source of unknown length ends before the part does
    SampleHandle Pull() override;

    /// Frames of the part that have been delivered.
    std::int64_t Delivered() const { return m_delivered; }

private:
    SampleHandle PullNext();
    void RequireRangeExists() const;

    const SourceReader& m_source;
    std::string m_context;
    FrameRange m_range;
    std::uint32_t m_channels;
    std::int64_t m_delivered = 0;
    std::optional<TailReader> m_tail; // after a source that ended early
};

} // namespace kel::host
