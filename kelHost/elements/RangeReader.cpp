#include "elements/RangeReader.h"

#include "audio/SampleConverter.h"
#include "base/Errors.h"
#include "base/Text.h"

#include <IAudioSample.h>
#include <IBuffer.h>
#include <IMemoryBlock.h>
#include <IMemoryBlockAllocator.h>
#include <ISampleContainer.h>
#include <MediaTime.h>
#include <TimeLimits.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// The first frames of a sample, in a buffer of their own.
SampleHandle Shorten(const SampleHandle& container, std::int64_t frames, std::uint32_t channels) {
    const auto sample = container->GetAudioSamples(nullptr, nullptr).at(0);
    const auto bytes = static_cast<std::uint32_t>(frames) * channels * 4;
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(bytes);
    std::copy_n(sample->GetBuffer()->GetData(), bytes, buffer->GetData());
    buffer->SetSize(bytes);
    const TimeLimits limits(sample->GetTimeLimits().start, frames);
    return CreateSampleContainer(
        CreateAudioSample(sample->GetAudioParameters(), sample->GetAudioInfo(), buffer, limits, {}),
        nullptr);
}

void GoTo(const SourceReader& source, std::int64_t frame) {
    std::string reason = "it went elsewhere";
    try {
        const MediaTime place(EditRate(source.Rate(), 1), frame, nullptr);
        if (source.Element().GotoTimeOffset(place, "").GetTimeNumber() == frame) {
            return;
        }
    } catch (const std::exception& error) {
        reason = error.what();
    }
    throw JobError(fmt::format("{}: cannot be read from frame {} on: {}; pipes and damaged files "
                               "are only read from their beginning",
                               Escape(source.ShownName()), frame, Escape(reason)));
}

} // namespace

RangeReader::RangeReader(const SourceReader& source, const FrameRange& range)
    : m_source(source), m_channels(source.Channels()), m_left(range.count) {
    if (range.first > 0) {
        GoTo(source, range.first);
    }
}

SampleHandle RangeReader::Pull() {
    if (m_left == 0) {
        return nullptr;
    }
    SampleHandle container = m_source.Element().GetSample();
    if (container == nullptr) {
        return nullptr;
    }
    const auto frames = static_cast<std::int64_t>(FloatsOf(*container).count / m_channels);
    if (frames > m_left) {
        container = Shorten(container, m_left, m_channels);
    }
    m_left -= std::min(frames, m_left);
    return container;
}

void RequireDelivered(const HostLogger& log, std::size_t firstError, const std::string& file,
                      std::int64_t promised, std::int64_t delivered) {
    const std::vector<std::string> errors = log.ErrorsSince(firstError);
    const std::string reason = errors.empty() ? "" : fmt::format(" ({})", Escape(errors.front()));
    if (delivered < promised) {
        throw JobError(fmt::format("{}: promises {} frames and delivers {}{}; it is damaged or was "
                                   "changed while it was read",
                                   Escape(file), promised, delivered, reason));
    }
    if (!errors.empty()) {
        throw JobError(fmt::format("{}: cannot be read{}", Escape(file), reason));
    }
}

} // namespace kel::host
