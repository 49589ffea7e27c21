// Pictures are read back, and their pixels compared with the expected waveform.
#include "AudioFiles.h"
#include "Program.h"

#include <cairo.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

constexpr std::uint32_t kPaper = 0xFFFFFF;
constexpr std::uint32_t kPeak = 0x87B3E1; // light blue
constexpr std::uint32_t kRMS = 0x215C9E;  // dark blue
constexpr std::uint32_t kClip = 0xD71921; // red

// A PNG file, pixel by pixel.
class Picture {
public:
    explicit Picture(const std::string& path)
        : m_surface(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy) {
        if (cairo_surface_status(m_surface.get()) != CAIRO_STATUS_SUCCESS) {
            throw std::runtime_error(path + " is no picture");
        }
    }

    int Width() const { return cairo_image_surface_get_width(m_surface.get()); }
    int Height() const { return cairo_image_surface_get_height(m_surface.get()); }

    std::uint32_t At(int x, int y) const {
        const unsigned char* row =
            cairo_image_surface_get_data(m_surface.get()) +
            static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(m_surface.get());
        std::uint32_t pixel = 0;
        std::copy_n(row + static_cast<std::ptrdiff_t>(x) * 4, 4,
                    reinterpret_cast<unsigned char*>(&pixel));
        return pixel & 0xFFFFFFU;
    }

    // Number of pixels of a color within a part.
    int Count(std::uint32_t color, int left, int top, int right, int bottom) const {
        int count = 0;
        for (int y = top; y < bottom; ++y) {
            for (int x = left; x < right; ++x) {
                count += At(x, y) == color ? 1 : 0;
            }
        }
        return count;
    }
    // Number of pixels with any part of the line of a waveform, which is blue, within a part.
    int CountBlue(int left, int top, int right, int bottom) const {
        int count = 0;
        for (int y = top; y < bottom; ++y) {
            for (int x = left; x < right; ++x) {
                count += (At(x, y) >> 16U) + 30 < (At(x, y) & 0xFFU) ? 1 : 0;
            }
        }
        return count;
    }
    int Count(std::uint32_t color) const { return Count(color, 0, 0, Width(), Height()); }

private:
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> m_surface;
};

// Borders of the waveform in a picture of 800 x 300 pixels.
constexpr int kLeft = 64;
constexpr int kRight = 784;
constexpr int kTop = 28;
constexpr int kBottom = 270;

// A lane in it.
struct Lane {
    double middle;
    double reach; // to full scale

    int Above(double place) const { return static_cast<int>(std::lround(middle - place * reach)); }
};

Lane LaneOf(int channel, int channels) {
    const double height = static_cast<double>(kBottom - kTop) / channels;
    return {kTop + height * (channel + 0.5), height / 2 - std::min(3.0, height * 0.1)};
}

// Between the lines of the grid, where there is only the waveform.
constexpr int kSomeColumn = 300;

using Signal = std::function<float(std::size_t frame, int channel)>;

// A wave that is as high as it is deep, in each column.
Signal Square(float level) {
    return [level](std::size_t frame, int) {
        return frame % 10 < 5 ? level : -level;
    };
}

// A directory with one second of a signal.
class Recording {
public:
    Recording(int channels, const Signal& signal, int rate = 36000) {
        std::vector<float> values;
        for (std::size_t frame = 0; frame < static_cast<std::size_t>(rate); ++frame) {
            for (int channel = 0; channel < channels; ++channel) {
                values.push_back(signal(frame, channel));
            }
        }
        WriteAudio(m_directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, rate,
                   values);
    }

    ProcessResult Plot(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"plot", "take.wav"});
        return RunKelhost(m_directory, arguments);
    }

    // The picture of 800 x 300 pixels.
    Picture Draw(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments{"take.png", "--size", "800x300"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ExpectResult(Plot(arguments), 0, "take.wav -> take.png: 800 x 300\n", "");
        return Picture(m_directory / "take.png");
    }

    const TemporaryDirectory& Directory() const { return m_directory; }

private:
    TemporaryDirectory m_directory;
};

// The waveform's color in a column, a third of the way above and below a place.
void ExpectEdge(const Picture& picture, int column, const Lane& lane, double place,
                std::uint32_t inside, std::uint32_t outside) {
    for (const double side : {1.0, -1.0}) {
        const double edge = lane.middle - side * place * lane.reach;
        EXPECT_EQ(picture.At(column, static_cast<int>(std::lround(edge + side * 2 - 0.5))), inside)
            << "within " << side * place << " at " << column;
        EXPECT_EQ(picture.At(column, static_cast<int>(std::lround(edge - side * 2 - 0.5))), outside)
            << "beyond " << side * place << " at " << column;
    }
}

} // namespace

TEST(Plot, ShowsSilenceAsALineInTheMiddle) {
    const Picture picture = Recording(1, Square(0)).Draw();
    EXPECT_EQ(picture.Width(), 800);
    EXPECT_EQ(picture.Height(), 300);
    const auto middle = static_cast<int>(LaneOf(0, 1).middle);
    EXPECT_EQ(picture.Count(kPaper, kSomeColumn, kTop + 5, kSomeColumn + 1, middle - 2),
              middle - 2 - kTop - 5);
    EXPECT_EQ(picture.Count(kPaper, kSomeColumn, middle + 3, kSomeColumn + 1, kBottom - 5),
              kBottom - 5 - middle - 3);
    EXPECT_LT(picture.Count(kPaper, kSomeColumn, middle - 2, kSomeColumn + 1, middle + 3), 5);
    // Blue, other than the lines of the grid.
    const std::uint32_t line = picture.At(kSomeColumn, middle - 1);
    EXPECT_LT((line >> 16U) + 60, line & 0xFFU);
    EXPECT_EQ(picture.Count(kRMS), 0);
    EXPECT_EQ(picture.Count(kClip), 0);
}

TEST(Plot, ShowsASquareAsFullColumnsOfItsLevel) {
    const Picture picture = Recording(1, Square(0.5F)).Draw();
    for (const int column : {kLeft + 3, kSomeColumn, kRight - 3}) {
        ExpectEdge(picture, column, LaneOf(0, 1), 0.5, kRMS, kPaper);
    }
    // All of it: from the first column to the last.
    const int row = LaneOf(0, 1).Above(0.25);
    EXPECT_EQ(picture.Count(kRMS, 0, row, 800, row + 1), kRight - kLeft);
    EXPECT_EQ(picture.At(kLeft, row), kRMS);
    EXPECT_EQ(picture.At(kRight - 1, row), kRMS);
    EXPECT_EQ(picture.Count(kClip), 0);
}

TEST(Plot, ReachesTheEdgeOfTheLaneAtFullScaleAndMarksIt) {
    for (const float level : {1.0F, 2.0F}) {
        const Picture picture = Recording(1, Square(level)).Draw();
        const Lane lane = LaneOf(0, 1);
        EXPECT_EQ(picture.At(kSomeColumn, lane.Above(1) + 4), kRMS);
        EXPECT_EQ(picture.At(kSomeColumn, lane.Above(1) - 2), kPaper);
        // Every column is marked.
        for (const int row : {lane.Above(1) + 1, lane.Above(-1) - 2}) {
            EXPECT_EQ(picture.Count(kClip, 0, row, 800, row + 1), kRight - kLeft);
        }
    }
}

TEST(Plot, ShowsTheRMSLevelWithinThePeaks) {
    const Signal sine = [](std::size_t frame, int) {
        return 0.8F * static_cast<float>(std::sin(static_cast<double>(frame)));
    };
    const Picture picture = Recording(1, sine).Draw();
    const Lane lane = LaneOf(0, 1);
    for (int column = kLeft + 3; column < kRight - 3; column += 7) {
        SCOPED_TRACE(column);
        EXPECT_EQ(picture.At(column, lane.Above(0.52)), kRMS);
        EXPECT_EQ(picture.At(column, lane.Above(-0.52)), kRMS);
        EXPECT_EQ(picture.At(column, lane.Above(0.65)), kPeak);
        EXPECT_EQ(picture.At(column, lane.Above(-0.65)), kPeak);
        EXPECT_NE(picture.At(column, lane.Above(0.84)), kPeak);
        EXPECT_NE(picture.At(column, lane.Above(-0.84)), kPeak);
    }
}

TEST(Plot, ShowsOneSidedWavesOnlyOnTheirSide) {
    const Signal positive = [](std::size_t frame, int) {
        return frame % 2 == 0 ? 0.3F : 0.6F;
    };
    const Picture picture = Recording(1, positive).Draw();
    const Lane lane = LaneOf(0, 1);
    EXPECT_EQ(picture.At(kSomeColumn, lane.Above(0.4)), kRMS);
    EXPECT_EQ(picture.At(kSomeColumn, lane.Above(0.55)), kPeak);
    EXPECT_EQ(picture.At(kSomeColumn, lane.Above(0.65)), kPaper);
    EXPECT_EQ(picture.At(kSomeColumn, lane.Above(0.2)), kPaper);
    EXPECT_EQ(picture.At(kSomeColumn, lane.Above(-0.4)), kPaper);
}

TEST(Plot, DrawsALineThroughFramesThatAreWiderThanAColumn) {
    // 72 pixels for each frame, which begins at its time. The sixth has no value.
    const std::vector<float> values{0.5F, -0.5F, 0.5F, 0.5F, 0.25F, NAN, 0.5F, NAN, 0.5F, 0.5F};
    const Recording recording(
        1, [&](std::size_t frame, int) { return values[frame]; }, 10);
    const Picture picture = recording.Draw();
    const Lane lane = LaneOf(0, 1);
    const auto expectLine = [&](int column, double place, bool isDrawn) {
        const int row = lane.Above(place);
        EXPECT_EQ(picture.CountBlue(column - 1, row - 3, column + 1, row + 3) > 0, isDrawn)
            << place << " at " << column;
    };
    const auto columnOf = [](double frame) {
        return kLeft + static_cast<int>(std::lround(72 * frame));
    };
    struct Row {
        double frame;
        double place;
        bool isDrawn = true;
    };
    // Halfway and a quarter of the way, along a level, on both sides of a gap, alone, at the end.
    for (const Row& row : std::vector<Row>{{0, 0.5},
                                           {0.5, 0},
                                           {0.75, -0.25},
                                           {1, -0.5},
                                           {2.5, 0.5},
                                           {3.5, 0.375},
                                           {4, 0.25},
                                           {4.5, 0.25, false},
                                           {5, 0, false},
                                           {5.5, 0.5, false},
                                           {6, 0.5},
                                           {6.5, 0.5, false},
                                           {8.5, 0.5},
                                           {9, 0.5},
                                           {9.5, 0.5, false}}) {
        expectLine(columnOf(row.frame), row.place, row.isDrawn);
    }
    // The line is no area. A frame is a dot, which is higher than the line.
    EXPECT_EQ(picture.CountBlue(columnOf(2.5), lane.Above(0.45), columnOf(2.5) + 1, kBottom), 0);
    EXPECT_EQ(picture.CountBlue(columnOf(3), 0, columnOf(3) + 1, 300), 6);
    EXPECT_LE(picture.CountBlue(columnOf(2.5), 0, columnOf(2.5) + 1, 300), 3);
    // The mark of a value that is not finite is at its time.
    EXPECT_EQ(picture.Count(kClip), 2 * 2 * 3 * 3);
    EXPECT_EQ(picture.Count(kClip, columnOf(5), 0, columnOf(5) + 3, 300), 2 * 3 * 3);
}

TEST(Plot, DrawsALineWithoutDotsWhereFramesAreCloseTogether) {
    const Picture picture = Recording(
                                1, [](std::size_t, int) { return 0.5F; }, 90)
                                .Draw(); // 8 pixels each
    const int row = LaneOf(0, 1).Above(0.5);
    for (int column = kLeft; column < kRight - 8; ++column) {
        EXPECT_LE(picture.Count(kRMS, column, row - 5, column + 1, row + 5), 2) << column;
    }
}

TEST(Plot, MarksASingleValueThatReachesFullScaleOrIsNotFinite) {
    for (const float value : {-1.0F, std::nanf("")}) {
        const Signal click = [value](std::size_t frame, int) {
            return frame == 18000 ? value : 0.25F;
        };
        const Picture picture = Recording(1, click).Draw();
        const Lane lane = LaneOf(0, 1);
        const int column = (kLeft + kRight) / 2;
        for (const int row : {lane.Above(1) + 1, lane.Above(-1) - 2}) {
            EXPECT_EQ(picture.At(column, row), kClip);
            EXPECT_EQ(picture.At(column + 1, row), kClip);
        }
        EXPECT_LE(picture.Count(kClip), 2 * 2 * 4);
    }
}

TEST(Plot, HasALaneForEachChannelInTheirOrder) {
    const Signal every = [](std::size_t frame, int channel) {
        return channel % 3 == 0 ? Square(0.8F)(frame, 0) : 0.0F;
    };
    const Recording recording(32, every, 16000);
    const Picture small = recording.Draw();
    ExpectResult(recording.Plot({"large.png"}), 0, "take.wav -> large.png: 1600 x 1850\n", "");
    const Picture large(recording.Directory() / "large.png");
    for (int channel = 0; channel < 32; ++channel) {
        SCOPED_TRACE(channel);
        const bool sounds = channel % 3 == 0;
        EXPECT_EQ(small.At(kSomeColumn, LaneOf(channel, 32).Above(0.5)) == kRMS, sounds);
        const int middle = kTop + 56 * channel + 28;
        for (const int side : {-1, 1}) {
            EXPECT_EQ(large.At(500, middle + side * 18) == kRMS, sounds);
            EXPECT_EQ(large.At(500, middle + side * 23), kPaper);
        }
    }
}

TEST(Plot, ShowsDecibelsWhereTheyAreAskedFor) {
    for (const auto& [level, place] :
         {std::pair{0.1F, 40.0 / 60}, {0.01F, 20.0 / 60}, {0.5F, 1 - 6.0206 / 60}}) {
        SCOPED_TRACE(level);
        const Picture picture = Recording(1, Square(level)).Draw({"--level", "db"});
        ExpectEdge(picture, kSomeColumn, LaneOf(0, 1), place, kRMS, kPaper);
    }
    EXPECT_EQ(Recording(1, Square(0.0009F)).Draw({"--level", "db"}).Count(kRMS), 0);
}

TEST(Plot, ShowsThePartThatIsAskedFor) {
    const Signal half = [](std::size_t frame, int) {
        return frame < 18000 ? 0.0F : Square(0.5F)(frame, 0);
    };
    const Recording recording(1, half);
    const int row = LaneOf(0, 1).Above(0.25);
    const auto filled = [&](const std::vector<std::string>& range) {
        std::vector<std::string> options{"--force"};
        options.insert(options.end(), range.begin(), range.end());
        return recording.Draw(options).Count(kRMS, 0, row, 800, row + 1);
    };
    EXPECT_EQ(filled({}), 360);
    EXPECT_EQ(filled({"--start", "0.5"}), 720);
    EXPECT_EQ(filled({"--end", "0.5"}), 0);
    EXPECT_EQ(filled({"--start", "9000f", "--duration", "0.5"}), 360);
    ExpectResult(recording.Plot({"--start", "2", "no.png"}), 1, "",
                 "kelhost: take.wav: the range from frame 72000 to frame 36000 is not within the "
                 "file, which has 36000 frames (0:00:01.000)\n");
    EXPECT_EQ(SortedNames(recording.Directory()), (Names{"take.png", "take.wav"}));
}

TEST(Plot, HasLettersAndMarginsThatGrowWithThePicture) {
    const Recording recording(1, Square(0.5F));
    ExpectResult(recording.Plot({"large.png", "--size", "3200x1200"}), 0,
                 "take.wav -> large.png: 3200 x 1200\n", "");
    const Picture large(recording.Directory() / "large.png");
    EXPECT_NE(large.At(2 * kLeft - 1, 500), kRMS);
    EXPECT_EQ(large.At(2 * kLeft, 500), kRMS);
    EXPECT_EQ(large.At(3200 - 2 * 16 - 1, 500), kRMS);
    EXPECT_NE(large.At(3200 - 2 * 16, 500), kRMS);
}

TEST(Plot, ChoosesAHeightThatSuitsTheChannels) {
    for (const auto& [channels, height] : {std::pair{1, 298}, {2, 538}, {8, 658}}) {
        ExpectResult(Recording(channels, Square(0.5F), 100).Plot({"take.png"}), 0,
                     "take.wav -> take.png: 1600 x " + std::to_string(height) + "\n", "");
    }
}

TEST(Plot, ShowsAFileWithoutFramesAsAnEmptyLane) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "empty.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, {});
    ExpectResult(RunKelhost(directory, {"plot", "empty.wav", "empty.png"}), 0,
                 "empty.wav -> empty.png: 1600 x 298\n", "");
    const Picture picture(directory / "empty.png");
    EXPECT_EQ(picture.Count(kRMS) + picture.Count(kPeak) + picture.Count(kClip), 0);
    Command characters = Kelhost(directory, {"plot", "empty.wav"});
    characters.environment["LC_ALL"] = "C";
    ExpectResult(RunCommand(characters), 0,
                 "        1|\n     0.75|\n      0.5|\n  1  0.25|\n"
                 "    0:00:00.000 to 0:00:00.000, 48000 Hz\n",
                 "");
}

TEST(PlotPictures, OfTheOtherKindsHaveTheirSize) {
    const Recording recording(2, Square(0.5F));
    ExpectResult(recording.Plot({"take.svg", "--size", "640x480"}), 0,
                 "take.wav -> take.svg: 640 x 480\n", "");
    ExpectResult(recording.Plot({"take.pdf", "--size", "640x480"}), 0,
                 "take.wav -> take.pdf: 640 x 480\n", "");
    const std::string svg = ReadFile(recording.Directory() / "take.svg");
    EXPECT_NE(svg.find("viewBox=\"0 0 640 480\""), std::string::npos);
    Command parse;
    parse.program = KEL_TEST_PYTHON;
    parse.arguments = {"-c",
                       "import sys, xml.dom.minidom\n"
                       "print(xml.dom.minidom.parse(sys.argv[1]).documentElement.tagName)",
                       recording.Directory() / "take.svg"};
    ExpectResult(RunCommand(parse), 0, "svg\n", "");

    const std::string pdf = ReadFile(recording.Directory() / "take.pdf");
    EXPECT_EQ(pdf.substr(0, 5), "%PDF-");
    EXPECT_EQ(pdf.substr(pdf.size() - 6), "%%EOF\n");
    EXPECT_NE(pdf.find("/MediaBox [ 0 0 640 480 ]"), std::string::npos);
}

TEST(PlotPictures, AreRefusedInOtherKindsAndSizes) {
    const Recording recording(1, Square(0.5F), 100);
    for (const std::string name : {"take.jpg", "take", ".png"}) {
        ExpectResult(recording.Plot({name}), 2, "",
                     Error(name, "cannot tell the kind of picture; use .png, .svg or .pdf"));
    }
    for (const std::string size : {"800", "800x", "x300", "99x300", "800x99", "30001x300",
                                   "800x30001", "800x300x2", "800 x 300", "99999999999x300"}) {
        ExpectResult(recording.Plot({"take.png", "--size=" + size}), 2, "",
                     "kelhost: invalid value \"" + size +
                         "\" for --size: expected WIDTHxHEIGHT, each from 100 to 30000\n");
    }
    EXPECT_EQ(SortedNames(recording.Directory()), Names{"take.wav"});
    ExpectResult(recording.Plot({"take.png", "--size", "100x100"}), 0,
                 "take.wav -> take.png: 100 x 100\n", "");
}

TEST(PlotPictures, HaveASizeAndCharactersHaveNone) {
    const Recording recording(1, Square(0.5F), 100);
    ExpectResult(
        recording.Plot({"--size", "800x300"}), 2, "",
        "kelhost: --size is for pictures; name one after the file, for example take.png\n");
}

TEST(PlotPictures, AreRefusedBeforeAnyOutputWhereTheyAreTooLargeToDraw) {
    const Recording recording(1024, Square(0.5F), 20);
    const TemporaryDirectory& directory = recording.Directory();
    WriteFile(directory / "take.png", "mine");
    // Even without a place for an output.
    for (const char* name : {"take.png", "missing/take.png"}) {
        ExpectResult(recording.Plot({"--force", name}), 1, "",
                     Error(name,
                           "cannot draw 1600 x 57402 pixels: a .png has at most 32767 in each "
                           "direction; use --size 1600x30000, .svg or .pdf"));
    }
    EXPECT_EQ(ReadFile(directory / "take.png"), "mine");
    EXPECT_EQ(SortedNames(directory), (Names{"take.png", "take.wav"}));
    // The remedies work.
    ExpectResult(recording.Plot({"small.png", "--size", "1600x30000"}), 0,
                 "take.wav -> small.png: 1600 x 30000\n", "");
    ExpectResult(recording.Plot({"take.svg"}), 0, "take.wav -> take.svg: 1600 x 57402\n", "");
}

TEST(PlotPictures, AreRefusedBeforeAnyOutputWhereMemoryIsMissing) {
#ifdef KEL_TEST_UNCOUNTED_HEAP
    GTEST_SKIP() << "an instrumented program reserves more memory than this limit";
#endif
    const Recording recording(1, Square(0.5F), 100);
    Command command = Kelhost(recording.Directory(), {});
    command.program = "/bin/sh";
    command.arguments = {"-c",          "ulimit -v 2000000 && exec \"$0\" \"$@\"",
                         KEL_TEST_HOST, "plot",
                         "take.wav",    "take.png",
                         "--size",      "30000x30000"};
    ExpectResult(
        RunCommand(command), 1, "",
        Error("take.png", "cannot draw 30000 x 30000 pixels: out of memory; use a smaller --size"));
    EXPECT_EQ(SortedNames(recording.Directory()), Names{"take.wav"});
}

TEST(PlotPictures, ReplaceOthersOnlyWithForceAndOnlyWhole) {
    const Recording recording(2, Square(0.5F));
    for (const std::string name : {"take.png", "take.svg", "take.pdf"}) {
        SCOPED_TRACE(name);
        const TemporaryDirectory& directory = recording.Directory();
        WriteFile(directory / name, "mine");
        ExpectResult(recording.Plot({name}), 1, "",
                     Error(name, "exists already; use --force to replace it"));
        Command command = Kelhost(directory, {"plot", "take.wav", "--force", "--quiet", name});
        command.mostFileBytes = 512;
        ExpectResult(RunCommand(command), 1, "",
                     Error(name, "cannot write the picture; is the disk full?"));
        EXPECT_EQ(ReadFile(directory / name), "mine");
        EXPECT_EQ(SortedNames(directory), (Names{name, "take.wav"}));
        command.mostFileBytes.reset();
        ExpectResult(RunCommand(command), 0, "", "");
        EXPECT_NE(ReadFile(directory / name), "mine");
        std::filesystem::remove(directory / name);
    }
    ExpectResult(recording.Plot({"missing/take.png"}), 1, "",
                 Error("missing/take.png", "cannot create the file: No such file or directory"));
}

} // namespace kel::test
