#include "analysis/WaveformPlot.h"

#include "analysis/Envelope.h"
#include "analysis/WaveformCharacters.h"
#include "analysis/WaveformPicture.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "elements/ErrorRecords.h"
#include "elements/RangeReader.h"
#include "elements/SourceReader.h"
#include "jobs/SeekableInput.h"
#include "jobs/Warnings.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace kel::host {

namespace {

RangeReader ReaderOf(const SourceReader& source, const FrameRange& range, Reporter& reporter) {
    const ReadingScope reading(reporter); // it seeks
    return {source, range};
}

SampleHandle Pull(RangeReader& reader, Reporter& reporter) {
    const ReadingScope reading(reporter);
    return reader.Pull();
}

// Reads the part of the file that is plotted.
Envelope ReadEnvelope(const PlotRequest& request, const SourceReader& source,
                      const FrameRange& range, std::size_t columns, const HostLogger& log,
                      Reporter& reporter, Warnings& warnings) {
    const ErrorRecords errors(log, source.ShownName());
    Envelope envelope(source.Channels(), columns, range.count.value());
    RangeReader reader = ReaderOf(source, range, reporter);
    while (const SampleHandle sample = Pull(reader, reporter)) {
        envelope.Add(FloatsIn(*sample));
        reporter.Progress(reader.Delivered(), *range.count, source.Rate());
    }
    source.RequireUnchanged();
    const auto shortfall =
        errors.VerifyDelivery(range.count, reader.Delivered(), source.EarlyStop(range.count),
                              request.inputPolicy.allowTruncated);
    if (shortfall.has_value()) {
        warnings.Add(*shortfall);
    }
    return envelope;
}

// A file and its number of frames.
struct PlottedFile {
    std::unique_ptr<SourceReader> source; // at its beginning
    std::int64_t frames = 0;
};

// Opens a file. If its source does not know the number of frames, counts them in a pass of its own,
// because each column of a plot has its share of them.
PlottedFile OpenAndCount(const PlotRequest& request, const HostLogger& log, Reporter& reporter,
                         Warnings& warnings) {
    const FileName& file = request.input;
    const auto open = [&] {
        reporter.Opening(file.shown);
        auto source = std::make_unique<SourceReader>(file, std::nullopt,
                                                     Repair{request.inputPolicy.repair,
                                                            ReadingSteps(reporter),
                                                            request.inputPolicy.spool.directory});
        reporter.Opened();
        return source;
    };
    auto source = open();
    warnings.Add(source->CheckHeader(request.inputPolicy));
    if (source->Frames().has_value()) {
        const std::int64_t frames = *source->Frames();
        return {std::move(source), frames};
    }
    const ErrorRecords errors(log, file.shown);
    RangeReader reader(*source, {0, std::nullopt});
    while (Pull(reader, reporter) != nullptr) {
        reporter.Progress(reader.Delivered(), kUnknownTotal, source->Rate());
    }
    const auto shortfall =
        errors.VerifyDelivery(std::nullopt, reader.Delivered(), source->EarlyStop(std::nullopt),
                              request.inputPolicy.allowTruncated);
    if (shortfall.has_value()) {
        warnings.Add(*shortfall);
    }
    source.reset();
    return {open(), reader.Delivered()};
}

std::string PlotCharacters(const PlotRequest& request, const SourceReader& source,
                           const FrameRange& range, const HostLogger& log, Reporter& reporter,
                           Warnings& warnings) {
    const std::size_t columns = CharacterColumns(request.width);
    const Envelope envelope =
        ReadEnvelope(request, source, range, columns, log, reporter, warnings);
    return DrawCharacters(envelope, LevelAxis(request.scale, envelope.Peak()), columns,
                          request.characters) +
           fmt::format("    {} to {}, {} Hz{}\n", FormatDuration(range.first, source.Rate()),
                       FormatDuration(range.first + *range.count, source.Rate()), source.Rate(),
                       request.scale == LevelScale::Decibels ? ", levels in dBFS" : "");
}

PictureSize PlotPicture(const PlotRequest& request, const PlottedFile& file,
                        const FrameRange& range, const HostLogger& log, Reporter& reporter,
                        Warnings& warnings) {
    const SourceReader& source = *file.source;
    const PictureSize usual = DefaultPictureSize(source.Channels());
    const PictureSize size{request.width != 0 ? request.width : usual.width,
                           request.height != 0 ? request.height : usual.height};
    RequireDrawable(*request.picture, size);
    OutputFile output(*request.picture, request.replace);
    const Envelope envelope = ReadEnvelope(
        request, source, range, PictureColumns(size, source.Channels()), log, reporter, warnings);
    PictureCaption caption;
    caption.name = Escape(std::filesystem::path(request.input.shown).filename().string());
    caption.facts =
        fmt::format("   {} Hz   {}", source.Rate(), FormatDuration(file.frames, source.Rate()));
    caption.startSeconds = static_cast<double>(range.first) / source.Rate();
    caption.seconds = static_cast<double>(std::max<std::int64_t>(*range.count, 1)) / source.Rate();
    const std::string failure =
        WritePicture(*request.picture, output.TemporaryPath(), size, envelope,
                     LevelAxis(request.scale, envelope.Peak()), caption);
    if (!failure.empty()) {
        throw JobError(*request.picture, failure);
    }
    warnings.Add(output.Finish());
    output.Commit();
    return size;
}

} // namespace

JobResult Plot(const PlotRequest& named, const HostLogger& log, Reporter& reporter) {
    reporter.Opening(named.input.shown);
    const SeekableInput sought(named.input, named.inputPolicy.spool, reporter);
    PlotRequest request = named;
    request.input = sought.File();
    Warnings warnings(reporter);
    const PlottedFile file = OpenAndCount(request, log, reporter, warnings);
    const SourceReader& source = *file.source;
    const FrameRange range =
        Resolve(request.range, file.frames, source.Rate(), request.input.shown);
    const std::string input = Escape(request.input.shown);
    std::string picture;
    PictureSize size{request.width, 0};
    JobResult result;
    if (request.picture.has_value()) {
        size = PlotPicture(request, file, range, log, reporter, warnings);
        picture = Escape(*request.picture);
        result.report = fmt::format("{} -> {}: {} x {}\n", input, picture, size.width, size.height);
    } else {
        result.output = PlotCharacters(request, source, range, log, reporter, warnings);
    }
    nlohmann::json members{{"input", input},        {"picture", picture},
                           {"text", result.output}, {"width", size.width},
                           {"height", size.height}, {"warnings", warnings.Texts()}};
    AddPath(members, "input_path", PathToOpen(request.input));
    AddPath(members, "picture_path", request.picture.value_or(""));
    result.document = DumpJSON(members);
    return result;
}

} // namespace kel::host
