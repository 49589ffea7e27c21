#include "audio/PCMEncoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace kel::host {

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kGuard =
    16; // bytes after the output, of which one test expects that they stay

Bytes Convert(PCMEncoder& converter, const std::vector<float>& values) {
    Bytes bytes(converter.SizeOf(values.size()) + kGuard);
    converter.Encode(values.data(), values.size(), bytes.data());
    bytes.resize(bytes.size() - kGuard);
    return bytes;
}

// Decodes signed integers.
std::vector<std::int64_t> Integers(const Bytes& bytes, std::size_t width, PCMEndianness byteOrder) {
    std::vector<std::int64_t> integers;
    for (std::size_t start = 0; start < bytes.size(); start += width) {
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t place =
                byteOrder == PCMEndianness::Big ? start + i : start + width - 1 - i;
            bits = (bits << 8U) | bytes[place];
        }
        const std::uint64_t sign = std::uint64_t{1} << (8 * width - 1);
        integers.push_back(static_cast<std::int64_t>(bits ^ sign) -
                           static_cast<std::int64_t>(sign));
    }
    return integers;
}

// Converts one channel to integers.
std::vector<std::int64_t> ToIntegers(const std::string& encoding, const std::vector<float>& values,
                                     PCMEndianness byteOrder = PCMEndianness::Little) {
    PCMEncoder converter(EncodingByName(encoding), byteOrder, 1);
    return Integers(Convert(converter, values), EncodingByName(encoding).bytes, byteOrder);
}

std::uint64_t Clipped(const PCMEncoder& converter) {
    std::uint64_t clipped = 0;
    for (const ChannelConversion& channel : converter.Channels()) {
        clipped += channel.clipped;
    }
    return clipped;
}

float FloatOf(std::uint32_t bits) {
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Floats that a careless conversion would change: signed zeros, denormals, infinities, NaNs that
// are quiet, signalling, negative and carry a payload, and the neighbours of powers of two.
std::vector<std::uint32_t> InterestingFloatBits() {
    std::vector<std::uint32_t> bits{
        0x00000000, 0x80000000, 0x00000001, 0x80000001, 0x007FFFFF, 0x807FFFFF,
        0x00800000, 0x3F800000, 0xBF800000, 0x3F7FFFFF, 0x3F800001, 0x7F7FFFFF,
        0xFF7FFFFF, 0x7F800000, 0xFF800000, 0x7FC00000, 0xFFC00000, 0x7FC12345,
        0xFFFFFFFF, 0x7F800001, 0x7FA00000, 0xFF812345, 0x01020304, 0x7F010203,
    };
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent) {
        bits.push_back(exponent << 23U);
        bits.push_back((exponent << 23U) | 0x80200001U);
    }
    return bits;
}

std::vector<float> FloatsOf(const std::vector<std::uint32_t>& bits) {
    std::vector<float> values(bits.size());
    std::memcpy(values.data(), bits.data(), bits.size() * sizeof(float));
    return values;
}

template <typename Number>
Bytes BytesOf(const std::vector<Number>& numbers, PCMEndianness byteOrder) {
    Bytes bytes(numbers.size() * sizeof(Number));
    std::memcpy(bytes.data(), numbers.data(), bytes.size());
    if (byteOrder == PCMEndianness::Big) {
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(i * sizeof(Number));
            std::reverse(first, first + sizeof(Number));
        }
    }
    return bytes;
}

// Widening keeps sign, exponent and fraction; a signalling NaN becomes a quiet one.
std::uint64_t WidenedBits(std::uint32_t bits) {
    const float value = FloatOf(bits);
    if (std::isnan(value)) {
        const std::uint64_t sign = std::uint64_t{bits >> 31U} << 63U;
        const std::uint64_t fraction = std::uint64_t{bits & 0x007FFFFFU} << 29U;
        return sign | 0x7FF8000000000000U | fraction;
    }
    const auto wide = static_cast<double>(value);
    std::uint64_t wideBits = 0;
    std::memcpy(&wideBits, &wide, sizeof wideBits);
    return wideBits;
}

// The bounds of an encoding: the last floats that fit and the first that do not, at both ends.
struct Bounds {
    std::string encoding;
    float lastPositive;
    float firstAbove;
    float lastNegative;
    float firstBelow;
    std::int64_t largest;  // the integer of lastPositive
    std::int64_t ceiling;  // what full scale is set to
    std::int64_t smallest; // the integer of lastNegative and what negative full scale is set to
};

std::vector<Bounds> AllBounds() {
    const float int16Above = 32767.5F / 32768;
    const float int16Below = -32768.5F / 32768;
    const float int24Above = 8388607.5F / 8388608;
    return {
        {"int16", std::nextafter(int16Above, 0.0F), int16Above, int16Below,
         std::nextafter(int16Below, -2.0F), 32767, 32767, -32768},
        {"int24", std::nextafter(int24Above, 0.0F), int24Above, -1.0F, std::nextafter(-1.0F, -2.0F),
         8388607, 8388607, -8388608},
        {"int32", std::nextafter(1.0F, 0.0F), 1.0F, -1.0F, std::nextafter(-1.0F, -2.0F),
         2147483647 - 127, 2147483647, -2147483648LL},
    };
}

class ConversionByteOrder : public testing::TestWithParam<PCMEndianness> {};

std::string ByteOrderName(const testing::TestParamInfo<PCMEndianness>& info) {
    return info.param == PCMEndianness::Big ? "BigEndian" : "LittleEndian";
}

} // namespace

TEST_P(ConversionByteOrder, ReturnsValuesOf16And24Bits) {
    struct Row {
        std::string encoding;
        std::int32_t step; // every value, or a step that is coprime to their number
    };
    for (const Row& row : {Row{"int16", 1}, Row{"int24", 61}}) {
        const Encoding& encoding = EncodingByName(row.encoding);
        const std::int32_t scale = 1 << (encoding.bits - 1);
        std::vector<float> floats;
        std::vector<std::int64_t> expected;
        for (std::int32_t value = -scale; value < scale; value += row.step) {
            floats.push_back(static_cast<float>(value) / static_cast<float>(scale));
            expected.push_back(value);
        }
        PCMEncoder converter(encoding, GetParam(), 1);
        EXPECT_TRUE(Integers(Convert(converter, floats), encoding.bytes, GetParam()) == expected);
        EXPECT_EQ(Clipped(converter), 0U);
    }
}

TEST_P(ConversionByteOrder, ReturnsEvery32BitValueThatAFloatHolds) {
    std::vector<float> floats;
    std::vector<std::int64_t> expected;
    const auto add = [&](std::int64_t value) {
        floats.push_back(static_cast<float>(value) / 2147483648.0F);
        expected.push_back(value);
    };
    // 24 significant bits at every place, the odd ones among them.
    for (unsigned shift = 0; shift <= 7; ++shift) {
        for (std::int64_t value = (1 << 23); value < (1 << 24); value += 40993) {
            add(value << shift);
            add(-(value << shift));
        }
        add(std::int64_t{(1 << 24) - 1} << shift);
        add(-(std::int64_t{(1 << 24) - 1} << shift));
    }
    add(-2147483648LL);
    PCMEncoder converter(EncodingByName("int32"), GetParam(), 1);
    EXPECT_TRUE(Integers(Convert(converter, floats), 4, GetParam()) == expected);
    EXPECT_EQ(Clipped(converter), 0U);
}

TEST_P(ConversionByteOrder, KeepsFloatsBitForBitAndWidensThemExactly) {
    const std::vector<std::uint32_t> bits = InterestingFloatBits();
    std::vector<std::uint64_t> wide;
    for (const std::uint32_t entry : bits) {
        wide.push_back(WidenedBits(entry));
    }
    PCMEncoder narrow(EncodingByName("float32"), GetParam(), 1, 1); // noise is for integers
    EXPECT_EQ(Convert(narrow, FloatsOf(bits)), BytesOf(bits, GetParam()));
    PCMEncoder wider(EncodingByName("float64"), GetParam(), 1, 1);
    EXPECT_EQ(Convert(wider, FloatsOf(bits)), BytesOf(wide, GetParam()));
    for (const PCMEncoder& converter : {narrow, wider}) {
        EXPECT_EQ(converter.Channels()[0].clipped + converter.Channels()[0].nonFinite, 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(Conversion, ConversionByteOrder,
                         testing::Values(PCMEndianness::Little, PCMEndianness::Big), ByteOrderName);

TEST(ConversionRounding, GoesToTheNearestIntegerAndToTheEvenOneOfTwo) {
    struct Row {
        std::string encoding;
        std::int32_t scale;
        std::int32_t step;
        bool clips; // among the values, which are rounded one by one then
    };
    for (const Row& row : {Row{"int16", 1 << 15, 7, false}, Row{"int16", 1 << 15, 7, true},
                           Row{"int24", 1 << 23, 1021, false}, Row{"int24", 1 << 23, 1021, true}}) {
        SCOPED_TRACE(row.encoding + (row.clips ? " with clipping" : ""));
        std::vector<float> floats;
        std::vector<std::int64_t> expected;
        for (std::int32_t value = -row.scale; value < row.scale - 1; value += row.step) {
            const float halfWay =
                (static_cast<float>(value) + 0.5F) / static_cast<float>(row.scale);
            floats.insert(floats.end(),
                          {std::nextafter(halfWay, -2.0F), halfWay, std::nextafter(halfWay, 2.0F)});
            expected.insert(expected.end(), {value, value % 2 == 0 ? value : value + 1, value + 1});
            if (row.clips) {
                floats.push_back(2.0F);
                expected.push_back(row.scale - 1);
            }
        }
        EXPECT_TRUE(ToIntegers(row.encoding, floats) == expected);
    }
    // Between two neighbours that 32 bits can hold there is a float only where both are small.
    EXPECT_EQ(
        ToIntegers("int32", {0.5F / 2147483648.0F, 1.5F / 2147483648.0F, -0.5F / 2147483648.0F,
                             -1.5F / 2147483648.0F, 2.25F / 2147483648.0F, 2.75F / 2147483648.0F}),
        (std::vector<std::int64_t>{0, 2, 0, -2, 2, 3}));
}

TEST(ConversionClipping, BeginsAtTheVeryFloatThatRoundsBeyondTheRange) {
    for (const Bounds& bounds : AllBounds()) {
        SCOPED_TRACE(bounds.encoding);
        EXPECT_EQ(std::nextafter(bounds.lastPositive, 2.0F), bounds.firstAbove);
        EXPECT_EQ(std::nextafter(bounds.lastNegative, -2.0F), bounds.firstBelow);

        PCMEncoder fitting(EncodingByName(bounds.encoding), PCMEndianness::Little, 1);
        EXPECT_EQ(Integers(Convert(fitting, {bounds.lastPositive, bounds.lastNegative}),
                           EncodingByName(bounds.encoding).bytes, PCMEndianness::Little),
                  (std::vector<std::int64_t>{bounds.largest, bounds.smallest}));
        EXPECT_EQ(fitting.Channels()[0].clipped, 0U);
        EXPECT_EQ(fitting.Channels()[0].loudest, 0.0F);

        for (const float beyond :
             {bounds.firstAbove, bounds.firstBelow, std::numeric_limits<float>::max(),
              -std::numeric_limits<float>::max()}) {
            PCMEncoder clipping(EncodingByName(bounds.encoding), PCMEndianness::Little, 1);
            EXPECT_EQ(Integers(Convert(clipping, {beyond}), EncodingByName(bounds.encoding).bytes,
                               PCMEndianness::Little),
                      std::vector<std::int64_t>{beyond > 0 ? bounds.ceiling : bounds.smallest});
            EXPECT_EQ(clipping.Channels()[0].clipped, 1U);
            EXPECT_EQ(clipping.Channels()[0].loudest, std::abs(beyond));
            EXPECT_EQ(clipping.Channels()[0].nonFinite, 0U);
        }
    }
}

TEST(ConversionClipping, IsCountedChannelByChannelFromCallToCall) {
    for (const std::uint32_t channels : {1U, 3U, 7U, 1024U}) {
        SCOPED_TRACE(channels);
        PCMEncoder converter(EncodingByName("int24"), PCMEndianness::Big, channels);
        std::vector<std::uint64_t> clipped(channels);
        for (const std::size_t frames : {1U, 400U, 2U}) {
            std::vector<float> values;
            for (std::size_t i = 0; i < frames * channels; ++i) {
                const std::size_t channel = i % channels;
                const bool clips = i % 5 < channel % 4;
                values.push_back(clips ? 1.5F + static_cast<float>(channel) : 0.25F);
                clipped[channel] += clips ? 1U : 0U;
            }
            Convert(converter, values);
        }
        for (std::uint32_t channel = 0; channel < channels; ++channel) {
            const ChannelConversion& conversion = converter.Channels()[channel];
            ASSERT_EQ(conversion.clipped, clipped[channel]) << channel;
            ASSERT_EQ(conversion.loudest,
                      clipped[channel] > 0 ? 1.5F + static_cast<float>(channel) : 0.0F);
            ASSERT_EQ(conversion.nonFinite, 0U);
        }
    }
}

TEST(ConversionNonFinite, GoesToZeroAndToFullScaleAndIsCountedApart) {
    for (const Bounds& bounds : AllBounds()) {
        SCOPED_TRACE(bounds.encoding);
        PCMEncoder converter(EncodingByName(bounds.encoding), PCMEndianness::Little, 2);
        EXPECT_EQ(
            Integers(Convert(converter, {kNaN, 0.0F, kInfinity, -3.0F, -kInfinity, -kNaN}),
                     EncodingByName(bounds.encoding).bytes, PCMEndianness::Little),
            (std::vector<std::int64_t>{0, 0, bounds.ceiling, bounds.smallest, bounds.smallest, 0}));
        EXPECT_EQ(converter.Channels()[0].nonFinite, 3U);
        EXPECT_EQ(converter.Channels()[0].clipped, 0U);
        EXPECT_EQ(converter.Channels()[0].loudest, 0.0F);
        EXPECT_EQ(converter.Channels()[1].nonFinite, 1U);
        EXPECT_EQ(converter.Channels()[1].clipped, 1U);
        EXPECT_EQ(converter.Channels()[1].loudest, 3.0F);
    }
}

TEST(ConversionLengths, MakeNoDifferenceAndNothingIsWrittenBeyondThem) {
    const std::vector<std::size_t> lengths{0,  1,  2,  3,    4,    5,    6,    7,    8,   9,
                                           12, 15, 16, 1023, 1024, 1025, 2047, 2049, 5000};
    for (const std::string encoding : {"int16", "int24", "int32", "float32", "float64"}) {
        for (const PCMEndianness byteOrder : {PCMEndianness::Little, PCMEndianness::Big}) {
            for (const std::size_t values : lengths) {
                SCOPED_TRACE(testing::Message() << values << " values as " << encoding);
                std::vector<float> floats;
                for (std::size_t i = 0; i < values; ++i) {
                    floats.push_back(static_cast<float>(i * 7919 % 65536) / 65536);
                }
                PCMEncoder single(EncodingByName(encoding), byteOrder, 1);
                Bytes expected;
                for (const float value : floats) {
                    const Bytes bytes = Convert(single, {value});
                    expected.insert(expected.end(), bytes.begin(), bytes.end());
                }
                expected.insert(expected.end(), kGuard, 0xA5);
                PCMEncoder converter(EncodingByName(encoding), byteOrder, 1);
                Bytes bytes(converter.SizeOf(values) + kGuard, 0xA5);
                converter.Encode(floats.data(), values, bytes.data());
                ASSERT_TRUE(bytes == expected);
            }
        }
    }
}

TEST(ConversionIdentity, IsOnlyLittleEndian32BitFloat) {
    for (const Encoding& encoding : Encodings()) {
        SCOPED_TRACE(std::string(encoding.name));
        EXPECT_EQ(PCMEncoder(encoding, PCMEndianness::Little, 1).IsIdentity(),
                  encoding.name == "float32");
        EXPECT_FALSE(PCMEncoder(encoding, PCMEndianness::Big, 1).IsIdentity());
        EXPECT_EQ(PCMEncoder(encoding, PCMEndianness::Little, 1).SizeOf(5), 5U * encoding.bytes);
    }
}

TEST(ConversionDither, IsTriangularAndTwoUnitsWideAtEveryLevel) {
    // A value between two integers is rounded up as often as a triangular distribution requires,
    // and never further than the noise reaches.
    struct Row {
        std::string encoding;
        std::int64_t integer;
        double fraction;
    };
    constexpr std::size_t kValues = 50000;
    for (const Row& row :
         {Row{"int16", 100, 0.0}, Row{"int16", -30000, 0.375}, Row{"int24", 100, 0.5},
          Row{"int24", 6291456, 0.5}, Row{"int32", 100, 0.375}, Row{"int32", 1932735232, 0.0}}) {
        SCOPED_TRACE(testing::Message() << row.encoding << " of " << row.integer);
        const Encoding& encoding = EncodingByName(row.encoding);
        PCMEncoder converter(encoding, PCMEndianness::Little, 1, 3);
        const auto value = static_cast<float>(
            std::ldexp(static_cast<double>(row.integer) + row.fraction, 1 - encoding.bits));
        const std::vector<std::int64_t> integers =
            Integers(Convert(converter, std::vector<float>(kValues, value)), encoding.bytes,
                     PCMEndianness::Little);
        const auto share = [&](std::int64_t offset) {
            return static_cast<double>(
                       std::count(integers.begin(), integers.end(), row.integer + offset)) /
                   kValues;
        };
        // The share of the noise above a distance, up to 1.
        const auto above = [](double distance) {
            return distance >= 0 ? (1 - distance) * (1 - distance) / 2
                                 : 1 - (1 + distance) * (1 + distance) / 2;
        };
        const double tolerance = 5 * std::sqrt(0.25 / kValues);
        EXPECT_NEAR(share(1), above(0.5 - row.fraction), tolerance);
        EXPECT_NEAR(share(-1), above(0.5 + row.fraction), tolerance);
        EXPECT_DOUBLE_EQ(share(-1) + share(0) + share(1), 1);
        EXPECT_EQ(Clipped(converter), 0U);
    }
}

TEST(ConversionDither, IsIndependentFromChannelToChannelAndFromFrameToFrame) {
    constexpr std::size_t kFrames = 50000;
    constexpr std::size_t kChannels = 3;
    PCMEncoder converter(EncodingByName("int16"), PCMEndianness::Big, kChannels, 5);
    const std::vector<std::int64_t> noise = Integers(
        Convert(converter, std::vector<float>(kFrames * kChannels, 0.0F)), 2, PCMEndianness::Big);
    // The values at some distance, a channel or a frame away; 1/4 is the variance of each.
    for (const std::size_t distance : {1U, 2U, 3U, 6U, 4U}) {
        double product = 0;
        std::size_t count = 0;
        for (std::size_t i = 0; i + distance < noise.size(); i += kChannels, ++count) {
            product += static_cast<double>(noise[i] * noise[i + distance]);
        }
        EXPECT_NEAR(product / static_cast<double>(count) / 0.25, 0,
                    5 / std::sqrt(static_cast<double>(count)))
            << distance;
    }
}

TEST(ConversionDither, DependsOnTheSeedAndNotOnTheCalls) {
    const std::vector<float> values(5000, 0.1F);
    PCMEncoder whole(EncodingByName("int24"), PCMEndianness::Little, 2, 9);
    const Bytes expected = Convert(whole, values);

    PCMEncoder pieces(EncodingByName("int24"), PCMEndianness::Little, 2, 9);
    Bytes joined;
    for (std::size_t start = 0, count = 2; start < values.size(); start += count, count += 2) {
        const std::size_t end = std::min(start + count, values.size());
        const Bytes piece = Convert(pieces, std::vector<float>(end - start, 0.1F));
        joined.insert(joined.end(), piece.begin(), piece.end());
    }
    EXPECT_TRUE(joined == expected);

    PCMEncoder other(EncodingByName("int24"), PCMEndianness::Little, 2, 10);
    EXPECT_FALSE(Convert(other, values) == expected);
}

TEST(ConversionDither, ClipsAndCountsValuesThatTheNoiseLiftsBeyondFullScale) {
    for (const Bounds& bounds : AllBounds()) {
        SCOPED_TRACE(bounds.encoding);
        const Encoding& encoding = EncodingByName(bounds.encoding);
        constexpr std::size_t kChannels = 3; // no divisor of the pieces that are converted at once
        constexpr std::size_t kFrames = 2000;
        PCMEncoder converter(encoding, PCMEndianness::Little, kChannels, 2);
        std::vector<float> values;
        for (std::size_t i = 0; i < kFrames; ++i) {
            values.insert(values.end(), {1.0F, i % 2 == 0 ? kNaN : -2.0F, 0.5F});
        }
        const std::vector<std::int64_t> integers =
            Integers(Convert(converter, values), encoding.bytes, PCMEndianness::Little);
        std::size_t atCeiling = 0;
        for (std::size_t i = 0; i < kFrames; ++i) {
            const std::int64_t loud = integers[i * kChannels];
            ASSERT_GE(loud, bounds.ceiling - 1);
            ASSERT_LE(loud, bounds.ceiling);
            atCeiling += loud == bounds.ceiling ? 1U : 0U;
            ASSERT_EQ(integers[i * kChannels + 1], i % 2 == 0 ? 0 : bounds.smallest);
        }
        const auto& channels = converter.Channels();
        EXPECT_GT(channels[0].clipped, 0U);
        EXPECT_LE(channels[0].clipped, atCeiling);
        EXPECT_EQ(channels[0].nonFinite, 0U);
        EXPECT_NEAR(channels[0].loudest, 1, std::ldexp(1.0, 1 - encoding.bits));
        EXPECT_EQ(channels[1].clipped, kFrames / 2);
        EXPECT_NEAR(channels[1].loudest, 2, std::ldexp(1.0, 1 - encoding.bits));
        EXPECT_EQ(channels[1].nonFinite, kFrames / 2);
        EXPECT_EQ(channels[2].clipped + channels[2].nonFinite, 0U);
    }
}

TEST(ConversionReadBack, ReturnsTheValuesThatASourceReads) {
    for (const Encoding& encoding : Encodings()) {
        for (const PCMEndianness byteOrder : {PCMEndianness::Little, PCMEndianness::Big}) {
            SCOPED_TRACE(std::string(encoding.name));
            std::vector<float> values;
            for (int value = -32768; value <= 32767; value += 7) {
                values.push_back(static_cast<float>(value) / 32768);
            }
            PCMEncoder converter(encoding, byteOrder, 1);
            const Bytes bytes = Convert(converter, values);
            std::vector<float> back(values.size());
            converter.Decode(bytes.data(), back.size(), back.data());
            EXPECT_TRUE(back == values);
        }
    }
    // 64 bits are rounded to 32 again, which loses nothing that came from 32; a NaN is quiet then.
    const std::vector<std::uint32_t> bits = InterestingFloatBits();
    PCMEncoder wide(EncodingByName("float64"), PCMEndianness::Little, 1);
    const Bytes bytes = Convert(wide, FloatsOf(bits));
    std::vector<float> back(bits.size());
    wide.Decode(bytes.data(), back.size(), back.data());
    std::vector<std::uint32_t> expected = bits;
    for (std::uint32_t& entry : expected) {
        entry |= std::isnan(FloatOf(entry)) ? 0x00400000U : 0U;
    }
    EXPECT_EQ(BytesOf(back, PCMEndianness::Little), BytesOf(expected, PCMEndianness::Little));
}

} // namespace kel::host
