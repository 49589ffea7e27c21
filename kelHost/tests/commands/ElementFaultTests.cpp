// Elements that misbehave. They read and write one line of text, and have one fault at a time.

#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

namespace {

constexpr const char* kInput = "40000 2 48000\n"; // three samples of at most 16384 frames

struct Fault {
    std::string name;
    std::string error; // with OUTPUT for the output's name, REFUSAL for that of the encoding
};

void PrintTo(const Fault& fault, std::ostream* stream) {
    *stream << fault.name;
}

std::vector<Fault> Faults() {
    const std::string reopened = "OUTPUT: the written file opens with ";
    const std::string expected =
        " instead of 40000 frames, 2 channels and 48000 Hz; is the disk full?";
    const std::string opening =
        "OUTPUT: cannot open for writing: the plug-in failed (--verbose shows more)";
    const std::string writing =
        "OUTPUT: cannot write the audio: the plug-in failed (--verbose shows more)";
    const std::string reading =
        "in.wav: cannot read the audio: it may be damaged (--verbose shows more)";
    return {
        {"sink throws while it is configured", opening},
        {"sink throws while checking", opening},
        {"sink refuses the encoding", "OUTPUT: REFUSAL"},
        {"sink refuses the tracks", "OUTPUT: REFUSAL"},
        {"sink throws while the input is defined", opening},
        {"sink throws while writing", writing},
        {"sink logs an error while writing", writing},
        {"sink runs out of memory while writing", "OUTPUT: there is not enough memory"},
        {"sink throws while closing", writing},
        {"sink logs an error while closing", writing},
        {"source logs an error while opening",
         "in.wav: cannot open for reading: it may be damaged (--verbose shows more)"},
        {"source finds more each time",
         "in.wav: cannot read its header: opened twice, it has 40000 frames, 2 channels and 48000 "
         "Hz "
         "and then 40001 frames, 2 channels and 48000 Hz; the disk fails, or a program changes the "
         "file"},
        {"source throws while reading", reading},
        {"source logs an error while reading", reading},
        {"source delivers its last frame after an error", reading},
        {"source loses its last sample once", reading},
        {"source delivers fewer frames",
         "in.wav: declares 40000 frames and delivers 39999; it is damaged or was changed "
         "while it was read (--allow-truncated accepts the frames that exist)"},
        {"file has other frames", reopened + "40001 frames, 2 channels and 48000 Hz" + expected},
        {"file has other channels", reopened + "40000 frames, 3 channels and 48000 Hz" + expected},
        {"file has another rate", reopened + "40000 frames, 2 channels and 48001 Hz" + expected},
        {"file does not open again",
         "OUTPUT: cannot open for reading: its format is unknown or it is damaged (--verbose "
         "shows more)"},
    };
}

std::string FaultName(const testing::TestParamInfo<Fault>& info) {
    std::string name;
    bool begins = true;
    for (const char character : info.param.name) {
        if (character == ' ') {
            begins = true;
            continue;
        }
        name.push_back(begins ? static_cast<char>(std::toupper(character)) : character);
        begins = false;
    }
    return name;
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const std::size_t place = text.find(from);
    return place == std::string::npos ? text : text.replace(place, from.size(), to);
}

struct Output {
    std::string name;
    std::string container;
};

// Floats go through untouched, integers through the host's converter.
const std::vector<Output> kOutputs{{"out.wav", "extensible WAVE"}, {"out.aiff", "AIFF-C"}};

Command Faulty(const TemporaryDirectory& directory, const std::string& fault,
               const Arguments& arguments) {
    WriteFile(directory / "in.wav", kInput);
    Command command =
        Kelhost(directory, Arguments{"--plugin", TestPlugin("kelFaultyElements")} + arguments);
    command.environment["KEL_TEST_FAULT"] = fault;
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "sink is not closed";
    return command;
}

Command FaultyCopy(const TemporaryDirectory& directory, const std::string& fault,
                   const std::string& output = "out.wav") {
    return Faulty(directory, fault, {"copy", "in.wav", output});
}

Command FaultyRun(const TemporaryDirectory& directory, const std::string& fault) {
    return Faulty(directory, fault,
                  {"run", "test.TextSource", "FilePath=in.wav", "MaxSamplesPerBuffer=16384", "!",
                   "test.TextSink", "FilePath=out.wav"});
}

std::string RunReport(const std::string& frames) {
    return "in.wav -> out.wav: 32-bit float little-endian, 2 channels, 48000 Hz, " + frames +
           " frames, 0:00:00.833\n";
}

// Expects an error, and an existing output as it was.
void ExpectUntouched(const TemporaryDirectory& directory, Command command,
                     const std::string& output, const std::string& error) {
    WriteFile(directory / output, "before");
    command.arguments.emplace_back("--force");
    ExpectResult(RunCommand(command), 1, "", "kelhost: " + error + "\n");
    EXPECT_EQ(SortedNames(directory), (Names{"in.wav", output}));
    EXPECT_EQ(ReadFile(directory / output), "before");
    EXPECT_EQ(ReadFile(directory / "in.wav"), kInput);
}

class ElementFault : public testing::TestWithParam<Fault> {};

} // namespace

TEST_P(ElementFault, FailsACopyAndLeavesExistingFilesAsTheyAre) {
    for (const Output& output : kOutputs) {
        SCOPED_TRACE(output.name);
        const TemporaryDirectory directory;
        ExpectUntouched(
            directory, FaultyCopy(directory, GetParam().name, output.name), output.name,
            Replace(Replace(GetParam().error, "OUTPUT", output.name), "REFUSAL",
                    output.container + " does not support this encoding; see kelhost formats"));
    }
}

TEST_P(ElementFault, FailsARunAndLeavesExistingFilesAsTheyAre) {
    const TemporaryDirectory directory;
    ExpectUntouched(directory, FaultyRun(directory, GetParam().name), "out.wav",
                    Replace(Replace(GetParam().error, "OUTPUT", "out.wav"), "REFUSAL",
                            "test.TextSink:WAVE does not accept 32-bit float little-endian"));
}

INSTANTIATE_TEST_SUITE_P(Elements, ElementFault, testing::ValuesIn(Faults()), FaultName);

TEST(ElementWithoutFault, IsCopiedAndRunToItsEnd) {
    for (const Output& output : kOutputs) {
        const TemporaryDirectory directory;
        ExpectResult(
            RunCommand(FaultyCopy(directory, "", output.name)), 0,
            CopyReport("in.wav", output.name,
                       output.container + (output.name == "out.aiff" ? ", int24 big-endian"
                                                                     : ", float32 little-endian"),
                       "40000 frames, 0:00:00.833"),
            "");
        EXPECT_EQ(SortedNames(directory), (Names{"in.wav", output.name}));
        EXPECT_EQ(ReadFile(directory / output.name), kInput);
    }
    const TemporaryDirectory directory;
    ExpectResult(RunCommand(FaultyRun(directory, "")), 0, RunReport("40000"), "");
    EXPECT_EQ(SortedNames(directory), (Names{"in.wav", "out.wav"}));
    EXPECT_EQ(ReadFile(directory / "out.wav"), kInput);
}

// A copy does not meet these: it reads no more than it needs, and only sources of files.
TEST(ElementWithFalseClaims, IsNotRun) {
    for (const Fault& fault : {
             Fault{"source delivers more frames", "declares 40000 frames and delivers more"},
             Fault{"source stamps one frame more",
                   "delivers a sample of 131072 bytes with a duration of 16385 frames of 8 bytes"},
             Fault{"source delivers two samples at once",
                   "delivers a sample container with 2 audio samples instead of one"},
             Fault{
                 "source counts milliseconds",
                 "does not count its time in frames, so that missing frames would not be noticed"},
             Fault{"source describes two tracks",
                   "delivers several audio tracks; run supports one"},
             Fault{"source describes nothing", "cannot open for reading: it describes no audio"},
         }) {
        SCOPED_TRACE(fault.name);
        const TemporaryDirectory directory;
        ExpectResult(RunCommand(FaultyRun(directory, fault.name)), 1, "",
                     "kelhost: in.wav: " + fault.error + "\n");
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    }
}

// Of a layer II stream, too many frames are an estimate.
TEST(ElementWithOtherMPEGFrames, IsNotRead) {
    struct Row {
        std::string header;
        std::string declared;
    };
    for (const Row& row : {Row{"\xFF\xFB\x90\xC4", "100"}, Row{"\xFF\xFB\x90\xC4", "100000"},
                           Row{"\xFF\xFD\x80\xC4", "100"}}) {
        const TemporaryDirectory directory;
        Command command = FaultyCopy(directory, "source declares " + row.declared + " frames");
        std::string frames;
        for (int i = 0; i < 10; ++i) {
            frames += row.header + std::string(417 - row.header.size(), '\0');
        }
        WriteFile(directory / "in.wav", frames);
        ExpectResult(RunCommand(command), 1, "",
                     Error("in.wav", "cannot read all samples: its 10 MPEG frames are 11520 "
                                     "frames, and the source declares " +
                                         row.declared));
    }
}

TEST(ElementThatGrows, IsRunToTheEndThatItHasByThen) {
    const TemporaryDirectory directory;
    ExpectResult(RunCommand(FaultyRun(directory, "source grows")), 0, RunReport("40001"), "");
    EXPECT_EQ(ReadFile(directory / "out.wav"), "40001 2 48000\n");
}

TEST(ElementThatIsShort, IsRunToItsEndWhereThatIsAllowed) {
    const TemporaryDirectory directory;
    Command command = FaultyRun(directory, "source delivers fewer frames");
    command.arguments.emplace_back("--allow-truncated");
    ExpectResult(RunCommand(command), 0, RunReport("39999"),
                 "kelhost: warning: in.wav: declares 40000 frames and delivers 39999\n");
    EXPECT_EQ(ReadFile(directory / "out.wav"), "39999 2 48000\n");
}

TEST(ElementThatLogs, IsHeardWhenItClosesAndInItsWarnings) {
    const TemporaryDirectory directory;
    ExpectResult(RunCommand(FaultyRun(directory, "sink reports when it closes")), 0,
                 RunReport("40000") + "fault sink reports when it closes\n", "");
    const TemporaryDirectory other;
    ExpectResult(RunCommand(FaultyCopy(other, "sink logs a warning while writing")), 0,
                 CopyReport("in.wav", "out.wav", "extensible WAVE, float32 little-endian",
                            "40000 frames, 0:00:00.833"),
                 "kelhost: warning: fault sink logs a warning while writing\n"
                 "kelhost: warning: fault sink logs a warning while writing\n");
}

TEST(ElementThatFailsOddly, LeavesNothing) {
    for (const std::string fault :
         {"source throws while it is released", "sink throws a number while writing"}) {
        const TemporaryDirectory directory;
        const ProcessResult result = RunCommand(FaultyCopy(directory, fault));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    }
}

TEST(ElementThatLogsErrors, IsStoppedAtTheFirstOne) {
    // One record, though the fault would show at each of the two remaining samples.
    for (const bool runs : {false, true}) {
        const TemporaryDirectory directory;
        const std::string fault = "sink logs an error while writing";
        Command command = runs ? FaultyRun(directory, fault) : FaultyCopy(directory, fault);
        command.environment["KEL_LOG"] = "error";
        const ProcessResult result = RunCommand(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err,
                    testing::MatchesRegex(".* Error .* fault sink logs an error while writing .*\n"
                                          "kelhost: out.wav: cannot write the audio: the plug-in "
                                          "failed \\(--verbose shows more\\)\n"));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
    }
}

// Another program still writes the input.
TEST(GrowingFile, IsNotCopied) {
    for (const bool isRun : {false, true}) {
        const TemporaryDirectory directory;
        const std::string fault = "file grows while it is opened";
        const ProcessResult result =
            RunCommand(isRun ? FaultyRun(directory, fault) : FaultyCopy(directory, fault));
        ExpectResult(result, 1, "",
                     Error("in.wav", "grew from 14 to 16 bytes while it was read; try again when "
                                     "no program writes to it"));
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    }
}

// A source of unknown length, which goes on and on.
TEST(EndlessSource, EndsWhereTheSizesOfTheOutputEnd) {
    struct Row {
        Command command;
        std::string remedy;
    };
    const TemporaryDirectory directory;
    for (Row row : {Row{FaultyCopy(directory, ""), "--format bwave"},
                    Row{FaultyRun(directory, ""), "the type BWAVE"}}) {
        WriteFile(directory / "in.wav", "9223372036854775807 2 48000\n");
        ExpectResult(RunCommand(row.command), 1, "",
                     Error("out.wav", "would have 4294967296 bytes of samples, and extensible WAVE "
                                      "holds at most 4 GiB; use " +
                                          row.remedy));
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    }
}

} // namespace kel::test
