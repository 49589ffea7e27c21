#include "transfer/FittingReader.h"

#include "container/HeaderSizes.h"

#include <IAudioSample.h>
#include <TimeLimits.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace kel::host {

FittingReader::FittingReader(std::unique_ptr<SampleReader> reader, const Container& container,
                             std::string output, std::uint32_t channels, std::uint64_t valueBytes,
                             std::string alternative, std::uint64_t metadataBytes)
    : m_reader(std::move(reader)), m_container(container), m_output(std::move(output)),
      m_channels(channels), m_valueBytes(valueBytes), m_alternative(std::move(alternative)),
      m_metadataBytes(metadataBytes) {}

SampleHandle FittingReader::Pull() {
    SampleHandle sample = m_reader->Pull();
    if (sample != nullptr) {
        const auto frames =
            static_cast<std::uint64_t>(AudioSampleIn(*sample)->GetTimeLimits().duration);
        m_bytes += frames * m_channels * m_valueBytes;
        RequireFits(m_container, m_output, m_bytes, m_channels, m_alternative, m_metadataBytes);
    }
    return sample;
}

} // namespace kel::host
