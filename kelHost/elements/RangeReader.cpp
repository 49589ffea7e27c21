#include "elements/RangeReader.h"

#include "base/Errors.h"
#include "elements/ErrorRecords.h"

#include <IAudioSample.h>
#include <IBuffer.h>
#include <IMemoryBlock.h>
#include <IMemoryBlockAllocator.h>
#include <Logging.h>
#include <TimeLimits.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::host {

namespace {

// Returns the first frames of a sample, in a buffer of their own.
// @param order see SourceReader::ChannelOrder
SampleHandle CopyFrames(const SampleHandle& container, std::int64_t frames, std::uint32_t channels,
                        const std::vector<std::uint32_t>& order) {
    const auto sample = AudioSampleIn(*container);
    const auto bytes = static_cast<std::uint32_t>(frames) * channels * 4;
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(bytes);
    if (order.empty()) {
        std::copy_n(sample->GetBuffer()->GetData(), bytes, buffer->GetData());
    } else {
        const float* input = FloatsIn(*container).values;
        auto* output = static_cast<float*>(static_cast<void*>(buffer->GetData()));
        for (std::int64_t frame = 0; frame < frames; ++frame, input += channels) {
            output = std::transform(order.begin(), order.end(), output,
                                    [input](std::uint32_t channel) { return input[channel]; });
        }
    }
    buffer->SetSize(bytes);
    const TimeLimits limits(sample->GetTimeLimits().start, frames);
    return CreateSampleContainer(
        CreateAudioSample(sample->GetAudioParameters(), sample->GetAudioInfo(), buffer, limits, {}),
        nullptr);
}

} // namespace

RangeReader::RangeReader(const SourceReader& source, const FrameRange& range)
    : m_source(source), m_context(ReadingContext(source.ShownName())), m_range(range),
      m_channels(source.Channels()) {
    if (range.first > 0) {
        source.Seek(range.first);
    }
}

SampleHandle RangeReader::Pull() {
    if (m_range.count == m_delivered) {
        return nullptr;
    }
    // The call that reaches the last frame may read beyond it.
    const bool isLast = m_range.count.has_value() &&
                        m_delivered + std::int64_t{m_source.BlockFrames()} >= *m_range.count;
    const ContextScope context(isLast ? EndContext(m_source.ShownName()) : m_context);
    SampleHandle container = PullNext();
    if (container == nullptr) {
        RequireRangeExists();
        return nullptr;
    }
    const auto frames = static_cast<std::int64_t>(FloatsIn(*container).count / m_channels);
    const std::int64_t left = m_range.count.value_or(frames + m_delivered) - m_delivered;
    if (isLast && (frames < left || m_tail.has_value())) {
        m_source.NoteShortSample();
    }
    if (frames > left || !m_source.ChannelOrder().empty()) {
        container =
            CopyFrames(container, std::min(frames, left), m_channels, m_source.ChannelOrder());
    }
    m_delivered += std::min(frames, left);
    return container;
}

SampleHandle RangeReader::PullNext() {
    if (!m_tail.has_value()) {
        SampleHandle sample = m_source.NextSample();
        if (sample != nullptr || !m_source.Frames().has_value()) {
            return sample;
        }
        m_tail.emplace(m_source, m_range.first, m_delivered);
    }
    return m_tail->Pull();
}

// The end of a file of unknown length shows whether a part is within the file.
void RangeReader::RequireRangeExists() const {
    const bool isShort = m_range.count.has_value() || (m_range.first > 0 && m_delivered == 0);
    if (!m_source.Frames().has_value() && isShort) {
        throw OutsideOfFile(m_source.ShownName(), m_range.first,
                            m_range.first + m_range.count.value_or(0), m_range.first + m_delivered,
                            m_source.Rate());
    }
}

} // namespace kel::host
