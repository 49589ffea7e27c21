// Values that the floats of a source cannot hold.

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// Two channels of 32-bit integers. Those of the second need more than 24 bits, but for the first.
void WriteWide(const std::string& path) {
    WriteRawAudio(path, SF_FORMAT_WAV | SF_FORMAT_PCM_32, 2, 48000,
                  BytesOf(std::vector<std::int32_t>{0x40000000, 0x100,       //
                                                    -0x40000000, 0x40000001, //
                                                    0x1000001, 0x7FFFFF01,   //
                                                    5, -0x7FFFFFFF}));
}

std::string Report(const std::string& output, const std::string& format,
                   const std::string& addition) {
    return CopyReport("take.wav", output, format, "4 frames, 0:00:00.000" + addition);
}

const std::string kInt32 = "extensible WAVE, int32 little-endian";
const std::string kRounded = "values do not fit into 32-bit floats and are rounded\n";

} // namespace

TEST(CopyExact, CountsRoundedIntegersOfTheRangeAndTheChannels) {
    struct Row {
        Arguments options;
        std::string count;
        std::string addition;
    };
    const TemporaryDirectory directory;
    WriteWide(directory / "take.wav");
    const std::string warning = "kelhost: warning: take.wav: ";
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "a.wav", "--verify"}), 0,
                 Report("a.wav", kInt32, ", verified, 4 values rounded"),
                 warning + "4 of 8 " + kRounded);
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "b.wav", "--channels", "2,2"}), 0,
                 Report("b.wav", kInt32, ", 6 values rounded"), warning + "6 of 8 " + kRounded);
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "c.wav", "--end", "1f", "--verify"}), 0,
                 CopyReport("take.wav", "c.wav", kInt32, "1 frame, 0:00:00.000, verified"), "");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "d.wav", "--start", "3f"}), 0,
                 CopyReport("take.wav", "d.wav", kInt32, "1 frame, 0:00:00.000, 1 value rounded"),
                 warning + "1 of 2 " + kRounded);
    const ProcessResult result = RunKelhost(directory, {"copy", "take.wav", "e.wav", "--json"});
    EXPECT_EQ(nlohmann::json::parse(result.out)["results"][0]["rounded"], 4);
    EXPECT_EQ(ReadRawAudio(directory / "c.wav", 4),
              BytesOf(std::vector<std::int32_t>{0x40000000, 0x100}));
}

TEST(CopyExact, CountsRoundedDoubles) {
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 2, 48000,
                  BytesOf(std::vector<double>{0.1, 0.5, -0.25, 2.0, 0.0, -0.0, 1e300, 0.75}));
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "a.rf64"}), 0,
                 Report("a.rf64", "RF64, float64 little-endian", ", 2 values rounded"),
                 "kelhost: warning: take.wav: 2 of 8 " + kRounded);
}

TEST(CopyExact, CountsFloatsThatBecomeIntegersUnlessThatIsChosen) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000,
               {0.5F, 0.1F, -1.0F, 0.3F, 0.001F, 0.25F, 0.0F, -0.0F});
    const std::string aiff = "AIFF-C, int24 big-endian";
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "a.aiff"}), 0,
                 Report("a.aiff", aiff, ", 3 values rounded"),
                 "kelhost: warning: take.wav: 3 of 8 values do not fit into 24-bit integers and "
                 "are rounded\n");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "b.aiff", "--encoding", "int24"}), 0,
                 Report("b.aiff", aiff, ""), "");
}

// 16-bit values in 32 bits, the lower ones of which should not be used.
TEST(CopyExact, CountsValuesInBitsThatAreDeclaredToBeUnused) {
    const TemporaryDirectory directory;
    const std::string guid("\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 14);
    const std::string format = LittleEndian(0xFFFE, 2) + LittleEndian(1, 2) +
                               LittleEndian(48000, 4) + LittleEndian(192000, 4) +
                               LittleEndian(4, 2) + LittleEndian(32, 2) + LittleEndian(22, 2) +
                               LittleEndian(16, 2) + LittleEndian(4, 4) + LittleEndian(1, 2) + guid;
    for (const std::uint32_t value : {0x12340000U, 0x12340001U}) {
        const std::string data = LittleEndian(value, 4) + LittleEndian(0x10000, 4);
        WriteFile(directory / "take.wav",
                  Chunk("RIFF", "WAVE" + Chunk("fmt ", format) + Chunk("data", data)));
        const bool isUsed = value % 2 == 1;
        ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--require-exact",
                                            "--quiet", "--force"}),
                     isUsed ? 1 : 0, "",
                     isUsed ? Error("take.wav", "1 of 2 values do not fit into 16-bit integers; "
                                                "--require-exact refuses to round them")
                            : "");
    }
}

TEST(CopyRequireExact, RefusesWhatChangesValues) {
    const TemporaryDirectory directory;
    WriteWide(directory / "take.wav");
    WriteAudio(directory / "floats.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000, {0.5F});
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1, 48000, {0.5F});
    WriteAudio(directory / "take.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, 48000, {0.5F});
    WriteFile(directory / "text.wav", "9 2 48000\n");
    const Names before = SortedNames(directory);
    const auto narrow = [](const std::string& output, const std::string& encoding,
                           const std::string& format) {
        return Error(output, encoding + " does not hold every value of " + format +
                                 "; use --encoding keep and WAVE or RF64, or omit --require-exact");
    };
    struct Row {
        Arguments arguments;
        std::string error;
        int status = 1;
    };
    for (const Row& row : {
             Row{{"take.wav", "a.wav"},
                 Error("take.wav", "4 of 8 values do not fit into 32-bit floats; --require-exact "
                                   "refuses to round them")},
             Row{{"take.wav", "a.wav", "--encoding", "int24"},
                 narrow("a.wav", "int24", "WAVE 32-bit integer")},
             Row{{"take.wav", "a.wav", "--encoding", "float32"},
                 narrow("a.wav", "float32", "WAVE 32-bit integer")},
             Row{{"floats.wav", "a.wav", "--encoding", "int32"},
                 narrow("a.wav", "int32", "WAVE 32-bit float")},
             Row{{"floats.wav", "a.aiff"}, narrow("a.aiff", "int24", "WAVE 32-bit float")},
             Row{{"take.flac", "a.wav", "--encoding", "16"},
                 narrow("a.wav", "int16", "FLAC 24-bit")},
             Row{{"take.ogg", "a.wav", "--encoding", "24"}, narrow("a.wav", "int24", "Ogg Vorbis")},
             Row{{"text.wav", "a.wav", "--plugin", TestPlugin("kelFaultyElements")},
                 Error("text.wav", "its encoding is unknown, so that no copy of it is known to be "
                                   "exact; omit --require-exact")},
             Row{{"take.flac", "a.wav", "--dither", "tpdf"},
                 "kelhost: --require-exact excludes --dither; see kelhost copy --help\n",
                 2},
         }) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        ExpectResult(RunKelhost(directory, Arguments{"copy", "--require-exact"} + row.arguments),
                     row.status, "", row.error);
        EXPECT_EQ(SortedNames(directory), before);
    }
}

TEST(CopyRequireExact, AcceptsWhatKeepsValues) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1, 48000, {0.5F});
    WriteAudio(directory / "take.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, 48000, {0.5F});
    WriteWide(directory / "take.wav");
    for (const Arguments& arguments :
         {Arguments{"take.flac", "a.wav"}, Arguments{"take.flac", "a.aiff"},
          Arguments{"take.flac", "a.wav", "--encoding", "float32"},
          Arguments{"take.ogg", "a.wav", "--encoding", "float64"},
          Arguments{"take.wav", "a.aiff", "--channels", "1", "--end", "2f"},
          Arguments{"take.wav", "a.wav", "--channels", "1", "--end", "2f", "--encoding", "64f"}}) {
        ExpectResult(
            RunKelhost(directory,
                       Arguments{"copy", "--require-exact", "--force", "--quiet"} + arguments),
            0, "", "");
    }
}

} // namespace kel::test
