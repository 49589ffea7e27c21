#include "transfer/Copy.h"

#include "audio/SampleConverter.h"
#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "container/HeaderSizes.h"
#include "elements/RangeReader.h"
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
          m_errors(log, request.input), m_reporter(reporter) {}

    JobResult Run() {
        Open();
        // The sink warns where the extension suggests another container.
        const bool isUsual = ContainerByExtension(m_request.output) == m_format.container;
        OutputFile output(m_request.output, m_options.replace,
                          isUsual ? TemporaryName::None : TemporaryName::Requested);
        const std::uint64_t size = MaxFileSize(m_bytes, m_channels);
        output.RequireSpace(size);
        m_verify = m_options.verify.value_or(output.MayFailLate());
        CopyFacts facts;
        try {
            facts = Write(output);
        } catch (const JobError& error) {
            throw JobError(error.File(), error.what() + output.DescribeShortage(size));
        }
        WarnAll(output.KeepAttributes());
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
        m_reporter.Opened();
        m_errors.RequireNone(m_request.input);
        WarnAll(m_source->CheckHeader(m_options.input));
        m_range = Resolve(m_options.range, m_source->Frames(), m_source->Rate(), m_request.input);
        m_converter = std::make_unique<SampleConverter>(m_source->Description(), MakeTarget());
        m_channels = static_cast<std::uint32_t>(m_converter->Channels().size());
        RequireBlockFits();
        m_bytes = SampleBytes(m_range.count.value_or(0));
        ChooseContainerForSize();
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
                        "--format bwave");
            return;
        }
        if (FitsInto32Bits(m_bytes, m_channels)) {
            return;
        }
        m_format.container = FindContainer(WrapperFormat::BWAVE);
        Warn(fmt::format("{}: is written as {}, because its {} bytes of samples do not fit into "
                         "WAVE",
                         m_request.output, m_format.container->title, m_bytes));
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
                m_format.encoding->bytes, "--format bwave");
        }
        parts.sink =
            std::make_unique<SinkWriter>(*m_format.container, file, m_converter->Description());
        parts.source = std::move(m_source);
        parts.converter = std::move(m_converter);
        Transfer transfer(std::move(parts), m_request.output, m_errors, m_reporter);
        if (m_verify) {
            transfer.EnableHash();
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
            Warn(*shortfall);
        }
        RequireNoClipping(facts.conversion);
        transfer.Source().Release();
        WarnAll(output.Flush());
        VerifyFile(file, facts, transfer.Hash());
        m_errors.RequireNoneFromOutput(m_request.output);
        return facts;
    }

    void VerifyFile(const FileName& file, const CopyFacts& facts, const FloatHash& pushed) const {
        VerifyHeaderSizes(file, SampleBytes(facts.frames),
                          static_cast<std::uint64_t>(facts.frames));
        VerifyReopens(file, facts.frames, m_channels, facts.rate);
        if (m_verify) {
            VerifyContent(file, facts.frames, pushed);
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

    void Warn(const std::string& text) {
        m_warnings.push_back(Escape(text));
        m_reporter.Show(WarningLine(text));
    }

    void WarnAll(const std::vector<std::string>& problems) {
        for (const std::string& problem : problems) {
            Warn(problem);
        }
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
                {"conversion", conversion},
                {"warnings", m_warnings}};
    }

    std::string Report(const CopyFacts& facts) const {
        std::string text = fmt::format(
            "{} -> {}: {}, {} {}, {}, {} Hz, {}, {}{}\n", Escape(m_request.input),
            Escape(m_request.output), m_format.container->title, m_format.encoding->name,
            Describe(m_format.byteOrder), Count(m_channels, "channel"), facts.rate,
            Count(static_cast<std::uint64_t>(facts.frames), "frame"),
            FormatDuration(facts.frames, facts.rate), m_verify ? ", verified" : "");
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
    ErrorRecords m_errors;
    Reporter& m_reporter;
    std::unique_ptr<SourceReader> m_source;
    std::unique_ptr<SampleConverter> m_converter;
    FrameRange m_range;
    std::uint32_t m_channels = 0;
    bool m_verify = false;
    std::uint64_t m_bytes = 0; // of samples, if the input delivers all of its frames; 0 if unknown
    std::vector<std::string> m_warnings;
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
