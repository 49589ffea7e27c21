#include "commands/Command.h"

#include "analysis/WaveformPicture.h"
#include "analysis/WaveformPlot.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Locale.h"
#include "commands/CommonOptions.h"
#include "commands/InputOptions.h"
#include "commands/JobRunner.h"
#include "commands/OptionParsing.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::vector<std::string> Scales() {
    return {"linear", "db"};
}

// Parses "1600x600".
PictureSize ParseSize(const std::string& text) {
    constexpr std::size_t kMin = 100;
    const std::size_t cross = std::min(text.find('x'), text.size());
    const auto width = ParseInteger<std::size_t>(text.substr(0, cross));
    const auto height = ParseInteger<std::size_t>(text.substr(std::min(cross + 1, text.size())));
    if (!width.has_value() || !height.has_value() || std::min(*width, *height) < kMin ||
        std::max(*width, *height) > kMaxPictureSide) {
        throw InvalidValue("--size", text,
                           fmt::format("WIDTHxHEIGHT, each from {} to {}", kMin, kMaxPictureSide));
    }
    return {*width, *height};
}

class PlotCommand final : public Command {
public:
    PlotCommand() {
        Add(Option("FILE", "", &m_file, "The file to draw; - is standard input")
                .Completes(Option::Values::Files)
                .Required());
        Add(Option("PICTURE", "", &m_request.picture,
                   "The picture, .png, .svg or .pdf; default: characters")
                .Completes(Option::Values::Files));
        BeginGroup("Picture");
        Add(Option("--size", "WxH", &m_size, "Size of the picture: 1600x600"));
        Add(Option("--level", "SCALE", &m_level, "The level axis: linear or db").Choices(Scales()));
        Add(Option("-f,--force", "", &m_request.replace, "Replace an existing picture"));
        BeginGroup("Part of the file");
        for (Option& option : m_range.Options()) {
            Add(std::move(option));
        }
        BeginGroup("Damaged inputs and pipes");
        for (Option& option : m_inputOptions.Options()) {
            Add(std::move(option));
        }
        AddExample("kelhost plot take.wav", "Draw in the terminal");
        AddExample("kelhost plot take.wav take.png --level db", "Draw a picture in decibels");
        AddExample("kelhost plot take.wav bar.svg --start 0:01:00 --duration 2 --size 800x300",
                   "Draw a part");
    }

    void Interpret(const CommonOptions& /*common*/) override {
        RequireChoice("--level", m_level, Scales());
        m_request.scale = m_level == "db" ? LevelScale::Decibels : LevelScale::Linear;
        m_request.range = m_range.Interpret();
        m_request.input = InputName(m_file);
        m_request.inputPolicy = m_inputOptions.Interpret();
        if (m_request.picture.has_value()) {
            RequirePictureExtension(*m_request.picture);
        }
        if (m_size.has_value()) {
            if (!m_request.picture.has_value()) {
                throw UsageError("--size is for pictures; name one after the file, for example "
                                 "take.png");
            }
            const PictureSize size = ParseSize(*m_size);
            m_request.width = size.width;
            m_request.height = size.height;
        } else if (!m_request.picture.has_value()) {
            m_request.width = TerminalWidth(STDOUT_FILENO);
            m_request.characters = UsesUTF8() ? CharacterSet::Unicode : CharacterSet::ASCII;
        }
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        JobRunner runner(common, streams.err);
        runner.Add(m_request.input, m_request.picture.value_or(""),
                   [request = m_request](const HostLogger& log, Reporter& reporter) {
                       return Plot(request, log, reporter);
                   });
        const std::size_t failed = runner.Run([&](const JobResult& result) {
            streams.out << result.output << (common.style.quiet ? "" : result.report);
        });
        if (common.style.json && failed == 0) {
            streams.out << FormatDocument("plot", runner.Results().front());
        }
        return failed == 0 ? kSuccess : kFailure;
    }

private:
    PlotRequest m_request;
    std::string m_file;
    InputArguments m_inputOptions;
    std::optional<std::string> m_size;
    std::string m_level = "linear";
    RangeOptions m_range;
};

} // namespace

std::unique_ptr<Command> MakePlotCommand() {
    return std::make_unique<PlotCommand>();
}

} // namespace kel::host
