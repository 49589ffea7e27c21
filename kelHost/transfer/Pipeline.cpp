#include "transfer/Pipeline.h"

#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "container/HeaderSizes.h"
#include "elements/ElementCall.h"
#include "elements/TailReader.h"
#include "jobs/SeekableInput.h"
#include "jobs/Warnings.h"
#include "transfer/FittingReader.h"
#include "transfer/Transfer.h"

#include <IAudioParameters_PCM.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <ISampleContainer.h>
#include <Logging.h>
#include <MediaTime.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// Keeps the records in which an element reports its work, and passes every record on.
class ReportKeeper final : public ILoggerWriter {
public:
    explicit ReportKeeper(std::shared_ptr<ILoggerWriter> next) : m_next(std::move(next)) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override {
        if (level == LogLevel::Info || level == LogLevel::Milestone) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_reports.push_back(Escape(message));
        }
        if (m_next != nullptr) {
            m_next->Write(level, message, context, file, line, reserved, threadId, time);
        }
    }

    std::vector<std::string> Reports() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reports;
    }

private:
    std::shared_ptr<ILoggerWriter> m_next;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_reports;
};

// Returns the container of a type; null when the host does not know it.
const Container* ContainerOfType(const std::string& type) {
    for (const Container& container : Containers()) {
        if (GetLabel(container.format) == type) {
            return &container;
        }
    }
    return nullptr;
}

// Delivers the samples of any source. Verifies that each is what it declares, and that a source of
// known length ends.
class VerifyingReader final : public SampleReader {
public:
    VerifyingReader(const SourceReader& source, std::uint64_t frameBytes, bool isGrowing)
        : m_source(source), m_context(ReadingContext(source.ShownName())), m_frameBytes(frameBytes),
          m_isGrowing(isGrowing) {}

    SampleHandle Pull() override {
        // The call that reaches the last frame may read beyond it.
        const bool isLast =
            m_source.Frames().has_value() &&
            m_delivered + std::int64_t{m_source.BlockFrames()} >= *m_source.Frames();
        const ContextScope context(isLast ? EndContext(m_source.ShownName()) : m_context);
        SampleHandle container = PullNext();
        if (container == nullptr) {
            return nullptr;
        }
        const auto samples = container->GetAudioSamples(nullptr, nullptr);
        if (samples.size() != 1 || samples.front()->GetBuffer() == nullptr) {
            Fail(fmt::format("delivers a sample container with {} instead of one",
                             Count(samples.size(), "audio sample")));
        }
        const std::int64_t frames = samples.front()->GetTimeLimits().duration;
        const std::uint64_t bytes = samples.front()->GetBuffer()->GetSize();
        if (bytes != static_cast<std::uint64_t>(frames) * m_frameBytes) {
            Fail(fmt::format(
                "delivers a sample of {} with a duration of {} of {}", Count(bytes, "byte"),
                Count(static_cast<std::uint64_t>(frames), "frame"), Count(m_frameBytes, "byte")));
        }
        m_delivered += frames;
        const auto declared = m_source.Frames();
        if (isLast && !m_isGrowing && (m_delivered < *declared || m_tail.has_value())) {
            m_source.NoteShortSample();
        }
        if (declared.has_value() && m_delivered > *declared && !m_isGrowing) {
            Fail(fmt::format("declares {} and delivers more",
                             Count(static_cast<std::uint64_t>(*declared), "frame")));
        }
        return container;
    }

private:
    SampleHandle PullNext() {
        if (!m_tail.has_value()) {
            SampleHandle sample = m_source.NextSample();
            const bool isEarly = m_source.Frames().value_or(0) > m_delivered && !m_isGrowing;
            if (sample != nullptr || !isEarly) {
                return sample;
            }
            m_tail.emplace(m_source, 0, m_delivered);
        }
        return m_tail->Pull();
    }

    [[noreturn]] void Fail(const std::string& message) const {
        throw JobError(m_source.ShownName(), message);
    }

    const SourceReader& m_source;
    std::string m_context;
    std::uint64_t m_frameBytes;
    bool m_isGrowing;
    std::int64_t m_delivered = 0;
    std::optional<TailReader> m_tail; // after a source that ended early
};

// For errors about a container that cannot hold enough.
std::string LargeType() {
    return "the type " + GetLabel(WrapperFormat::BWAVE);
}

// A run of a pipeline, step by step.
class PipelineJob {
public:
    PipelineJob(const PipelineRequest& request, const HostLogger& log, Reporter& reporter)
        : m_request(request), m_input(request.source.Name()), m_output(request.sink.Name()),
          m_errors(log, m_input), m_reporter(reporter), m_warnings(reporter) {}

    JobResult Run() {
        Open();
        if (m_request.sink.file.path.empty()) {
            MoveSamples(nullptr);
            m_errors.RequireNoneFromOutput(m_output);
            return Result();
        }
        return WriteFile();
    }

private:
    void Open() {
        const PipelineElement& source = m_request.source;
        const SpoolPolicy& spool = m_request.input.spool;
        m_reporter.Opening(m_input); // even looking at it may take for ever
        std::string path;
        if (!source.file.path.empty()) {
            RequireDifferentFiles(source.file, m_request.sink.file);
            RequirePathFits(source.file);
            m_sought.emplace(source.file, spool, m_reporter);
            RequireReadable(m_sought->File());
            path = m_sought->File().path;
            SetFilePath(*source.recipe.settings, path);
        }
        m_source = std::make_unique<SourceReader>(
            m_input, source.recipe, path,
            Repair{m_request.input.repair, ReadingSteps(m_reporter), spool.directory});
        m_reporter.Opened();
        m_errors.RequireNone(m_input, kOpenForReading);
        m_warnings.Add(m_source->CheckHeader(m_request.input));
        RequireCountable();
    }

    // Verifies that the host can count what the source delivers.
    void RequireCountable() {
        const auto pcm = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
            m_source->Info()->GetAudioParameters());
        if (m_source->Description()->GetAudioInfos().size() != 1) {
            throw JobError(m_input, "delivers several audio tracks; run supports one");
        }
        if (pcm == nullptr) {
            throw JobError(m_input, "does not deliver PCM; run supports nothing else");
        }
        if (!(m_source->Limits().start.GetEditRate() == EditRate(pcm->GetSampleRate(), 1))) {
            throw JobError(m_input, "does not count its time in frames, so that missing frames "
                                    "would not be noticed");
        }
        m_channels = m_source->Channels();
        m_frameBytes = std::uint64_t{m_channels} * pcm->GetSampleSize();
        m_rate = m_source->Rate();
        m_encoding = DescribeDelivery(*m_source->Info());
        m_isGrowing = m_source->Element().IsGrowing();
    }

    JobResult WriteFile() {
        const PipelineElement& sink = m_request.sink;
        const Container* container = ContainerOfType(sink.recipe.type);
        const std::uint64_t bytes =
            static_cast<std::uint64_t>(m_source->Frames().value_or(0)) * m_frameBytes;
        const std::uint64_t size = container != nullptr ? MaxFileSize(bytes, m_channels) : 0;
        if (container != nullptr) {
            RequireFits(*container, sink.file.shown, bytes, m_channels, LargeType());
        }
        OutputFile output = m_request.isStreamed ? OutputFile(sink.file)
                                                 : OutputFile(sink.file.path, m_request.replace,
                                                              TemporaryName::Requested);
        output.RequireSpace(size);
        SetFilePath(*sink.recipe.settings, output.TemporaryPath());
        m_reporter.ShowAs({output.TemporaryPath(), sink.file.shown});
        try {
            MoveSamples(container);
            m_warnings.Add(output.Flush());
            if (container != nullptr) {
                VerifyFile({output.TemporaryPath(), sink.file.shown});
            }
            m_errors.RequireNoneFromOutput(m_output);
        } catch (const JobError& error) {
            throw JobError(error.File(),
                           error.what() + output.DescribeShortage(size, error.what()));
        }
        m_warnings.Add(output.KeepAttributes());
        // Before the output appears: afterwards nothing may fail.
        JobResult result = Result();
        output.Commit();
        return result;
    }

    JobResult Result() const {
        std::string output;
        for (const std::string& report : m_sinkReports) {
            output += report + "\n";
        }
        return {DumpJSON(Document()), output, Report()};
    }

    void VerifyFile(const FileName& file) const {
        const auto frames = static_cast<std::uint64_t>(m_frames);
        VerifyHeaderSizes(file, frames * m_frameBytes, frames);
        VerifyReopens(file, m_frames, m_channels, m_rate);
    }

    // @param container of the output; null when the host does not know it
    void MoveSamples(const Container* container) {
        const ElementRecipe& recipe = m_request.sink.recipe;
        const std::optional<std::int64_t> declared = m_source->Frames();
        const bool hasEnd = declared.has_value() && !m_isGrowing;
        TransferParts parts;
        parts.reader = std::make_unique<VerifyingReader>(*m_source, m_frameBytes, m_isGrowing);
        if (container != nullptr && !hasEnd) {
            parts.reader =
                std::make_unique<FittingReader>(std::move(parts.reader), *container, m_output,
                                                m_channels, m_frameBytes / m_channels, LargeType());
        }
        parts.sink = std::make_unique<SinkWriter>(
            m_output, !m_request.sink.file.path.empty(), recipe, m_source->Description(),
            fmt::format("{}:{} does not accept {}", recipe.implementation, recipe.type,
                        m_encoding));
        parts.source = std::move(m_source);
        Transfer transfer(std::move(parts), m_output, m_errors, m_reporter);
        m_frames = transfer.Run(hasEnd ? declared : std::nullopt);
        CloseSink(transfer);
        m_errors.RequireNoneFromOutput(m_output);
        transfer.Source().RequireUnchanged();
        const auto expected = m_isGrowing ? m_frames : declared;
        const auto shortfall =
            m_errors.VerifyDelivery(expected, m_frames, transfer.Source().EarlyStop(expected),
                                    m_request.input.allowTruncated);
        if (shortfall.has_value()) {
            m_warnings.Add(*shortfall);
        }
        transfer.Source().Release();
    }

    // A sink may log facts about its input as a whole when it is closed. The log shows them only on
    // request; here they are results.
    void CloseSink(Transfer& transfer) {
        const std::shared_ptr<ILoggerWriter> former = GetCurrentLoggerWriter();
        const auto keeper = std::make_shared<ReportKeeper>(former);
        SetCurrentLoggerWriter(keeper);
        try {
            transfer.CloseSink();
        } catch (...) {
            SetCurrentLoggerWriter(former);
            throw;
        }
        SetCurrentLoggerWriter(former);
        m_sinkReports = keeper->Reports();
    }

    nlohmann::json Document() const {
        const auto describe = [](const PipelineElement& element) {
            nlohmann::json members{{"implementation", Escape(element.recipe.implementation)},
                                   {"type", Escape(element.recipe.type)},
                                   {"file", Escape(element.file.shown)}};
            AddPath(members, "path", PathToOpen(element.file));
            return members;
        };
        return {{"source", describe(m_request.source)},
                {"sink", describe(m_request.sink)},
                {"encoding", m_encoding},
                {"channels", m_channels},
                {"rate", m_rate},
                {"frames", m_frames},
                {"reports", m_sinkReports},
                {"warnings", m_warnings.Texts()}};
    }

    std::string Report() const {
        return fmt::format("{} -> {}: {}, {}, {} Hz, {}, {}\n", Escape(m_input), Escape(m_output),
                           m_encoding, Count(m_channels, "channel"), m_rate,
                           Count(static_cast<std::uint64_t>(m_frames), "frame"),
                           FormatDuration(m_frames, m_rate));
    }

    const PipelineRequest& m_request;
    std::string m_input;
    std::string m_output;
    ErrorRecords m_errors;
    Reporter& m_reporter;
    std::optional<SeekableInput> m_sought; // of a source with a file
    std::unique_ptr<SourceReader> m_source;
    std::string m_encoding;
    std::uint32_t m_channels = 0;
    std::uint32_t m_rate = 0;
    std::uint64_t m_frameBytes = 0;
    std::int64_t m_frames = 0;
    bool m_isGrowing = false;
    std::vector<std::string> m_sinkReports;
    Warnings m_warnings;
};

} // namespace

JobResult RunPipeline(const PipelineRequest& request, const HostLogger& log, Reporter& reporter) {
    const ContextScope context("run " + request.source.Name());
    return PipelineJob(request, log, reporter).Run();
}

} // namespace kel::host
