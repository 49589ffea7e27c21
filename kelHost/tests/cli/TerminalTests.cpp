#include "AudioFiles.h"
#include "Program.h"

#include <Terminal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::test {

namespace {

struct Shown {
    ProcessResult result;
    std::string terminal;
};

// Runs with standard error, or both streams, on a terminal.
Shown RunOnTerminal(const TemporaryDirectory& directory, const std::vector<std::string>& arguments,
                    bool both = false, unsigned short columns = 80) {
    Terminal terminal(columns);
    Command command = Kelhost(directory, arguments);
    command.standardError = terminal.Path();
    if (both) {
        command.standardOutput = terminal.Path();
    }
    Shown shown{RunCommand(command), ""};
    shown.terminal = terminal.Text();
    return shown;
}

// Speed and time left are what they are.
std::string WithoutTimes(const std::string& text) {
    return ReplaceMatches(text, "[0-9.]+ x real time, [0-9]+:[0-9]{2}:[0-9]{2} left",
                          "N x real time, T left");
}

// A waveform as wide as there is room for: so many lines of no more than so many characters.
std::vector<std::size_t> LineWidths(const std::string& text) {
    std::vector<std::size_t> widths{0};
    for (const char byte : text) {
        if (byte == '\n') {
            widths.push_back(0);
        } else if ((static_cast<unsigned char>(byte) & 0xC0U) != 0x80U) {
            ++widths.back();
        }
    }
    widths.pop_back();
    return widths;
}

} // namespace

TEST(TerminalProgress, IsOneLineThatIsTakenAwayWhenTheWorkIsDone) {
    for (const unsigned short columns : std::vector<unsigned short>{60, 80}) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        const Shown shown =
            RunOnTerminal(directory, {"copy", "take.wav", "copy.wav"}, false, columns);
        EXPECT_EQ(shown.result.status, 0);
        EXPECT_EQ(shown.result.out, CopyReport("take.wav", "copy.wav"));
        EXPECT_THAT(WithoutTimes(shown.terminal),
                    testing::MatchesRegex("\rtake\\.wav \\[#+\\] 100 %  N x real time, T "
                                          "left\x1B\\[K\r\x1B\\[K"));
        EXPECT_LT(shown.terminal.find('\x1B') - 1, columns);
    }
}

TEST(TerminalProgress, MakesRoomForErrors) {
    const TemporaryDirectory directory;
    const Shown shown = RunOnTerminal(directory, {"info", "a.wav", "b.wav", "--jobs", "1"});
    EXPECT_EQ(shown.result.status, 1);
    // Lines come and go with the time that the work takes; what stays are the errors.
    EXPECT_EQ(ReplaceMatches(shown.terminal, "\r[^\r\x1B]*\x1B\\[K", ""),
              "kelhost: a.wav: cannot open for reading: No such file or directory\n"
              "kelhost: b.wav: cannot open for reading: No such file or directory\n");
}

TEST(TerminalProgress, IsNotShownWhereOptionsExcludeIt) {
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{"--quiet"}, {"--progress", "none"}, {"--json"}}) {
        SCOPED_TRACE(options.front());
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        std::vector<std::string> arguments{"copy", "take.wav", "copy.wav"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Shown shown = RunOnTerminal(directory, arguments);
        EXPECT_EQ(shown.result.status, 0);
        EXPECT_EQ(shown.terminal, "");
        EXPECT_EQ(shown.result.out.empty(), options.front() == "--quiet");
    }
}

TEST(TerminalHelp, IsAsWideAsTheTerminalUnlessCOLUMNSIsSet) {
    const TemporaryDirectory directory;
    Command command = Kelhost(directory, {"help"});
    command.environment["COLUMNS"] = "60";
    const std::string narrow = RunCommand(command).out;
    EXPECT_EQ(RunOnTerminal(directory, {"help"}, true, 60).terminal, narrow);
    Terminal terminal(80);
    command.standardOutput = terminal.Path();
    RunCommand(command);
    EXPECT_EQ(terminal.Text(), narrow);
}

TEST(TerminalPlot, IsAsWideAsTheTerminal) {
    for (const unsigned short columns : std::vector<unsigned short>{40, 200}) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        const Shown shown =
            RunOnTerminal(directory, {"plot", "take.wav", "--progress", "none"}, true, columns);
        EXPECT_EQ(shown.result.status, 0);
        EXPECT_EQ(LineWidths(shown.terminal),
                  (std::vector<std::size_t>{columns, columns, columns, columns, 40}));
    }
}

TEST(TerminalPlot, ShowsLevelsInEighthsAndMarksFullScale) {
    const TemporaryDirectory directory;
    // 76 columns of ten frames: silence, a quarter, a half, and once full scale.
    std::vector<float> values;
    for (std::size_t i = 0; i < 760; ++i) {
        const float level = i < 190 ? 0.0F : i < 380 ? 0.25F : i < 570 ? 0.5F : 0.75F;
        values.push_back(i == 755 ? 1.0F : i % 2 == 0 ? level : -level);
        values.push_back(0.0F);
    }
    WriteAudio(directory / "steps.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 760, values);
    const auto repeated = [](const std::string& text, std::size_t times) {
        std::string all;
        for (std::size_t i = 0; i < times; ++i) {
            all += text;
        }
        return all;
    };
    const std::string blank(19, ' ');
    ExpectResult(RunKelhost(directory, {"plot", "steps.wav"}), 0,
                 "    " + blank + blank + blank + repeated("▄", 18) + "!\n" + //
                     "  1 " + blank + repeated("▄", 19) + repeated("█", 38) + "\n" + "\n" +
                     "  2\n" + "    0:00:00.000 to 0:00:01.000, 760 Hz\n",
                 "");
}

} // namespace kel::test
