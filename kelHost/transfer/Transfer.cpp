#include "transfer/Transfer.h"

#include "base/Errors.h"

#include <IAudioSample.h>

#include <cstdint>
#include <string>
#include <thread>
#include <utility>

namespace kel::host {

Transfer::Transfer(TransferParts parts, std::string output, const ErrorRecords& errors,
                   Reporter& reporter)
    : m_parts(std::move(parts)), m_output(std::move(output)), m_errors(errors),
      m_reporter(reporter) {}

std::int64_t Transfer::Run(std::int64_t frames, bool overlapped) {
    m_total = frames;
    WithFileContext(m_output, "", [&] {
        if (overlapped) {
            RunOverlapped(*this, std::thread::hardware_concurrency());
        } else {
            RunInline(*this);
        }
    });
    return m_pushed;
}

void Transfer::CloseSink() {
    WithFileContext(m_output, "", [&] { m_parts.sink->Close(); });
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

void Transfer::Push(const SampleHandle& sample) {
    m_parts.sink->Element().PushSample(sample);
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
