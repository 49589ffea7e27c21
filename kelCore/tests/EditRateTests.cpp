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

constexpr std::uint32_t kMost = 0xFFFFFFFF;

constexpr const char* kRefusal = "[denominator is 0] [ value1 (0) is not != value2 (0) ]";

TEST(AnEditRate, HasTheTwoNumbersThatItWasMadeWith) {
    const EditRate rate{48000, 1};
    EXPECT_EQ(rate.numerator, 48000U);
    EXPECT_EQ(rate.denominator, 1U);
}

TEST(AnEditRate, IsNullByDefault) {
    const EditRate rate;
    EXPECT_EQ(rate.numerator, 0U);
    EXPECT_EQ(rate.denominator, 0U);
}

TEST(AnEditRate, CanBeSetInPlace) {
    EditRate rate;
    rate.numerator = kMost;
    rate.denominator = kMost;
    EXPECT_EQ(rate, (EditRate{kMost, kMost}));
}

TEST(AnEditRate, EqualsARateWithTheSameTwoNumbersAlone) {
    EXPECT_TRUE((EditRate{48000, 1} == EditRate{48000, 1}));
    EXPECT_FALSE((EditRate{48000, 1} != EditRate{48000, 1}));
    EXPECT_FALSE((EditRate{48000, 1} == EditRate{44100, 1}));
    EXPECT_TRUE((EditRate{48000, 1} != EditRate{44100, 1}));
    EXPECT_FALSE((EditRate{48000, 1} == EditRate{48000, 2}));
    EXPECT_FALSE((EditRate{96000, 2} == EditRate{48000, 1})) << "the same quotient";
}

TEST(CheckingTheDenominator, RefusesZeroAfterOneErrorRecord) {
    test::ExpectFailure(kRefusal, "kelCore/include/EditRate.h", [] {
        EditRate{48000, 0}.CheckDenominator();
    });
    test::ExpectFailure(kRefusal, "kelCore/include/EditRate.h", [] {
        EditRate{0, 0}.CheckDenominator();
    });
}

TEST(CheckingTheDenominator, IsQuietOtherwise) {
    const test::LogCapture log;
    for (const EditRate& rate :
         {EditRate{0, 1}, EditRate{48000, 1}, EditRate{30000, 1001}, EditRate{1, kMost}}) {
        EXPECT_NO_THROW(rate.CheckDenominator());
    }
    EXPECT_TRUE(log->Records().empty());
}

const std::vector<const EditRate*> kRatesOfThisFile = {
    &kEditRateNull,  &kEditRate23_976, &kEditRate24,   &kEditRate25,
    &kEditRate29_97, &kEditRate50,     &kEditRate59_94};

TEST(TheConstantRates, AreTheCommonVideoRatesAndTheNullRate) {
    const std::vector<EditRate> expected = {{0, 0},      {23976, 1000}, {24, 1},    {25, 1},
                                            {2997, 100}, {50, 1},       {5994, 100}};
    ASSERT_EQ(kRatesOfThisFile.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(*kRatesOfThisFile[i], expected[i]) << i;
    }
}

TEST(TheConstantRates, ExistOnceInEverySourceFile) {
    const std::vector<const EditRate*> others = test::RatesOfTheOtherFile();
    ASSERT_EQ(others.size(), kRatesOfThisFile.size());
    for (std::size_t i = 0; i < others.size(); ++i) {
        EXPECT_NE(kRatesOfThisFile[i], others[i]) << i;
        EXPECT_EQ(*kRatesOfThisFile[i], *others[i]) << i;
    }
}

} // namespace
} // namespace kel
