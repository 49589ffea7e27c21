#include "transfer/Copy.h"

#include "audio/SampleConverter.h"
#include "base/Errors.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "container/HeaderSizes.h"
#include "elements/Elements.h"
#include "elements/RangeReader.h"
#include "transfer/StageRunner.h"
#include "transfer/Transfer.h"

#include <Logging.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <xxhash.h>

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

// A running hash of floats, bit for bit.
class FloatHash {
public:
    FloatHash() : m_state(XXH3_createState(), XXH3_freeState) { XXH3_64bits_reset(m_state.get()); }

    void Add(const float* values, std::size_t count) {
        XXH3_64bits_update(m_state.get(), values, count * sizeof(float));
    }

    std::uint64_t Value() const { return XXH3_64bits_digest(m_state.get()); }

private:
    std::unique_ptr<XXH3_state_t, XXH_errorcode (*)(XXH3_state_t*)> m_state;
};

// A copy under way, step after step.
class CopyJob {
public:
    CopyJob(const CopyRequest& request, const HostLogger& log, Reporter& reporter)
        : m_request(request), m_options(request.options), m_reporter(reporter),
          m_transfer(request.input, request.output, log, reporter),
          m_container(&ChooseContainer(m_options, request.output)),
          m_encoding(m_options.encoding != nullptr ? m_options.encoding
                                                   : &DefaultEncoding(*m_container)),
          m_byteOrder(m_options.byteOrder.value_or(DefaultByteOrder(*m_container))) {}

    CopyResult Run() {
        if (IsSameFile(m_request.input, m_request.output)) {
            throw JobError(fmt::format("{}: is the same file as the input {}; name another output",
                                       Escape(m_request.output), Escape(m_request.input)));
        }
        CopyResult result;
        result.input = Escape(m_request.input);
        result.output = Escape(m_request.output);
        if (m_options.skip) {
            std::error_code unknown;
            result.skipped = std::filesystem::is_regular_file(m_request.output, unknown);
            if (result.skipped) {
                return result;
            }
        }
        m_reporter.Opening(m_request.input);
        SourceReader source(m_request.input, m_options.blockFrames);
        m_reporter.Opened();
        m_transfer.CheckOpening();
        const FrameRange range =
            Resolve(m_options.range, source.Frames(), source.Rate(), m_request.input);
        SampleConverter converter(source.Description(), MakeTarget(source));
        m_channels = static_cast<std::uint32_t>(converter.Channels().size());
        CheckBlock(source);
        m_bytes = static_cast<std::uint64_t>(range.count) * m_channels * m_encoding->bytes;
        ChooseSize();

        OutputFile output(m_request.output, m_options.replace);
        const std::uint64_t size = MaxFileSize(m_bytes, m_channels);
        output.RequireSpace(size);
        const FileName written(output.TemporaryPath(), m_request.output);
        std::int64_t frames = 0;
        try {
            frames = Write(source, range, converter, written);
        } catch (const JobError& error) {
            throw JobError(error.what() + output.DescribeShortage(size));
        }
        output.Commit();

        result.container = m_container->title;
        result.encoding = m_encoding->name;
        result.byteOrder = Describe(m_byteOrder);
        result.channels = m_channels;
        result.rate = source.Rate();
        result.frames = frames;
        result.bytes = static_cast<std::uint64_t>(frames) * m_channels * m_encoding->bytes;
        result.verified = m_options.verify;
        result.conversion = converter.Channels();
        result.warnings = m_warnings;
        return result;
    }

private:
    TargetLayout MakeTarget(const SourceReader& source) const {
        TargetLayout target{*m_encoding, m_byteOrder, {}, m_options.dither};
        for (const std::uint32_t channel : m_options.channels) {
            if (channel > source.Channels()) {
                throw JobError(fmt::format("{}: has no channel {}, only {}",
                                           Escape(m_request.input), channel, source.Channels()));
            }
            target.channels.push_back(channel - 1);
        }
        return target;
    }

    // The size of a sample is counted in 32 bits, before and after it is converted.
    void CheckBlock(const SourceReader& source) const {
        const std::uint64_t frameBytes = std::max(
            std::uint64_t{source.Channels()} * sizeof(float),
            std::uint64_t{m_channels} * std::max<std::uint64_t>(sizeof(float), m_encoding->bytes));
        const std::uint64_t most = std::numeric_limits<std::uint32_t>::max() / frameBytes;
        if (m_options.blockFrames > most) {
            throw JobError(fmt::format("{}: blocks of {} frames are too large for its channels; "
                                       "use --block {} or less",
                                       Escape(m_request.input), m_options.blockFrames, most));
        }
    }

    // A file that is larger than WAVE can say becomes RF64, unless WAVE was asked for.
    void ChooseSize() {
        if (m_container->format != WrapperFormat::WAVE || m_options.container != nullptr) {
            RequireFits(*m_container, m_request.output, m_bytes, m_channels, "--format bwave");
            return;
        }
        if (FitsInto32Bits(m_bytes, m_channels)) {
            return;
        }
        m_container = &ContainerByName("bwave");
        Warn(fmt::format("{}: is written as {}, as its {} bytes of samples do not fit into WAVE",
                         Escape(m_request.output), m_container->title, m_bytes));
    }

    // Writes the file and makes sure that it is whole; returns its frames.
    std::int64_t Write(SourceReader& source, const FrameRange& range, SampleConverter& converter,
                       const FileName& written) {
        const std::int64_t frames = PushAll(source, range, converter, written);
        m_transfer.CheckWriting();
        if (const auto warning =
                m_transfer.CheckLength(range.count, frames, m_options.allowShort)) {
            Warn(*warning);
        }
        CheckClipping(converter.Channels());
        source.Release();
        VerifyHeaderSizes(written,
                          static_cast<std::uint64_t>(frames) * m_channels * m_encoding->bytes,
                          static_cast<std::uint64_t>(frames));
        VerifyReopens(written, frames, m_channels, source.Rate());
        if (m_options.verify) {
            Verify(written, frames);
        }
        m_transfer.CheckWriting();
        return frames;
    }

    std::int64_t PushAll(const SourceReader& source, const FrameRange& range,
                         SampleConverter& converter, const FileName& file) {
        RangeReader reader(source, range);
        SinkWriter sink(*m_container, file, converter.Description());
        Stages stages;
        stages.pull = [&] {
            return reader.Pull();
        };
        if (!converter.IsIdentity()) {
            stages.convert = [&](const SampleHandle& sample) {
                return converter.Convert(sample);
            };
        }
        std::vector<float> readBack;
        stages.push = [&](const SampleHandle& sample) {
            sink.Element().PushSample(sample);
            if (!m_options.verify) {
                return;
            }
            if (converter.IsIdentity()) {
                const FloatView floats = FloatsOf(*sample);
                m_pushed.Add(floats.values, floats.count);
            } else {
                converter.ReadBack(sample, readBack);
                m_pushed.Add(readBack.data(), readBack.size());
            }
        };
        // Threads cost more than they bring where there is hardly anything to overlap.
        const bool overlapped = range.count > 2 * static_cast<std::int64_t>(m_options.blockFrames);
        const std::int64_t pushed =
            m_transfer.Run(stages, {range.count, source.Rate()}, overlapped);
        m_transfer.Close(sink);
        return pushed;
    }

    void CheckClipping(const std::vector<ChannelConversion>& channels) const {
        const bool clipped =
            std::any_of(channels.begin(), channels.end(), [](const ChannelConversion& channel) {
                return channel.clipped > 0 || channel.nonFinite > 0;
            });
        if (clipped && m_options.failOnClip) {
            throw JobError(fmt::format("{}: has values beyond full scale, and --on-clip fail was "
                                       "given; --encoding float32 keeps them",
                                       Escape(m_request.input)));
        }
    }

    void Verify(const FileName& file, std::int64_t frames) {
        const SourceReader source(file, m_options.blockFrames);
        FloatHash hash;
        std::int64_t read = 0;
        while (const SampleHandle sample = source.Element().GetSample()) {
            const FloatView floats = FloatsOf(*sample);
            hash.Add(floats.values, floats.count);
            read += static_cast<std::int64_t>(floats.count / m_channels);
        }
        if (read != frames || hash.Value() != m_pushed.Value()) {
            throw JobError(fmt::format("{}: what was read back is not what was written; do not "
                                       "trust this disk",
                                       Escape(m_request.output)));
        }
    }

    void Warn(const std::string& text) {
        m_warnings.push_back(text);
        m_reporter.Show("kelhost: warning: " + text);
    }

    const CopyRequest& m_request;
    const CopyOptions& m_options;
    Reporter& m_reporter;
    Transfer m_transfer;
    const Container* m_container;
    const Encoding* m_encoding;
    PCMEndianness m_byteOrder;
    std::uint32_t m_channels = 0;
    std::uint64_t m_bytes = 0; // of samples, as far as the input keeps its promise
    FloatHash m_pushed;        // what a source should read from the output
    std::vector<std::string> m_warnings;
};

} // namespace

const Container& ChooseContainer(const CopyOptions& options, const std::string& output) {
    const Container* container =
        options.container != nullptr ? options.container : ContainerByExtension(output);
    if (container == nullptr) {
        throw UsageError(
            fmt::format("{}: the extension means no format; use one of {}, or --format",
                        Escape(output), ListExtensions()));
    }
    return *container;
}

CopyResult Copy(const CopyRequest& request, const HostLogger& log, Reporter& reporter) {
    const ContextScope context("copy " + request.input);
    return CopyJob(request, log, reporter).Run();
}

void to_json(nlohmann::json& json, const CopyResult& result) {
    if (result.skipped) {
        json = {{"input", result.input}, {"output", result.output}, {"skipped", true}};
        return;
    }
    auto channels = nlohmann::json::array();
    for (const ChannelConversion& channel : result.conversion) {
        channels.push_back({{"clipped", channel.clipped},
                            {"loudest", channel.loudest},
                            {"non_finite", channel.nonFinite}});
    }
    json = {{"input", result.input},
            {"output", result.output},
            {"container", result.container},
            {"encoding", result.encoding},
            {"byte_order", result.byteOrder},
            {"channels", result.channels},
            {"rate", result.rate},
            {"frames", result.frames},
            {"bytes", result.bytes},
            {"verified", result.verified},
            {"conversion", channels},
            {"warnings", result.warnings}};
}

void from_json(const nlohmann::json& json, CopyResult& result) {
    json.at("input").get_to(result.input);
    json.at("output").get_to(result.output);
    result.skipped = json.contains("skipped");
    if (result.skipped) {
        return;
    }
    json.at("container").get_to(result.container);
    json.at("encoding").get_to(result.encoding);
    json.at("byte_order").get_to(result.byteOrder);
    json.at("channels").get_to(result.channels);
    json.at("rate").get_to(result.rate);
    json.at("frames").get_to(result.frames);
    json.at("bytes").get_to(result.bytes);
    json.at("verified").get_to(result.verified);
    json.at("warnings").get_to(result.warnings);
    result.conversion.clear();
    for (const auto& channel : json.at("conversion")) {
        result.conversion.push_back(
            {channel.at("clipped"), channel.at("loudest"), channel.at("non_finite")});
    }
}

std::string Describe(const CopyResult& result) {
    if (result.skipped) {
        return fmt::format("{} -> {}: exists already, skipped\n", result.input, result.output);
    }
    std::string text = fmt::format(
        "{} -> {}: {}, {} {}, {} {}, {} Hz, {} frames, {}{}\n", result.input, result.output,
        result.container, result.encoding, result.byteOrder, result.channels,
        result.channels == 1 ? "channel" : "channels", result.rate, result.frames,
        FormatDuration(result.frames, result.rate), result.verified ? ", verified" : "");
    for (std::size_t i = 0; i < result.conversion.size(); ++i) {
        const ChannelConversion& channel = result.conversion[i];
        if (channel.clipped > 0) {
            text += fmt::format("channel {}: {} values clipped, the loudest {} times full scale\n",
                                i + 1, channel.clipped, channel.loudest);
        }
        if (channel.nonFinite > 0) {
            text += fmt::format("channel {}: {} values were no finite numbers\n", i + 1,
                                channel.nonFinite);
        }
    }
    return text;
}

} // namespace kel::host
