#include "Plot.h"

#include "Copy.h"
#include "Elements.h"
#include "Envelope.h"
#include "Errors.h"
#include "OutputFile.h"
#include "RangeReader.h"
#include "Text.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

constexpr double kDecibelRange = 60;

// The kinds of picture, by the extension of the name.
struct PictureKind {
    std::string_view extension;
    cairo_surface_t* (*create)(const char* path, double width, double height);
};

constexpr std::array<PictureKind, 3> kPictureKinds{{
    {".png",
     [](const char*, double width, double height) {
         return cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width),
                                           static_cast<int>(height));
     }},
    {".svg", cairo_svg_surface_create},
    {".pdf", cairo_pdf_surface_create},
}};

const PictureKind& KindOf(const std::string& picture) {
    const std::string extension = std::filesystem::path(picture).extension().string();
    for (const PictureKind& kind : kPictureKinds) {
        if (kind.extension == extension) {
            return kind;
        }
    }
    throw UsageError(fmt::format("{}: pictures end in .png, .svg or .pdf", Escape(picture)));
}

// Where a value lies between the middle of its lane (0) and the lane's edge (1 or -1).
class LevelAxis {
public:
    LevelAxis(LevelScale scale, float peak)
        : m_scale(scale), m_full(std::max(1.0, static_cast<double>(peak))) {}

    double Place(double value) const {
        if (m_scale == LevelScale::Linear) {
            return value / m_full;
        }
        const double magnitude = std::abs(value);
        if (magnitude <= 0) {
            return 0;
        }
        const double place = 1 + 20 * std::log10(magnitude) / kDecibelRange;
        return std::copysign(std::clamp(place, 0.0, 1.0), value);
    }

    struct Label {
        double place;
        std::string text;
    };

    /// The labels of a lane that has so many pixels.
    std::vector<Label> Labels(double height) const {
        constexpr double kRoomy = 90;
        std::vector<Label> labels;
        if (m_scale == LevelScale::Linear) {
            labels = {
                {1, fmt::format("{:.3g}", m_full)}, {0, "0"}, {-1, fmt::format("-{:.3g}", m_full)}};
        } else {
            labels = {{1, "0 dB"}, {0, "-60"}, {-1, "0 dB"}};
            if (height > kRoomy) {
                labels.push_back({Place(0.1), "-20"});
                labels.push_back({Place(-0.1), "-20"});
            }
        }
        return labels;
    }

private:
    LevelScale m_scale;
    double m_full; // what the edge of a lane stands for
};

struct Color {
    double red;
    double green;
    double blue;
};

constexpr Color kPaper{1, 1, 1};
constexpr Color kInk{0.15, 0.15, 0.18};
constexpr Color kGrid{0.85, 0.86, 0.88};
constexpr Color kPeakColor{0.53, 0.70, 0.88};
constexpr Color kRMSColor{0.13, 0.36, 0.62};
constexpr Color kClipColor{0.84, 0.10, 0.13};

// The times at which the axis is labelled.
struct TimeTicks {
    double step;   // seconds
    bool fraction; // whether labels show milliseconds
};

TimeTicks ChooseTicks(double seconds, double width) {
    constexpr double kRoomForLabel = 100;
    const double most = std::max(1.0, width / kRoomForLabel);
    constexpr std::array<double, 22> kSteps{0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2,
                                            0.5,   1,     2,     5,    10,   15,   30,  60,
                                            120,   300,   600,   900,  1800, 3600};
    for (const double step : kSteps) {
        if (seconds / step <= most) {
            return {step, step < 1};
        }
    }
    return {std::ceil(seconds / most / 3600) * 3600, false};
}

std::string TimeLabel(double seconds, bool fraction) {
    std::string label = FormatDuration(std::llround(seconds * 1000), 1000);
    return fraction ? label : label.substr(0, label.size() - 4);
}

// One picture under way.
class Drawing {
public:
    Drawing(const PictureKind& kind, const std::string& path, std::size_t width, std::size_t height)
        : m_path(path), m_width(static_cast<double>(width)), m_height(static_cast<double>(height)),
          m_surface(kind.create(path.c_str(), m_width, m_height), cairo_surface_destroy),
          m_cairo(cairo_create(m_surface.get()), cairo_destroy) {
        SetColor(kPaper);
        cairo_paint(m_cairo.get());
        cairo_select_font_face(m_cairo.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               CAIRO_FONT_WEIGHT_NORMAL);
    }

    void Draw(const Envelope& envelope, const LevelAxis& axis, const std::string& title,
              double startSeconds, double seconds) {
        DrawText(title, kLeft, 18, 13, 0);
        const auto lanes = static_cast<double>(envelope.Channels());
        const double laneHeight = (m_height - kTop - kBottom) / lanes;
        DrawTimeAxis(startSeconds, seconds);
        for (std::size_t channel = 0; channel < envelope.Channels(); ++channel) {
            DrawLane(envelope, axis, channel, kTop + laneHeight * static_cast<double>(channel),
                     laneHeight);
        }
    }

    /// Writes the picture; false when that failed.
    bool Finish() {
        bool written = cairo_status(m_cairo.get()) == CAIRO_STATUS_SUCCESS;
        if (cairo_surface_get_type(m_surface.get()) == CAIRO_SURFACE_TYPE_IMAGE) {
            written = written && cairo_surface_write_to_png(m_surface.get(), m_path.c_str()) ==
                                     CAIRO_STATUS_SUCCESS;
        }
        cairo_surface_finish(m_surface.get());
        return written && cairo_surface_status(m_surface.get()) == CAIRO_STATUS_SUCCESS;
    }

private:
    static constexpr double kLeft = 64;
    static constexpr double kRight = 16;
    static constexpr double kTop = 28;
    static constexpr double kBottom = 30;

    double PlotWidth() const { return m_width - kLeft - kRight; }

    void SetColor(const Color& color) {
        cairo_set_source_rgb(m_cairo.get(), color.red, color.green, color.blue);
    }

    // @param anchor 0 left, 0.5 middle, 1 right of the text at x
    void DrawText(const std::string& text, double x, double y, double size, double anchor) {
        SetColor(kInk);
        cairo_set_font_size(m_cairo.get(), size);
        cairo_text_extents_t extents;
        cairo_text_extents(m_cairo.get(), text.c_str(), &extents);
        cairo_move_to(m_cairo.get(), x - extents.x_advance * anchor, y);
        cairo_show_text(m_cairo.get(), text.c_str());
    }

    void DrawLine(const Color& color, double x1, double y1, double x2, double y2) {
        SetColor(color);
        cairo_set_line_width(m_cairo.get(), 1);
        cairo_move_to(m_cairo.get(), x1, y1);
        cairo_line_to(m_cairo.get(), x2, y2);
        cairo_stroke(m_cairo.get());
    }

    void DrawTimeAxis(double start, double seconds) {
        const TimeTicks ticks = ChooseTicks(seconds, PlotWidth());
        const double bottom = m_height - kBottom;
        const double first = std::ceil(start / ticks.step - 1e-9) * ticks.step;
        const auto count = static_cast<int>((start + seconds - first) / ticks.step + 1e-6) + 1;
        for (int i = 0; i < count; ++i) {
            const double tick = first + i * ticks.step;
            const double x = kLeft + (tick - start) / seconds * PlotWidth();
            DrawLine(kGrid, x, kTop, x, bottom + 4);
            DrawText(TimeLabel(tick, ticks.fraction), std::min(x, m_width - 40), bottom + 18, 11,
                     0.5);
        }
    }

    void DrawLane(const Envelope& envelope, const LevelAxis& axis, std::size_t channel, double top,
                  double height) {
        constexpr double kGap = 3; // between lanes
        constexpr double kSmallestLabelled = 26;
        const double middle = top + height / 2;
        const double reach = height / 2 - kGap;
        DrawLine(kGrid, kLeft, middle - reach, m_width - kRight, middle - reach);
        DrawLine(kGrid, kLeft, middle + reach, m_width - kRight, middle + reach);
        DrawColumns(envelope, channel, kPeakColor, [&](const EnvelopeColumn& column) {
            return Span{middle - axis.Place(static_cast<double>(column.highest)) * reach,
                        middle - axis.Place(static_cast<double>(column.lowest)) * reach};
        });
        DrawColumns(envelope, channel, kRMSColor, [&](const EnvelopeColumn& column) {
            const double rms = axis.Place(static_cast<double>(column.RMS())) * reach;
            return Span{middle - rms, middle + rms};
        });
        DrawLine(kGrid, kLeft, middle, m_width - kRight, middle);
        DrawClipMarks(envelope, channel, middle, reach);
        if (height >= kSmallestLabelled) {
            for (const LevelAxis::Label& label : axis.Labels(height)) {
                // Inside the lane, where the edge would cut the text.
                const double y = middle - label.place * (reach - 4) + 3;
                DrawText(label.text, kLeft - 6, y, 9, 1);
            }
        }
        DrawText(fmt::format("{}", channel + 1), 6, middle + 4, std::min(12.0, height), 0);
    }

    struct Span {
        double top;
        double bottom;
    };

    template <typename SpanOf>
    void DrawColumns(const Envelope& envelope, std::size_t channel, const Color& color,
                     SpanOf spanOf) {
        const double width = PlotWidth() / static_cast<double>(envelope.Columns());
        SetColor(color);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            const EnvelopeColumn& column = envelope.At(channel, i);
            if (column.values > 0) {
                const Span span = spanOf(column);
                // At least a hair, so that silence is seen as a line.
                cairo_rectangle(m_cairo.get(), kLeft + static_cast<double>(i) * width,
                                std::min(span.top, span.bottom - 0.75), width,
                                std::max(span.bottom - span.top, 0.75));
            }
        }
        cairo_fill(m_cairo.get());
    }

    void DrawClipMarks(const Envelope& envelope, std::size_t channel, double middle, double reach) {
        constexpr double kMarkHeight = 3;
        constexpr double kMarkWidth = 2; // never thinner, so that a single value is seen
        const double width = PlotWidth() / static_cast<double>(envelope.Columns());
        SetColor(kClipColor);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            if (envelope.At(channel, i).clipped) {
                const double x = kLeft + static_cast<double>(i) * width;
                for (const double y : {middle - reach, middle + reach - kMarkHeight}) {
                    cairo_rectangle(m_cairo.get(), x, y, std::max(width, kMarkWidth), kMarkHeight);
                }
            }
        }
        cairo_fill(m_cairo.get());
    }

    std::string m_path;
    double m_width;
    double m_height;
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> m_surface;
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> m_cairo;
};

// A lane of two rows for each channel, in eighths of a character.
std::string DrawCharacters(const Envelope& envelope, const LevelAxis& axis,
                           const std::string& footer) {
    constexpr std::array<const char*, 9> kEighths{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr int kRows = 2;
    constexpr int kSteps = 8;
    std::string text;
    for (std::size_t channel = 0; channel < envelope.Channels(); ++channel) {
        for (int row = kRows - 1; row >= 0; --row) {
            std::string line = row == 0 ? fmt::format("{:>3} ", channel + 1) : "    ";
            for (std::size_t i = 0; i < envelope.Columns(); ++i) {
                const EnvelopeColumn& column = envelope.At(channel, i);
                const double place = axis.Place(static_cast<double>(column.Peak()));
                const int filled = static_cast<int>(std::lround(place * kRows * kSteps));
                const bool mark = row == kRows - 1 && column.clipped;
                line += mark ? "!"
                             : kEighths[static_cast<std::size_t>(
                                   std::clamp(filled - row * kSteps, 0, kSteps))];
            }
            line.erase(line.find_last_not_of(' ') + 1);
            text += line + "\n";
        }
    }
    return text + "    " + footer + "\n";
}

std::size_t DefaultHeight(std::uint32_t channels) {
    constexpr std::size_t kAxes = 58;
    constexpr std::size_t kTogether = 600;
    return kAxes + channels * std::clamp<std::size_t>(kTogether / channels, 56, 240);
}

Envelope ReadEnvelope(const OpenSource& source, const FrameRange& range, std::size_t columns,
                      Reporter& reporter) {
    Envelope envelope(source.Channels(), columns, range.count);
    RangeReader reader(source, range);
    while (const SampleHandle sample = reader.Pull()) {
        envelope.Add(FloatsOf(*sample));
        reporter.Progress(range.count - reader.Left(), range.count, source.Rate());
    }
    return envelope;
}

} // namespace

void CheckPictureName(const std::string& picture) {
    KindOf(picture);
}

PlotResult Plot(const PlotRequest& request, const HostLog& log, Reporter& reporter) {
    constexpr std::uint32_t kBlockFrames = 16384;
    constexpr std::size_t kMargins = 80; // left and right of the columns
    constexpr std::size_t kNarrowest = 20;
    const std::size_t firstError = log.CountErrors();
    reporter.Opening(request.input);
    const OpenSource source(request.input, kBlockFrames);
    reporter.Opened();
    const FrameRange range = Resolve(request.range, source.Frames(), source.Rate(), request.input);
    const double start = static_cast<double>(range.first) / source.Rate();
    const double seconds =
        static_cast<double>(std::max<std::int64_t>(range.count, 1)) / source.Rate();

    PlotResult result;
    result.input = Escape(request.input);
    if (!request.picture.has_value()) {
        constexpr std::size_t kLabel = 4;
        result.width = request.width;
        const Envelope envelope =
            ReadEnvelope(source, range, std::max(kNarrowest, request.width) - kLabel, reporter);
        CheckNoErrorRecords(log, firstError, request.input);
        result.text = DrawCharacters(
            envelope, LevelAxis(request.scale, envelope.Peak()),
            fmt::format("{} to {}, {} Hz", FormatDuration(range.first, source.Rate()),
                        FormatDuration(range.first + range.count, source.Rate()), source.Rate()));
        return result;
    }

    result.picture = Escape(*request.picture);
    result.width = request.width != 0 ? request.width : 1600;
    result.height = request.height != 0 ? request.height : DefaultHeight(source.Channels());
    OutputFile output(*request.picture, request.replace);
    const Envelope envelope = ReadEnvelope(source, range, result.width - kMargins, reporter);
    CheckNoErrorRecords(log, firstError, request.input);
    Drawing drawing(KindOf(*request.picture), output.TemporaryPath(), result.width, result.height);
    drawing.Draw(envelope, LevelAxis(request.scale, envelope.Peak()),
                 fmt::format("{}   {} Hz   {}",
                             Escape(std::filesystem::path(request.input).filename().string()),
                             source.Rate(), FormatDuration(source.Frames(), source.Rate())),
                 start, seconds);
    if (!drawing.Finish()) {
        throw JobError(
            fmt::format("{}: the picture can not be written; is the disk full?", result.picture));
    }
    output.Commit();
    return result;
}

void to_json(nlohmann::json& json, const PlotResult& result) {
    json = {{"input", result.input},
            {"picture", result.picture},
            {"text", result.text},
            {"width", result.width},
            {"height", result.height}};
}

void from_json(const nlohmann::json& json, PlotResult& result) {
    json.at("input").get_to(result.input);
    json.at("picture").get_to(result.picture);
    json.at("text").get_to(result.text);
    json.at("width").get_to(result.width);
    json.at("height").get_to(result.height);
}

} // namespace kel::host
