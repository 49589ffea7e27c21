#include "transfer/Copy.h"

#include "audio/ChannelMask.h"
#include "audio/SampleConverter.h"
#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "container/HeaderSizes.h"
#include "container/KeptEncoding.h"
#include "container/MetadataCopy.h"
#include "container/OutputHeader.h"
#include "container/RoundedValues.h"
#include "container/StoredFormat.h"
#include "elements/RangeReader.h"
#include "jobs/Warnings.h"
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
#include <system_error>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

/// Facts about a finished copy.
struct CopyFacts {
    std::uint32_t rate = 0;
    std::int64_t frames = 0;
    std::vector<ChannelConversion> conversion; // of each channel of the output
    std::optional<MetadataReport> metadata;    // where it was asked for
};

bool Exists(const std::string& path) {
    std::error_code unknown;
    return std::filesystem::is_regular_file(path, unknown);
}

JobResult DescribeSkipped(const CopyRequest& request) {
    const std::string input = Escape(request.input);
    const std::string output = Escape(request.output);
    return {DumpJSON({{"input", input}, {"output", output}, {"skipped", true}}), "",
            fmt::format("{} -> {}: exists already, skipped\n", input, output), true};
}

// A copy, step by step.
class CopyJob {
public:
    CopyJob(const CopyRequest& request, const HostLogger& log, Reporter& reporter)
        : m_request(request), m_options(request.options), m_format(request.format),
          m_errors(log, request.input), m_reporter(reporter), m_warnings(reporter) {}

    JobResult Run() {
        Open();
        // The sink warns where the extension suggests another container.
        const bool isUsual = ContainerByExtension(m_request.output) == m_format.container;
        OutputFile output(m_request.output, m_options.replace,
                          isUsual ? TemporaryName::None : TemporaryName::Requested);
        const std::uint64_t size = MaxFileSize(m_bytes, m_channels, MetadataBytes());
        output.RequireSpace(size);
        CountRoundedValues();
        m_verify = m_options.verify.value_or(output.MayFailLate());
        CopyFacts facts;
        try {
            facts = Write(output);
        } catch (const JobError& error) {
            throw JobError(error.File(), error.what() + output.DescribeShortage(size));
        }
        m_warnings.Add(output.KeepAttributes());
        // Before the output appears: afterwards nothing may fail.
        JobResult result{DumpJSON(Document(facts)), "", Report(facts)};
        output.Commit();
        return result;
    }

private:
    void Open() {
        m_source = std::make_unique<SourceReader>(
            m_request.input, m_options.blockFrames,
            Repair{m_options.input.repair, ReadingSteps(m_reporter)});
        if (m_options.keepMetadata) {
            m_metadata.emplace(m_request.input, *m_format.container);
        }
        m_errors.RequireNone(m_request.input);
        m_warnings.Add(m_source->CheckHeader(m_options.input));
        ResolveEncoding();
        m_reporter.Opened();
        m_range = Resolve(m_options.range, m_source->Frames(), m_source->Rate(), m_request.input);
        const TargetLayout target = MakeTarget();
        m_picked = target.channels;
        m_converter = std::make_unique<SampleConverter>(m_source->Description(), target);
        m_channels = static_cast<std::uint32_t>(m_converter->Channels().size());
        m_hasOtherChannels = HasOtherChannels();
        const auto mask = m_stored.has_value() ? m_stored->channelMask : std::nullopt;
        m_mask = PickSpeakers(mask.value_or(0), m_source->Channels(), m_picked);
        RequireBlockFits();
        m_bytes = SampleBytes(m_range.count.value_or(0));
        ChooseContainerForSize();
    }

    void ResolveEncoding() {
        m_stored = FindStoredFormat(m_request.input);
        constexpr std::uint32_t kStereo = 2;
        if (!Exists(m_request.input) && m_source->Channels() > kStereo) {
            m_warnings.Add(
                fmt::format("{}: is a pipe, so that the order of its {} channels is not changed "
                            "and the output has no channel mask",
                            m_request.input, m_source->Channels()));
        }
        if (m_format.encoding == nullptr) {
            m_format.encoding = &KeptEncoding(m_stored, *m_format.container);
        }
        if (m_options.dither.has_value() && m_format.encoding->type != AudioPCMType::Integer) {
            throw JobError(m_request.output,
                           fmt::format("keeps the encoding {}, and --dither needs an integer "
                                       "encoding; add --encoding int16, int24 or int32",
                                       m_format.encoding->name));
        }
        if (m_options.requireExact) {
            RequireEveryValue();
        }
    }

    void RequireEveryValue() const {
        if (!m_stored.has_value()) {
            throw JobError(m_request.input, "its encoding is unknown, so that no copy of it is "
                                            "known to be exact; omit --require-exact");
        }
        if (!HoldsEveryValue(*m_format.encoding, *m_stored)) {
            throw JobError(m_request.output,
                           fmt::format("{} does not hold every value of {}; use --encoding keep "
                                       "and WAVE or RF64, or omit --require-exact",
                                       m_format.encoding->name, Describe(*m_stored)));
        }
    }

    // The integers of the output that a copy of such an input is not meant to be rounded to; 0 for
    // none.
    std::uint32_t UnintendedBits() const {
        const bool isChosen = m_request.format.encoding != nullptr && !m_options.requireExact;
        const Encoding& encoding = *m_format.encoding;
        if (isChosen || encoding.type != AudioPCMType::Integer) {
            return 0;
        }
        // Bits that are declared to be unused may still be set.
        return m_stored->coding == Coding::Float || m_stored->paddedBits > encoding.bits
                   ? encoding.bits
                   : 0;
    }

    // Sources deliver 32-bit floats, which have 24 significant bits. The input is read once more to
    // know what that changes.
    void CountRoundedValues() {
        constexpr std::uint32_t kFloatBits = 24;
        if (!m_stored.has_value() || m_stored->coding == Coding::Lossy) {
            return;
        }
        const std::uint32_t maxBits = m_stored->coding == Coding::Float ? 32 : kFloatBits;
        const std::uint32_t integerBits = UnintendedBits();
        if (std::max(m_stored->bits, m_stored->paddedBits) <= maxBits && integerBits == 0) {
            return;
        }
        RoundedValueCounter counter(m_source->File(),
                                    {m_range.first, m_range.count, m_picked, integerBits});
        for (bool goesOn = true; goesOn;) {
            const ReadingScope reading(m_reporter);
            goesOn = counter.Next();
        }
        m_rounded = counter.Rounded();
        if (m_rounded == 0) {
            return;
        }
        const std::string text = fmt::format(
            "{} of {} do not fit into {}", m_rounded, Count(counter.All(), "value"),
            integerBits > 0 ? fmt::format("{}-bit integers", integerBits) : "32-bit floats");
        if (m_options.requireExact) {
            throw JobError(m_request.input, text + "; --require-exact refuses to round them");
        }
        m_warnings.Add(fmt::format("{}: {} and are rounded", m_request.input, text));
    }

    TargetLayout MakeTarget() const {
        TargetLayout target{*m_format.encoding, m_format.byteOrder, {}, m_options.dither};
        for (const std::uint32_t channel : m_options.channels) {
            if (channel > m_source->Channels()) {
                throw JobError(m_request.input, fmt::format("has no channel {}, only {}", channel,
                                                            m_source->Channels()));
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

    std::uint64_t SampleBytes(std::int64_t frames) const {
        return static_cast<std::uint64_t>(frames) * m_channels * m_format.encoding->bytes;
    }

    // The size of a sample has 32 bits, before and after it is converted.
    void RequireBlockFits() const {
        const std::uint64_t frameBytes =
            std::max(std::uint64_t{m_source->Channels()} * sizeof(float),
                     std::uint64_t{m_channels} *
                         std::max<std::uint64_t>(sizeof(float), m_format.encoding->bytes));
        const std::uint64_t maxFrames = std::numeric_limits<std::uint32_t>::max() / frameBytes;
        if (m_source->BlockFrames() > maxFrames) {
            throw JobError(m_request.input,
                           fmt::format("blocks of {} frames are too large for its channels; use "
                                       "--block {} or less",
                                       m_source->BlockFrames(), maxFrames));
        }
    }

    // A file that is too large for WAVE becomes RF64, unless WAVE was requested.
    void ChooseContainerForSize() {
        if (m_format.container->format != WrapperFormat::WAVE || m_format.isContainerChosen) {
            RequireFits(*m_format.container, m_request.output, m_bytes, m_channels,
                        "--format bwave", MetadataBytes());
            return;
        }
        if (FitsInto32Bits(m_bytes, m_channels, MetadataBytes())) {
            return;
        }
        m_format.container = FindContainer(WrapperFormat::BWAVE);
        m_warnings.Add(
            fmt::format("{}: is written as {}, because its {} bytes of samples{} do not fit into "
                        "WAVE",
                        m_request.output, m_format.container->title, m_bytes,
                        FitsInto32Bits(m_bytes, m_channels)
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
    CopyFacts Write(OutputFile& output) {
        const FileName file(output.TemporaryPath(), m_request.output);
        // Threads cost more than they gain where there is hardly anything to overlap.
        const bool overlapped = !m_range.count.has_value() ||
                                *m_range.count > 2 * std::int64_t{m_source->BlockFrames()};
        TransferParts parts;
        parts.reader = MakeReader();
        if (!m_range.count.has_value()) {
            parts.reader = std::make_unique<FittingReader>(
                std::move(parts.reader), *m_format.container, m_request.output, m_channels,
                m_format.encoding->bytes, "--format bwave", MetadataBytes());
        }
        parts.sink =
            std::make_unique<SinkWriter>(*m_format.container, file, m_converter->Description());
        parts.source = std::move(m_source);
        parts.converter = std::move(m_converter);
        Transfer transfer(std::move(parts), m_request.output, m_errors, m_reporter);
        if (m_verify) {
            transfer.EnableHash();
        }
        if (HasPeaks()) {
            transfer.EnablePeaks(m_channels, m_format.encoding->bytes);
        }
        CopyFacts facts;
        facts.rate = transfer.Source().Rate();
        facts.frames = transfer.Run(m_range.count.value_or(kUnknownTotal), overlapped);
        facts.conversion = transfer.Converter().Channels();
        transfer.CloseSink();
        m_errors.RequireNoneFromOutput(m_request.output);
        transfer.Source().RequireUnchanged();
        const auto shortfall =
            m_errors.VerifyDelivery(m_range.count, facts.frames, transfer.Source().EarlyStop(),
                                    m_options.input.allowTruncated);
        if (shortfall.has_value()) {
            m_warnings.Add(*shortfall);
        }
        RequireNoClipping(facts.conversion);
        transfer.Source().Release();
        CompleteHeader(file, transfer);
        WriteMetadata(file, facts);
        m_warnings.Add(output.Flush());
        VerifyFile(file, facts, transfer.Hash());
        m_errors.RequireNoneFromOutput(m_request.output);
        return facts;
    }

    void CompleteHeader(const FileName& file, const Transfer& transfer) const {
        m_reporter.Opening(m_request.output);
        WriteChannelMask(file, m_mask);
        if (HasPeaks()) {
            WritePeaks(file, transfer.Peaks(), m_time);
        }
        m_reporter.Opened();
    }

    void WriteMetadata(const FileName& file, CopyFacts& facts) {
        if (!m_metadata.has_value()) {
            return;
        }
        const ReadWatch watch{[this] { m_reporter.BeginReading(); },
                              [this] {
                                  m_reporter.EndReading();
                              }};
        CopiedSamples samples;
        samples.part = {static_cast<std::uint64_t>(m_range.first),
                        static_cast<std::uint64_t>(facts.frames), m_options.range.IsWholeFile()};
        samples.hasOtherChannels = m_hasOtherChannels;
        samples.rate = facts.rate;
        samples.channels = m_channels;
        samples.bits = m_format.encoding->bits;
        facts.metadata = m_metadata->Write(file, *m_format.container, samples, watch);
        m_warnings.Add(facts.metadata->warnings);
    }

    // The sink writes a chunk for peaks into WAVE files with floats.
    bool HasPeaks() const {
        return m_format.container->format == WrapperFormat::WAVE &&
               m_format.encoding->type == AudioPCMType::Float;
    }

    void VerifyFile(const FileName& file, const CopyFacts& facts, const FloatHash& pushed) const {
        m_reporter.Opening(m_request.output); // a library may not return from damaged metadata
        VerifyHeaderSizes(file, SampleBytes(facts.frames),
                          static_cast<std::uint64_t>(facts.frames));
        VerifyReopens(file, facts.frames, m_channels, facts.rate);
        m_reporter.Opened();
        if (m_verify) {
            VerifyContent(file, facts.frames, pushed);
            if (facts.metadata.has_value() && facts.metadata->appended.has_value()) {
                VerifyAppended(file, *facts.metadata->appended);
            }
        }
    }

    void VerifyContent(const FileName& file, std::int64_t frames, const FloatHash& pushed) const {
        const SourceReader source(file, m_options.blockFrames);
        FloatHash hash;
        std::int64_t read = 0;
        while (const SampleHandle sample = source.Element().GetSample()) {
            const FloatView floats = FloatsIn(*sample);
            hash.Add(floats);
            read += static_cast<std::int64_t>(floats.count / m_channels);
        }
        if (read != frames || hash.Value() != pushed.Value()) {
            throw JobError(m_request.output,
                           "differs from the written samples when it is read back; do not trust "
                           "this disk");
        }
    }

    void RequireNoClipping(const std::vector<ChannelConversion>& channels) const {
        const bool clipped =
            std::any_of(channels.begin(), channels.end(), [](const ChannelConversion& channel) {
                return channel.clipped > 0 || channel.nonFinite > 0;
            });
        if (clipped && m_options.failOnClip) {
            throw JobError(m_request.input, "has values beyond full scale, and --on-clip is fail; "
                                            "--encoding float32 keeps them");
        }
    }

    static json EscapeAll(const std::vector<std::string>& names) {
        auto escaped = json::array();
        for (const std::string& name : names) {
            escaped.push_back(Escape(name));
        }
        return escaped;
    }

    static json DescribeMetadata(const std::optional<MetadataReport>& metadata) {
        return metadata.has_value() ? json{{"kept", EscapeAll(metadata->kept)},
                                           {"not_preserved", EscapeAll(metadata->notPreserved)}}
                                    : json();
    }

    json Document(const CopyFacts& facts) const {
        auto conversion = json::array();
        for (const ChannelConversion& channel : facts.conversion) {
            conversion.push_back({{"clipped", channel.clipped},
                                  {"loudest", channel.loudest},
                                  {"non_finite", channel.nonFinite}});
        }
        return {{"input", Escape(m_request.input)},
                {"output", Escape(m_request.output)},
                {"container", m_format.container->title},
                {"encoding", m_format.encoding->name},
                {"byte_order", Describe(m_format.byteOrder)},
                {"channels", m_channels},
                {"rate", facts.rate},
                {"frames", facts.frames},
                {"bytes", SampleBytes(facts.frames)},
                {"verified", m_verify},
                {"rounded", m_rounded},
                {"conversion", conversion},
                {"metadata", DescribeMetadata(facts.metadata)},
                {"warnings", m_warnings.Texts()}};
    }

    std::string Report(const CopyFacts& facts) const {
        std::string text = fmt::format(
            "{} -> {}: {}, {} {}, {}, {} Hz, {}, {}{}\n", Escape(m_request.input),
            Escape(m_request.output), m_format.container->title, m_format.encoding->name,
            Describe(m_format.byteOrder), Count(m_channels, "channel"), facts.rate,
            Count(static_cast<std::uint64_t>(facts.frames), "frame"),
            FormatDuration(facts.frames, facts.rate),
            (m_verify ? ", verified" : "") +
                (m_rounded > 0 ? ", " + Count(m_rounded, "value") + " rounded" : ""));
        for (std::size_t i = 0; i < facts.conversion.size(); ++i) {
            const ChannelConversion& channel = facts.conversion[i];
            if (channel.clipped > 0) {
                text += fmt::format("channel {}: {} clipped, the loudest {} times full scale\n",
                                    i + 1, Count(channel.clipped, "value"), channel.loudest);
            }
            if (channel.nonFinite > 0) {
                text += fmt::format("channel {}: {} not finite\n", i + 1,
                                    Count(channel.nonFinite, "value"));
            }
        }
        return text;
    }

    const CopyRequest& m_request;
    const CopyOptions& m_options;
    OutputFormat m_format;
    std::optional<StoredFormat> m_stored; // of the input; none when it is unknown
    ErrorRecords m_errors;
    Reporter& m_reporter;
    std::unique_ptr<SourceReader> m_source;
    std::unique_ptr<SampleConverter> m_converter;
    FrameRange m_range;
    std::vector<std::uint32_t> m_picked; // channels of the input, from 0; empty: all
    std::uint32_t m_channels = 0;
    std::uint32_t m_mask = 0;    // of the speakers
    std::uint64_t m_rounded = 0; // values that the floats of the source, or the output, cannot hold
    bool m_hasOtherChannels = false;
    std::optional<MetadataCopy> m_metadata; // none where it is not copied
    const std::uint32_t m_time = TimeOfWriting();
    bool m_verify = false;
    std::uint64_t m_bytes = 0; // of samples, if the input delivers all of its frames; 0 if unknown
    Warnings m_warnings;
};

} // namespace

JobResult Copy(const CopyRequest& request, const HostLogger& log, Reporter& reporter) {
    const ContextScope context("copy " + request.input);
    reporter.Opening(request.input); // even looking at it may take for ever
    RequireDifferentFiles(request.input, request.output);
    if (request.options.skip && Exists(request.output)) {
        return DescribeSkipped(request);
    }
    return CopyJob(request, log, reporter).Run();
}

} // namespace kel::host
