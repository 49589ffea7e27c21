#include "analysis/Envelope.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace kel::host {

namespace {

void Add(Envelope& envelope, const std::vector<float>& values) {
    envelope.Add({values.data(), values.size()});
}

struct Extremes {
    float lowest;
    float highest;
    std::uint64_t values;
};

void ExpectColumns(const Envelope& envelope, std::size_t channel,
                   const std::vector<Extremes>& expected) {
    ASSERT_EQ(envelope.Columns(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const EnvelopeColumn& column = envelope.At(channel, i);
        EXPECT_EQ(column.lowest, expected[i].lowest) << "column " << i;
        EXPECT_EQ(column.highest, expected[i].highest) << "column " << i;
        EXPECT_EQ(column.values, expected[i].values) << "column " << i;
    }
}

} // namespace

TEST(Envelope, KeepsTheExtremesOfEachColumnAndChannel) {
    Envelope envelope(2, 2, 4);
    EXPECT_EQ(envelope.Channels(), 2U);
    Add(envelope, {0.1F, -0.5F, 0.2F, -0.6F, 0.3F, -0.7F, 0.4F, -0.8F});
    ExpectColumns(envelope, 0, {{0.1F, 0.2F, 2}, {0.3F, 0.4F, 2}});
    ExpectColumns(envelope, 1, {{-0.6F, -0.5F, 2}, {-0.8F, -0.7F, 2}});
    EXPECT_EQ(envelope.Peak(), 0.8F);
    EXPECT_EQ(envelope.At(0, 1).Peak(), 0.4F);
    EXPECT_EQ(envelope.At(1, 1).Peak(), 0.8F);
}

TEST(Envelope, IsTheSameHoweverTheFramesAreCut) {
    constexpr std::size_t kFrames = 101;
    std::vector<float> values;
    for (std::size_t i = 0; i < kFrames; ++i) {
        values.push_back(static_cast<float>(i) / 128);
    }
    Envelope whole(1, 7, kFrames);
    Add(whole, values);
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < whole.Columns(); ++i) {
        count += whole.At(0, i).values;
    }
    EXPECT_EQ(count, kFrames);
    for (const std::size_t piece : {1U, 2U, 14U, 50U, 100U}) {
        Envelope pieces(1, 7, kFrames);
        for (std::size_t i = 0; i < kFrames; i += piece) {
            pieces.Add({values.data() + i, std::min(piece, kFrames - i)});
        }
        for (std::size_t i = 0; i < whole.Columns(); ++i) {
            EXPECT_EQ(pieces.At(0, i).lowest, whole.At(0, i).lowest) << piece << ", column " << i;
            EXPECT_EQ(pieces.At(0, i).highest, whole.At(0, i).highest) << piece << ", column " << i;
            EXPECT_EQ(pieces.At(0, i).values, whole.At(0, i).values) << piece << ", column " << i;
        }
    }
}

TEST(Envelope, HasNoMoreColumnsThanFramesAndAlwaysOne) {
    EXPECT_EQ(Envelope(1, 100, 3).Columns(), 3U);
    EXPECT_EQ(Envelope(1, 0, 3).Columns(), 1U);
    EXPECT_EQ(Envelope(1, 100, 0).Columns(), 1U);
    EXPECT_EQ(Envelope(1, 100, 0).At(0, 0).values, 0U);
    EXPECT_EQ(Envelope(1, 100, 0).At(0, 0).RMS(), 0.0F);
}

TEST(Envelope, PutsUnexpectedFramesIntoTheLastColumn) {
    Envelope envelope(1, 2, 2);
    Add(envelope, {0.1F, 0.2F, 0.3F});
    Add(envelope, {0.4F});
    ExpectColumns(envelope, 0, {{0.1F, 0.1F, 1}, {0.2F, 0.4F, 3}});
}

TEST(Envelope, HasTheRootOfTheMeanSquare) {
    Envelope envelope(1, 1, 4);
    Add(envelope, {1.0F, -1.0F, 0.0F, 0.0F});
    EXPECT_FLOAT_EQ(envelope.At(0, 0).RMS(), 0.70710678F);
}

TEST(Envelope, MarksColumnsThatReachFullScale) {
    constexpr float kFull = 32767.0F / 32768.0F;
    Envelope envelope(1, 5, 5);
    Add(envelope, {32766.0F / 32768.0F, kFull, -kFull, -1.0F, 3.0F});
    EXPECT_FALSE(envelope.At(0, 0).clipped);
    for (std::size_t i = 1; i < 5; ++i) {
        EXPECT_TRUE(envelope.At(0, i).clipped) << i;
    }
    EXPECT_EQ(envelope.Peak(), 3.0F);
}

TEST(Envelope, MarksAndSkipsNonFiniteValues) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    Envelope envelope(1, 3, 6);
    Add(envelope, {0.25F, kNaN, kInfinity, -kInfinity, -0.5F, 0.5F});
    ExpectColumns(envelope, 0, {{0.25F, 0.25F, 1}, {0, 0, 0}, {-0.5F, 0.5F, 2}});
    EXPECT_TRUE(envelope.At(0, 0).clipped);
    EXPECT_TRUE(envelope.At(0, 1).clipped);
    EXPECT_FALSE(envelope.At(0, 2).clipped);
    EXPECT_EQ(envelope.At(0, 0).RMS(), 0.25F);
    EXPECT_EQ(envelope.Peak(), 0.5F);
}

} // namespace kel::host
