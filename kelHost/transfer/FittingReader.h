/// Samples of unknown number for a container of limited size.
#pragma once

#include "audio/Formats.h"
#include "elements/RangeReader.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kel::host {

/// Passes samples on until they do not fit into a container any more. The sink would not notice
/// that the sizes in its header have too few digits. One thread at a time.
class FittingReader final : public SampleReader {
public:
    /// @param reader delivers the samples
    /// @param container limits their size; outlives the reader
    /// @param output the file to write, as the user knows it
    /// @param channels values per frame of the output
    /// @param valueBytes bytes per value of the output
    /// @param alternative see RequireFits
    /// @param metadataBytes of chunks after the samples
    FittingReader(std::unique_ptr<SampleReader> reader, const Container& container,
                  std::string output, std::uint32_t channels, std::uint64_t valueBytes,
                  std::string alternative, std::uint64_t metadataBytes = 0);

    /// @throws JobError when there are too many samples
    SampleHandle Pull() override;

private:
    std::unique_ptr<SampleReader> m_reader;
    const Container& m_container;
    std::string m_output;
    std::uint32_t m_channels;
    std::uint64_t m_valueBytes;
    std::string m_alternative;
    std::uint64_t m_metadataBytes;
    std::uint64_t m_bytes = 0;
};

} // namespace kel::host
