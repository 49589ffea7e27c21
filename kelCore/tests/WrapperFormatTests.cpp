#include <WrapperFormat.h>

#include <gtest/gtest.h>

#include <string>

namespace kel {

namespace {

struct Label {
    WrapperFormat format;
    const char* text;
};

constexpr Label kLabels[] = {
    {WrapperFormat::Unknown, "Unknown"}, {WrapperFormat::AIFF, "AIFF"},
    {WrapperFormat::BWAVE, "BWAVE"},     {WrapperFormat::RAW, "RAW"},
    {WrapperFormat::WAVE, "WAVE"},
};

TEST(WrapperFormatLabels, AreTheWordsOfTheRegistryEntries) {
    for (const Label& label : kLabels) {
        EXPECT_EQ(GetLabel(label.format), label.text);
    }
}

TEST(WrapperFormatLabels, AreTheSameInMessages) {
    for (const Label& label : kLabels) {
        EXPECT_EQ(ToString(label.format), label.text);
    }
}

TEST(WrapperFormatLabels, AreNumbersForValuesWithoutAName) {
    EXPECT_EQ(GetLabel(static_cast<WrapperFormat>(2)), "WrapperFormat(2)");
    EXPECT_EQ(ToString(static_cast<WrapperFormat>(-1)), "WrapperFormat(-1)");
}

TEST(WrapperFormatParsing, TurnsEveryLabelBackIntoItsFormat) {
    for (const Label& label : kLabels) {
        for (const Label& preset : kLabels) {
            WrapperFormat format = preset.format;
            EXPECT_TRUE(FromString(format, label.text));
            EXPECT_EQ(format, label.format) << label.text;
        }
    }
}

TEST(WrapperFormatParsing, YieldsTheNumbersOfRawAndWave) {
    WrapperFormat format = WrapperFormat::Unknown;
    FromString(format, "RAW");
    EXPECT_EQ(static_cast<int>(format), 28);
    FromString(format, "WAVE");
    EXPECT_EQ(static_cast<int>(format), 32);
}

TEST(WrapperFormatParsing, LeavesWhatWasSetBeforeOnAnyOtherText) {
    for (const char* text : {"", "wave", "Wave", "WAVE ", " WAVE", "WAV", "RF64", "0", "32",
                             "unknown", "AIFFC", "WrapperFormat(2)"}) {
        for (const Label& preset : kLabels) {
            WrapperFormat format = preset.format;
            EXPECT_FALSE(FromString(format, text)) << text;
            EXPECT_EQ(format, preset.format) << text;
        }
    }
}

TEST(WrapperFormatParsing, DoesNotStopAtANullCharacter) {
    WrapperFormat format = WrapperFormat::Unknown;
    EXPECT_FALSE(FromString(format, std::string("WAVE\0", 5)));
    EXPECT_EQ(format, WrapperFormat::Unknown);
}

} // namespace
} // namespace kel
