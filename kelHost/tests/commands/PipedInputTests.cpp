// Standard input, named pipes and other inputs that cannot be sought.

#include "AudioFiles.h"
#include "Program.h"

#include <Terminal.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

class PipedInput : public testing::Test {
protected:
    PipedInput() { WriteTake(m_directory / "take.wav", 20000); }

    ProcessResult Run(const std::string& line) const { return RunLine(m_directory, line); }

    void ExpectError(const std::string& line, const std::string& error) const {
        SCOPED_TRACE(line);
        ExpectResult(Run(line), 1, "", Error("standard input", error));
        EXPECT_EQ(SortedNames(m_directory), Names{"take.wav"});
    }

    TemporaryDirectory m_directory;
};

struct PipeName {
    std::string name;
    std::string shown;
};

// A line with another input.
std::string WithInput(const std::string& line, const std::string& input) {
    return ReplaceMatches(line, "\\bIN\\b", input);
}

} // namespace

// The sink writes floats with the time of writing, so the samples of run are compared.
TEST_F(PipedInput, IsReadLikeAFile) {
    WriteTake(m_directory / "other.wav", 19999);
    for (const std::string line :
         {"kelhost info --json --measure --checksum IN", "kelhost info --full IN",
          "kelhost plot --level db IN", "kelhost plot --start 0.1 --json IN",
          "kelhost compare --json other.wav IN",
          "kelhost copy --json --force --start 0.1 IN out.wav; md5sum out.wav",
          "kelhost run --json --force kel.LibsndfileSource:WAVE FilePath=IN ! "
          "kel.LibsndfileSink FilePath=out.wav; kelhost info --checksum --field md5 out.wav"}) {
        const ProcessResult expected = Run(WithInput(line, "take.wav"));
        for (const PipeName& pipe :
             {PipeName{"-", "standard input"}, PipeName{"/dev/stdin", "/dev/stdin"},
              PipeName{"<(cat take.wav)", "/dev/fd/63"}}) {
            SCOPED_TRACE(line + " " + pipe.name);
            // Standard input has no path that could be opened.
            const std::string text =
                ReplaceMatches(ReplaceMatches(expected.out, "take\\.wav", pipe.shown),
                               "path\":\"standard input\"", "path\":null");
            ExpectResult(Run("cat take.wav | { " + WithInput(line, pipe.name) + "; }"),
                         expected.status, text, "");
        }
    }
}

TEST_F(PipedInput, HasTheTypeOfItsName) {
    const std::string line =
        "mkfifo take.aiff; cat take.wav >take.aiff & "
        "kelhost info take.aiff --verbose 2>&1 >/dev/null | grep -oE 'Source[.][A-Z]+'";
    ExpectResult(Run(line), 0, "Source.AIFF\n", "");
}

// Their sizes are unknown to them: 0x7FFFF000 and the largest number.
TEST_F(PipedInput, MayBeAStreamOfAnotherTool) {
    const std::string report = ": extensible WAVE, int16 little-endian, 2 channels, 48000 Hz, "
                               "20000 frames, 0:00:00.417\n";
    ExpectResult(Run("sox take.wav -t wav - | kelhost copy - sox.wav"), 0,
                 "standard input -> sox.wav" + report, "");
    ExpectResult(Run("ffmpeg -v error -i take.wav -metadata title=Name -f wav - | "
                     "kelhost copy - ffmpeg.wav"),
                 0, "standard input -> ffmpeg.wav" + report, "");
    for (const std::string name : {"sox.wav", "ffmpeg.wav"}) {
        EXPECT_EQ(ReadAudio(m_directory / name).values, ReadAudio(m_directory / "take.wav").values);
    }
    ExpectResult(Run("kelhost info --field tags.title ffmpeg.wav"), 0, "Name\n", "");
}

// Another program that has the same descriptor may have made it so.
TEST_F(PipedInput, MayBeNonBlocking) {
    ExpectResult(Run("(sleep 0.2; cat take.wav) | { "
                     "python3 -c 'import os; os.set_blocking(0, False)'; "
                     "kelhost info --field frames -; }"),
                 0, "20000\n", "");
}

TEST_F(PipedInput, MayBeTheRestOfAFile) {
    ExpectResult(Run("{ echo text; cat take.wav; } >text.wav; "
                     "{ dd bs=5 count=1 of=/dev/null status=none; "
                     "kelhost info --field file,bytes,frames -; } <text.wav"),
                 0, "standard input\t80044\t20000\n", "");
}

TEST_F(PipedInput, IsNotCopiedWhereItIsAFile) {
    ExpectResult(Run("kelhost info --field file,frames - --temp-dir missing <take.wav"), 0,
                 "standard input\t20000\n", "");
}

TEST_F(PipedInput, IsReadThroughATemporaryCopyWithoutAName) {
    const std::string line = "mkdir temporary; cat take.wav | "
                             "kelhost info --field frames - --temp-dir temporary; ls temporary";
    ExpectResult(Run(line), 0, "20000\n", "");
    // A file system where every file needs a name. Only kelhost sees it.
    Command command = ShellLine(m_directory, "cat take.wav | LD_PRELOAD=\"$FAULTS\" kelhost info "
                                             "--field frames - --temp-dir temporary; ls temporary");
    DisturbSystem(command);
    command.environment["FAULTS"] = std::exchange(command.environment["LD_PRELOAD"], std::nullopt);
    command.environment["KEL_TEST_NAMED_FILES"] = "1";
    ExpectResult(RunCommand(command), 0, "20000\n", "");
}

TEST_F(PipedInput, HasItsNameInTheRecordsOfElements) {
    ExpectResult(Run("cat take.wav | kelhost copy -v - out.wav 2>&1 >/dev/null | "
                     "grep -oE '\"[^\"]*\"' | uniq"),
                 0, "\"standard input\"\n\"out.wav\"\n", "");
    ExpectResult(Run("kelhost compare -v take.wav <(cat take.wav) 2>&1 >/dev/null | "
                     "grep -oE '\"[^\"]*\"' | uniq"),
                 0, "\"take.wav\"\n\"/dev/fd/63\"\n", "");
}

TEST_F(PipedInput, FailsWithItsNameAndLeavesNothing) {
    const std::string largest =
        "cannot keep a copy: it is larger than 80043 bytes (--max-spool SIZE allows more, 0 any "
        "size)";
    ExpectError("cat take.wav | kelhost copy - out.wav --max-spool 80043", largest);
    ExpectError("head -c 5000 take.wav | kelhost copy - out.wav",
                "declares 20000 frames and contains 1239; it is truncated (--allow-truncated "
                "accepts the frames that exist)");
    ExpectResult(Run("echo text | kelhost copy - out.wav"), 1, "", NoAudioError("standard input"));
    ExpectError("true | kelhost copy - out.wav",
                "cannot open for reading: it is empty; the program that writes to it reports the "
                "cause");
    ExpectError("kelhost copy - out.wav <&-", "cannot read the file: Bad file descriptor");
    ExpectError("kelhost copy - out.wav <.", "is a directory");
    ExpectError("cat take.wav | kelhost copy - out.wav --temp-dir missing",
                "cannot keep a copy in missing: No such file or directory (--temp-dir DIRECTORY "
                "names another place)");
    ExpectError("ulimit -f 8; cat take.wav | kelhost copy - out.wav --temp-dir .",
                "cannot keep a copy in .: File too large (--temp-dir DIRECTORY names another "
                "place)");
    const Terminal terminal(80);
    ExpectError("kelhost copy - out.wav <" + terminal.Path(),
                "cannot read audio from a terminal; name a file, or pipe the output of a program "
                "into kelhost");
}

TEST_F(PipedInput, IsNotLimitedOnRequest) {
    for (const std::string size : {"0", "80044", "79K"}) {
        ExpectResult(Run("cat take.wav | kelhost info --field bytes - --max-spool " + size), 0,
                     "80044\n", "");
    }
}

TEST_F(PipedInput, CannotBeMeantTwiceOrNamed) {
    const std::string twice =
        "kelhost: standard input can be read only once; name a file instead of one \"-\"\n";
    ExpectResult(Run("kelhost info - take.wav /dev/stdin <take.wav"), 2, "", twice);
    ExpectResult(Run("kelhost compare - - <take.wav"), 2, "", twice);
    ExpectResult(Run("kelhost info take.wav - --files-from - </dev/null"), 2, "",
                 "kelhost: standard input is the list; name a file instead of the input \"-\"\n");
    ExpectResult(Run("kelhost copy - --output-dir out <take.wav"), 2, "",
                 "kelhost: standard input has no name for --output-dir; use kelhost copy - "
                 "OUTPUT\n");
    ExpectResult(
        Run("kelhost info take.wav --temp-dir ''"), 2, "",
        "kelhost: empty name for --temp-dir: expected the name of a directory; see kelhost "
        "info --help\n");
    for (const std::string size : {"", "K", "5X", "-1", "8388608T"}) {
        ExpectResult(Run("kelhost info take.wav --max-spool '" + size + "'"), 2, "",
                     "kelhost: invalid value \"" + size +
                         "\" for --max-spool: expected a number of bytes, also with K, M, G or T: "
                         "500M\n");
    }
    EXPECT_EQ(SortedNames(m_directory), Names{"take.wav"});
}

} // namespace kel::test
