#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace {

using nlohmann::json;

constexpr int kFloatWave = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
constexpr std::size_t kLongTake = 40001; // three samples of at most 16384 frames
const std::string kTitles =
    "Channel  Differing values  Not finite  Largest difference       Level  At frame\n";

// A comparison of a.wav and b.wav, written as they are needed.
class Compare : public testing::Test {
protected:
    void Write(const std::string& file, const std::vector<float>& values, int channels = 2,
               int rate = 48000) const {
        WriteAudio(m_directory / file, kFloatWave, channels, rate, values);
    }

    void Expect(int status, const std::string& out, const Arguments& options = {}) const {
        ExpectResult(RunKelhost(m_directory, Arguments{"compare", "a.wav", "b.wav"} + options),
                     status, out, "");
    }

    void ExpectTrouble(const std::string& err, const Arguments& arguments) const {
        SCOPED_TRACE(testing::PrintToString(arguments));
        ExpectResult(RunKelhost(m_directory, Arguments{"compare"} + arguments), 2, "", err);
    }

    TemporaryDirectory m_directory;
};

// A FLAC file that ends in the middle of its frames.
void WriteCutOff(const std::string& path) {
    WriteAudio(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, MakeValues(2 * kLongTake));
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
}

} // namespace

TEST_F(Compare, FindsTheSameAudioInFilesOfDifferentFormats) {
    WriteTake(m_directory / "a.wav", kLongTake);
    WriteAudio(m_directory / "b.wav", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 2, 48000,
               MakeValues(2 * kLongTake));
    const std::string same =
        "a.wav and b.wav: the same audio, 2 channels, 48000 Hz, 40001 frames, 0:00:00.833\n";
    Expect(0, same);
    WriteEndlessTake(m_directory / "b.wav", kLongTake);
    Expect(0, same);
    Write("a.wav", {}, 1);
    Write("b.wav", {}, 1);
    Expect(0, "a.wav and b.wav: the same audio, 1 channel, 48000 Hz, 0 frames, 0:00:00.000\n");
}

TEST_F(Compare, WarnsOfFilesWithMoreDigitsThanItCompares) {
    WriteAudio(m_directory / "a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 2, 48000, MakeValues(20));
    WriteAudio(m_directory / "b.wav", SF_FORMAT_W64 | SF_FORMAT_DOUBLE, 2, 48000, MakeValues(20));
    const std::string floats = "is compared as 32-bit floats, which do not hold every value of ";
    ExpectResult(RunKelhost(m_directory, {"compare", "a.wav", "b.wav"}), 0,
                 "a.wav and b.wav: the same audio, 2 channels, 48000 Hz, 10 frames, 0:00:00.000\n",
                 "kelhost: warning: a.wav: " + floats + "WAVE 32-bit integer\n" +
                     "kelhost: warning: b.wav: " + floats + "W64 64-bit float\n");
}

TEST_F(Compare, ShowsTheFirstDifferenceAndThoseOfEachChannel) {
    std::vector<float> values(3 * kLongTake, 0.25F);
    Write("a.wav", values, 3);
    values[3 * 24000 + 2] = 0.125F;
    values[3 * 40000 + 2] = -0.25F;
    values[3 * 40000 + 0] = 0.2F;
    Write("b.wav", values, 3);
    Expect(1,
           "a.wav and b.wav: different audio\n"
           "First difference  frame 24000 (0:00:00.500)\n" +
               kTitles +
               "      1                 1           0                0.05  -26.0 dBFS     40000\n"
               "      3                 2           0                 0.5   -6.0 dBFS     40000"
               "\n");
}

TEST_F(Compare, ReportsOtherChannelsAndRatesWithoutComparingSamples) {
    Write("a.wav", {0.5F, 0.5F});
    Write("b.wav", {0.5F, 0.5F}, 1);
    Expect(1, "a.wav and b.wav: different audio\n"
              "Channels          2 and 1\n"
              "Samples           not compared\n");
    Write("b.wav", {0.5F, 0.5F}, 2, 44100);
    Expect(1, "a.wav and b.wav: different audio\n"
              "Rate              48000 Hz and 44100 Hz\n"
              "Samples           not compared\n");
    Write("b.wav", {0.5F, 0.5F}, 1, 44100);
    Expect(1, "a.wav and b.wav: different audio\n"
              "Channels          2 and 1\n"
              "Rate              48000 Hz and 44100 Hz\n"
              "Samples           not compared\n");
}

TEST_F(Compare, ReportsBothLengthsAndComparesTheCommonFrames) {
    WriteTake(m_directory / "a.wav", 1000);
    WriteTake(m_directory / "b.wav", kLongTake);
    const std::string frames = "a.wav and b.wav: different audio\n"
                               "Frames            1000 (0:00:00.021) and 40001 (0:00:00.833)\n"
                               "First difference  ";
    Expect(1, frames + "none in 1000 common frames\n");
    WriteEndlessTake(m_directory / "b.wav", kLongTake);
    Expect(1, frames + "none in 1000 common frames\n");
    std::vector<float> values = MakeValues(2 * kLongTake);
    values[1999] += 0.25F;
    Write("b.wav", values);
    Expect(1, frames + "frame 999 (0:00:00.021)\n" + kTitles +
                  "      2                 1           0                0.25  -12.0 dBFS       "
                  "999\n");
    Write("a.wav", {});
    Expect(1, "a.wav and b.wav: different audio\n"
              "Frames            0 (0:00:00.000) and 40001 (0:00:00.833)\n"
              "First difference  none in 0 common frames\n");
}

TEST_F(Compare, AcceptsDifferencesUpToTheTolerance) {
    Write("a.wav", {0.5F, 0, 0, 0});
    Write("b.wav", {0.75F, 0, 0.125F, 0});
    const std::string row = "           0                0.25  -12.0 dBFS         0\n";
    const std::string table = kTitles + "      1                 ";
    for (const auto& [tolerance, shown] :
         {std::pair("0.25", "0.25"), std::pair("-12.0411dB", "0.250003")}) {
        Expect(0,
               std::string("a.wav and b.wav: the same audio within ") + shown +
                   ", 2 channels, 48000 Hz, 2 frames, 0:00:00.000\n" + table + "0" + row,
               {"--tolerance", tolerance});
    }
    for (const std::string tolerance : {"0.2499999", "-12.0413dB"}) {
        Expect(1,
               "a.wav and b.wav: different audio\n"
               "First difference  frame 0 (0:00:00.000)\n" +
                   table + "1" + row,
               {"--tolerance", tolerance});
    }
}

TEST_F(Compare, RefusesOtherTolerances) {
    WriteTake(m_directory / "a.wav");
    for (const std::string value : {"nan", "-nan", "inf", "-1", "-0.001", "1e999", "0.1 ", "0x1",
                                    "dB", "nandB", "-infdB", "1e9dB", "-90db", "-90 dB"}) {
        ExpectTrouble("kelhost: invalid value \"" + value +
                          "\" for --tolerance: expected a part of full scale (0.001) or decibels "
                          "(-60dB)\n",
                      {"a.wav", "a.wav", "--tolerance", value});
    }
}

TEST_F(Compare, BeginsEachFileAtItsOwnOffset) {
    const std::vector<float> values = MakeValues(2 * kLongTake);
    Write("a.wav", values);
    Write("b.wav", {values.begin() + 2 * 1000, values.end()});
    Expect(0, "a.wav and b.wav: the same audio, 2 channels, 48000 Hz, 39001 frames, 0:00:00.813\n",
           {"--start-a", "1000f"});
    Expect(0, "a.wav and b.wav: the same audio, 2 channels, 48000 Hz, 24000 frames, 0:00:00.500\n",
           {"--start-a", "1480f", "--start-b", "0.01", "--duration", "0.5"});
    std::vector<float> other(values.begin() + 2 * 1000, values.end());
    other[2 * 30000] += 0.5F;
    Write("b.wav", other);
    Expect(1,
           "a.wav and b.wav: different audio\n"
           "First difference  frame 31000 (0:00:00.646) and frame 30000 (0:00:00.625)\n"
           "Channel  Differing values  Not finite  Largest difference      Level         At frame\n"
           "      1                 1           0                 0.5  -6.0 dBFS  31000 and 30000"
           "\n",
           {"--start-a", "1100f", "--start-b", "100f"});
}

TEST_F(Compare, TakesNaNForEqualAndOtherInfinitiesForDifferences) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    Write("a.wav", {kNaN, 0.0F, kInfinity, -kInfinity, 1}, 1);
    Write("b.wav", {std::copysign(kNaN, -1.0F), -0.0F, kInfinity, -kInfinity, 1}, 1);
    ASSERT_NE(ReadFile(m_directory / "a.wav"), ReadFile(m_directory / "b.wav"));
    Expect(0, "a.wav and b.wav: the same audio, 1 channel, 48000 Hz, 5 frames, 0:00:00.000\n");
    Write("b.wav", {kNaN, 0.0F, -kInfinity, 1, kNaN}, 1);
    Expect(1,
           "a.wav and b.wav: different audio\n"
           "First difference  frame 2 (0:00:00.000)\n"
           "Channel  Differing values  Not finite  Largest difference  Level  At frame\n"
           "      1                 3           3                none\n",
           {"--tolerance", "1000"});
}

TEST_F(Compare, EndsWithStatus2WhenAFileCannotBeRead) {
    WriteTake(m_directory / "take.wav");
    WriteFile(m_directory / "text.wav", kNoAudio);
    const std::string missing =
        Error("missing.wav", "cannot open for reading: No such file or directory");
    ExpectTrouble(missing, {"missing.wav", "take.wav"});
    ExpectTrouble(missing, {"take.wav", "missing.wav"});
    ExpectTrouble(NoAudioError("text.wav"), {"take.wav", "text.wav"});
    ExpectTrouble(Error("take.wav", "the range from frame 1000 to frame 1000 is not within the "
                                    "file, which has 1000 frames (0:00:00.021)"),
                  {"take.wav", "take.wav", "--start-b", "1000f"});
    ExpectTrouble("kelhost: B is missing; see kelhost compare --help\n", {"take.wav"});
}

// Not even with itself, and not where the other file has no more frames to compare.
TEST_F(Compare, DoesNotAcceptADamagedFile) {
    WriteCutOff(m_directory / "cut.flac");
    WriteTake(m_directory / "take.wav", 10);
    for (const Arguments& files :
         {Arguments{"cut.flac", "cut.flac"}, Arguments{"cut.flac", "take.wav"},
          Arguments{"take.wav", "cut.flac"}}) {
        SCOPED_TRACE(testing::PrintToString(files));
        const ProcessResult result = RunKelhost(m_directory, Arguments{"compare"} + files);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(ReplaceMatches(result.err, "delivers [0-9]+;", "delivers N;"),
                  Error("cut.flac", "declares 40001 frames and delivers N; it is damaged "
                                    "or was changed while it was read (--allow-truncated accepts "
                                    "the frames that exist)"));
    }
}

TEST_F(Compare, EndsWithStatus2WhenTheProgramFails) {
    WriteTake(m_directory / "take.wav");
    ExpectTrouble(Error(TestPlugin("kelNoEntryPoint"),
                        "the plug-in has no entry point RegisterAll: " +
                            TestPlugin("kelNoEntryPoint") + ": undefined symbol: RegisterAll"),
                  {"take.wav", "take.wav", "--plugin", TestPlugin("kelNoEntryPoint")});
    Command command;
    command.program = "/bin/sh";
    command.directory = m_directory.Path();
    command.arguments = {"-c",
                         std::string(KEL_TEST_HOST) + " compare take.wav take.wav >/dev/full"};
    ExpectResult(RunCommand(command), 2, "", "kelhost: cannot write to standard output\n");
}

TEST_F(Compare, RefusesToReadOnePipeTwice) {
    ASSERT_EQ(mkfifo((m_directory / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", m_directory / "other");
    WriteTake(m_directory / "take.wav");
    Command writer;
    writer.program = "/bin/cp";
    writer.arguments = {m_directory / "take.wav", m_directory / "pipe"};
    RunningProcess process(writer);
    ExpectTrouble(Error("other", "cannot compare it with pipe: both are the same pipe or device; "
                                 "name a file instead of one of them"),
                  {"pipe", "other"});
    process.Wait();
}

TEST_F(Compare, IsQuietExceptForErrors) {
    WriteTake(m_directory / "a.wav");
    WriteTake(m_directory / "b.wav");
    Expect(0, "", {"--quiet"});
    WriteTake(m_directory / "b.wav", 999);
    Expect(1, "", {"--quiet"});
    ExpectTrouble(Error("missing.wav", "cannot open for reading: No such file or directory"),
                  {"a.wav", "missing.wav", "--quiet"});
}

TEST_F(Compare, WritesADocument) {
    std::string documents;
    const auto run = [&](int status, const Arguments& arguments) {
        const ProcessResult result =
            RunKelhost(m_directory, Arguments{"compare", "--json"} + arguments);
        EXPECT_EQ(result.status, status);
        documents += result.out;
        return json::parse(result.out);
    };
    const auto document = [](const json& results, const json& failures) {
        return json{{"document", "kelhost.compare"},
                    {"version", 1},
                    {"results", results},
                    {"failures", failures}};
    };
    const auto place = [](int a, const std::string& timeA, int b, const std::string& timeB) {
        return json{{"a", {{"frame", a}, {"time", timeA}}}, {"b", {{"frame", b}, {"time", timeB}}}};
    };
    const auto file = [](const std::string& name, int channels, int start, const json& frames) {
        return json{{"file", name}, {"path", name},   {"channels", channels},
                    {"rate", 1000}, {"start", start}, {"frames", frames}};
    };
    Write("a.wav", {0, 0, 1, 0, 0.5F, 0}, 2, 1000);
    Write("b.wav", {1, 0, 1, 0}, 2, 1000);
    const json equal{{"differing", 0},
                     {"non_finite", 0},
                     {"largest", 0.0},
                     {"largest_dbfs", nullptr},
                     {"largest_at", nullptr}};
    const json half{{"differing", 1},
                    {"non_finite", 0},
                    {"largest", 0.5},
                    {"largest_dbfs", 20 * std::log10(0.5)},
                    {"largest_at", place(2, "0:00:00.002", 1, "0:00:00.001")}};
    EXPECT_EQ(run(1, {"a.wav", "b.wav", "--start-a", "1f", "--tolerance", "0.25"}),
              document({{{"same", false},
                         {"a", file("a.wav", 2, 1, 2)},
                         {"b", file("b.wav", 2, 0, 2)},
                         {"tolerance", 0.25},
                         {"compared_frames", 2},
                         {"first_difference", place(2, "0:00:00.002", 1, "0:00:00.001")},
                         {"channels", {half, equal}},
                         {"warnings", json::array()}}},
                       json::array()));
    EXPECT_EQ(run(0, {"a.wav", "a.wav"}), document({{{"same", true},
                                                     {"a", file("a.wav", 2, 0, 3)},
                                                     {"b", file("a.wav", 2, 0, 3)},
                                                     {"tolerance", 0.0},
                                                     {"compared_frames", 3},
                                                     {"first_difference", nullptr},
                                                     {"channels", {equal, equal}},
                                                     {"warnings", json::array()}}},
                                                   json::array()));
    WriteAudio(m_directory / "b.wav", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 1000, {0.5F});
    ForgetLength(m_directory / "b.wav");
    EXPECT_EQ(run(1, {"a.wav", "b.wav"}), document({{{"same", false},
                                                     {"a", file("a.wav", 2, 0, 3)},
                                                     {"b", file("b.wav", 1, 0, nullptr)},
                                                     {"tolerance", 0.0},
                                                     {"compared_frames", 0},
                                                     {"first_difference", nullptr},
                                                     {"channels", json::array()},
                                                     {"warnings", json::array()}}},
                                                   json::array()));
    EXPECT_EQ(
        run(2, {"a.wav", "x.wav"}),
        document(json::array(),
                 {{{"file", "x.wav"},
                   {"path", "x.wav"},
                   {"message", "x.wav: cannot open for reading: No such file or directory"}}}));
    ExpectDocuments(Names(4, "kelhost.compare"), documents);
}

} // namespace kel::test
