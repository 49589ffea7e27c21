// Levels and loudness of signals whose values are known: the tones of EBU Tech 3341 and 3342, and
// those that follow from the definitions.
#include "AudioFiles.h"
#include "Program.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace kel::test {

namespace {

using nlohmann::json;

// The loudness filters are the same at any rate; this one keeps the files small.
constexpr int kRate = 16000;
constexpr double kPi = 3.14159265358979323846;

double Magnitude(double decibels) {
    return std::pow(10.0, decibels / 20);
}

// A stretch of a tone.
struct Stretch {
    double seconds;
    std::vector<double> levels; ///< peak level in dBFS for each channel; -200 is silence
};

// One tone in all channels, its level changing from stretch to stretch.
std::vector<float> MakeTone(const std::vector<Stretch>& stretches, double hertz = 1000) {
    std::vector<float> values;
    std::size_t frame = 0;
    for (const Stretch& stretch : stretches) {
        const auto end = frame + static_cast<std::size_t>(std::lround(stretch.seconds * kRate));
        for (; frame < end; ++frame) {
            const double sine = std::sin(2 * kPi * hertz * static_cast<double>(frame) / kRate);
            for (const double level : stretch.levels) {
                values.push_back(static_cast<float>(sine * Magnitude(level)));
            }
        }
    }
    return values;
}

json MeasureFile(const std::vector<float>& values, int channels, int rate = kRate,
                 int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", format, channels, rate, values);
    const ProcessResult result = RunKelhost(directory, {"info", "--measure", "--json", "take.wav"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return json::parse(result.out)["files"][0]["measurement"];
}

json MeasureTone(const std::vector<Stretch>& stretches, double hertz = 1000) {
    return MeasureFile(MakeTone(stretches, hertz), static_cast<int>(stretches[0].levels.size()));
}

void ExpectNear(const json& value, double expected, double tolerance) {
    ASSERT_TRUE(value.is_number()) << value;
    EXPECT_NEAR(value.get<double>(), expected, tolerance);
}

std::vector<double> Both(double level) {
    return {level, level};
}

} // namespace

TEST(LoudnessLevels, OfASineAtFullScale) {
    const json measurement = MeasureTone({{2, {0}}}, 997);
    const json& channel = measurement["channels"][0];
    ExpectNear(channel["peak"], 1, 1e-3);
    ExpectNear(channel["peak_dbfs"], 0, 0.01);
    ExpectNear(channel["rms"], std::sqrt(0.5), 1e-3);
    ExpectNear(channel["rms_dbfs"], -3.0103, 0.01);
    EXPECT_GT(channel["at_full_scale"].get<int>(), 0);
    EXPECT_EQ(channel["non_finite"], 0);
    // By definition, and whether the other side is silent or not there.
    ExpectNear(measurement["integrated_lufs"], -3.01, 0.05);
    ExpectNear(MeasureTone({{2, {0, -200}}}, 997)["integrated_lufs"], -3.01, 0.05);
    ExpectNear(measurement["true_peak_dbtp"], 0, 0.1);
}

TEST(LoudnessLevels, OfEachChannelAreItsOwn) {
    const json measurement = MeasureTone({{2, {-20, -200}}}, 997);
    ExpectNear(measurement["channels"][0]["peak_dbfs"], -20, 0.01);
    ExpectNear(measurement["channels"][0]["rms_dbfs"], -23.01, 0.01);
    EXPECT_EQ(measurement["channels"][0]["at_full_scale"], 0);
    ExpectNear(measurement["channels"][1]["peak_dbfs"], -200, 0.01);
    ExpectNear(MeasureTone({{2, Both(-20)}}, 997)["integrated_lufs"], -20, 0.05);
}

TEST(LoudnessLevels, CountValuesAtFullScaleAndNonFiniteOnes) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kFull = 32767.0F / 32768.0F;
    const json measurement = MeasureFile({0.5F, kNaN, kFull, kInfinity, -1.0F, -kInfinity, //
                                          4.0F, 0.25F, 32766.0F / 32768.0F, 0.25F},
                                         2);
    EXPECT_EQ(measurement["channels"][0]["at_full_scale"], 3);
    EXPECT_EQ(measurement["channels"][0]["non_finite"], 0);
    EXPECT_EQ(measurement["channels"][0]["peak"], 4.0);
    EXPECT_EQ(measurement["channels"][1]["at_full_scale"], 0);
    EXPECT_EQ(measurement["channels"][1]["non_finite"], 3);
    EXPECT_EQ(measurement["channels"][1]["peak"], 0.25);
    EXPECT_EQ(measurement["channels"][1]["rms"], 0.25);
}

struct Reference {
    std::string name;
    std::vector<Stretch> stretches;
    std::string value;
    double expected;
    double tolerance;
};

class LoudnessOfReference : public testing::TestWithParam<Reference> {};

TEST_P(LoudnessOfReference, IsAsDefined) {
    ExpectNear(MeasureTone(GetParam().stretches)[GetParam().value], GetParam().expected,
               GetParam().tolerance);
}

// A level, a gated one, one of surround channels, and ranges.
INSTANTIATE_TEST_SUITE_P(
    EBU, LoudnessOfReference,
    testing::Values(
        Reference{"Tech3341Case2", {{20, Both(-33)}}, "integrated_lufs", -33, 0.1},
        Reference{"Tech3341Case5",
                  {{20, Both(-26)}, {20.1, Both(-20)}, {20, Both(-26)}},
                  "integrated_lufs",
                  -23,
                  0.1},
        Reference{"Tech3341Case6", {{20, {-28, -28, -24, -30, -30}}}, "integrated_lufs", -23, 0.1},
        Reference{"Tech3342Case1", {{20, Both(-20)}, {20, Both(-30)}}, "range_lu", 10, 1},
        Reference{"Tech3342Case3", {{20, Both(-40)}, {20, Both(-20)}}, "range_lu", 20, 1}),
    [](const auto& test) { return test.param.name; });

TEST(LoudnessTruePeak, IsThatOfTheWaveBetweenItsSamplesInTheLoudestChannel) {
    // Four samples for each wave, none of them where it is highest.
    std::vector<float> values;
    for (int i = 0; i < kRate; ++i) {
        values.push_back(static_cast<float>(0.5 * std::sin(kPi / 2 * i + kPi / 4)));
    }
    const json measurement = MeasureFile(values, 1);
    ExpectNear(measurement["channels"][0]["peak_dbfs"], -9.03, 0.01);
    ExpectNear(measurement["true_peak_dbtp"], -6.02, 0.3);
    const json eight = MeasureTone({{1, {-20, -20, -20, -20, -20, -20, -20, -3}}}, 100);
    ExpectNear(eight["true_peak_dbtp"], -3, 0.1);
}

TEST(LoudnessOfSilence, IsNone) {
    for (const double level : {-200.0, -95.0}) {
        const json measurement = MeasureTone({{4, Both(level)}});
        EXPECT_EQ(measurement["integrated_lufs"], nullptr) << level;
        EXPECT_EQ(measurement["range_lu"], nullptr) << level;
        ExpectNear(measurement["true_peak_dbtp"], level, 0.5);
    }
}

TEST(LoudnessOfShortFiles, IsNoneWhereItIsNotDefined) {
    const json tooShort = MeasureTone({{0.3, Both(-20)}});
    EXPECT_EQ(tooShort["integrated_lufs"], nullptr);
    EXPECT_EQ(tooShort["range_lu"], nullptr);
    ExpectNear(tooShort["true_peak_dbtp"], -20, 0.5);

    const json noRange = MeasureTone({{2.9, Both(-20)}});
    ExpectNear(noRange["integrated_lufs"], -20, 0.1);
    EXPECT_EQ(noRange["range_lu"], nullptr);
    ExpectNear(MeasureTone({{3.5, Both(-20)}})["range_lu"], 0, 0.1);

    const json invalid =
        MeasureFile(std::vector<float>(kRate, std::numeric_limits<float>::quiet_NaN()), 1);
    EXPECT_EQ(invalid["channels"][0]["peak_dbfs"], nullptr);
    EXPECT_EQ(invalid["channels"][0]["rms_dbfs"], nullptr);
    EXPECT_EQ(invalid["integrated_lufs"], nullptr);
    EXPECT_EQ(invalid["true_peak_dbtp"], nullptr);

    const json empty = MeasureFile({}, 1);
    EXPECT_EQ(empty["channels"][0]["peak"], 0.0);
    EXPECT_EQ(empty["integrated_lufs"], nullptr);
    EXPECT_EQ(empty["true_peak_dbtp"], nullptr);
}

TEST(LoudnessOfChannels, IsWeightedByTheirSpeakers) {
    struct Row {
        std::uint64_t mask;
        std::size_t channel;
        double loudness;
    };
    // In 7.1, those at the back are no surrounds.
    for (const Row& row : {Row{0x63F, 2, -23.01}, Row{0x63F, 4, -23.01}, Row{0x63F, 6, -21.52},
                           Row{0x63F, 7, -21.52}, Row{0xFF, 4, -21.52}, Row{0xFF, 7, -23.01}}) {
        std::vector<double> levels(8, -200);
        levels[row.channel] = -20;
        const TemporaryDirectory directory;
        const std::string path = directory / "take.wav";
        WriteAudio(path, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 8, kRate, MakeTone({{1, levels}}, 997));
        std::string bytes = ReadFile(path);
        constexpr std::size_t kMask = 40;
        ASSERT_EQ(bytes.substr(kMask, 4), LittleEndian(0xFF, 4));
        WriteFile(path, bytes.replace(kMask, 4, LittleEndian(row.mask, 4)));
        const ProcessResult result =
            RunKelhost(directory, {"info", "--field", "measurement.integrated_lufs", "take.wav"});
        EXPECT_NEAR(std::stod(result.out), row.loudness, 0.05) << row.mask << " " << row.channel;
    }
}

// The file has the low frequencies at its end.
TEST(LoudnessOfChannels, OfVorbisAreThoseOfItsLayout) {
    constexpr double kQuiet = -200;
    const auto measure = [](const std::vector<double>& levels) {
        return MeasureFile(MakeTone({{1, levels}}, 100), 6, kRate,
                           SF_FORMAT_OGG | SF_FORMAT_VORBIS)["integrated_lufs"];
    };
    EXPECT_EQ(measure({kQuiet, kQuiet, kQuiet, kQuiet, kQuiet, -20}), nullptr);
    EXPECT_NE(measure({kQuiet, kQuiet, kQuiet, -20, kQuiet, kQuiet}), nullptr);
}

TEST(LoudnessOfChannels, LeavesOutLowFrequenciesAndMoreThanEight) {
    const double quiet = -200;
    EXPECT_EQ(MeasureTone({{1, {quiet, quiet, quiet, -20, quiet, quiet}}})["integrated_lufs"],
              nullptr);
    EXPECT_EQ(MeasureTone({{1, std::vector<double>(9, -20)}})["integrated_lufs"], nullptr);
    // Levels are defined for any number of channels.
    constexpr int kChannels = 65;
    const json many = MeasureFile(std::vector<float>(kChannels * 8000U, 0.5F), kChannels);
    EXPECT_EQ(many["channels"][64]["rms"], 0.5);
    EXPECT_EQ(many["integrated_lufs"], nullptr);
    // Surround channels count 1.5 dB more.
    ExpectNear(MeasureTone({{1, {quiet, quiet, quiet, quiet, -20, quiet}}}, 997)["integrated_lufs"],
               -23.01 + 1.49, 0.05);
    ExpectNear(MeasureTone({{1, {quiet, quiet, -20, quiet, quiet, quiet}}}, 997)["integrated_lufs"],
               -23.01, 0.05);
}

} // namespace kel::test
