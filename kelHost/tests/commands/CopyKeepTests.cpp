// Copies that keep the encoding of their input.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::test {

TEST(CopyKeep, WritesTheEncodingOfTheInput) {
    struct Row {
        int format;
        std::string wave;
        std::string aiff;
    };
    for (const Row& row : {
             Row{SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "int16", "int16"},
             Row{SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, "int16", "int16"},
             Row{SF_FORMAT_RF64 | SF_FORMAT_PCM_16, "int16", "int16"},
             Row{SF_FORMAT_CAF | SF_FORMAT_ALAC_20, "int24", "int24"},
             Row{SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "int24", "int24"},
             Row{SF_FORMAT_AU | SF_FORMAT_PCM_32, "int32", "int32"},
             Row{SF_FORMAT_WAV | SF_FORMAT_FLOAT, "float32", "int24"},
             Row{SF_FORMAT_W64 | SF_FORMAT_DOUBLE, "float64", "int24"},
             Row{SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM, "float32", "int24"},
             Row{SF_FORMAT_AU | SF_FORMAT_ALAW, "float32", "int24"},
             Row{SF_FORMAT_OGG | SF_FORMAT_VORBIS, "float32", "int24"},
         }) {
        SCOPED_TRACE(row.format);
        const TemporaryDirectory directory;
        WriteAudio(directory / "take", row.format, 1, 8000, std::vector<float>(4000, 0.25F));
        const std::string length = std::to_string(ReadAudio(directory / "take").values.size());
        const auto report = [&](const std::string& output, const std::string& format) {
            return "take -> " + output + ": " + format + ", 1 channel, 8000 Hz, " + length +
                   " frames, ";
        };
        for (const Arguments& options : {Arguments{}, Arguments{"--encoding", "keep"}}) {
            const auto copy = [&](const std::string& output) {
                const ProcessResult result =
                    RunKelhost(directory, Arguments{"copy", "take", output, "--force"} + options);
                EXPECT_EQ(result.status, 0) << result.err;
                return result.out.substr(0, result.out.rfind(' ') + 1);
            };
            EXPECT_EQ(copy("a.wav"),
                      report("a.wav", "extensible WAVE, " + row.wave + " little-endian"));
            EXPECT_EQ(copy("a.aifc"), report("a.aifc", "AIFF-C, " + row.aiff + " big-endian"));
        }
    }
}

TEST(CopyKeep, IsRefusedWithNoiseWhereTheInputHasFloats) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "floats.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 8000, MakeValues(9));
    WriteTake(directory / "take.wav");
    const Arguments copy{"copy", "--dither", "tpdf", "--quiet"};
    ExpectResult(RunKelhost(directory, copy + Arguments{"floats.wav", "copy.wav"}), 1, "",
                 Error("copy.wav", "keeps the encoding float32, and --dither needs an integer "
                                   "encoding; add --encoding int16, int24 or int32"));
    ExpectResult(
        RunKelhost(directory, copy + Arguments{"take.wav", "copy.wav"}), 0, "",
        "kelhost: warning: copy.wav: channel 1: 1 value clipped, the loudest 1.0000182 times "
        "full scale\n");
    EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "floats.wav", "take.wav"}));
}

TEST(CopyEncodingName, MayBeTheOneOfAnotherProgram) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(
        RunKelhost(directory, {"copy", "take.wav", "a.x", "--format", "rf64", "--encoding", "24"}),
        0, CopyReport("take.wav", "a.x", "RF64, int24 little-endian"), "");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "a.bwf", "--encoding", "32f"}), 0,
                 CopyReport("take.wav", "a.bwf", "RF64, float32 little-endian"), "");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "a.aifc", "--encoding", "pcm_s16le"}),
                 0, CopyReport("take.wav", "a.aifc", "AIFF-C, int16 little-endian"), "");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "b.aifc", "--encoding", "s32be",
                                        "--byte-order", "big"}),
                 0, CopyReport("take.wav", "b.aifc", "AIFF-C, int32 big-endian"), "");
    EXPECT_EQ(ReadAudio(directory / "a.bwf").format, SF_FORMAT_RF64 | SF_FORMAT_FLOAT);
}

} // namespace kel::test
