#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// The report about the files in a directory.
std::string Report(const std::string& directory) {
    const std::string tone = directory + "/tone.wav";
    const std::string audio = ", 2 channels, 48000 Hz, 192000 frames, 0:00:04.000\n";
    const std::string padding(std::max(directory.size() + 9, std::size_t{4}) - 4, ' ');
    const std::string length = "  48000 Hz  192000  0:00:04.000  ";
    return "The sink wrote a short tone to " + tone + ".\n\nCopied through source and sink:\n" + //
           tone + " -> " + directory + "/copy.wav: extensible WAVE, float32 little-endian" + audio +
           tone + " -> " + directory + "/copy.rf64: RF64, float32 little-endian" + audio + //
           tone + " -> " + directory + "/copy.aiff: AIFF-C, int24 big-endian" + audio +
           "\nThe files:\n"
           "File" +
           padding + " " +
           "  Format                 Channels  Layout      Rate  Frames     Duration    "
           "Bytes\n" +
           directory + "/tone.wav   WAVE 32-bit float             2  stereo" + length +
           "1536112\n" + directory + "/copy.wav   WAVE 32-bit float             2  stereo" +
           length + "1536112\n" + directory +
           "/copy.rf64  RF64 32-bit float             2  stereo" + length + "1536104\n" +
           directory + "/copy.aiff  AIFF-C 24-bit integer         2  stereo" + length +
           "1152092\n"
           "\nListen to one, or copy a file of your own: kelhost copy INPUT OUTPUT\n";
}

const Names kFiles{"copy.aiff", "copy.rf64", "copy.wav", "tone.wav"};

} // namespace

TEST(Demonstration, CopiesAnAudibleToneIntoEveryFormat) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"demo"}), 0, Report("kelhost-demo"), "");
    EXPECT_EQ(SortedNames(directory), Names{"kelhost-demo"});
    EXPECT_EQ(SortedNames(directory / "kelhost-demo"), kFiles);

    const Audio tone = ReadAudio(directory / "kelhost-demo/tone.wav");
    EXPECT_EQ(tone.channels, 2);
    EXPECT_EQ(tone.rate, 48000);
    ASSERT_EQ(tone.values.size(), 2U * 192000);
    EXPECT_EQ(ReadAudio(directory / "kelhost-demo/copy.wav").values, tone.values);
    EXPECT_EQ(ReadAudio(directory / "kelhost-demo/copy.rf64").values, tone.values);
    const Audio rounded = ReadAudio(directory / "kelhost-demo/copy.aiff");
    ASSERT_EQ(rounded.values.size(), tone.values.size());
    for (std::size_t channel = 0; channel < 2; ++channel) {
        float peak = 0;
        double energy = 0;
        float error = 0;
        for (std::size_t i = channel; i < tone.values.size(); i += 2) {
            peak = std::max(peak, std::abs(tone.values[i]));
            energy += static_cast<double>(tone.values[i]) * static_cast<double>(tone.values[i]);
            error = std::max(error, std::abs(rounded.values[i] - tone.values[i]));
        }
        EXPECT_GT(peak, 0.1F);
        EXPECT_LT(peak, 0.9F);
        EXPECT_GT(std::sqrt(energy / 192000), 0.01);
        EXPECT_LE(error, 0.5F / 8388608.0F);
        EXPECT_EQ(tone.values[channel], 0.0F) << "it begins without a click";
        EXPECT_LT(std::abs(tone.values[tone.values.size() - 2 + channel]), 1e-6F)
            << "it ends without a click";
    }
}

TEST(Demonstration, ReplacesFilesOnlyWithForce) {
    const TemporaryDirectory directory;
    std::filesystem::create_directories(directory / "new/deep");
    WriteFile(directory / "new/deep/copy.wav", "before");
    WriteFile(directory / "new/deep/other", "other");
    WriteFile(directory / "new/deep/tone.wav", "before");
    ExpectResult(RunKelhost(directory, {"demo", "new/deep"}), 1, "",
                 Error("new/deep/tone.wav", "exists already; use --force to replace it"));
    EXPECT_EQ(ReadFile(directory / "new/deep/tone.wav"), "before");
    std::filesystem::remove(directory / "new/deep/tone.wav");
    EXPECT_EQ(RunKelhost(directory, {"demo", "new/deep"}).err,
              Error("new/deep/copy.wav", "exists already; use --force to replace it"));
    EXPECT_EQ(ReadFile(directory / "new/deep/copy.wav"), "before");
    ExpectResult(RunKelhost(directory, {"demo", "new/deep", "--force"}), 0, Report("new/deep"), "");
    EXPECT_EQ(SortedNames(directory / "new/deep"),
              (Names{"copy.aiff", "copy.rf64", "copy.wav", "other", "tone.wav"}));
    EXPECT_EQ(ReadAudio(directory / "new/deep/copy.wav").values.size(), 2U * 192000);
}

TEST(Demonstration, LeavesOtherThingsUnderItsNamesAsTheyAre) {
    const TemporaryDirectory directory;
    WriteFile(directory / "file", "");
    ExpectResult(RunKelhost(directory, {"demo", "file"}), 1, "",
                 Error("file", "cannot create the directory: Not a directory"));
    std::filesystem::create_directories(directory / "d/tone.wav");
    ExpectResult(RunKelhost(directory, {"demo", "d"}), 1, "",
                 Error("d/tone.wav", "is a directory; name a file in it"));
    EXPECT_EQ(SortedNames(directory / "d"), Names{"tone.wav"});
}

} // namespace kel::test
