/// The loop that moves samples from a source to a sink.
#pragma once

#include "audio/FloatHash.h"
#include "audio/PeakMeter.h"
#include "audio/SampleConverter.h"
#include "elements/ErrorRecords.h"
#include "elements/RangeReader.h"
#include "elements/SinkWriter.h"
#include "elements/SourceReader.h"
#include "jobs/Job.h"
#include "transfer/StageRunner.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The elements of a transfer. They are destroyed in the reverse order: the sink first.
struct TransferParts {
    std::unique_ptr<SourceReader> source;
    std::unique_ptr<SampleReader> reader; ///< delivers the samples of the source
    std::unique_ptr<SampleConverter>
        converter; ///< may be an identity; null when nothing is converted
    std::unique_ptr<SinkWriter> sink;
};

/// Moves the samples of one source into one sink. Owns both, and the converter between them. Used
/// by one thread; with overlapped stages, Run uses threads of its own.
class Transfer final : private Stages {
public:
    /// @param output the file or sink that is written, as the user knows it
    /// @param errors records of failures that elements log without throwing; outlives the transfer
    /// @param reporter receives the progress; outlives the transfer
    Transfer(TransferParts parts, std::string output, const ErrorRecords& errors,
             Reporter& reporter);

    /// Hashes the samples as a source reads them from the output. Called before Run.
    void EnableHash() { m_isHashed = true; }

    /// Measures the peaks of converted samples that are floats in the order of memory. Called
    /// before Run.
    /// @param valueBytes 4 or 8
    void EnablePeaks(std::uint32_t channels, std::size_t valueBytes);

    /// Moves all samples. A sample container must hold one audio sample. Reading, converting and
    /// writing run at the same time, unless there is little to move.
    /// @param frames number of frames to come, if it is known
    /// @return the number of frames that were moved
    /// @throws JobError when an element throws, or the sink logs an error
    std::int64_t Run(std::optional<std::int64_t> frames);

    /// Closes the sink.
    /// @throws JobError when that throws
    void CloseSink();

    SourceReader& Source() const { return *m_parts.source; }
    const SampleConverter& Converter() const { return *m_parts.converter; }
    const FloatHash& Hash() const { return m_hash; }

    /// The peaks of the channels; empty unless they are measured.
    std::vector<ChannelPeak> Peaks() const;

private:
    SampleHandle Pull() override;
    bool Converts() const override;
    SampleHandle Convert(const SampleHandle& sample) override;
    void Push(const SampleHandle& sample) override;
    void Measure(const ISampleContainer& sample);

    TransferParts m_parts;
    std::string m_output;
    const ErrorRecords& m_errors;
    Reporter& m_reporter;
    bool m_isHashed = false;
    FloatHash m_hash;
    std::optional<PeakMeter> m_meter;
    std::size_t m_valueBytes = 0;
    std::int64_t m_total = 0;
    std::int64_t m_pushed = 0;
};

} // namespace kel::host
