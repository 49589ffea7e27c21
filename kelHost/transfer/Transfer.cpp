#include "transfer/Transfer.h"

#include "base/Errors.h"
#include "elements/ElementCall.h"

#include <IAudioSample.h>
#include <IBuffer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kel::host {

Transfer::Transfer(TransferParts parts, std::string output, const ErrorRecords& errors,
                   Reporter& reporter)
    : m_parts(std::move(parts)), m_output(std::move(output)), m_errors(errors),
      m_reporter(reporter) {}

std::int64_t Transfer::Run(std::optional<std::int64_t> frames) {
    // Starting threads takes longer than converting so many values.
    constexpr std::int64_t kFewValues = std::int64_t{1} << 17U;
    const std::int64_t channels = std::max(m_parts.source->Channels(), 1U);
    const bool isShort = frames.has_value() && *frames <= kFewValues / channels;
    m_total = frames.value_or(kUnknownTotal);
    WithFileContext(m_output, "", [&] {
        if (isShort) {
            RunInline(*this);
        } else {
            RunOverlapped(*this, std::thread::hardware_concurrency());
        }
    });
    return m_pushed;
}

void Transfer::CloseSink() {
    WithFileContext(m_output, "",
                    [&] { CallElement(m_output, kWriteAudio, [&] { m_parts.sink->Close(); }); });
}

void Transfer::EnablePeaks(std::uint32_t channels, std::size_t valueBytes) {
    m_meter.emplace(channels);
    m_valueBytes = valueBytes;
}

std::vector<ChannelPeak> Transfer::Peaks() const {
    return m_meter.has_value() ? m_meter->Peaks() : std::vector<ChannelPeak>();
}

void Transfer::Measure(const ISampleContainer& sample) {
    const auto buffer = AudioSampleIn(sample)->GetBuffer();
    const void* values = buffer->GetData();
    const std::size_t count = buffer->GetSize() / m_valueBytes;
    if (m_valueBytes == sizeof(double)) {
        m_meter->Add(static_cast<const double*>(values), count);
    } else {
        m_meter->Add(static_cast<const float*>(values), count);
    }
}

SampleHandle Transfer::Pull() {
    const ReadingScope reading(m_reporter);
    return WithFileContext(m_parts.source->ShownName(), "", [&] { return m_parts.reader->Pull(); });
}

bool Transfer::Converts() const {
    return m_parts.converter != nullptr && !m_parts.converter->IsIdentity();
}

SampleHandle Transfer::Convert(const SampleHandle& sample) {
    return m_parts.converter->Convert(sample);
}

// Peaks are measured here, because reading usually takes longer than writing.
void Transfer::Push(const SampleHandle& sample) {
    if (m_meter.has_value()) {
        Measure(*sample);
    }
    CallElement(m_output, kWriteAudio, [&] { m_parts.sink->Element().PushSample(sample); });
    // The sink logs a failed write without throwing. More samples would only fill a full disk
    // again.
    m_errors.RequireNoneFromOutput(m_output);
    if (m_isHashed) {
        m_hash.Add(m_parts.converter->ReadBack(*sample));
    }
    m_pushed += AudioSampleIn(*sample)->GetTimeLimits().duration;
    m_reporter.Progress(m_pushed, m_total, m_parts.source->Rate());
}

} // namespace kel::host
