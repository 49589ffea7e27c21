// Copies of a part of a file.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace {

constexpr std::size_t kFrames = 96000; // two seconds

std::vector<float> Frames(std::size_t first, std::size_t count) {
    const std::vector<float> values = MakeValues(2 * kFrames);
    const auto begin = values.begin() + static_cast<std::ptrdiff_t>(2 * first);
    return {begin, begin + static_cast<std::ptrdiff_t>(2 * count)};
}

Arguments CopyPart(const Arguments& options, const std::string& output = "part.wav") {
    return Arguments{"copy", "take.wav", output} + options;
}

} // namespace

TEST(CopyRange, IsCutToTheFrame) {
    struct Part {
        Arguments options;
        std::size_t first;
        std::size_t count;
        std::string length;
    };
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    for (const Part& part :
         {Part{{"--start", "0:00:01.000"}, 48000, 48000, "0:00:01.000"},
          Part{{"--end", "0.5"}, 0, 24000, "0:00:00.500"},
          Part{{"--start", "12345f", "--duration", "1"}, 12345, 48000, "0:00:01.000"},
          Part{{"--start", "95999f", "--duration", "1f"}, 95999, 1, "0:00:00.000"},
          Part{{"--start", "16383f", "--duration", "16385f"}, 16383, 16385, "0:00:00.341"}}) {
        for (const std::string output : {"part.wav", "part.aiff"}) {
            SCOPED_TRACE(testing::PrintToString(part.options) + " into " + output);
            const Arguments arguments =
                CopyPart(part.options + Arguments{"--force", "--verify"}, output);
            ExpectResult(RunKelhost(directory, arguments), 0,
                         CopyReport("take.wav", output,
                                    output == "part.wav" ? "extensible WAVE, int16 little-endian"
                                                         : "AIFF-C, int16 big-endian",
                                    std::to_string(part.count) +
                                        (part.count == 1 ? " frame, " : " frames, ") + part.length +
                                        ", verified"),
                         "");
            EXPECT_TRUE(ReadAudio(directory / output).values == Frames(part.first, part.count));
        }
    }
}

TEST(CopyRange, MayStartAfter2To32Frames) {
    const TemporaryDirectory directory;
    const std::uint64_t frames = (std::uint64_t{1} << 32U) + 1000000;
    const std::uint64_t place = (std::uint64_t{1} << 32U) + 12345;
    WriteSparseAudio(directory / "take.rf64", 1, 1, frames, place, "\x81\x90\xFF");
    ExpectResult(RunKelhost(directory, {"copy", "take.rf64", "part.wav", "--start",
                                        std::to_string(place - 1) + "f", "--duration", "5f"}),
                 0,
                 "take.rf64 -> part.wav: extensible WAVE, int16 little-endian, 1 channel, 48000 "
                 "Hz, 5 frames, 0:00:00.000\n",
                 "");
    EXPECT_EQ(ReadAudio(directory / "part.wav").values,
              (std::vector<float>{-1.0F, 1.0F / 128, 16.0F / 128, 127.0F / 128, -1.0F}));
}

TEST(CopyRange, IsRefusedWhereItIsNotWithinTheFileOrNoTime) {
    const std::string noTime = "expected seconds (12.5), h:mm:ss.mmm (1:02:03.250) or frames "
                               "(48000f)\n";
    struct Row {
        Arguments options;
        int status;
        std::string error;
    };
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    for (const Row& row :
         {Row{{"--end", "96001f", "--allow-truncated"},
              1,
              Error("take.wav", "the range from frame 0 to frame 96001 is not within the file, "
                                "which has 96000 frames (0:00:02.000)")},
          Row{{"--start", "1.5", "--end", "0:01"},
              2,
              "kelhost: --end 0:01 is before --start 1.5\n"},
          Row{{"--start", "1.5", "--end", "48000f"},
              1,
              Error("take.wav", "the end, frame 48000, is before the start, frame 72000")},
          Row{{"--start", "soon"}, 2, "kelhost: invalid value \"soon\" for --start: " + noTime},
          Row{{"--end", "-1"}, 2, "kelhost: invalid value \"-1\" for --end: " + noTime},
          Row{{"--duration=1e1"}, 2, "kelhost: invalid value \"1e1\" for --duration: " + noTime},
          Row{{"--end", "1", "--duration", "1"},
              2,
              "kelhost: --duration excludes --end; see kelhost copy --help\n"}}) {
        SCOPED_TRACE(testing::PrintToString(row.options));
        ExpectResult(RunKelhost(directory, CopyPart(row.options)), row.status, "", row.error);
        EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
    }
}

TEST(CopyRange, IsRefusedWhereTheSourceGoesElsewhere) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "96000 2 48000\n");
    Command command =
        Kelhost(directory, CopyPart({"--start", "1", "--plugin", TestPlugin("kelFaultyElements")}));
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "sink is not closed";
    command.environment["KEL_TEST_FAULT"] = "source goes elsewhere";
    ExpectResult(RunCommand(command), 1, "",
                 Error("take.wav", "cannot seek to frame 48000: it went elsewhere; damaged "
                                   "files can only be read from their beginning"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

} // namespace kel::test
