// Copying a part of a file.

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

struct Part {
    std::vector<std::string> options;
    std::size_t first;
    std::size_t count;
    std::string length;
};

std::vector<float> Frames(std::size_t first, std::size_t count) {
    const std::vector<float> values = MakeValues(2 * kFrames);
    const auto begin = values.begin() + static_cast<std::ptrdiff_t>(2 * first);
    return {begin, begin + static_cast<std::ptrdiff_t>(2 * count)};
}

std::vector<std::string> CopyPart(const std::vector<std::string>& options,
                                  const std::string& output = "part.wav") {
    std::vector<std::string> arguments{"copy", "take.wav", output};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
}

std::string OutOfFile(const std::string& from, const std::string& to) {
    return "kelhost: take.wav: the range from frame " + from + " to frame " + to +
           " is not within the file, which has 96000 frames (0:00:02.000)\n";
}

} // namespace

TEST(CopyRange, IsCutToTheFrame) {
    const std::vector<Part> parts{
        {{"--start", "0"}, 0, 96000, "0:00:02.000"},
        {{"--start", "0f", "--end", "96000f"}, 0, 96000, "0:00:02.000"},
        {{"--duration", "2"}, 0, 96000, "0:00:02.000"},
        {{"--start", "1"}, 48000, 48000, "0:00:01.000"},
        {{"--start", "0:00:01.000"}, 48000, 48000, "0:00:01.000"},
        {{"--start", "0:01"}, 48000, 48000, "0:00:01.000"},
        {{"--start", "48000f"}, 48000, 48000, "0:00:01.000"},
        {{"--end", "0.5"}, 0, 24000, "0:00:00.500"},
        {{"--duration", "0.5"}, 0, 24000, "0:00:00.500"},
        {{"--start", "0.25", "--end", "0:00:01.250"}, 12000, 48000, "0:00:01.000"},
        {{"--start", "12345f", "--duration", "1"}, 12345, 48000, "0:00:01.000"},
        {{"--start", "0.001", "--duration", "1f"}, 48, 1, "0:00:00.000"},
        {{"--start", "95999f"}, 95999, 1, "0:00:00.000"},
        {{"--start", "95999f", "--duration", "1f"}, 95999, 1, "0:00:00.000"},
        {{"--end", "1f"}, 0, 1, "0:00:00.000"},
        {{"--start", "1f", "--end", "95999f"}, 1, 95998, "0:00:02.000"},
        {{"--start", "16383f", "--duration", "16385f"}, 16383, 16385, "0:00:00.341"},
        {{"--start", "16384f", "--duration", "16384f"}, 16384, 16384, "0:00:00.341"},
        {{"--start", "3f", "--duration", "49153f"}, 3, 49153, "0:00:01.024"},
    };
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    for (const Part& part : parts) {
        for (const std::string output : {"part.wav", "part.aiff"}) {
            SCOPED_TRACE(testing::PrintToString(part.options) + " into " + output);
            std::vector<std::string> arguments = CopyPart(part.options, output);
            arguments.insert(arguments.end(), {"--force", "--verify"});
            ExpectResult(RunKelhost(directory, arguments), 0,
                         "take.wav -> " + output + ": " +
                             (output == "part.wav" ? "extensible WAVE, float32 little-endian"
                                                   : "AIFF-C, int24 big-endian") +
                             ", 2 channels, 48000 Hz, " + std::to_string(part.count) + " frames, " +
                             part.length + ", verified\n",
                         "");
            EXPECT_TRUE(ReadAudio(directory / output).values == Frames(part.first, part.count));
        }
    }
}

TEST(CopyRange, CutsWhatIsCompressedToTheFrame) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000,
               MakeValues(2 * kFrames));
    EXPECT_EQ(RunKelhost(directory, CopyPart({"--start", "12345f", "--duration", "40001f"})).status,
              0);
    EXPECT_TRUE(ReadAudio(directory / "part.wav").values == Frames(12345, 40001));
}

TEST(CopyRange, GoesBeyondWhat32BitsCount) {
    const TemporaryDirectory directory;
    const std::uint64_t frames = (std::uint64_t{1} << 32U) + 1000000;
    const std::uint64_t place = (std::uint64_t{1} << 32U) + 12345;
    WriteSparseAudio(directory / "take.rf64", 1, 1, frames, place, "\x81\x90\xFF");
    ExpectResult(RunKelhost(directory, {"copy", "take.rf64", "part.wav", "--start",
                                        std::to_string(place - 1) + "f", "--duration", "5f"}),
                 0,
                 "take.rf64 -> part.wav: extensible WAVE, float32 little-endian, 1 channel, 48000 "
                 "Hz, 5 frames, 0:00:00.000\n",
                 "");
    EXPECT_EQ(ReadAudio(directory / "part.wav").values,
              (std::vector<float>{-1.0F, 1.0F / 128, 16.0F / 128, 127.0F / 128, -1.0F}));
}

TEST(CopyRange, MustLieWithinTheFileAndHoldAFrame) {
    struct Row {
        std::vector<std::string> options;
        std::string from;
        std::string to;
    };
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    for (const Row& row :
         {Row{{"--start", "2"}, "96000", "96000"}, Row{{"--start", "3"}, "144000", "96000"},
          Row{{"--start", "1", "--end", "1"}, "48000", "48000"},
          Row{{"--start", "1", "--end", "0.5"}, "48000", "24000"},
          Row{{"--start", "1", "--duration", "0"}, "48000", "48000"},
          Row{{"--start", "1", "--duration", "48001f"}, "48000", "96001"},
          Row{{"--end", "0"}, "0", "0"}, Row{{"--end", "96001f"}, "0", "96001"},
          Row{{"--end", "1:00:00"}, "0", "172800000"}, Row{{"--duration", "0.000001"}, "0", "0"}}) {
        SCOPED_TRACE(testing::PrintToString(row.options));
        ExpectResult(RunKelhost(directory, CopyPart(row.options)), 1, "",
                     OutOfFile(row.from, row.to));
        EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
    }
}

TEST(CopyRange, MustLieWithinTheFileEvenIfAShortOneWouldDo) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    ExpectResult(RunKelhost(directory, CopyPart({"--end", "96001f", "--allow-short"})), 1, "",
                 OutOfFile("0", "96001"));
}

TEST(CopyRange, OfAnEmptyFileIsNothingToCopy) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 0);
    ExpectResult(RunKelhost(directory, CopyPart({"--start", "0"})), 1, "",
                 "kelhost: take.wav: the range from frame 0 to frame 0 is not within the file, "
                 "which has 0 frames (0:00:00.000)\n");
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyRange, IsRefusedInEveryTextThatIsNoTime) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    for (const std::string option : {"--start", "--end", "--duration"}) {
        for (const std::string text : {"", "-1", "-1f", "soon", "1:60", "1.5f", "1e1", "1 "}) {
            SCOPED_TRACE(option + " " + text);
            ExpectResult(RunKelhost(directory, CopyPart({option + "=" + text})), 2, "",
                         text.empty() ? option + ": 1 required TIME missing\nRun with --help for "
                                                 "more information.\n"
                                      : "kelhost: " + option + " does not understand \"" + text +
                                            "\"; times are seconds (12.5), h:mm:ss.mmm "
                                            "(1:02:03.250) or frames (48000f)\n");
        }
        ExpectResult(RunKelhost(directory, CopyPart({option, "-1"})), 2, "",
                     "kelhost: " + option +
                         " does not understand \"-1\"; times are seconds (12.5), h:mm:ss.mmm "
                         "(1:02:03.250) or frames (48000f)\n");
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(CopyRange, HasAnEndOrADurationAndNotBoth) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", kFrames);
    ExpectResult(RunKelhost(directory, CopyPart({"--end", "1", "--duration", "1"})), 2, "",
                 "--end excludes --duration\nRun with --help for more information.\n");
}

TEST(CopyRange, BeginsWithTheFileWhereTheInputCanNotSeek) {
    const std::string bytes = [] {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav", kFrames);
        return Content(directory / "take.wav");
    }();
    const auto run = [&bytes](const TemporaryDirectory& directory,
                              const std::vector<std::string>& options) {
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
                 "take.wav -> part.wav: extensible WAVE, float32 little-endian, 2 channels, 48000 "
                 "Hz, 48000 frames, 0:00:01.000\n",
                 "");
    EXPECT_TRUE(ReadAudio(beginning / "part.wav").values == Frames(0, 48000));

    const TemporaryDirectory middle;
    ExpectResult(run(middle, {"--start", "1"}), 1, "",
                 "kelhost: take.wav: cannot be read from frame 48000 on: "
                 "[LibsndfileSource::GotoTimeOffset - returned frame offset < 0]; pipes and "
                 "damaged files are only read from their beginning\n");
    EXPECT_EQ(SortedNames(middle), Names{"take.wav"});
    signal(SIGPIPE, former);
}

TEST(CopyRange, IsRefusedWhereTheSourceGoesElsewhere) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "96000 2 48000\n");
    for (const std::string fault : {"", "source goes elsewhere"}) {
        Command command = Kelhost(directory, CopyPart({"--start", "1", "--force"}));
        command.arguments.insert(command.arguments.end(),
                                 {"--plugin", TestPlugin("kelFaultyElements")});
        command.environment["KEL_TEST_FAULT"] = fault;
        command.environment["KEL_TEST_SINK_MARKER"] = directory / "sink is not closed";
        if (fault.empty()) {
            EXPECT_EQ(RunCommand(command).status, 0);
            EXPECT_EQ(Content(directory / "part.wav"), "48000 2 48000\n");
        } else {
            ExpectResult(RunCommand(command), 1, "",
                         "kelhost: take.wav: cannot be read from frame 48000 on: it went "
                         "elsewhere; pipes and damaged files are only read from their "
                         "beginning\n");
        }
    }
}

} // namespace kel::test
