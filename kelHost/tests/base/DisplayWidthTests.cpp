#include "base/DisplayWidth.h"
#include "base/Text.h"

#include <PlatformString.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cwchar>
#include <locale.h>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// The C library's locale for UTF-8, in this thread.
class UTF8Locale {
public:
    UTF8Locale() : m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
        m_former = uselocale(m_locale);
    }
    ~UTF8Locale() {
        uselocale(m_former);
        freelocale(m_locale);
    }
    UTF8Locale(const UTF8Locale&) = delete;
    UTF8Locale& operator=(const UTF8Locale&) = delete;

private:
    locale_t m_locale;
    locale_t m_former{};
};

// Format characters, which Escape replaces, and two blocks whose width is ambiguous or narrow in
// Unicode and which the C library draws wide: circled numbers on black squares, hexagrams.
bool IsJudgedDifferently(wchar_t character, int width) {
    return Escape(ConvertWideStringToPlatformString(std::wstring(1, character))).front() == '\\' ||
           (width == 2 && ((character >= 0x3248 && character <= 0x324F) ||
                           (character >= 0x4DC0 && character <= 0x4DFF)));
}

} // namespace

TEST(DisplayWidth, IsThatOfTheCLibraryForEveryCharacter) {
    const UTF8Locale locale;
    std::size_t compared = 0;
    std::vector<wchar_t> different;
    for (wchar_t character = 0x20; character <= 0x10FFFF; ++character) {
        const int width = wcwidth(character);
        if (width < 0 || IsJudgedDifferently(character, width)) {
            continue; // no character
        }
        ++compared;
        const std::string text = ConvertWideStringToPlatformString(std::wstring(1, character));
        if (DisplayWidth(text) != static_cast<std::size_t>(width)) {
            different.push_back(character);
        }
    }
    EXPECT_GT(compared, 250000U);
    EXPECT_EQ(different, std::vector<wchar_t>{});
}

TEST(DisplayWidth, IsTheSumOfTheCharacters) {
    EXPECT_EQ(DisplayWidth(""), 0U);
    EXPECT_EQ(DisplayWidth("t\xC3\xA4ke"), 4U);
    EXPECT_EQ(DisplayWidth("ta\xCC\x88ke"), 4U);
    EXPECT_EQ(DisplayWidth("\xE9\x8C\xB2\xE9\x9F\xB3.wav"), 8U);
}

TEST(DisplayWidthPad, AddsSpacesUpToTheWidth) {
    EXPECT_EQ(Pad("\xE9\x8C\xB2", 4), "\xE9\x8C\xB2  ");
    EXPECT_EQ(Pad("a\xCC\x88", 3), "a\xCC\x88  ");
    EXPECT_EQ(Pad("take", 3), "take");
}

TEST(DisplayWidthKeepEnd, CutsInFrontAndCountsColumns) {
    EXPECT_EQ(KeepEnd("take.wav", 8), "take.wav");
    EXPECT_EQ(KeepEnd("take.wav", 7), "....wav");
    EXPECT_EQ(KeepEnd("take 1.wav", 9), "... 1.wav");
    EXPECT_EQ(KeepEnd("\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F\xC3\xA4", 4), "...\xC3\xA4");
    EXPECT_EQ(KeepEnd("\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", 4), "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F");
    EXPECT_EQ(KeepEnd("take", 2), "..");
    EXPECT_EQ(KeepEnd("take", 0), "");
    // No half of a character, and no mark without its letter.
    EXPECT_EQ(KeepEnd("\xE9\x8C\xB2\xE9\x9F\xB3.wav", 7), "....wav");
    EXPECT_EQ(KeepEnd("taka\xCC\x88.wav", 7), "....wav");
}

TEST(DisplayWidthKeepBeginning, CutsAtTheEndAndCountsColumns) {
    EXPECT_EQ(KeepBeginning("take.wav", 8), "take.wav");
    EXPECT_EQ(KeepBeginning("take.wav", 7), "take...");
    EXPECT_EQ(KeepBeginning("\xE9\x8C\xB2\xE9\x9F\xB3.wav", 6), "\xE9\x8C\xB2...");
    EXPECT_EQ(KeepBeginning("ta\xCC\x88ke.wav", 5), "ta\xCC\x88...");
    EXPECT_EQ(KeepBeginning("take", 0), "");
}

} // namespace kel::host
