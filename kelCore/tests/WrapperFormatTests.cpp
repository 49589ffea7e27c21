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

TEST(WrapperFormatLabels, AreTheWordsOfTheRegistryEntriesAndOfMessages) {
    for (const Label& label : kLabels) {
        EXPECT_EQ(GetLabel(label.format), label.text);
        EXPECT_EQ(ToString(label.format), label.text);
    }
}

TEST(WrapperFormatLabels, AreNumbersForValuesWithoutAName) {
    EXPECT_EQ(GetLabel(static_cast<WrapperFormat>(2)), "WrapperFormat(2)");
    EXPECT_EQ(ToString(static_cast<WrapperFormat>(-1)), "WrapperFormat(-1)");
}

TEST(WrapperFormatParsing, ConvertsEveryLabelBackIntoItsFormat) {
    for (const Label& label : kLabels) {
        auto format = static_cast<WrapperFormat>(99);
        EXPECT_TRUE(FromString(format, label.text));
        EXPECT_EQ(format, label.format) << label.text;
    }
}

TEST(WrapperFormatParsing, KeepsTheValueThatWasSetBeforeOnAnyOtherText) {
    for (const std::string& text : {std::string(), std::string("wave"), std::string("WAVE "),
                                    std::string(" WAVE"), std::string("WAV"), std::string("32"),
                                    std::string("WrapperFormat(2)"), std::string("WAVE\0", 5)}) {
        WrapperFormat format = WrapperFormat::AIFF;
        EXPECT_FALSE(FromString(format, text)) << text;
        EXPECT_EQ(format, WrapperFormat::AIFF) << text;
    }
}

} // namespace
} // namespace kel
