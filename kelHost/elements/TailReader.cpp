#include "elements/TailReader.h"

#include <IAudioSample.h>
#include <TimeLimits.h>

#include <cstdint>

namespace kel::host {

TailReader::TailReader(const SourceReader& source, std::int64_t first, std::int64_t delivered)
    : m_source(source.OpenAgain()) {
    if (m_source == nullptr) {
        return;
    }
    if (first > 0) {
        m_source->Seek(first);
    }
    Skip(delivered);
}

SampleHandle TailReader::Pull() {
    return m_source == nullptr ? nullptr : m_source->NextSample();
}

// The samples are the same as those of the first source. Where they are not, the file was changed,
// and the rest would not follow what was delivered.
void TailReader::Skip(std::int64_t frames) {
    while (frames > 0) {
        const SampleHandle sample = m_source->NextSample();
        const std::int64_t skipped =
            sample == nullptr ? 0 : AudioSampleIn(*sample)->GetTimeLimits().duration;
        if (skipped == 0 || skipped > frames) {
            m_source.reset();
            return;
        }
        frames -= skipped;
    }
    m_source->SetBlockFrames(1);
}

} // namespace kel::host
