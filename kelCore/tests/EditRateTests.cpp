#include "EditRateOtherFile.h"

#include <CapturingWriter.h>
#include <EditRate.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace kel {

namespace {

static_assert(std::is_same_v<decltype(EditRate::numerator), std::uint32_t>);
static_assert(std::is_same_v<decltype(EditRate::denominator), std::uint32_t>);
static_assert(std::is_trivially_copyable_v<EditRate>);
static_assert(std::is_standard_layout_v<EditRate>);
static_assert(sizeof(EditRate) == 8);
static_assert(offsetof(EditRate, numerator) == 0);
static_assert(offsetof(EditRate, denominator) == 4);

TEST(AnEditRate, HasItsTwoNumbersAndIsNullByDefault) {
    const EditRate rate{48000, 1};
    EXPECT_EQ(rate.numerator, 48000U);
    EXPECT_EQ(rate.denominator, 1U);
    EXPECT_EQ(EditRate().numerator, 0U);
    EXPECT_EQ(EditRate().denominator, 0U);
}

TEST(AnEditRate, EqualsOnlyARateWithTheSameTwoNumbers) {
    EXPECT_TRUE((EditRate{48000, 1} == EditRate{48000, 1}));
    EXPECT_FALSE((EditRate{48000, 1} != EditRate{48000, 1}));
    EXPECT_FALSE((EditRate{48000, 1} == EditRate{44100, 1}));
    EXPECT_TRUE((EditRate{48000, 1} != EditRate{44100, 1}));
    EXPECT_FALSE((EditRate{48000, 1} == EditRate{48000, 2}));
    EXPECT_FALSE((EditRate{96000, 2} == EditRate{48000, 1})) << "the same quotient";
}

TEST(CheckDenominator, RefusesZeroAfterOneErrorRecord) {
    for (const EditRate rate : {EditRate{48000, 0}, EditRate{0, 0}}) {
        test::ExpectFailure("[denominator is 0] [ value1 (0) is not != value2 (0) ]",
                            "kelCore/include/EditRate.h", [rate] { rate.CheckDenominator(); });
    }
}

TEST(CheckDenominator, LogsNothingOtherwise) {
    const test::LogCapture log;
    for (const EditRate rate : {EditRate{0, 1}, EditRate{48000, 1}, EditRate{1, 0xFFFFFFFF}}) {
        EXPECT_NO_THROW(rate.CheckDenominator());
    }
    EXPECT_TRUE(log->Records().empty());
}

const std::vector<const EditRate*> kRatesOfThisFile = {
    &kEditRateNull,  &kEditRate23_976, &kEditRate24,   &kEditRate25,
    &kEditRate29_97, &kEditRate50,     &kEditRate59_94};

TEST(TheConstantRates, AreTheSameNumbersInAnObjectOfTheirOwnInEachSourceFile) {
    const std::vector<EditRate> expected = {{0, 0},      {23976, 1000}, {24, 1},    {25, 1},
                                            {2997, 100}, {50, 1},       {5994, 100}};
    const std::vector<const EditRate*> others = test::RatesOfTheOtherFile();
    ASSERT_EQ(others.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(*kRatesOfThisFile[i], expected[i]) << i;
        EXPECT_EQ(*others[i], expected[i]) << i;
        EXPECT_NE(kRatesOfThisFile[i], others[i]) << i;
    }
}

} // namespace
} // namespace kel
