#include "AudioFiles.h"
#include "Program.h"

#include <Terminal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
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
    command.environment["NO_COLOR"] = "1";
    command.standardError = terminal.Path();
    if (both) {
        command.standardOutput = terminal.Path();
    }
    Shown shown{RunCommand(command), ""};
    shown.terminal = terminal.Text();
    return shown;
}

// Runs with both streams on a terminal that knows colours, and returns what it shows.
std::string RunInColour(const TemporaryDirectory& directory, const Arguments& arguments,
                        const std::map<std::string, std::string>& environment = {}) {
    Terminal terminal(80);
    Command command = Kelhost(directory, arguments);
    command.standardError = terminal.Path();
    command.standardOutput = terminal.Path();
    command.environment["NO_COLOR"] = std::nullopt;
    command.environment["TERM"] = "xterm";
    for (const auto& [name, value] : environment) {
        command.environment[name] = value;
    }
    RunCommand(command);
    return terminal.Text();
}

// Speed and time left are what they are.
std::string WithoutTimes(const std::string& text) {
    return ReplaceMatches(text, "[0-9.]+ x real time, [0-9]+:[0-9]{2}:[0-9]{2} left",
                          "N x real time, T left");
}

// The number of characters in each line.
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

TEST(TerminalProgress, IsTheSizeOfAPipeUntilTheCopyBegins) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    Terminal terminal(80);
    Command command = ShellLine(directory, "{ cat take.wav; sleep 1.5; } | kelhost copy - out.wav");
    command.standardError = terminal.Path();
    EXPECT_EQ(RunCommand(command).out, CopyReport("standard input", "out.wav"));
    // The size is also drawn before the wait, where the display is not too early for it.
    const std::string shown = ReplaceMatches(
        terminal.Text(), "\rstandard input 3\\.9 KiB read, [0-9.]+ [KMG]iB/s\x1B\\[K", "");
    EXPECT_EQ(shown, "\rstandard input 0 bytes read\x1B[K"
                     "\rstandard input 3.9 KiB read, no data for 1 s\x1B[K"
                     "\rstandard input [########################] 100 %\x1B[K\r\x1B[K");
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

TEST(TerminalColours, MarkErrorsAndWarnings) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000, {2.0F});
    const Arguments copy{"copy", "loud.wav", "copy.wav", "--encoding", "int16", "-f", "-q"};
    const std::string warning =
        " copy.wav: channel 1: 1 value clipped, the loudest 2 times full scale\n";
    EXPECT_EQ(RunInColour(directory, copy), "\x1B[1;33mkelhost: warning:\x1B[0m" + warning);
    EXPECT_EQ(RunInColour(directory, {"info", "-q", "no.wav"}),
              "\x1B[1;31mkelhost:\x1B[0m no.wav: cannot open for reading: No such file or "
              "directory\n");
    EXPECT_EQ(RunInColour(directory, {"cpy"}),
              "\x1B[1;31mkelhost:\x1B[0m there is no command \"cpy\"; did you mean copy?\n");
    for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
             {"NO_COLOR", "1"}, {"TERM", "dumb"}, {"TERM", ""}}) {
        SCOPED_TRACE(name + "=" + value);
        EXPECT_EQ(RunInColour(directory, copy, {{name, value}}), "kelhost: warning:" + warning);
        EXPECT_EQ(RunInColour(directory, {"cpy"}, {{name, value}}),
                  "kelhost: there is no command \"cpy\"; did you mean copy?\n");
    }
    EXPECT_EQ(RunInColour(directory, {"cpy"}, {{"NO_COLOR", ""}}).front(), '\x1B');
    EXPECT_EQ(RunInColour(directory, {"cpy", "--json"}).front(), '{');
}

TEST(TerminalColours, MarkPassedAndFailedChecks) {
    const TemporaryDirectory directory;
    const Arguments validate{
        "validate", TestPlugin("kelNoEntryPoint"), "--check", "plugin.loads",
        "--check",  "plugin.one-entry-point",      "--check", "plugin.unloads"};
    const auto verdicts = [](const std::string& report) {
        std::vector<std::string> words;
        for (const std::string& line : LinesOf(report)) {
            words.push_back(line.substr(0, line.find(' ')));
        }
        words.pop_back(); // the summary
        return words;
    };
    EXPECT_EQ(verdicts(RunKelhost(directory, validate).out), (Names{"passed", "FAILED", "n/a"}));
    EXPECT_EQ(verdicts(RunInColour(directory, validate)),
              (Names{"\x1B[1;32mpassed\x1B[0m", "\x1B[1;31mFAILED\x1B[0m", "n/a"}));
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
        std::vector<std::size_t> widths(8, columns);
        widths.push_back(40); // the times
        EXPECT_EQ(LineWidths(shown.terminal), widths);
    }
}

TEST(TerminalPlot, HasOnlyCharactersThatTheLocaleHas) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "half.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 700,
               std::vector<float>(700, 0.5625F));
    const auto plot = [](const std::string& axis, const std::string& quarter,
                         const std::string& full) {
        const auto row = [&](const std::string& label, const std::string& bar) {
            std::string line = label + axis;
            for (int column = 0; column < 70; ++column) {
                line += bar;
            }
            return line + "\n";
        };
        return "        1" + axis + "\n" + row("     0.75", quarter) + row("      0.5", full) +
               row("  1  0.25", full) + "    0:00:00.000 to 0:00:01.000, 700 Hz\n";
    };
    const std::string unicode = plot("│", "▂", "█");
    const std::string ascii = plot("|", ".", "#");
    struct Row {
        std::map<std::string, std::optional<std::string>> environment;
        std::string out;
    };
    // A locale that is not installed is judged by its name.
    for (const Row& row : std::vector<Row>{{{{"LC_ALL", "C.UTF-8"}}, unicode},
                                           {{{"LC_ALL", "C"}, {"LANG", "C.UTF-8"}}, ascii},
                                           {{{"LC_CTYPE", "C.UTF-8"}, {"LANG", "C"}}, unicode},
                                           {{{"LANG", "C.UTF-8"}}, unicode},
                                           {{}, ascii},
                                           {{{"LC_ALL", "xx_XX.utf8@any"}}, unicode},
                                           {{{"LC_ALL", "xx_XX.KOI8-R"}}, ascii},
                                           {{{"LC_ALL", "nonsense"}}, ascii}}) {
        Command command = Kelhost(directory, {"plot", "half.wav"});
        command.environment = {
            {"LC_ALL", std::nullopt}, {"LC_CTYPE", std::nullopt}, {"LANG", std::nullopt}};
        for (const auto& [name, value] : row.environment) {
            command.environment[name] = value;
        }
        ExpectResult(RunCommand(command), 0, row.out, "");
    }
}

} // namespace kel::test
