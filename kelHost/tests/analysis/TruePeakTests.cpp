// The whole computation by libebur128 is the reference.
#include "analysis/TruePeak.h"

#include <ebur128.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace kel::host {

namespace {

// Noise that fades in and out, each channel at its own speed, so that many runs cannot contain the
// peak. It is at its loudest where no sample is.
std::vector<float> MakeNoise(std::size_t channels, std::size_t frames) {
    std::mt19937 random(1);
    std::vector<float> values;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            const double phase = static_cast<double>(frame) * static_cast<double>(channel + 1);
            const double fade = std::sin(phase / 700) * std::sin(phase / 9000);
            const double noise = static_cast<double>(random()) / 4294967296.0 - 0.5;
            values.push_back(static_cast<float>(fade * noise));
        }
    }
    return values;
}

double ReferencePeak(const std::vector<float>& values, std::size_t channels, std::uint32_t rate) {
    ebur128_state* state =
        ebur128_init(static_cast<unsigned>(channels), rate, EBUR128_MODE_TRUE_PEAK);
    ebur128_add_frames_float(state, values.data(), values.size() / channels);
    double largest = 0;
    for (unsigned channel = 0; channel < channels; ++channel) {
        double peak = 0;
        ebur128_true_peak(state, channel, &peak);
        largest = std::max(largest, peak);
    }
    ebur128_destroy(&state);
    return largest;
}

// Adds the values in blocks of so many frames.
double PeakOf(const std::vector<float>& values, std::size_t channels, std::uint32_t rate,
              std::size_t block) {
    TruePeakMeter meter(static_cast<std::uint32_t>(channels), rate);
    for (std::size_t i = 0; i < values.size(); i += block * channels) {
        meter.Add({values.data() + i, std::min(block * channels, values.size() - i)});
    }
    return meter.Peak();
}

} // namespace

TEST(TruePeak, IsThatOfTheWholeComputation) {
    for (const std::size_t channels : {1U, 2U, 5U}) {
        const std::vector<float> values = MakeNoise(channels, 20000);
        for (const std::uint32_t rate : {8000U, 95999U, 96000U, 191999U, 192000U}) {
            const double expected = ReferencePeak(values, channels, rate);
            for (const std::size_t block : {1U, 7U, 64U, 1000U, 20000U}) {
                EXPECT_EQ(PeakOf(values, channels, rate, block), expected)
                    << channels << " channels, " << rate << " Hz, blocks of " << block;
            }
        }
    }
}

// Between two large values of the same sign, at any place of a run or a block.
TEST(TruePeak, IsFoundAtEveryPlace) {
    for (std::size_t place = 0; place < 150; ++place) {
        std::vector<float> values(200, 0.01F);
        values[place] = 0.5F;
        values[place + 1] = 0.5F;
        const double expected = ReferencePeak(values, 1, 48000);
        EXPECT_GT(expected, 0.6);
        EXPECT_EQ(PeakOf(values, 1, 48000, 40), expected) << place;
        EXPECT_EQ(PeakOf(values, 1, 48000, 200), expected) << place;
    }
}

// The wave between the largest floats is larger than any float.
TEST(TruePeak, MayBeTooLargeForAFloat) {
    constexpr float kLargest = std::numeric_limits<float>::max();
    std::vector<float> values(40, 0.0F);
    values[10] = values[11] = 1;
    const double scaled = PeakOf(values, 1, 48000, 40);
    EXPECT_GT(scaled, 1.2);
    values[10] = values[11] = kLargest;
    EXPECT_NEAR(PeakOf(values, 1, 48000, 40) / static_cast<double>(kLargest), scaled, 1e-6);
}

TEST(TruePeak, TakesValuesThatAreNotFiniteForZeros) {
    std::vector<float> values = MakeNoise(1, 1000);
    std::vector<float> zeros = values;
    values[500] = std::numeric_limits<float>::quiet_NaN();
    values[600] = -std::numeric_limits<float>::infinity();
    zeros[500] = 0;
    zeros[600] = 0;
    EXPECT_EQ(PeakOf(values, 1, 48000, 1000), ReferencePeak(zeros, 1, 48000));
}

} // namespace kel::host
