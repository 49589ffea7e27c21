#include "analysis/WaveformCharacters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// An envelope of interleaved values.
Envelope EnvelopeOf(std::uint32_t channels, std::size_t columns, const std::vector<float>& values) {
    Envelope envelope(channels, columns, static_cast<std::int64_t>(values.size() / channels));
    envelope.Add({values.data(), values.size()});
    return envelope;
}

std::string Draw(const Envelope& envelope, std::size_t columns,
                 LevelScale scale = LevelScale::Linear,
                 CharacterSet characters = CharacterSet::Unicode) {
    return DrawCharacters(envelope, LevelAxis(scale, envelope.Peak()), columns, characters);
}

} // namespace

TEST(WaveformCharacters, HaveBarsOfPeaksInEighthsAndMarksOfFullScale) {
    const std::vector<float> values{0.0F, 0.03F,  0.0F,   -0.25F, 0.3F, 0.1F,
                                    0.5F, -0.53F, -0.75F, 0.7F,   0.9F, 1.0F};
    const Envelope envelope = EnvelopeOf(1, 6, values);
    EXPECT_EQ(Draw(envelope, 6), "        1│     !\n"
                                 "     0.75│   ▁██\n"
                                 "      0.5│  ▂███\n"
                                 "  1  0.25│▁█████\n");
    EXPECT_EQ(Draw(envelope, 6, LevelScale::Linear, CharacterSet::ASCII), "        1|     !\n"
                                                                          "     0.75|   .##\n"
                                                                          "      0.5|  .###\n"
                                                                          "  1  0.25|.#####\n");
}

TEST(WaveformCharacters, HaveTheLevelAtTheTopOfEachLine) {
    const auto levels = [](LevelScale scale, float peak) {
        return Draw(EnvelopeOf(1, 1, {0.0F, peak}), 1, scale, CharacterSet::ASCII);
    };
    EXPECT_EQ(levels(LevelScale::Decibels, 0.1F), "        0|\n"
                                                  "      -15|:\n"
                                                  "      -30|#\n"
                                                  "  1   -45|#\n");
    EXPECT_EQ(levels(LevelScale::Linear, 2.5F), "      2.5|!\n"
                                                "     1.88|#\n"
                                                "     1.25|#\n"
                                                "  1 0.625|#\n");
    EXPECT_EQ(levels(LevelScale::Linear, 3e38F), "    3e+38|!\n"
                                                 "    2e+38|#\n"
                                                 "    2e+38|#\n"
                                                 "  1 8e+37|#\n");
}

TEST(WaveformCharacters, HaveLowerLanesForManyChannels) {
    const auto lanes = [](std::uint32_t channels) {
        const std::string text =
            Draw(EnvelopeOf(channels, 1, std::vector<float>(std::size_t{2} * channels)), 1);
        return std::count(text.begin(), text.end(), '\n');
    };
    EXPECT_EQ(lanes(1), 4);
    EXPECT_EQ(lanes(4), 16);
    EXPECT_EQ(lanes(5), 15);
    EXPECT_EQ(lanes(8), 16);
    EXPECT_EQ(lanes(100), 200);
}

TEST(WaveformCharacters, FollowALineThroughSingleFrames) {
    // Four columns for each frame. The line crosses the middle between the first two.
    EXPECT_EQ(Draw(EnvelopeOf(1, 20, {1.0F, -1.0F, -0.5F, NAN, 0.5F}), 20),
              "        1│!  █!▄      !\n"
              "     0.75│█  ████▄\n"
              "      0.5│█████████       █\n"
              "  1  0.25│█████████       █\n");
    EXPECT_EQ(Draw(EnvelopeOf(1, 4, {0.0F, 0.5F}), 4), "        1│\n"
                                                       "     0.75│\n"
                                                       "      0.5│ ██\n"
                                                       "  1  0.25│███\n");
}

} // namespace kel::host
