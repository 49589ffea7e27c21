#include "audio/PeakMeter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace kel::host {

namespace {

void ExpectPeak(const ChannelPeak& peak, float magnitude, std::uint64_t frame) {
    EXPECT_EQ(peak.magnitude, magnitude);
    EXPECT_EQ(peak.frame, frame);
}

} // namespace

TEST(PeakMeter, FindsTheFirstPeakOfEachChannelInBlocksOfAnySize) {
    // Around the rows of the loop, and blocks that are shorter than one.
    for (const std::uint32_t channels : {1U, 2U, 3U, 6U, 1024U}) {
        for (const std::size_t frames : {1U, 5U, 256U, 1000U, 1024U}) {
            SCOPED_TRACE(testing::Message() << frames << " frames of " << channels);
            constexpr std::size_t kBlocks = 3;
            std::vector<std::vector<float>> blocks(kBlocks,
                                                   std::vector<float>(frames * channels, 0.25F));
            // Channel c has its peak in block c % 3, twice, with alternating signs.
            const auto place = [&](std::uint32_t channel) {
                return channel * 7 % frames;
            };
            const auto level = [](std::uint32_t channel) {
                return (channel % 2 == 0 ? 1.0F : -1.0F) *
                       (0.5F + 0.001F * static_cast<float>(channel));
            };
            for (std::uint32_t channel = 0; channel < channels; ++channel) {
                std::vector<float>& block = blocks[channel % kBlocks];
                block[place(channel) * channels + channel] = level(channel);
                block[(frames - 1) * channels + channel] = level(channel);
            }
            PeakMeter meter(channels);
            PeakMeter wide(channels);
            for (const std::vector<float>& block : blocks) {
                meter.Add(block.data(), block.size());
                const std::vector<double> doubles(block.begin(), block.end());
                wide.Add(doubles.data(), doubles.size());
            }
            for (std::uint32_t channel = 0; channel < channels; ++channel) {
                const std::uint64_t frame = channel % kBlocks * frames + place(channel);
                ExpectPeak(meter.Peaks().at(channel), std::abs(level(channel)), frame);
                ExpectPeak(wide.Peaks().at(channel), std::abs(level(channel)), frame);
            }
        }
    }
}

TEST(PeakMeter, KeepsAPeakBeforeNaN) {
    std::vector<float> values(2000, std::numeric_limits<float>::quiet_NaN());
    values[3] = -0.5F;
    PeakMeter meter(1);
    meter.Add(values.data(), values.size());
    ExpectPeak(meter.Peaks().at(0), 0.5F, 3);
}

TEST(PeakMeter, IgnoresNaNAndKeepsInfinities) {
    constexpr float kInfinite = std::numeric_limits<float>::infinity();
    constexpr float kNotANumber = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> values{kNotANumber, kNotANumber, 0.5F, -0.0F, -kNotANumber,
                                    kNotANumber, -kInfinite,  0.0F, 1.0F,  kNotANumber};
    PeakMeter meter(2);
    meter.Add(values.data(), values.size());
    ExpectPeak(meter.Peaks().at(0), kInfinite, 3);
    ExpectPeak(meter.Peaks().at(1), 0, 0);
}

} // namespace kel::host
