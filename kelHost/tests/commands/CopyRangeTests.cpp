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

TEST(CopyRange, BeginsWithTheFileWhereTheInputCannotSeek) {
    const std::string bytes = [] {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav", kFrames);
        return ReadFile(directory / "take.wav");
    }();
    const auto run = [&bytes](const TemporaryDirectory& directory, const Arguments& options) {
        EXPECT_EQ(mkfifo((directory / "take.wav").c_str(), 0600), 0);
        RunningProcess process(Kelhost(directory, CopyPart(options)));
        std::thread writer([&] {
            const int descriptor = open((directory / "take.wav").c_str(), O_WRONLY | O_CLOEXEC);
            std::size_t done = 0;
            // A reader that has seen enough closes the pipe.
            for (ssize_t count = 1; done < bytes.size() && count > 0;) {
                count = write(descriptor, bytes.data() + done, bytes.size() - done);
                done += static_cast<std::size_t>(count > 0 ? count : 0);
            }
            close(descriptor);
        });
        const ProcessResult result = process.Wait();
        writer.join();
        return result;
    };
    const auto former = signal(SIGPIPE, SIG_IGN);
    const TemporaryDirectory beginning;
    ExpectResult(run(beginning, {"--end", "1"}), 0,
                 CopyReport("take.wav", "part.wav", "extensible WAVE, float32 little-endian",
                            "48000 frames, 0:00:01.000"),
                 "");
    EXPECT_TRUE(ReadAudio(beginning / "part.wav").values == Frames(0, 48000));

    const TemporaryDirectory middle;
    ExpectResult(run(middle, {"--start", "1"}), 1, "",
                 "kelhost: take.wav: cannot seek to frame 48000: "
                 "[LibsndfileSource::GotoTimeOffset - returned frame offset < 0]; pipes and "
                 "damaged files can only be read from their beginning\n");
    EXPECT_EQ(SortedNames(middle), Names{"take.wav"});
    signal(SIGPIPE, former);
}

TEST(CopyRange, IsRefusedWhereTheSourceGoesElsewhere) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "96000 2 48000\n");
    Command command =
        Kelhost(directory, CopyPart({"--start", "1", "--plugin", TestPlugin("kelFaultyElements")}));
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "sink is not closed";
    command.environment["KEL_TEST_FAULT"] = "source goes elsewhere";
    ExpectResult(RunCommand(command), 1, "",
                 Error("take.wav", "cannot seek to frame 48000: it went elsewhere; pipes and "
                                   "damaged files can only be read from their beginning"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

} // namespace kel::test
