#include "analysis/WaveformPicture.h"

#include "analysis/TimeAxis.h"
#include "base/DisplayWidth.h"
#include "base/Errors.h"
#include "base/LoadedLibrary.h"
#include "base/Text.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>
#include <fmt/format.h>

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

struct CairoLibrary {
    LoadedLibrary library{"libcairo.so.2", "libcairo2"};
    KEL_LIBRARY_FUNCTION(cairo_arc);
    KEL_LIBRARY_FUNCTION(cairo_create);
    KEL_LIBRARY_FUNCTION(cairo_destroy);
    KEL_LIBRARY_FUNCTION(cairo_fill);
    KEL_LIBRARY_FUNCTION(cairo_image_surface_create);
    KEL_LIBRARY_FUNCTION(cairo_line_to);
    KEL_LIBRARY_FUNCTION(cairo_move_to);
    KEL_LIBRARY_FUNCTION(cairo_paint);
    KEL_LIBRARY_FUNCTION(cairo_pdf_surface_create);
    KEL_LIBRARY_FUNCTION(cairo_rectangle);
    KEL_LIBRARY_FUNCTION(cairo_restore);
    KEL_LIBRARY_FUNCTION(cairo_save);
    KEL_LIBRARY_FUNCTION(cairo_select_font_face);
    KEL_LIBRARY_FUNCTION(cairo_set_font_size);
    KEL_LIBRARY_FUNCTION(cairo_set_line_cap);
    KEL_LIBRARY_FUNCTION(cairo_set_line_join);
    KEL_LIBRARY_FUNCTION(cairo_set_line_width);
    KEL_LIBRARY_FUNCTION(cairo_set_source_rgb);
    KEL_LIBRARY_FUNCTION(cairo_show_text);
    KEL_LIBRARY_FUNCTION(cairo_status);
    KEL_LIBRARY_FUNCTION(cairo_status_to_string);
    KEL_LIBRARY_FUNCTION(cairo_stroke);
    KEL_LIBRARY_FUNCTION(cairo_surface_destroy);
    KEL_LIBRARY_FUNCTION(cairo_surface_finish);
    KEL_LIBRARY_FUNCTION(cairo_surface_get_type);
    KEL_LIBRARY_FUNCTION(cairo_surface_status);
    KEL_LIBRARY_FUNCTION(cairo_surface_write_to_png);
    KEL_LIBRARY_FUNCTION(cairo_svg_surface_create);
    KEL_LIBRARY_FUNCTION(cairo_text_extents);
};

const CairoLibrary& Cairo() {
    static const CairoLibrary library;
    return library;
}

// A kind of picture, by the extension of its name.
struct PictureKind {
    std::string_view extension;
    cairo_surface_t* (*create)(const char* path, double width, double height);
};

constexpr std::array<PictureKind, 3> kPictureKinds{{
    {".png",
     [](const char*, double width, double height) {
         return Cairo().cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width),
                                                   static_cast<int>(height));
     }},
    {".svg",
     [](const char* path, double width, double height) {
         return Cairo().cairo_svg_surface_create(path, width, height);
     }},
    {".pdf",
     [](const char* path, double width, double height) {
         return Cairo().cairo_pdf_surface_create(path, width, height);
     }},
}};

const PictureKind& KindOf(const std::string& picture) {
    const std::string extension = std::filesystem::path(picture).extension().string();
    for (const PictureKind& kind : kPictureKinds) {
        if (kind.extension == extension) {
            return kind;
        }
    }
    throw UsageError(picture + ": cannot tell the kind of picture; use .png, .svg or .pdf");
}

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

// Positions in a picture, in pixels or points.
class Layout {
public:
    Layout(const PictureSize& size, std::size_t channels)
        : m_width(static_cast<double>(size.width)), m_height(static_cast<double>(size.height)),
          m_scale(std::clamp(std::min(m_width / kPlainWidth, m_height / kPlainHeight), 1.0,
                             kLargestScale)),
          m_lane((m_height - Scaled(kTop) - Scaled(kBottom)) / static_cast<double>(channels)) {}

    double Width() const { return m_width; }
    double Height() const { return m_height; }

    // Scales a length in a picture of the usual size, so that large pictures have large letters.
    double Scaled(double pixels) const { return std::round(pixels * m_scale); }

    double Left() const { return Scaled(kLeft); }
    double Right() const { return m_width - Scaled(kRight); }
    double Top() const { return Scaled(kTop); }
    double Bottom() const { return m_height - Scaled(kBottom); }

    // Width of all columns together.
    double PlotWidth() const { return std::max(Right() - Left(), 1.0); }

    double LaneHeight() const { return m_lane; }
    double Middle(std::size_t channel) const {
        return Top() + m_lane * (static_cast<double>(channel) + 0.5);
    }

    // From the middle of a lane to full scale. Low lanes have narrow gaps.
    double Reach() const {
        constexpr double kGap = 3;
        constexpr double kMaxPartOfLane = 0.1;
        return m_lane / 2 - std::min(Scaled(kGap), m_lane * kMaxPartOfLane);
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

// A picture that is being drawn.
class Drawing {
public:
    Drawing(const PictureKind& kind, const std::string& path, const Layout& layout)
        : m_path(path), m_layout(layout),
          m_surface(kind.create(path.c_str(), layout.Width(), layout.Height()),
                    Cairo().cairo_surface_destroy),
          m_cairo(Cairo().cairo_create(m_surface.get()), Cairo().cairo_destroy) {
        SetColor(kPaper);
        Cairo().cairo_paint(m_cairo.get());
        Cairo().cairo_select_font_face(m_cairo.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                                       CAIRO_FONT_WEIGHT_NORMAL);
    }

    void Draw(const Envelope& envelope, const LevelAxis& axis, const PictureCaption& caption) {
        DrawTitle(caption.name, caption.facts);
        DrawTimeAxis(caption.startSeconds, caption.seconds);
        for (std::size_t channel = 0; channel < envelope.Channels(); ++channel) {
            DrawLane(envelope, axis, channel);
        }
    }

    // Writes the picture.
    cairo_status_t Finish() {
        cairo_status_t status = Cairo().cairo_status(m_cairo.get());
        if (status == CAIRO_STATUS_SUCCESS &&
            Cairo().cairo_surface_get_type(m_surface.get()) == CAIRO_SURFACE_TYPE_IMAGE) {
            status = Cairo().cairo_surface_write_to_png(m_surface.get(), m_path.c_str());
        }
        Cairo().cairo_surface_finish(m_surface.get());
        return status != CAIRO_STATUS_SUCCESS ? status
                                              : Cairo().cairo_surface_status(m_surface.get());
    }

private:
    static constexpr double kTitleSize = 13;
    static constexpr double kTimeSize = 11;
    static constexpr double kChannelSize = 12;
    static constexpr double kLevelSize = 9;

    double Scaled(double pixels) const { return m_layout.Scaled(pixels); }

    void SetColor(const Color& color) {
        Cairo().cairo_set_source_rgb(m_cairo.get(), color.red, color.green, color.blue);
    }

    double TextWidth(const std::string& text, double size) {
        Cairo().cairo_set_font_size(m_cairo.get(), size);
        cairo_text_extents_t extents;
        Cairo().cairo_text_extents(m_cairo.get(), text.c_str(), &extents);
        return extents.x_advance;
    }

    // @param size of the letters, scaled
    // @param anchor 0 left, 0.5 middle, 1 right of the text at x
    void DrawText(const std::string& text, double x, double y, double size, double anchor) {
        SetColor(kInk);
        Cairo().cairo_move_to(m_cairo.get(), x - TextWidth(text, size) * anchor, y);
        Cairo().cairo_show_text(m_cairo.get(), text.c_str());
    }

    // Draws along one row or column of pixels, not between two.
    void DrawLine(const Color& color, double x1, double y1, double x2, double y2) {
        constexpr double kHalf = 0.5;
        SetColor(color);
        Cairo().cairo_set_line_width(m_cairo.get(), 1);
        Cairo().cairo_move_to(m_cairo.get(), std::floor(x1) + kHalf, std::floor(y1) + kHalf);
        Cairo().cairo_line_to(m_cairo.get(), std::floor(x2) + kHalf, std::floor(y2) + kHalf);
        Cairo().cairo_stroke(m_cairo.get());
    }

    void DrawTitle(const std::string& name, const std::string& facts) {
        const double size = Scaled(kTitleSize);
        const double room = m_layout.Width() - m_layout.Left();
        std::size_t most = DisplayWidth(name);
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
            // The last label may not fit on the right of its tick.
            const double half = TextWidth(tick.label, size) / 2;
            DrawText(tick.label, std::min(x, m_layout.Width() - half - 1),
                     m_layout.Bottom() + Scaled(18), size, 0.5);
        }
    }

    void DrawLane(const Envelope& envelope, const LevelAxis& axis, std::size_t channel) {
        const double middle = m_layout.Middle(channel);
        const double reach = m_layout.Reach();
        constexpr double kEdged = 12; // lower lanes would be filled by their edges
        if (m_layout.LaneHeight() >= kEdged) {
            DrawLine(kGrid, m_layout.Left(), middle - reach, m_layout.Right(), middle - reach);
            DrawLine(kGrid, m_layout.Left(), middle + reach, m_layout.Right(), middle + reach);
        }
        DrawLine(kGrid, m_layout.Left(), middle, m_layout.Right(), middle);
        if (envelope.HasSingleFrames()) {
            DrawCurve(envelope, axis, channel, middle, reach);
        } else {
            DrawBars(envelope, axis, channel, middle, reach);
        }
        DrawClipMarks(envelope, channel, middle, reach);
        DrawLevelLabels(axis, middle, reach);
        DrawChannelLabel(channel, middle);
    }

    // Draws the peaks and the RMS level of each column.
    void DrawBars(const Envelope& envelope, const LevelAxis& axis, std::size_t channel,
                  double middle, double reach) {
        const auto peaks = [&](std::size_t i) {
            const Extremes extremes = Joined(envelope, channel, i);
            return Span{middle - axis.Position(extremes.highest) * reach,
                        middle - axis.Position(extremes.lowest) * reach};
        };
        DrawColumns(envelope, channel, kPeakColor, peaks);
        DrawColumns(envelope, channel, kRMSColor, [&](std::size_t i) {
            const double rms =
                axis.Position(static_cast<double>(envelope.At(channel, i).RMS())) * reach;
            // In a column shorter than a wave, the level may exceed the peaks.
            const Span peak = peaks(i);
            return Span{std::max(middle - rms, peak.top), std::min(middle + rms, peak.bottom)};
        });
    }

    struct Point {
        double x;
        double y;
    };

    // Draws a line from frame to frame, each at its time, with a dot for each frame where there is
    // room. The line has a gap where a value is not finite.
    void DrawCurve(const Envelope& envelope, const LevelAxis& axis, std::size_t channel,
                   double middle, double reach) {
        constexpr double kLineWidth = 1.5;
        constexpr double kRoomForDots = 10;
        std::vector<Point> points;
        bool isConnected = false;
        Cairo().cairo_save(m_cairo.get());
        Cairo().cairo_set_line_width(m_cairo.get(), kLineWidth * Scaled(1));
        Cairo().cairo_set_line_cap(m_cairo.get(), CAIRO_LINE_CAP_ROUND); // a single frame is a dot
        Cairo().cairo_set_line_join(m_cairo.get(), CAIRO_LINE_JOIN_ROUND);
        SetColor(kRMSColor);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            const EnvelopeColumn& frame = envelope.At(channel, i);
            if (frame.values == 0) {
                isConnected = false;
                continue;
            }
            points.push_back({m_layout.Left() + static_cast<double>(i) * ColumnWidth(envelope),
                              middle - axis.Position(static_cast<double>(frame.highest)) * reach});
            if (!isConnected) {
                Cairo().cairo_move_to(m_cairo.get(), points.back().x, points.back().y);
            }
            Cairo().cairo_line_to(m_cairo.get(), points.back().x, points.back().y);
            isConnected = true;
        }
        Cairo().cairo_stroke(m_cairo.get());
        if (ColumnWidth(envelope) >= Scaled(kRoomForDots)) {
            DrawDots(points);
        }
        Cairo().cairo_restore(m_cairo.get());
    }

    void DrawDots(const std::vector<Point>& points) {
        constexpr double kRadius = 2.5;
        constexpr double kTurn = 6.283185307179586;
        for (const Point& point : points) {
            Cairo().cairo_arc(m_cairo.get(), point.x, point.y, kRadius * Scaled(1), 0, kTurn);
            Cairo().cairo_fill(m_cairo.get());
        }
    }

    void DrawLevelLabels(const LevelAxis& axis, double middle, double reach) {
        const double size = Scaled(kLevelSize);
        constexpr double kLabelled = 2.8; // minimum number of lines that fit into a lane
        if (m_layout.LaneHeight() < kLabelled * size) {
            return;
        }
        for (const LevelAxis::Label& label : axis.Labels(m_layout.LaneHeight() / size)) {
            // Inside the lane: at its edge the text would be cut off.
            const double y = middle - label.position * (reach - Scaled(4)) + Scaled(3);
            DrawText(label.text, m_layout.Left() - Scaled(6), y, size, 1);
        }
    }

    // Only some lanes are numbered when they are lower than letters.
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

    // Returns the extremes of a column, extended to the column before so that the waveform is
    // connected.
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
        constexpr double kHair = 0.75; // minimum height, so that silence is a visible line
        const double width = ColumnWidth(envelope);
        SetColor(color);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            if (envelope.At(channel, i).values > 0) {
                const Span span = spanOf(i);
                Cairo().cairo_rectangle(m_cairo.get(),
                                        m_layout.Left() + static_cast<double>(i) * width,
                                        std::min(span.top, span.bottom - kHair), width,
                                        std::max(span.bottom - span.top, kHair));
            }
        }
        Cairo().cairo_fill(m_cairo.get());
    }

    void DrawClipMarks(const Envelope& envelope, std::size_t channel, double middle, double reach) {
        // Large enough to see a single value, small enough to see the waveform.
        const double height = std::min(Scaled(3), reach / 3);
        const double width =
            envelope.HasSingleFrames() ? Scaled(3) : std::max(ColumnWidth(envelope), Scaled(2));
        SetColor(kClipColor);
        for (std::size_t i = 0; i < envelope.Columns(); ++i) {
            if (envelope.At(channel, i).clipped) {
                const double x = m_layout.Left() + static_cast<double>(i) * ColumnWidth(envelope);
                for (const double y : {middle - reach, middle + reach - height}) {
                    Cairo().cairo_rectangle(m_cairo.get(), std::min(x, m_layout.Right() - width), y,
                                            width, height);
                }
            }
        }
        Cairo().cairo_fill(m_cairo.get());
    }

    std::string m_path;
    Layout m_layout;
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> m_surface;
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> m_cairo;
};

} // namespace

void RequirePictureExtension(const std::string& name) {
    KindOf(name);
}

void RequireDrawable(const std::string& name, const PictureSize& size) {
    // Without a path, nothing is written.
    const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface(
        KindOf(name).create(nullptr, static_cast<double>(size.width),
                            static_cast<double>(size.height)),
        Cairo().cairo_surface_destroy);
    const cairo_status_t status = Cairo().cairo_surface_status(surface.get());
    if (status == CAIRO_STATUS_INVALID_SIZE) {
        throw JobError(name,
                       fmt::format("cannot draw {} x {} pixels: a .png has at most 32767 in "
                                   "each direction; use --size {}x{}, .svg or .pdf",
                                   size.width, size.height, std::min(size.width, kMaxPictureSide),
                                   std::min(size.height, kMaxPictureSide)));
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        throw JobError(name, fmt::format("cannot draw {} x {} pixels: {}; use a smaller --size",
                                         size.width, size.height,
                                         Cairo().cairo_status_to_string(status)));
    }
}

PictureSize DefaultPictureSize(std::uint32_t channels) {
    constexpr std::size_t kWidth = 1600;
    constexpr auto kAxes = static_cast<std::size_t>(Layout::kTop + Layout::kBottom);
    constexpr std::size_t kAllLanes = 600;
    return {kWidth, kAxes + channels * std::clamp<std::size_t>(kAllLanes / channels, 56, 240)};
}

std::size_t PictureColumns(const PictureSize& size, std::size_t channels) {
    return static_cast<std::size_t>(Layout(size, channels).PlotWidth());
}

std::string WritePicture(const std::string& name, const std::string& path, const PictureSize& size,
                         const Envelope& envelope, const LevelAxis& axis,
                         const PictureCaption& caption) {
    Drawing drawing(KindOf(name), path, Layout(size, envelope.Channels()));
    drawing.Draw(envelope, axis, caption);
    switch (const cairo_status_t status = drawing.Finish()) {
    case CAIRO_STATUS_SUCCESS:
        return "";
    case CAIRO_STATUS_WRITE_ERROR: // cairo does not keep the system's reason
        return "cannot write the picture; is the disk full?";
    default:
        return fmt::format("cannot draw the picture: {}", Cairo().cairo_status_to_string(status));
    }
}

} // namespace kel::host
