#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// A command line, and the reason and the line that it is answered with.
struct ForeignRow {
    Arguments arguments;
    std::string problem;
    std::string reason;
    std::string line;
};

ForeignRow OptionRow(const Arguments& option, const std::string& reason, const std::string& line) {
    const std::string name = option.front().substr(0, option.front().find('='));
    return {Arguments{"copy", "in.wav", "out.wav"} + option, "there is no option " + name, reason,
            line};
}

ForeignRow CommandRow(const std::string& command, const std::string& reason,
                      const std::string& line) {
    return {
        {command, "in.wav", "out.wav"}, "there is no command \"" + command + "\"", reason, line};
}

// Runs a line in a shell that finds the program, or only parses it where it needs a sound device.
void ExpectLineWorks(const std::string& line) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 1000,
               std::vector<float>(2U * 20 * 1000, 0.25F));
    const bool readsOutput =
        line.find("compare") != std::string::npos || line.rfind("sox ", 0) == 0;
    if (readsOutput) {
        std::filesystem::copy_file(directory / "in.wav", directory / "out.wav");
    }
    const bool needsDevice = line.find("ffplay") != std::string::npos || line.rfind("rec ", 0) == 0;
    const char* path = std::getenv("PATH");
    Command shell;
    shell.program = "/bin/sh";
    shell.arguments = {needsDevice ? "-nc" : "-ec", line};
    shell.directory = directory.Path();
    shell.environment["PATH"] = std::filesystem::path(KEL_TEST_HOST).parent_path().string() + ":" +
                                (path != nullptr ? path : "");
    shell.environment["KEL_PLUGIN_PATH"] = std::nullopt;
    const ProcessResult result = RunCommand(shell);
    EXPECT_EQ(result.status, 0) << result.err;
    const bool writes = line.find("out.wav") != std::string::npos && !needsDevice;
    EXPECT_EQ(std::filesystem::exists(directory / "out.wav"), writes);
}

void ExpectExplained(const std::vector<ForeignRow>& rows) {
    for (const ForeignRow& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        const TemporaryDirectory directory;
        ExpectResult(RunKelhost(directory, row.arguments), 2, "",
                     "kelhost: " + row.problem + "; " + row.reason + ": " + row.line + "\n");
        EXPECT_EQ(SortedNames(directory), Names{});
        ExpectLineWorks(row.line);
    }
}

const std::string kPipe = "kelhost copy in.wav - --format wave | ";
const std::string kInOut = "kelhost copy in.wav out.wav";
const std::string kNoRate = "kelhost does not change the rate, and sox does";
const std::string kNoLevels = "kelhost does not change levels, and sox does";
const std::string kNoMix =
    "kelhost selects channels (--channels) and does not mix them, and sox does";

const std::string kNoNames = "files are named without options, the input first";
const std::string kSingleFacts = "info shows single facts";

ForeignRow InfoRow(const Arguments& option, const std::string& reason, const std::string& line) {
    return {Arguments{"info", "in.wav"} + option, "there is no option " + option.front(), reason,
            line};
}

std::string NameIs(const std::string& name) {
    return "the name of this option is --" + name;
}

std::string CommandIs(const std::string& name) {
    return "the name of this command is " + name;
}

} // namespace

TEST(ForeignOptions, AreAnsweredWithALineThatWorks) {
    ExpectExplained({
        {{"copy", "in.wav", "-r", "22050", "out.wav"},
         "there is no option -r 22050",
         kNoRate,
         kPipe + "sox -t wav - -r 22050 out.wav"},
        OptionRow({"--rate=22050"}, kNoRate, kPipe + "sox -t wav - -r 22050 out.wav"),
        OptionRow({"--rate"}, kNoRate, kPipe + "sox -t wav - -r 44100 out.wav"),
        OptionRow({"-b", "16"}, NameIs("encoding"), kInOut + " --encoding int16"),
        OptionRow({"-b", "8"}, NameIs("encoding"), kInOut + " --encoding int24"),
        OptionRow({"-acodec", "pcm_s24le"}, NameIs("encoding"), kInOut + " --encoding pcm_s24le"),
        OptionRow({"-e", "mu-law"}, NameIs("encoding"), kInOut + " --encoding int24"),
        OptionRow({"-e", "float"}, NameIs("encoding"), kInOut + " --encoding float32"),
        OptionRow({"-e", "signed-integer", "-b", "16"}, NameIs("encoding"),
                  kInOut + " --encoding int16"),
        OptionRow({"-float32"}, NameIs("encoding"), kInOut + " --encoding float32"),
        OptionRow({"-endian=little"}, NameIs("byte-order"), kInOut + " --byte-order little"),
        OptionRow({"-c", "1"}, kNoMix, kPipe + "sox -t wav - -c 1 out.wav"),
        OptionRow({"--mono"}, kNoMix, kPipe + "sox -t wav - -c 1 out.wav"),
        OptionRow({"--stereo"}, kNoMix, kPipe + "sox -t wav - -c 2 out.wav"),
        OptionRow({"-ss", "0:05"}, NameIs("start"), kInOut + " --start 0:05"),
        OptionRow({"-to", "5"}, NameIs("end"), kInOut + " --end 5"),
        // The others are replaced with it, and what kelhost knows stays.
        {{"copy", "-ss", "1", "in.wav", "-q", "-to", "5", "-y", "out.wav"},
         "there is no option -ss",
         NameIs("start"),
         "kelhost copy --start 1 in.wav -q --end 5 --force out.wav"},
        OptionRow({"-t", "5"}, NameIs("duration"), kInOut + " --duration 5"),
        OptionRow({"-t", "wav"}, NameIs("format"), kInOut + " --format wave"),
        OptionRow({"--trim"}, "--start, --end and --duration cut out a part",
                  kInOut + " --start 0 --end 10"),
        OptionRow({"-i"}, kNoNames, kInOut),
        {{"copy", "--output", "out.wav", "in.wav"},
         "there is no option --output",
         kNoNames,
         kInOut},
        OptionRow({"-hide_banner"}, "kelhost needs no such option", kInOut),
        OptionRow({"--decode"}, "copy decodes every input", kInOut),
        OptionRow({"-D"}, "copy adds noise only with --dither", kInOut),
        OptionRow({"--left"}, NameIs("channels"), kInOut + " --channels 1"),
        OptionRow({"-u"}, NameIs("update"), kInOut + " --update"),
        OptionRow({"--title"}, "kelhost keeps tags and does not edit them, and ffmpeg does",
                  "ffmpeg -i in.wav -c copy -metadata title=Name out.wav"),
        {{"plot", "in.wav", "-o", "out.png"},
         "there is no option -o",
         kNoNames,
         "kelhost plot in.wav out.png"},
        OptionRow({"-y"}, NameIs("force"), kInOut + " --force"),
        OptionRow({"--no-clobber"}, NameIs("skip-existing"), kInOut + " --skip-existing"),
        OptionRow({"--gain", "-6"}, kNoLevels, kPipe + "sox -t wav - out.wav gain -6"),
        // The first letters of this are options.
        OptionRow({"-normalize"}, kNoLevels, kPipe + "sox -t wav - out.wav norm"),
        OptionRow({"--normalize"}, kNoLevels, kPipe + "sox -t wav - out.wav norm"),
        OptionRow({"--loudnorm"},
                  "kelhost measures loudness (info --measure), and ffmpeg changes it",
                  kPipe + "ffmpeg -i - -af loudnorm out.wav"),
        OptionRow({"--fade"}, "kelhost does not fade, and sox does",
                  kPipe + "sox -t wav - out.wav fade 1"),
        OptionRow({"--reverse"}, "kelhost does not reverse audio, and sox does",
                  kPipe + "sox -t wav - out.wav reverse"),
        OptionRow({"--speed", "2"}, "kelhost does not change the tempo, and sox does",
                  kPipe + "sox -t wav - out.wav tempo 2"),
        OptionRow({"--bitrate"}, "kelhost writes uncompressed audio, and ffmpeg compresses it",
                  kPipe + "ffmpeg -i - out.mp3"),
        {{"copy", "in.wav", "--best", "out.flac"},
         "there is no option --best",
         "kelhost writes uncompressed audio, and ffmpeg compresses it",
         kPipe + "ffmpeg -i - out.flac"},
        OptionRow({"--strip"}, NameIs("metadata"), kInOut + " --metadata none"),
        OptionRow({"--threads", "2"}, NameIs("jobs"), kInOut + " --jobs 2"),
        OptionRow({"--silent"}, NameIs("quiet"), kInOut + " --quiet"),
        OptionRow({"--md5"}, NameIs("checksum"), "kelhost info --checksum in.wav"),
        OptionRow({"--stats"}, NameIs("measure"), "kelhost info --measure in.wav"),
        InfoRow({"--length"}, kSingleFacts, "kelhost info in.wav --field duration"),
        InfoRow({"--rate"}, kSingleFacts, "kelhost info in.wav --field rate"),
        InfoRow({"-c"}, kSingleFacts, "kelhost info in.wav --field channels"),
        InfoRow({"-s"}, kSingleFacts, "kelhost info in.wav --field frames"),
        InfoRow({"-b"}, kSingleFacts, "kelhost info in.wav --field encoding"),
        InfoRow({"-of", "json"}, NameIs("json"), "kelhost info in.wav --json"),
        InfoRow({"-show_format"}, "info shows tags and other metadata",
                "kelhost info in.wav --full"),
        InfoRow({"--lufs"}, NameIs("measure"), "kelhost info in.wav --measure"),
        {{"-version"},
         "there is no option -version",
         "the name of this option is --version",
         "kelhost --version"},
    });
}

TEST(ForeignOptions, OfTreesAreReplacedInTheLine) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"copy", "-av", "day/", "out/"}), 2, "",
                 "kelhost: there is no option -av; the name of this option is --recursive: kelhost "
                 "copy --recursive day/ out/\n");
    ExpectResult(RunKelhost(directory, {"copy", "--target-directory=out", "in.wav"}), 2, "",
                 "kelhost: there is no option --target-directory; the name of this option is "
                 "--output-dir: kelhost copy --output-dir out in.wav\n");
    ExpectResult(RunKelhost(directory, {"rsync", "-a", "day/", "out/"}), 2, "",
                 "kelhost: there is no command \"rsync\"; copy --recursive copies directories: "
                 "kelhost copy --recursive day/ --output-dir out/\n");
}

TEST(ForeignEffects, AreAnsweredWithALineThatWorks) {
    const auto row = [](const Arguments& effect, const std::string& reason,
                        const std::string& line) {
        return ForeignRow{Arguments{"copy", "in.wav", "out.wav"} + effect,
                          "copy has no effect \"" + effect.front() + "\"", reason, line};
    };
    ExpectExplained({
        row({"trim", "2", "1"}, "copy cuts out a part", kInOut + " --start 2 --duration 1"),
        row({"trim", "2"}, "copy cuts out a part", kInOut + " --start 2"),
        row({"gain", "-6"}, kNoLevels, kPipe + "sox -t wav - out.wav gain -6"),
        row({"rate", "22050"}, kNoRate, kPipe + "sox -t wav - -r 22050 out.wav"),
        row({"norm"}, kNoLevels, kPipe + "sox -t wav - out.wav norm"),
    });
}

TEST(ForeignCommands, AreAnsweredWithALineThatWorks) {
    ExpectExplained({
        CommandRow("convert", CommandIs("copy"), kInOut),
        CommandRow("trim", "copy cuts out a part", kInOut + " --start 0 --end 10"),
        CommandRow("split", "copy cuts out one part at a time", kInOut + " --start 0 --end 10"),
        CommandRow("cat", "kelhost does not join files, and sox does",
                   "sox in.wav out.wav joined.wav"),
        CommandRow("mix", "kelhost does not mix files, and sox does",
                   "sox -m in.wav out.wav mixed.wav"),
        CommandRow("play", "kelhost does not play audio, and ffplay does", kPipe + "ffplay -i -"),
        CommandRow("record", "kelhost does not record audio, and sox does", "rec out.wav"),
        CommandRow("resample", kNoRate, kPipe + "sox -t wav - -r 44100 out.wav"),
        CommandRow("gain", kNoLevels, kPipe + "sox -t wav - out.wav gain -3"),
        CommandRow("normalize", kNoLevels, kPipe + "sox -t wav - out.wav norm"),
        CommandRow("mono", kNoMix, kPipe + "sox -t wav - -c 1 out.wav"),
        CommandRow("fade", "kelhost does not fade, and sox does",
                   kPipe + "sox -t wav - out.wav fade 1"),
        CommandRow("reverse", "kelhost does not reverse audio, and sox does",
                   kPipe + "sox -t wav - out.wav reverse"),
        CommandRow("spectrogram", "kelhost does not draw spectrograms, and sox does",
                   kPipe + "sox -t wav - -n spectrogram"),
        CommandRow("probe", CommandIs("info"), "kelhost info in.wav"),
        CommandRow("tags", "info shows tags and other metadata", "kelhost info --full in.wav"),
        CommandRow("stats", "info measures audio", "kelhost info --measure in.wav"),
        CommandRow("md5", "info computes checksums", "kelhost info --checksum in.wav"),
        CommandRow("diff", CommandIs("compare"), "kelhost compare in.wav out.wav"),
        CommandRow("waveform", CommandIs("plot"), "kelhost plot in.wav"),
        CommandRow("plugins", CommandIs("inspect"), "kelhost inspect"),
        CommandRow("encodings", CommandIs("formats"), "kelhost formats"),
        CommandRow("version", "this is an option", "kelhost --version"),
    });
}

TEST(ForeignFormats, AreAnsweredWithAPipe) {
    const TemporaryDirectory directory;
    const std::string reason =
        "kelhost writes WAVE, RF64 and AIFF, and ffmpeg writes this format: ";
    for (const std::string extension : {"flac", "MP3"}) {
        const std::string line = kPipe + "ffmpeg -i - out." + extension;
        ExpectResult(RunKelhost(directory, {"copy", "in.wav", "out." + extension}), 2, "",
                     "kelhost: out." + extension + ": " + reason + line + "\n");
        ExpectResult(RunKelhost(directory, {"copy", "in.wav", "out.wav", "--format", extension}), 2,
                     "", "kelhost: out." + extension + ": " + reason + line + "\n");
        ExpectLineWorks(line);
    }
}

TEST(ForeignRequests, QuoteFilesForTheShell) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"copy", "it's a take.wav", "$out.wav", "-y"}), 2, "",
                 "kelhost: there is no option -y; the name of this option is --force: kelhost copy "
                 "'it'\\''s a take.wav' '$out.wav' --force\n");
    ExpectResult(RunKelhost(directory, {"take.wav", "$out.wav"}), 2, "",
                 "kelhost: there is no command \"take.wav\"; to copy a file: kelhost copy take.wav "
                 "'$out.wav'\n");
    ExpectResult(RunKelhost(directory, {"-i", "take.wav", "-y", "out.wav"}), 2, "",
                 "kelhost: there is no command \"take.wav\"; to copy a file: kelhost copy take.wav "
                 "out.wav\n");
    ExpectResult(RunKelhost(directory, {"a take.wav"}), 2, "",
                 "kelhost: there is no command \"a take.wav\"; to show facts about a file: kelhost "
                 "info 'a take.wav'\n");
}

TEST(ForeignRequests, DoNotMakeADirectoryWithTheNameOfAnOutput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "in.wav");
    ExpectResult(RunKelhost(directory, {"copy", "in.wav", "-o", "out.wav"}), 2, "",
                 "kelhost: --output-dir out.wav is the name of a file; name the output after the "
                 "input: kelhost copy in.wav out.wav\n");
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    std::filesystem::create_directory(directory / "out.wav");
    ExpectResult(RunKelhost(directory, {"copy", "in.wav", "-o", "out.wav"}), 0,
                 CopyReport("in.wav", "out.wav/in.wav"), "");
}

} // namespace kel::test
