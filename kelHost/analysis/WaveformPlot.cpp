#include "analysis/WaveformPlot.h"

#include "analysis/Envelope.h"
#include "analysis/TimeAxis.h"
#include "base/Errors.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "elements/Elements.h"
#include "elements/RangeReader.h"

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

    /// The labels of a lane that has room for so many lines of text.
    std::vector<Label> Labels(double lines) const {
        constexpr double kRoomy = 10;
        std::vector<Label> labels;
        if (m_scale == LevelScale::Linear) {
            labels = {
                {1, fmt::format("{:.3g}", m_full)}, {0, "0"}, {-1, fmt::format("-{:.3g}", m_full)}};
        } else {
            labels = {{1, "0 dBFS"}, {0, "-60"}, {-1, "0 dBFS"}};
            if (lines > kRoomy) {
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

// Where things are in a picture, in pixels or points.
class Layout {
public:
    Layout(std::size_t width, std::size_t height, std::size_t channels)
        : m_width(static_cast<double>(width)), m_height(static_cast<double>(height)),
          m_scale(std::clamp(std::min(m_width / kPlainWidth, m_height / kPlainHeight), 1.0,
                             kLargestScale)),
          m_lane((m_height - Scaled(kTop) - Scaled(kBottom)) / static_cast<double>(channels)) {}

    double Width() const { return m_width; }
    double Height() const { return m_height; }

    /// Whole pixels of what has so many in a picture of the plain size, so that large pictures have
    /// large letters.
    double Scaled(double pixels) const { return std::round(pixels * m_scale); }

    double Left() const { return Scaled(kLeft); }
    double Right() const { return m_width - Scaled(kRight); }
    double Top() const { return Scaled(kTop); }
    double Bottom() const { return m_height - Scaled(kBottom); }

    /// What the columns have between them.
    double PlotWidth() const { return std::max(Right() - Left(), 1.0); }

    double LaneHeight() const { return m_lane; }
    double Middle(std::size_t channel) const {
        return Top() + m_lane * (static_cast<double>(channel) + 0.5);
    }

    /// From the middle of a lane to full scale. Lanes that are low have no room to waste.
    double Reach() const {
        constexpr double kGap = 3;
        constexpr double kMostOfLane = 0.1;
        return m_lane / 2 - std::min(Scaled(kGap), m_lane * kMostOfLane);
    }

    static constexpr double kTop = 28;
    static constexpr double kBottom = 30;

private:
    static constexpr double kLeft = 64;
    static constexpr double kRight = 16;
    static constexpr double kPlainWidth = 1600;
    static constexpr double kPlainHeight = 600;
    static constexpr double kLargestScale = 8;

    double m_width;
    double m_height;
    double m_scale;
    double m_lane;
};

// One picture under way.
class Drawing {
public:
    Drawing(const PictureKind& kind, const std::string& path, const Layout& layout)
        : m_path(path), m_layout(layout),
          m_surface(kind.create(path.c_str(), layout.Width(), layout.Height()),
                    cairo_surface_destroy),
          m_cairo(cairo_create(m_surface.get()), cairo_destroy) {
        SetColor(kPaper);
        cairo_paint(m_cairo.get());
        cairo_select_font_face(m_cairo.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               CAIRO_FONT_WEIGHT_NORMAL);
    }

    /// @param name the file's, which gives way where there is no room; @p facts stand behind it
    void Draw(const Envelope& envelope, const LevelAxis& axis, const std::string& name,
              const std::string& facts, double startSeconds, double seconds) {
        DrawTitle(name, facts);
        DrawTimeAxis(startSeconds, seconds);
        for (std::size_t channel = 0; channel < envelope.Channels(); ++channel) {
            DrawLane(envelope, axis, channel);
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
    static constexpr double kTitleSize = 13;
    static constexpr double kTimeSize = 11;
    static constexpr double kChannelSize = 12;
    static constexpr double kLevelSize = 9;

    double Scaled(double pixels) const { return m_layout.Scaled(pixels); }

    void SetColor(const Color& color) {
        cairo_set_source_rgb(m_cairo.get(), color.red, color.green, color.blue);
    }

    double TextWidth(const std::string& text, double size) {
        cairo_set_font_size(m_cairo.get(), size);
        cairo_text_extents_t extents;
        cairo_text_extents(m_cairo.get(), text.c_str(), &extents);
        return extents.x_advance;
    }

    // @param size of the letters, scaled
    // @param anchor 0 left, 0.5 middle, 1 right of the text at x
    void DrawText(const std::string& text, double x, double y, double size, double anchor) {
        SetColor(kInk);
        cairo_move_to(m_cairo.get(), x - TextWidth(text, size) * anchor, y);
        cairo_show_text(m_cairo.get(), text.c_str());
    }

    // Along one row or column of pixels, not between two.
    void DrawLine(const Color& color, double x1, double y1, double x2, double y2) {
        constexpr double kHalf = 0.5;
        SetColor(color);
        cairo_set_line_width(m_cairo.get(), 1);
        cairo_move_to(m_cairo.get(), std::floor(x1) + kHalf, std::floor(y1) + kHalf);
        cairo_line_to(m_cairo.get(), std::floor(x2) + kHalf, std::floor(y2) + kHalf);
        cairo_stroke(m_cairo.get());
    }

    void DrawTitle(const std::string& name, const std::string& facts) {
        const double size = Scaled(kTitleSize);
        const double room = m_layout.Width() - m_layout.Left();
        std::size_t most = CountCharacters(name);
        while (most > 0 && TextWidth(KeepEnd(name, most) + facts, size) > room) {
            --most;
        }
        DrawText(KeepEnd(name, most) + facts, m_layout.Left(), Scaled(18), size, 0);
    }

    void DrawTimeAxis(double start, double seconds) {
        const double size = Scaled(kTimeSize);
        const double labelWidth = TextWidth("0:00:00.000 ", size) + Scaled(20);
        const double width = m_layout.PlotWidth();
        for (const TimeTick& tick :
             TimeTicks(start, seconds, static_cast<std::size_t>(width / labelWidth))) {
            const double x = m_layout.Left() + (tick.seconds - start) / seconds * width;
            DrawLine(kGrid, x, m_layout.Top(), x, m_layout.Bottom() + Scaled(4));
            // The last one may have no room on its right.
            const double half = TextWidth(tick.label, size) / 2;
            DrawText(tick.label, std::min(x, m_layout.Width() - half - 1),
                     m_layout.Bottom() + Scaled(18), size, 0.5);
        }
    }

    void DrawLane(const Envelope& envelope, const LevelAxis& axis, std::size_t channel) {
        const double middle = m_layout.Middle(channel);
        const double reach = m_layout.Reach();
        constexpr double kEdged = 12; // lower lanes would be all lines
        if (m_layout.LaneHeight() >= kEdged) {
            DrawLine(kGrid, m_layout.Left(), middle - reach, m_layout.Right(), middle - reach);
            DrawLine(kGrid, m_layout.Left(), middle + reach, m_layout.Right(), middle + reach);
        }
        DrawLine(kGrid, m_layout.Left(), middle, m_layout.Right(), middle);
        const auto peaks = [&](std::size_t i) {
            const Extremes extremes = Joined(envelope, channel, i);
            return Span{middle - axis.Place(extremes.highest) * reach,
                        middle - axis.Place(extremes.lowest) * reach};
        };
        DrawColumns(envelope, channel, kPeakColor, peaks);
        DrawColumns(envelope, channel, kRMSColor, [&](std::size_t i) {
            const double rms =
                axis.Place(static_cast<double>(envelope.At(channel, i).RMS())) * reach;
            // Where a column is shorter than a wave, the level lies beyond what is there.
            const Span peak = peaks(i);
            return Span{std::max(middle - rms, peak.top), std::min(middle + rms, peak.bottom)};
        });
        DrawClipMarks(envelope, channel, middle, reach);
        DrawLevelLabels(axis, middle, reach);
        DrawChannelLabel(channel, middle);
    }

    void DrawLevelLabels(const LevelAxis& axis, double middle, double reach) {
        const double size = Scaled(kLevelSize);
        constexpr double kLabelled = 2.8; // lines that a lane has room for at least
        if (m_layout.LaneHeight() < kLabelled * size) {
            return;
        }
        for (const LevelAxis::Label& label : axis.Labels(m_layout.LaneHeight() / size)) {
            // Inside the lane, where the edge would cut the text.
            const double y = middle - label.place * (reach - Scaled(4)) + Scaled(3);
            DrawText(label.text, m_layout.Left() - Scaled(6), y, size, 1);
        }
    }

    // Where lanes are lower than letters, not every one has its number.
    void DrawChannelLabel(std::size_t channel, double middle) {
        constexpr double kSmallest = 8;
        const double size =
            std::clamp(m_layout.LaneHeight(), Scaled(kSmallest), Scaled(kChannelSize));
        const auto every = static_cast<std::size_t>(std::ceil(size / m_layout.LaneHeight()));
        if (channel % every == 0) {
            DrawText(fmt::format("{}", channel + 1), Scaled(6), middle + size / 3, size, 0);
        }
    }

    struct Span {
        double top;
        double bottom;
    };

    struct Extremes {
        double lowest;
        double highest;
    };

    // What a column shows: its extremes, and the way there from the column before.
    static Extremes Joined(const Envelope& envelope, std::size_t channel, std::size_t i) {
        const EnvelopeColumn& column = envelope.At(channel, i);
        Extremes extremes{static_cast<double>(column.lowest), static_cast<double>(column.highest)};
        if (i > 0 && envelope.At(channel, i - 1).values > 0) {
            const EnvelopeColumn& before = envelope.At(channel, i - 1);
            extremes.lowest = std::min(extremes.lowest, static_cast<double>(before.highest));
            extremes.highest = std::max(extremes.highest, static_cast<double>(before.lowest));
        }
        return extremes;
    }

    double ColumnWidth(const Envelope& envelope) const {
        return m_layout.PlotWidth() / static_cast<double>(envelope.Columns());
    }

    template <typename SpanOf>
    void DrawColumns(const Envelope& envelope, std::size_t channel, const Color& color,
                     SpanOf spanOf) {
        constexpr double kHair = 0.75; // at least, so that silence is seen as a line
        const double width = ColumnWidth(envelope);
        SetColor(color);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            if (envelope.At(channel, i).values > 0) {
                const Span span = spanOf(i);
                cairo_rectangle(m_cairo.get(), m_layout.Left() + static_cast<double>(i) * width,
                                std::min(span.top, span.bottom - kHair), width,
                                std::max(span.bottom - span.top, kHair));
            }
        }
        cairo_fill(m_cairo.get());
    }

    void DrawClipMarks(const Envelope& envelope, std::size_t channel, double middle, double reach) {
        // So that a single value is seen, and the waveform as well.
        const double height = std::min(Scaled(3), reach / 3);
        const double width = std::max(ColumnWidth(envelope), Scaled(2));
        SetColor(kClipColor);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            if (envelope.At(channel, i).clipped) {
                const double x = m_layout.Left() + static_cast<double>(i) * ColumnWidth(envelope);
                for (const double y : {middle - reach, middle + reach - height}) {
                    cairo_rectangle(m_cairo.get(), std::min(x, m_layout.Right() - width), y, width,
                                    height);
                }
            }
        }
        cairo_fill(m_cairo.get());
    }

    std::string m_path;
    Layout m_layout;
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
    constexpr auto kAxes = static_cast<std::size_t>(Layout::kTop + Layout::kBottom);
    constexpr std::size_t kTogether = 600;
    return kAxes + channels * std::clamp<std::size_t>(kTogether / channels, 56, 240);
}

Envelope ReadEnvelope(const SourceReader& source, const PlotRequest& request,
                      const FrameRange& range, std::size_t columns, const HostLogger& log,
                      Reporter& reporter) {
    const std::size_t firstError = log.CountErrors();
    Envelope envelope(source.Channels(), columns, range.count);
    RangeReader reader(source, range);
    while (const SampleHandle sample = reader.Pull()) {
        envelope.Add(FloatsOf(*sample));
        reporter.Progress(range.count - reader.Left(), range.count, source.Rate());
    }
    RequireDelivered(log, firstError, request.input, range.count, range.count - reader.Left());
    return envelope;
}

} // namespace

void RequirePictureExtension(const std::string& picture) {
    KindOf(picture);
}

PlotResult Plot(const PlotRequest& request, const HostLogger& log, Reporter& reporter) {
    constexpr std::uint32_t kBlockFrames = 16384;
    constexpr std::size_t kNarrowest = 20;
    reporter.Opening(request.input);
    const SourceReader source(request.input, kBlockFrames);
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
        const Envelope envelope = ReadEnvelope(
            source, request, range, std::max(kNarrowest, request.width) - kLabel, log, reporter);
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
    const Layout layout(result.width, result.height, source.Channels());
    const Envelope envelope = ReadEnvelope(
        source, request, range, static_cast<std::size_t>(layout.PlotWidth()), log, reporter);
    Drawing drawing(KindOf(*request.picture), output.TemporaryPath(), layout);
    drawing.Draw(
        envelope, LevelAxis(request.scale, envelope.Peak()),
        Escape(std::filesystem::path(request.input).filename().string()),
        fmt::format("   {} Hz   {}", source.Rate(), FormatDuration(source.Frames(), source.Rate())),
        start, seconds);
    if (!drawing.Finish()) {
        throw JobError(
            fmt::format("{}: the picture cannot be written; is the disk full?", result.picture));
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
