#include "Copy.h"

#include "Elements.h"
#include "Errors.h"
#include "OutputFile.h"
#include "Text.h"

#include <ElementFactoryType.h>
#include <IAudioInfo.h>
#include <IAudioParameters_PCM.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IInfoContainer.h>
#include <IMemoryBlock.h>
#include <IMemoryBlockAllocator.h>
#include <ISampleContainer.h>
#include <KELRuntimeError.h>
#include <Logging.h>
#include <WorkflowStepImplementation.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

const Container& ChooseContainer(const CopyRequest& request) {
    const Container* container =
        request.container != nullptr ? request.container : ContainerByExtension(request.output);
    if (container == nullptr) {
        throw UsageError(
            fmt::format("{}: the extension means no format; use one of {}, or --format",
                        Escape(request.output), ListExtensions()));
    }
    return *container;
}

std::shared_ptr<const IAudioParameters_PCM>
MakeParameters(const Encoding& encoding, PCMEndianness byteOrder, std::uint32_t rate) {
    auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetMuxing(PCMMuxing::Multi);
    parameters->SetSampleRate(rate);
    parameters->SetBitsDepth(encoding.bits);
    parameters->SetEndianness(byteOrder);
    parameters->SetPCMType(encoding.type);
    parameters->SetSampleSize(encoding.bytes);
    return parameters;
}

// Turns the source's samples into the sink's. Samples that need no conversion go through untouched.
class SampleConverter {
public:
    SampleConverter(const OpenSource& source, const Encoding& encoding, PCMEndianness byteOrder)
        : m_converter(encoding, byteOrder, source.Channels()) {
        if (m_converter.IsIdentity()) {
            m_description = source.Description();
            return;
        }
        m_parameters = MakeParameters(encoding, byteOrder, source.Rate());
        m_info = CreateAudioInfo(m_parameters, source.Info()->GetChannelInfo(), {}, {});
        m_description = CreateInfoContainer(m_info, nullptr);
        m_allocator =
            ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
    }

    /// The description of what Convert gives.
    const std::shared_ptr<const IInfoContainer>& Description() const { return m_description; }

    std::shared_ptr<const ISampleContainer>
    Convert(const std::shared_ptr<const ISampleContainer>& container) {
        if (m_converter.IsIdentity()) {
            return container;
        }
        const auto sample = container->GetAudioSamples(nullptr, nullptr).at(0);
        const auto input = sample->GetBuffer();
        const std::size_t values = input->GetSize() / sizeof(float);
        const auto outputSize = static_cast<std::uint32_t>(m_converter.SizeOf(values));
        const auto output = CreateBuffer(m_allocator, nullptr);
        output->Reserve(outputSize);
        m_converter.Convert(static_cast<const float*>(static_cast<const void*>(input->GetData())),
                            values, output->GetData());
        output->SetSize(outputSize);
        return CreateSampleContainer(
            CreateAudioSample(m_parameters, m_info, output, sample->GetTimeLimits(), {}), nullptr);
    }

    const std::vector<ChannelConversion>& Channels() const { return m_converter.Channels(); }

private:
    Converter m_converter;
    std::shared_ptr<const IAudioParameters_PCM> m_parameters;
    std::shared_ptr<const IAudioInfo> m_info;
    std::shared_ptr<const IInfoContainer> m_description;
    std::shared_ptr<IMemoryBlockAllocator> m_allocator;
};

// Pulls everything and pushes it; returns the number of frames. A failed write is told by an error
// record alone, so the loop looks for one: what follows would only fill a full disk once more.
std::int64_t PullAndPush(const OpenSource& source, SampleConverter& converter, DefinedSink& sink,
                         const HostLog& log, std::size_t firstError) {
    std::int64_t frames = 0;
    while (const auto container = source.Element().GetSample()) {
        for (const auto& sample : container->GetAudioSamples(nullptr, nullptr)) {
            frames += sample->GetTimeLimits().duration;
        }
        sink.Element().PushSample(converter.Convert(container));
        if (log.CountErrors() != firstError) {
            break;
        }
    }
    return frames;
}

} // namespace

void CheckNoErrorRecords(const HostLog& log, std::size_t first, const std::string& path) {
    std::vector<std::string> errors;
    for (const std::string& error : log.ErrorsSince(first)) {
        errors.push_back(Escape(error));
    }
    if (!errors.empty()) {
        throw JobError(fmt::format("{}: {}", Escape(path), fmt::join(errors, "; ")));
    }
}

void CheckReopens(const FileName& file, std::int64_t frames, std::uint32_t channels,
                  std::uint32_t rate) {
    const OpenSource written(file, 1);
    if (written.Frames() != frames || written.Channels() != channels || written.Rate() != rate) {
        throw JobError(fmt::format(
            "{}: the file that was written opens with {} frames, {} channels and {} Hz instead of "
            "{} frames, {} channels and {} Hz; is the disk full?",
            Escape(file.shown), written.Frames(), written.Channels(), written.Rate(), frames,
            channels, rate));
    }
}

CopyResult Copy(const CopyRequest& request, const HostLog& log) {
    const ContextScope context("copy " + request.input);
    const Container& container = ChooseContainer(request);
    const Encoding& encoding = DefaultEncoding(container);
    const PCMEndianness byteOrder = DefaultByteOrder(container);
    if (IsSameFile(request.input, request.output)) {
        throw JobError(fmt::format("{}: is the same file as the input {}; name another output",
                                   Escape(request.output), Escape(request.input)));
    }

    const std::size_t firstError = log.CountErrors();
    const OpenSource source(request.input, request.blockFrames);
    SampleConverter converter(source, encoding, byteOrder);
    OutputFile output(request.output, request.replace);
    const FileName written(output.TemporaryPath(), request.output);
    std::int64_t frames = 0;
    try {
        DefinedSink sink(container, written, converter.Description());
        frames = PullAndPush(source, converter, sink, log, firstError);
        sink.Close();
    } catch (const KELRuntimeError& error) {
        throw JobError(fmt::format("{}: {}", Escape(request.output), Escape(error.what())));
    }

    CheckNoErrorRecords(log, firstError, request.output);
    if (frames != source.Frames()) {
        throw JobError(fmt::format("{}: the file promises {} frames and delivers {}; it is damaged "
                                   "or was changed while it was read",
                                   Escape(request.input), source.Frames(), frames));
    }
    CheckReopens(written, frames, source.Channels(), source.Rate());
    output.Commit();
    return {&container,    &encoding, byteOrder,           source.Channels(),
            source.Rate(), frames,    converter.Channels()};
}

std::string Describe(const CopyRequest& request, const CopyResult& result) {
    std::string text = fmt::format(
        "{} -> {}: {}, {} {}, {} {}, {} Hz, {} frames, {}\n", Escape(request.input),
        Escape(request.output), result.container->title, result.encoding->name,
        Describe(result.byteOrder), result.channels, result.channels == 1 ? "channel" : "channels",
        result.rate, result.frames, FormatDuration(result.frames, result.rate));
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
