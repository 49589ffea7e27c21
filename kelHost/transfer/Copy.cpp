#include "transfer/Copy.h"

#include "audio/ChannelMask.h"
#include "audio/SampleConverter.h"
#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "container/HeaderSizes.h"
#include "container/MetadataCopy.h"
#include "container/OutputHeader.h"
#include "container/StoredFormat.h"
#include "elements/ElementCall.h"
#include "elements/OpeningFacts.h"
#include "elements/RangeReader.h"
#include "jobs/SeekableInput.h"
#include "jobs/SkippedFile.h"
#include "jobs/Warnings.h"
#include "transfer/CopyEncoding.h"
#include "transfer/CopyReport.h"
#include "transfer/FittingReader.h"
#include "transfer/Transfer.h"

#include <Logging.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

bool Exists(const std::string& path) {
    std::error_code unknown;
    return std::filesystem::is_regular_file(path, unknown);
}

// @param file name of the input
std::string DescribeLostLayout(const std::string& file, const StoredFormat& stored) {
    std::string list;
    for (const std::uint32_t channel : OrderBySpeakers(stored.speakers)) {
        list += fmt::format("{}{}", list.empty() ? "" : ",", channel + 1);
    }
    return fmt::format("{}: its channel layout {} is not preserved{}", file, stored.otherLayout,
                       list.empty() ? ""
                                    : fmt::format("; --channels {} puts the channels into the "
                                                  "order of WAVE",
                                                  list));
}

// A copy, step by step.
class CopyJob {
public:
    CopyJob(const CopyRequest& request, const HostLogger& log, Reporter& reporter)
        : m_request(request), m_options(request.options), m_errors(log, request.input.shown),
          m_reporter(reporter), m_warnings(reporter) {
        m_facts.format = request.format;
    }

    JobResult Run() {
        if (!OpenSource()) {
            return DescribeSkipped({m_request.input, FileName(), SkipReason::NotAudio});
        }
        Open();
        if (const auto reason = ReasonToSkip()) {
            RequireExistingFits();
            return DescribeSkipped({m_request.input, m_request.output, *reason});
        }
        ChooseContainerForSize();
        if (m_options.dryRun) {
            RequireCreatable(m_request.output.path, m_options.replace, m_options.makeDirectories);
            return {DumpJSON(DescribePlan(m_request, m_facts, m_range.count)), "",
                    FormatPlan(m_request, m_facts, m_range.count)};
        }
        if (m_options.makeDirectories) {
            MakeDirectory(ParentDirectory(m_request.output.path));
        }
        // The sink warns where the extension suggests another container.
        const bool isUsual =
            ContainerByExtension(m_request.output.path) == m_facts.format.container;
        OutputFile output =
            m_request.isStreamed
                ? OutputFile(m_request.output)
                : OutputFile(m_request.output.path, m_options.replace,
                             isUsual ? TemporaryName::None : TemporaryName::Requested);
        const std::uint64_t size = MaxFileSize(m_bytes, m_facts.channels, MetadataBytes());
        output.RequireSpace(size);
        m_facts.rounded =
            CountRoundedValues(m_request, m_stored, *m_facts.format.encoding, m_source->File(),
                               {m_range.first, m_range.count, m_picked, 0}, m_reporter, m_warnings);
        m_facts.isVerified = m_options.verify.value_or(output.MayFailLate());
        try {
            Write(output);
        } catch (const JobError& error) {
            throw JobError(error.File(),
                           error.what() + output.DescribeShortage(size, error.what()));
        }
        m_warnings.Add(output.KeepAttributes());
        // Before the output appears: afterwards nothing may fail.
        JobResult result{DumpJSON(DescribeCopy(m_request, m_facts, m_warnings.Texts())), "",
                         FormatCopy(m_request, m_facts)};
        output.Commit();
        return result;
    }

private:
    // Returns false for a file that was found and is not audio.
    bool OpenSource() {
        try {
            m_source = std::make_unique<SourceReader>(m_request.input, m_options.blockFrames,
                                                      Repair{m_options.input.repair,
                                                             ReadingSteps(m_reporter),
                                                             m_options.input.spool.directory});
        } catch (const UnrecognisedFile&) {
            if (!m_request.isFound) {
                throw;
            }
        }
        return m_source != nullptr;
    }

    void Open() {
        if (m_options.keepMetadata) {
            m_metadata.emplace(m_request.input, *m_facts.format.container);
        }
        m_errors.RequireNone(m_request.input.shown, kOpenForReading);
        m_warnings.Add(m_source->CheckHeader(m_options.input));
        m_stored = FindStoredFormat(m_request.input);
        m_facts.format.encoding = &ChooseEncoding(m_request, m_stored);
        m_reporter.Opened();
        m_range =
            Resolve(m_options.range, m_source->Frames(), m_source->Rate(), m_request.input.shown);
        const TargetLayout target = MakeTarget();
        m_picked = target.channels;
        m_converter = std::make_unique<SampleConverter>(m_source->Description(), target);
        m_facts.channels = static_cast<std::uint32_t>(m_converter->Channels().size());
        m_hasOtherChannels = HasOtherChannels();
        ChooseSpeakers();
        RequireBlockFits();
        m_facts.rate = m_source->Rate();
        m_facts.frames = m_range.count.value_or(0); // so many are expected
        m_bytes = m_facts.SampleBytes();
    }

    void ChooseSpeakers() {
        const StoredFormat stored = m_stored.value_or(StoredFormat());
        m_mask = stored.speakers.empty()
                     ? PickSpeakers(stored.channelMask.value_or(0), m_source->Channels(), m_picked)
                     : PickSpeakers(stored.speakers, m_picked);
        if (!stored.otherLayout.empty() && !m_hasOtherChannels) {
            m_warnings.Add(DescribeLostLayout(m_request.input.shown, stored));
        }
    }

    std::optional<SkipReason> ReasonToSkip() const {
        struct stat input {};
        struct stat output {};
        if (!(m_options.skip || m_options.update) || m_request.isStreamed ||
            !Exists(m_request.output.path)) {
            return std::nullopt;
        }
        if (m_options.skip) {
            return SkipReason::Exists;
        }
        const bool isNewer = stat(m_request.input.path.c_str(), &input) != 0 ||
                             stat(m_request.output.path.c_str(), &output) != 0 ||
                             std::tie(input.st_mtim.tv_sec, input.st_mtim.tv_nsec) >
                                 std::tie(output.st_mtim.tv_sec, output.st_mtim.tv_nsec);
        return isNewer ? std::nullopt : std::optional(SkipReason::UpToDate);
    }

    // An existing output may be a copy of another file, made by another command, or damaged.
    void RequireExistingFits() const {
        constexpr const char* kRemedy = "use --force to replace it, or another output";
        m_reporter.Opening(m_request.output.shown);
        OpeningFacts existing;
        try {
            const SourceReader output(m_request.output, 1U);
            static_cast<void>(output.CheckHeader({}));
            existing = {output.Frames(), output.Channels(), output.Rate(), {}};
        } catch (const JobError& error) {
            throw JobError(m_request.output.shown,
                           fmt::format("exists already and is no copy of {}: {}; {}",
                                       m_request.input.shown, error.what(), kRemedy));
        }
        m_reporter.Opened();
        OpeningFacts expected{m_range.count, m_facts.channels, m_facts.rate, {}};
        if (!expected.frames.has_value()) {
            expected.frames = existing.frames; // unknown before the input is read
        }
        if (!(existing == expected)) {
            throw JobError(m_request.output.shown,
                           fmt::format("exists already and is no copy of {}: it has {} instead of "
                                       "{}; {}",
                                       m_request.input.shown, Describe(existing),
                                       Describe(expected), kRemedy));
        }
    }

    TargetLayout MakeTarget() const {
        TargetLayout target{
            *m_facts.format.encoding, m_facts.format.byteOrder, {}, m_options.dither};
        for (const std::uint32_t channel : m_options.channels) {
            if (channel > m_source->Channels()) {
                throw JobError(m_request.input.shown, fmt::format("has no channel {}, only {}",
                                                                  channel, m_source->Channels()));
            }
            target.channels.push_back(channel - 1);
        }
        return target;
    }

    // Returns true when channels are missing, or in another order.
    bool HasOtherChannels() const {
        const std::vector<std::uint32_t>& chosen = m_options.channels;
        bool isOther = !chosen.empty() && chosen.size() != m_source->Channels();
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            isOther = isOther || chosen[i] != i + 1;
        }
        return isOther;
    }

    // The size of a sample has 32 bits, before and after it is converted.
    void RequireBlockFits() const {
        const std::uint64_t frameBytes =
            std::max(std::uint64_t{m_source->Channels()} * sizeof(float),
                     std::uint64_t{m_facts.channels} *
                         std::max<std::uint64_t>(sizeof(float), m_facts.format.encoding->bytes));
        const std::uint64_t maxFrames = std::numeric_limits<std::uint32_t>::max() / frameBytes;
        if (m_source->BlockFrames() > maxFrames) {
            throw JobError(m_request.input.shown,
                           fmt::format("blocks of {} frames are too large for its channels; use "
                                       "--block {} or less",
                                       m_source->BlockFrames(), maxFrames));
        }
    }

    // A file that is too large for WAVE becomes RF64, unless WAVE was requested.
    void ChooseContainerForSize() {
        if (m_facts.format.container->format != WrapperFormat::WAVE ||
            m_facts.format.isContainerChosen) {
            RequireFits(*m_facts.format.container, m_request.output.shown, m_bytes,
                        m_facts.channels, "--format bwave", MetadataBytes());
            return;
        }
        if (FitsInto32Bits(m_bytes, m_facts.channels, MetadataBytes())) {
            return;
        }
        m_facts.format.container = FindContainer(WrapperFormat::BWAVE);
        m_warnings.Add(
            fmt::format("{}: is written as {}, because its {} bytes of samples{} do not fit into "
                        "WAVE",
                        m_request.output.shown, m_facts.format.container->title, m_bytes,
                        FitsInto32Bits(m_bytes, m_facts.channels)
                            ? fmt::format(" and {} of metadata", MetadataBytes())
                            : ""));
    }

    std::uint64_t MetadataBytes() const {
        return m_metadata.has_value() ? m_metadata->MaxBytes() : 0;
    }

    std::unique_ptr<SampleReader> MakeReader() {
        const ReadingScope reading(m_reporter); // it seeks
        return std::make_unique<RangeReader>(*m_source, m_range);
    }

    // Writes the file and verifies that it is complete.
    void Write(OutputFile& output) {
        const FileName file(output.TemporaryPath(), m_request.output.shown);
        m_reporter.ShowAs(file);
        TransferParts parts;
        parts.reader = MakeReader();
        if (!m_range.count.has_value()) {
            parts.reader = std::make_unique<FittingReader>(
                std::move(parts.reader), *m_facts.format.container, m_request.output.shown,
                m_facts.channels, m_facts.format.encoding->bytes, "--format bwave",
                MetadataBytes());
        }
        parts.sink = std::make_unique<SinkWriter>(*m_facts.format.container, file,
                                                  m_converter->Description());
        parts.source = std::move(m_source);
        parts.converter = std::move(m_converter);
        Transfer transfer(std::move(parts), m_request.output.shown, m_errors, m_reporter);
        if (m_facts.isVerified) {
            transfer.EnableHash();
        }
        if (HasPeaks()) {
            transfer.EnablePeaks(m_facts.channels, m_facts.format.encoding->bytes);
        }
        m_facts.rate = transfer.Source().Rate();
        m_facts.frames = transfer.Run(m_range.count);
        m_facts.conversion = transfer.Converter().Channels();
        transfer.CloseSink();
        m_errors.RequireNoneFromOutput(m_request.output.shown);
        transfer.Source().RequireUnchanged();
        const auto shortfall = m_errors.VerifyDelivery(m_range.count, m_facts.frames,
                                                       transfer.Source().EarlyStop(m_range.count),
                                                       m_options.input.allowTruncated);
        if (shortfall.has_value()) {
            m_warnings.Add(*shortfall);
        }
        RequireNoClipping();
        m_warnings.Add(DescribeClipping(m_request.output.shown, m_facts.conversion));
        transfer.Source().Release();
        CompleteHeader(file, transfer);
        WriteMetadata(file);
        m_warnings.Add(output.Flush());
        VerifyFile(file, transfer.Hash());
        m_errors.RequireNoneFromOutput(m_request.output.shown);
    }

    void CompleteHeader(const FileName& file, const Transfer& transfer) const {
        m_reporter.Opening(m_request.output.shown);
        WriteChannelMask(file, m_mask);
        if (HasPeaks()) {
            WritePeaks(file, transfer.Peaks(), m_time);
        }
        m_reporter.Opened();
    }

    void WriteMetadata(const FileName& file) {
        if (!m_metadata.has_value()) {
            return;
        }
        const ReadWatch watch{[this] { m_reporter.BeginReading(); },
                              [this] {
                                  m_reporter.EndReading();
                              }};
        CopiedSamples samples;
        samples.part = {static_cast<std::uint64_t>(m_range.first),
                        static_cast<std::uint64_t>(m_facts.frames), m_options.range.IsWholeFile()};
        samples.hasOtherChannels = m_hasOtherChannels;
        samples.rate = m_facts.rate;
        samples.channels = m_facts.channels;
        samples.bits = m_facts.format.encoding->bits;
        m_facts.metadata = m_metadata->Write(file, *m_facts.format.container, samples, watch);
        m_warnings.Add(m_facts.metadata->warnings);
    }

    // The sink writes a chunk for peaks into WAVE files with floats.
    bool HasPeaks() const {
        return m_facts.format.container->format == WrapperFormat::WAVE &&
               m_facts.format.encoding->type == AudioPCMType::Float;
    }

    void VerifyFile(const FileName& file, const FloatHash& pushed) const {
        m_reporter.Opening(
            m_request.output.shown); // a library may not return from damaged metadata
        VerifyHeaderSizes(file, m_facts.SampleBytes(), static_cast<std::uint64_t>(m_facts.frames));
        VerifyReopens(file, m_facts.frames, m_facts.channels, m_facts.rate);
        m_reporter.Opened();
        if (m_facts.isVerified) {
            VerifyContent(file, pushed);
            if (m_facts.metadata.has_value() && m_facts.metadata->appended.has_value()) {
                VerifyAppended(file, *m_facts.metadata->appended);
            }
        }
    }

    void VerifyContent(const FileName& file, const FloatHash& pushed) const {
        const SourceReader source(file, m_options.blockFrames);
        FloatHash hash;
        std::int64_t read = 0;
        while (const SampleHandle sample = source.NextSample()) {
            const FloatView floats = FloatsIn(*sample);
            hash.Add(floats);
            read += static_cast<std::int64_t>(floats.count / m_facts.channels);
        }
        if (read != m_facts.frames || hash.Value() != pushed.Value()) {
            throw JobError(m_request.output.shown,
                           "differs from the written samples when it is read back; do not trust "
                           "this disk");
        }
    }

    void RequireNoClipping() const {
        const auto& channels = m_facts.conversion;
        const bool clipped =
            std::any_of(channels.begin(), channels.end(), [](const ChannelConversion& channel) {
                return channel.clipped > 0 || channel.nonFinite > 0;
            });
        if (clipped && m_options.failOnClip) {
            throw JobError(m_request.input.shown,
                           "has values beyond full scale, and --on-clip is fail; "
                           "--encoding float32 keeps them");
        }
    }

    const CopyRequest& m_request;
    const CopyOptions& m_options;
    std::optional<StoredFormat> m_stored; // of the input; none when it is unknown
    ErrorRecords m_errors;
    Reporter& m_reporter;
    std::unique_ptr<SourceReader> m_source;
    std::unique_ptr<SampleConverter> m_converter;
    FrameRange m_range;
    std::vector<std::uint32_t> m_picked; // channels of the input, from 0; empty: all
    std::uint32_t m_mask = 0;            // of the speakers
    bool m_hasOtherChannels = false;
    std::optional<MetadataCopy> m_metadata; // none where it is not copied
    const std::uint32_t m_time = TimeOfWriting();
    std::uint64_t m_bytes = 0; // of samples, if the input delivers all of its frames; 0 if unknown
    Warnings m_warnings;
    CopyFacts m_facts;
};

} // namespace

JobResult Copy(const CopyRequest& request, const HostLogger& log, Reporter& reporter) {
    const ContextScope context("copy " + request.input.shown);
    reporter.Opening(request.input.shown); // even looking at it may take for ever
    RequireDifferentFiles(request.input, request.output);
    const SeekableInput input(request.input, request.options.input.spool, reporter);
    CopyRequest sought = request;
    sought.input = input.File();
    return CopyJob(sought, log, reporter).Run();
}

} // namespace kel::host
