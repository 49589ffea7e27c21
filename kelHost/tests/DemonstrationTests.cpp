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

// What the demonstration says about files in a folder.
std::string Report(const std::string& folder) {
    const std::string tone = folder + "/tone.wav";
    const std::string audio = ", 2 channels, 48000 Hz, 192000 frames, 0:00:04.000\n";
    const std::string padding(std::max(folder.size() + 9, std::size_t{4}) - 4, ' ');
    const std::string row = "         2  48000 Hz  192000  0:00:04.000  32-bit float "
                            "little-endian\n";
    return "A short tone went through the sink into " + tone +
           ".\n\nCopied through source and sink:\n" + //
           tone + " -> " + folder + "/copy.wav: extensible WAVE, float32 little-endian" + audio +
           tone + " -> " + folder + "/copy.rf64: RF64, float32 little-endian" + audio + //
           tone + " -> " + folder + "/copy.aiff: AIFF-C, int24 big-endian" + audio +
           "\nThe files:\n"
           "File" +
           padding + " " + "  Channels      Rate  Frames     Duration  Delivered as\n" + //
           folder + "/tone.wav " + row +                                                 //
           folder + "/copy.wav " + row +                                                 //
           folder + "/copy.rf64" + row +                                                 //
           folder + "/copy.aiff" + row +
           "\nListen to one, or copy a file of your own: kelhost copy INPUT OUTPUT\n";
}

const Names kFiles{"copy.aiff", "copy.rf64", "copy.wav", "tone.wav"};

Names FilesIn(const std::string& folder) {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(Demonstration, CopiesAToneIntoEveryFormat) {
    const TemporaryFolder folder;
    ExpectResult(RunKelhost(folder, {"demo"}), 0, Report("kelhost-demo"), "");
    EXPECT_EQ(SortedNames(folder), Names{"kelhost-demo"});
    EXPECT_EQ(FilesIn(folder / "kelhost-demo"), kFiles);

    const Audio tone = ReadAudio(folder / "kelhost-demo/tone.wav");
    EXPECT_EQ(tone.channels, 2);
    EXPECT_EQ(tone.rate, 48000);
    ASSERT_EQ(tone.values.size(), 2U * 192000);
    EXPECT_EQ(ReadAudio(folder / "kelhost-demo/copy.wav").values, tone.values);
    EXPECT_EQ(ReadAudio(folder / "kelhost-demo/copy.rf64").values, tone.values);
    std::vector<float> rounded;
    for (const float value : tone.values) {
        rounded.push_back(static_cast<float>(std::nearbyint(value * 8388608.0F)) / 8388608.0F);
    }
    EXPECT_EQ(ReadAudio(folder / "kelhost-demo/copy.aiff").values, rounded);
}

TEST(Demonstration, MakesAToneThatCanBeHeardOnBothSidesAndHurtsNobody) {
    const TemporaryFolder folder;
    EXPECT_EQ(RunKelhost(folder, {"demo"}).status, 0);
    const Audio tone = ReadAudio(folder / "kelhost-demo/tone.wav");
    for (std::size_t channel = 0; channel < 2; ++channel) {
        float peak = 0;
        double energy = 0;
        for (std::size_t i = channel; i < tone.values.size(); i += 2) {
            peak = std::max(peak, std::abs(tone.values[i]));
            energy += static_cast<double>(tone.values[i]) * static_cast<double>(tone.values[i]);
        }
        EXPECT_GT(peak, 0.1F);
        EXPECT_LT(peak, 0.9F);
        EXPECT_GT(std::sqrt(energy / 192000), 0.01);
        EXPECT_EQ(tone.values[channel], 0.0F) << "it begins without a click";
        EXPECT_LT(std::abs(tone.values[tone.values.size() - 2 + channel]), 1e-6F)
            << "it ends without a click";
    }
}

TEST(Demonstration, MakesItsFolder) {
    const TemporaryFolder folder;
    ExpectResult(RunKelhost(folder, {"demo", "new/deep"}), 0, Report("new/deep"), "");
    EXPECT_EQ(FilesIn(folder / "new/deep"), kFiles);
}

TEST(Demonstration, ReplacesTheFilesOfAFormerOne) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "d");
    for (const std::string& name : kFiles) {
        WriteFile(folder / ("d/" + name), "before");
    }
    WriteFile(folder / "d/other", "other");
    ExpectResult(RunKelhost(folder, {"demo", "d"}), 0, Report("d"), "");
    EXPECT_EQ(FilesIn(folder / "d"),
              (Names{"copy.aiff", "copy.rf64", "copy.wav", "other", "tone.wav"}));
    EXPECT_EQ(Content(folder / "d/other"), "other");
    EXPECT_EQ(ReadAudio(folder / "d/copy.wav").values.size(), 2U * 192000);
}

TEST(Demonstration, NeedsAPlaceForItsFolder) {
    const TemporaryFolder folder;
    WriteFile(folder / "file", "");
    ExpectResult(RunKelhost(folder, {"demo", "file"}), 1, "",
                 "kelhost: file: can not be made: Not a directory\n");
    EXPECT_EQ(SortedNames(folder), Names{"file"});
}

TEST(Demonstration, LeavesWhatIsNoFileAlone) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "d/tone.wav");
    ExpectResult(RunKelhost(folder, {"demo", "d"}), 1, "",
                 "kelhost: d/tone.wav: is not a regular file; name another output\n");
    EXPECT_EQ(FilesIn(folder / "d"), Names{"tone.wav"});
}

} // namespace kel::test
