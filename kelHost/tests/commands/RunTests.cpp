// `kelhost run`: any source into any sink.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

using nlohmann::json;

// Runs `kelhost run` with the elements of the example and of the plug-in.
ProcessResult RunElements(const TemporaryDirectory& directory,
                          const std::vector<std::string>& words) {
    std::vector<std::string> arguments{"--plugin", TestPlugin("kelTone"), "--plugin",
                                       KEL_TEST_PLUGIN, "run"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return RunKelhost(directory, arguments);
}

// What is said of floats in stereo at 48 kHz.
std::string Line(const std::string& input, const std::string& output, const std::string& length) {
    return input + " -> " + output + ": 32-bit float little-endian, 2 channels, 48000 Hz, " +
           length + "\n";
}

const std::string kOneSecond = "48000 frames, 0:00:01.000";
const std::string kTake = "1000 frames, 0:00:00.021";
const std::string kLevels = "channel 1: peak -20.00 dB, RMS -23.01 dB\n"
                            "channel 2: peak -20.00 dB, RMS -23.01 dB\n";

} // namespace

TEST(Run, WritesATone) {
    // Few frames, which go through on one thread, and many.
    for (const int frames : {441, 100000}) {
        SCOPED_TRACE(frames);
        const TemporaryDirectory directory;
        const ProcessResult result =
            RunElements(directory, {"example.ToneSource", "SampleRate=44100", "Channels=3",
                                    "Frequency=997", "Level=-6", "Length=" + std::to_string(frames),
                                    "!", "kel.LibsndfileSink", "FilePath=tone.wav"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        const Audio audio = ReadAudio(directory / "tone.wav");
        EXPECT_EQ(audio.format, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT);
        EXPECT_EQ(audio.channels, 3);
        EXPECT_EQ(audio.rate, 44100);
        ASSERT_EQ(audio.values.size(), 3U * static_cast<std::size_t>(frames));
        const long double amplitude = std::pow(10.0L, -6.0L / 20);
        const long double pi = std::acos(-1.0L);
        constexpr float kStep = 1.0F / (1U << 24U); // between floats of this level
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < audio.values.size(); ++i) {
            const auto frame = static_cast<long double>(i / 3);
            const auto expected =
                static_cast<float>(amplitude * std::sin(2 * pi * 997 * frame / 44100));
            wrong += std::abs(audio.values[i] - expected) > kStep ? 1U : 0U;
        }
        EXPECT_EQ(wrong, 0U);
        EXPECT_EQ(SortedNames(directory), Names{"tone.wav"});
    }
}

TEST(Run, MeasuresAFile) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000,
               {0.5F, 0.25F, -0.5F, 0.0F, 0.5F, 0.0F, -0.5F, 0.0F});
    const std::string levels = "channel 1: peak -6.02 dB, RMS -6.02 dB\n"
                               "channel 2: peak -12.04 dB, RMS -18.06 dB\n";
    ExpectResult(RunElements(directory, {"kel.LibsndfileSource", "FilePath=take.flac", "!",
                                         "example.LevelMeterSink", "FilePath=levels.txt"}),
                 0, Line("take.flac", "levels.txt", "4 frames, 0:00:00.000") + levels, "");
    EXPECT_EQ(Content(directory / "levels.txt"), levels);
    EXPECT_EQ(SortedNames(directory), (Names{"levels.txt", "take.flac"}));
}

TEST(Run, NeedsNoFileAtAll) {
    const TemporaryDirectory directory;
    ExpectResult(RunElements(directory, {"example.ToneSource", "!", "example.LevelMeterSink"}), 0,
                 Line("example.ToneSource", "example.LevelMeterSink", kOneSecond) + kLevels, "");
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(Run, WritesTheVeryFileThatACopyWrites) {
    for (const char* name : {"take.wav", "take.rf64"}) {
        for (const std::size_t frames : {1000U, 100000U}) {
            const TemporaryDirectory directory;
            fs::create_directory(directory / "copied");
            fs::create_directory(directory / "run");
            WriteTake(directory / "in.wav", frames);
            const std::string copied = std::string("copied/") + name;
            const std::string run = std::string("run/") + name;
            EXPECT_EQ(RunKelhost(directory, {"copy", "in.wav", copied}).status, 0);
            EXPECT_EQ(RunElements(directory, {"kel.LibsndfileSource", "FilePath=in.wav", "!",
                                              "kel.LibsndfileSink", "FilePath=" + run})
                          .status,
                      0);
            EXPECT_EQ(WithoutTime(Content(directory / run)),
                      WithoutTime(Content(directory / copied)));
        }
    }
}

TEST(Run, TakesTheTypeThatIsNamedElseTheExtensions) {
    struct Row {
        std::string source;
        std::string input;
        std::string sink;
        std::string output;
        std::string sinkType;
    };
    for (const Row& row :
         {Row{"kel.LibsndfileSource", "take", "kel.LibsndfileSink", "out.rf64", "BWAVE"},
          Row{"kel.LibsndfileSource", "take.aiff", "kel.LibsndfileSink", "OUT.WAV", "WAVE"},
          Row{"kel.LibsndfileSource:AIFF", "take.wav", "kel.LibsndfileSink:BWAVE", "out.wav",
              "BWAVE"},
          Row{"kel.LibsndfileSource:BWAVE", "take.wav", "kel.LibsndfileSink:WAVE", "out", "WAVE"},
          Row{"kel.LibsndfileSource", "take.wav", "example.LevelMeterSink:Unknown", "out",
              "Unknown"}}) {
        SCOPED_TRACE(row.source + " " + row.sink + " " + row.output);
        const TemporaryDirectory directory;
        WriteTake(directory / row.input);
        const ProcessResult result =
            RunElements(directory, {row.source, "FilePath=" + row.input, "!", row.sink,
                                    "FilePath=" + row.output, "--json"});
        ASSERT_EQ(result.status, 0);
        EXPECT_EQ(json::parse(result.out)["results"][0]["sink"]["type"], row.sinkType);
        if (row.sinkType != "Unknown") {
            EXPECT_EQ(ReadAudio(directory / row.output).format & SF_FORMAT_TYPEMASK,
                      row.sinkType == "BWAVE" ? SF_FORMAT_RF64 : SF_FORMAT_WAVEX);
        }
    }
}

TEST(Run, SetsTextsOfAnyBytesAndFilesOfAnyName) {
    for (const char* name : {"a b.wav", "a=b.wav", "a\n\xFF.wav", "-", "!.wav", "a:b.wav"}) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        fs::create_directory(directory / "out");
        const std::string output = std::string("out/") + name + (*name == '-' ? ".wav" : "");
        WriteTake(directory / name);
        EXPECT_EQ(RunElements(directory, {"kel.LibsndfileSource", std::string("FilePath=") + name,
                                          "!", "kel.LibsndfileSink", "FilePath=" + output})
                      .status,
                  0);
        EXPECT_EQ(ReadAudio(directory / output).values, MakeValues(2000));
    }
}

TEST(Run, TakesAnEmptyPathForNone) {
    const TemporaryDirectory directory;
    ExpectResult(
        RunElements(directory, {"example.ToneSource", "!", "example.LevelMeterSink", "FilePath="}),
        0, Line("example.ToneSource", "example.LevelMeterSink", kOneSecond) + kLevels, "");
    EXPECT_EQ(SortedNames(directory), Names{});
}

TEST(Run, ReplacesAFileOnlyWhenAskedTo) {
    const TemporaryDirectory directory;
    WriteFile(directory / "levels.txt", "before");
    const std::vector<std::string> words{"example.ToneSource", "!", "example.LevelMeterSink",
                                         "FilePath=levels.txt"};
    ExpectResult(RunElements(directory, words), 1, "",
                 "kelhost: levels.txt: exists already; use --force to replace it\n");
    EXPECT_EQ(Content(directory / "levels.txt"), "before");
    std::vector<std::string> forced = words;
    forced.emplace_back("--force");
    ExpectResult(RunElements(directory, forced), 0,
                 Line("example.ToneSource", "levels.txt", kOneSecond) + kLevels, "");
    EXPECT_EQ(Content(directory / "levels.txt"), kLevels);
    EXPECT_EQ(SortedNames(directory), Names{"levels.txt"});
}

TEST(Run, NeverReplacesItsInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string before = Content(directory / "take.wav");
    ExpectResult(RunElements(directory, {"kel.LibsndfileSource", "FilePath=take.wav", "!",
                                         "kel.LibsndfileSink", "FilePath=./take.wav", "--force"}),
                 1, "",
                 "kelhost: ./take.wav: is the same file as the input take.wav; name another "
                 "output\n");
    EXPECT_EQ(Content(directory / "take.wav"), before);
}

TEST(Run, ShowsWhatTheSinkFoundOutEvenWhenItIsQuiet) {
    const TemporaryDirectory directory;
    ExpectResult(
        RunElements(directory, {"example.ToneSource", "!", "example.LevelMeterSink", "--quiet"}), 0,
        kLevels, "");
}

TEST(Run, GivesADocument) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const ProcessResult result = RunElements(
        directory, {"--json", "kel.LibsndfileSource", "FilePath=take.wav", "MaxSamplesPerBuffer=7",
                    "!", "kel.LibsndfileSink", "FilePath=copy.wav"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.run"}, result.out);
    EXPECT_EQ(
        json::parse(result.out),
        (json{
            {"document", "kelhost.run"},
            {"version", 1},
            {"failures", json::array()},
            {"results",
             {{{"source",
                {{"implementation", "kel.LibsndfileSource"},
                 {"type", "WAVE"},
                 {"file", "take.wav"}}},
               {"sink",
                {{"implementation", "kel.LibsndfileSink"}, {"type", "WAVE"}, {"file", "copy.wav"}}},
               {"encoding", "32-bit float little-endian"},
               {"channels", 2},
               {"rate", 48000},
               {"frames", 1000},
               {"reports", json::array()},
               {"warnings", json::array()}}}}}));
}

TEST(Run, GivesADocumentOfWhatTheSinkFoundOut) {
    const TemporaryDirectory directory;
    const ProcessResult result = RunElements(
        directory, {"--json", "example.ToneSource", "Channels=1", "!", "example.LevelMeterSink"});
    ExpectDocuments({"kelhost.run"}, result.out);
    const json run = json::parse(result.out)["results"][0];
    EXPECT_EQ(run["reports"], json{"channel 1: peak -20.00 dB, RMS -23.01 dB"});
    EXPECT_EQ(run["source"]["file"], "");
}

TEST(Run, GivesADocumentOfWhatFailed) {
    const TemporaryDirectory directory;
    const ProcessResult result = RunElements(
        directory, {"--json", "example.ToneSource", "Level=1", "!", "example.LevelMeterSink"});
    EXPECT_EQ(result.status, 1);
    const std::string message = "example.ToneSource: cannot be read: [Level is 1, not from -200 "
                                "to 0] [ Condition is not true ]";
    ExpectDocuments({"kelhost.error", "kelhost.run"}, result.err + result.out);
    EXPECT_EQ(json::parse(result.out),
              (json{{"document", "kelhost.run"},
                    {"version", 1},
                    {"results", json::array()},
                    {"failures", {{{"file", "example.ToneSource"}, {"message", message}}}}}));
}

TEST(Run, TellsOfItsProgress) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        RunElements(directory, {"example.ToneSource", "Length=1000", "!", "example.LevelMeterSink",
                                "--progress", "json"});
    EXPECT_EQ(result.status, 0);
    ExpectDocuments({"kelhost.progress", "kelhost.progress"}, result.err);
    std::istringstream lines(result.err);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(json::parse(line), (json{{"document", "kelhost.progress"},
                                       {"version", 1},
                                       {"file", "example.ToneSource"},
                                       {"done", 1000},
                                       {"total", 1000},
                                       {"rate", 48000}}));
    std::getline(lines, line);
    EXPECT_EQ(json::parse(line), (json{{"document", "kelhost.progress"},
                                       {"version", 1},
                                       {"file", "example.ToneSource"},
                                       {"finished", true},
                                       {"succeeded", true}}));
}

} // namespace kel::test
