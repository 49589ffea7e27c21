#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

TEST(Info, ShowsFilesInATable) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 96024);
    WriteAudio(directory / "long name.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, 8000,
               MakeValues(8000));
    WriteAudio(directory / "six", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 6, 192000, MakeValues(6));
    ExpectResult(RunKelhost(directory, {"info", "take.wav", "long name.aiff", "six"}), 0,
                 "File            Channels       Rate  Frames     Duration  Delivered as\n"
                 "take.wav               2   48000 Hz   96024  0:00:02.001  32-bit float "
                 "little-endian\n"
                 "long name.aiff         1    8000 Hz    8000  0:00:01.000  32-bit float "
                 "little-endian\n"
                 "six                    6  192000 Hz       1  0:00:00.000  32-bit float "
                 "little-endian\n",
                 "");
    EXPECT_EQ(SortedNames(directory), (Names{"long name.aiff", "six", "take.wav"}));
}

TEST(Info, ShowsTheOthersWhenFilesCannotBeOpened) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", kNoAudio);
    std::filesystem::create_directory(directory / "directory");
    const std::string errors =
        NoAudioError("text.wav") + Error("directory", "is a directory; name the audio files in it");
    const std::string line = "         2  48000 Hz    1000  0:00:00.021  32-bit float "
                             "little-endian\n";
    ExpectResult(RunKelhost(directory, {"info", "text.wav", "take.wav", "directory", "./take.wav"}),
                 1,
                 "File        Channels      Rate  Frames     Duration  Delivered as\ntake.wav  " +
                     line + "./take.wav" + line,
                 errors);
    ExpectResult(RunKelhost(directory, {"info", "text.wav", "directory"}), 1, "", errors);
}

TEST(InfoMeasure, ShowsLevelsAndLoudnessOfEachFileBelowTheTable) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "half.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 1000,
               {0.5F, 0.0F, -0.5F, 0.0F});
    WriteAudio(directory / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 1000, {10.0F, -10.0F});
    ExpectResult(RunKelhost(directory, {"info", "--measure", "half.wav", "loud.wav"}), 0,
                 "File      Channels     Rate  Frames     Duration  Delivered as\n"
                 "half.wav         2  1000 Hz       2  0:00:00.002  32-bit float little-endian\n"
                 "loud.wav         1  1000 Hz       2  0:00:00.002  32-bit float little-endian\n"
                 "\n"
                 "half.wav\n"
                 "Channel       Peak        RMS  At full scale  Not finite\n"
                 "      1  -6.0 dBFS  -6.0 dBFS              0           0\n"
                 "      2       none       none              0           0\n"
                 "Integrated loudness  none\n"
                 "Loudness range       none\n"
                 "True peak            -6.0 dBTP\n"
                 "\n"
                 "loud.wav\n"
                 "Channel       Peak        RMS  At full scale  Not finite\n"
                 "      1  20.0 dBFS  20.0 dBFS              2           0\n"
                 "Integrated loudness  none\n"
                 "Loudness range       none\n"
                 "True peak            20.0 dBTP\n",
                 "");
}

TEST(InfoMeasure, ReportsAFileThatEndsEarlyAndShowsTheOthers) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 1);
    WriteAudio(directory / "whole.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 48000,
               MakeValues(100000));
    const std::string whole = ReadFile(directory / "whole.flac");
    // The header, and nothing else.
    WriteFile(directory / "broken.flac", whole.substr(0, 200));
    const ProcessResult result =
        RunKelhost(directory, {"info", "--measure", "broken.flac", "take.wav"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out.substr(0, result.out.find("\n\n")),
              "File      Channels      Rate  Frames     Duration  Delivered as\n"
              "take.wav         2  48000 Hz       1  0:00:00.000  32-bit float little-endian");
    const std::string promise = "kelhost: broken.flac: declares 100000 frames and delivers 0";
    EXPECT_EQ(result.err.substr(0, promise.size()), promise);
    const std::string damaged = "; it is damaged or was changed while it was read "
                                "(--allow-truncated accepts the frames that exist)\n";
    EXPECT_EQ(result.err.substr(result.err.size() - damaged.size()), damaged);
    EXPECT_EQ(RunKelhost(directory, {"plot", "broken.flac", "-o", "broken.png"}).err, result.err);
    EXPECT_EQ(RunKelhost(directory, {"plot", "broken.flac"}).status, 1);
    EXPECT_EQ(SortedNames(directory), (Names{"broken.flac", "take.wav", "whole.flac"}));
}

TEST(InfoField, ShowsOneValue) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 1000,
               {0.5F, 0.0F, -0.5F, 4.0F});
    struct Row {
        std::string field;
        std::string value;
    };
    const std::vector<Row> rows{
        {"channels", "2"},
        {"file", "take.wav"},
        {"frames", "2"},
        {"measurement.channels.0.peak_dbfs", "-6.020599913279624"},
        {"measurement.channels.1.at_full_scale", "1"},
        {"measurement.integrated_lufs", "null"},
        {"seconds", "0.002"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.field);
        ExpectResult(RunKelhost(directory, {"info", "--field", row.field, "take.wav"}), 0,
                     row.value + "\n", "");
    }
    ExpectResult(RunKelhost(directory, {"info", "--json", "--field", "file", "take.wav"}), 0,
                 "\"take.wav\"\n", "");
}

TEST(InfoField, IsShownOfTheFilesThatHaveIt) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 1);
    WriteAudio(directory / "mono.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, {0.0F});
    ExpectResult(RunKelhost(directory, {"info", "--field", "measurement.channels.1.non_finite",
                                        "mono.wav", "missing.wav", "take.wav"}),
                 1, "0\n",
                 Error("missing.wav", "cannot open for reading: No such file or directory") +
                     Error("mono.wav", "has no field measurement.channels.1.non_finite; it has 1 "
                                       "channel, counted from 0"));
}

TEST(InfoField, IsRefusedWithTheValidOnesBeforeAnyFileIsRead) {
    const TemporaryDirectory directory;
    const std::string names =
        " for --field: expected channels, delivery, duration, file, frames, "
        "measurement.channels.0.at_full_scale, measurement.channels.0.non_finite, "
        "measurement.channels.0.peak, measurement.channels.0.peak_dbfs, "
        "measurement.channels.0.rms, measurement.channels.0.rms_dbfs, "
        "measurement.integrated_lufs, measurement.range_lu, measurement.true_peak_dbtp, rate, "
        "seconds, truncated or warnings\n";
    for (const std::string field :
         {"Frames", "measurement.channels", "measurement.channels.x.peak",
          "measurement.channels.01.peak", "measurement/range_lu", "frames.", "~"}) {
        ExpectResult(RunKelhost(directory, {"info", "missing.wav", "--field=" + field}), 2, "",
                     "kelhost: invalid value \"" + field + "\"" + names);
    }
}

} // namespace kel::test
