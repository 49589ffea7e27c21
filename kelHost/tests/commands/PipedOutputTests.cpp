// Standard output and named pipes as outputs.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <Terminal.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace {

class PipedOutput : public testing::Test {
protected:
    PipedOutput() { WriteTake(m_directory / "take.wav"); }

    ProcessResult Run(const std::string& line) const { return RunLine(m_directory, line); }

    // Nothing reaches the output, and no file is left.
    void ExpectError(const std::string& line, int status, const std::string& error) const {
        SCOPED_TRACE(line);
        ExpectResult(Run(line), status, "", error);
        EXPECT_EQ(SortedNames(m_directory), Names{"take.wav"});
    }

    TemporaryDirectory m_directory;
};

struct PipedCopy {
    std::string line; ///< with the output "received"
    std::string shown;
};

} // namespace

TEST_F(PipedOutput, ReceivesTheBytesOfAFileAndNoText) {
    ExpectResult(Run("kelhost copy take.wav file.wav --encoding float32 --quiet"), 0, "", "");
    for (const PipedCopy& stream :
         {PipedCopy{"kelhost copy take.wav - --format wave >received", "standard output"},
          PipedCopy{"kelhost copy take.wav - --format wave | cat >received", "standard output"},
          PipedCopy{"kelhost copy take.wav /dev/stdout --format wave >received", "/dev/stdout"},
          PipedCopy{
              "mkfifo pipe.wav; cat pipe.wav >received & kelhost copy take.wav pipe.wav; wait",
              "pipe.wav"},
          PipedCopy{"mkfifo pipe; cat pipe >received & "
                    "kelhost copy take.wav /dev/fd/7 --format wave 7>pipe; exec 7>&-; wait",
                    "/dev/fd/7"}}) {
        SCOPED_TRACE(stream.line);
        const std::string line =
            ReplaceMatches(stream.line, "copy take.wav", "copy --encoding float32 take.wav");
        ExpectResult(
            Run(line), 0, "",
            CopyReport("take.wav", stream.shown, "extensible WAVE, float32 little-endian"));
        EXPECT_EQ(WithoutTime(ReadFile(m_directory / "received")),
                  WithoutTime(ReadFile(m_directory / "file.wav")));
    }
}

TEST_F(PipedOutput, IsUnderstoodByOtherTools) {
    ExpectResult(Run("kelhost copy take.wav - --format wave --quiet | "
                     "ffmpeg -v error -i - ffmpeg.wav"),
                 0, "", "");
    ExpectResult(Run("kelhost copy take.wav - --format aiff --quiet | sox -t aiff - sox.wav"), 0,
                 "", "");
    ExpectResult(Run("sox take.wav -t wav - | kelhost copy - - --format bwave --quiet | "
                     "kelhost copy - kelhost.wav --quiet"),
                 0, "", "");
    for (const std::string name : {"ffmpeg.wav", "sox.wav", "kelhost.wav"}) {
        EXPECT_EQ(ReadAudio(m_directory / name).values, MakeValues(2000)) << name;
    }
}

TEST_F(PipedOutput, OfRunIsTheFileOfItsSink) {
    const std::string report =
        "take.wav -> standard output: 32-bit float little-endian, 2 channels, 48000 Hz, 1000 "
        "frames, 0:00:00.021\n";
    ExpectResult(Run("kelhost run kel.LibsndfileSource FilePath=take.wav ! "
                     "kel.LibsndfileSink:WAVE FilePath=- >received"),
                 0, "", report);
    EXPECT_EQ(ReadAudio(m_directory / "received").values, MakeValues(2000));
    ExpectResult(Run("kelhost run kel.LibsndfileSource FilePath=missing.wav ! "
                     "kel.LibsndfileSink:WAVE FilePath=-"),
                 1, "", Error("missing.wav", "cannot open for reading: No such file or directory"));
}

TEST_F(PipedOutput, IsDescribedByADocumentOnStandardError) {
    const ProcessResult result = Run("kelhost copy take.wav - --format wave --json >received");
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("\"output\":\"standard output\""), std::string::npos);
    ExpectDocuments({"kelhost.copy"}, result.err);
    ExpectResult(Run("kelhost info --field frames received"), 0, "1000\n", "");
}

TEST_F(PipedOutput, EndsQuietlyWhenNothingReadsItAnyMore) {
    WriteTake(m_directory / "take.wav", 100000); // more than a pipe holds
    ExpectResult(Run("kelhost copy take.wav - --format wave | head -c 4; exit ${PIPESTATUS[0]}"),
                 141, "RIFF", "");
}

TEST_F(PipedOutput, NeedsAFormatAndAnOutputThatCanBeReplaced) {
    ExpectError("kelhost copy take.wav -", 2,
                "kelhost: standard output has no extension; add --format: kelhost copy take.wav - "
                "--format wave\n");
    ExpectError("kelhost copy take.wav - --format wave --skip-existing", 2,
                "kelhost: --skip-existing has no meaning for standard output; omit it\n");
}

TEST_F(PipedOutput, FailsWithItsNameAndLeavesNothing) {
    const std::string copy = "kelhost copy take.wav - --format wave ";
    ExpectError(copy + ">/dev/full", 1,
                Error("standard output", "cannot write the audio: No space left on device"));
    ExpectError(copy + ">&-", 1,
                Error("standard output", "cannot write the audio: Bad file descriptor"));
    ExpectError(
        copy + ">>take.wav", 1,
        Error("standard output", "is the same file as the input take.wav; name another output"));
    ExpectError(copy + "--temp-dir missing", 1,
                Error("standard output",
                      "cannot create its temporary file in missing: No such file or directory "
                      "(--temp-dir DIRECTORY names another place)"));
    const Terminal terminal(80);
    ExpectError(copy + ">" + terminal.Path(), 1,
                Error("standard output", "cannot write audio to a terminal; redirect it to a file, "
                                         "or pipe it into a program"));
    ExpectError("head -c 1000 take.wav | kelhost copy - - --format wave", 1,
                Error("standard input", "declares 1000 frames and contains 239; it is truncated "
                                        "(--allow-truncated accepts the frames that exist)"));
}

TEST_F(PipedOutput, ReceivesNothingOfACopyThatFailsAtItsEnd) {
    WriteAudio(m_directory / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000, {0.5F, 1.5F});
    ExpectResult(Run("kelhost copy loud.wav - --format wave --encoding int16 --on-clip fail"), 1,
                 "",
                 Error("loud.wav", "has values beyond full scale, and --on-clip is fail; "
                                   "--encoding float32 keeps them"));
}

TEST_F(PipedOutput, WaitsForTheReaderOfANamedPipeForSomeTime) {
    ExpectResult(Run("mkfifo pipe.wav; kelhost copy take.wav pipe.wav --open-timeout 0.1"), 1, "",
                 Error("pipe.wav", "cannot open for writing: no program has read it within 0.1 s "
                                   "(--open-timeout SECONDS allows more)"));
    // The permissions count for root, too, where it has no such rights.
    Command command = ShellLine(m_directory, "mkfifo -m 400 closed.wav; "
                                             "kelhost copy take.wav closed.wav");
    command.obeysPermissions = true;
    ExpectResult(RunCommand(command), 1, "",
                 Error("closed.wav", "cannot open for writing: Permission denied"));
}

} // namespace kel::test
