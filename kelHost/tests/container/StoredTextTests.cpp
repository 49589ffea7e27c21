#include "container/StoredText.h"

#include <gtest/gtest.h>

#include <string>

namespace kel::host {

TEST(StoredText, IsTakenAsUTF8OrWindows1252) {
    EXPECT_EQ(DecodeText("Caf\xC3\xA9"), "Caf\xC3\xA9");
    EXPECT_EQ(DecodeText("Caf\xE9"), "Caf\xC3\xA9");
    EXPECT_EQ(DecodeText("\x80 5"), "\xE2\x82\xAC 5");
    EXPECT_EQ(DecodeText("\x81"), "\xC2\x81");
}

TEST(StoredText, EndsWithItsFirstZero) {
    EXPECT_EQ(DecodeText(std::string("one\0two\xFF", 8)), "one");
    EXPECT_EQ(DecodeUTF16(std::string("a\0\0\0b\0", 6), false), "a");
}

TEST(StoredText, LosesOnlyTheCharacterThatItsFieldCuts) {
    EXPECT_EQ(DecodeText("\xC3\xA9t\xC3"), "\xC3\xA9t");
    EXPECT_EQ(LimitText("\xC3\xA9t\xC3\xA9", 4), "\xC3\xA9t");
    EXPECT_EQ(LimitText("\xC3\xA9", 1), "");
    EXPECT_EQ(LimitText("take", 4), "take");
}

TEST(StoredText, FollowsTheByteOrderMarkOfUTF16) {
    EXPECT_EQ(DecodeUTF16("\xFF\xFE\xE9\x20", true), "\xE2\x83\xA9");
    EXPECT_EQ(DecodeUTF16("\xFE\xFF\x20\xE9", false), "\xE2\x83\xA9");
    EXPECT_EQ(DecodeUTF16("\x20\xE9", true), "\xE2\x83\xA9");
}

TEST(StoredText, ReplacesSurrogatesWithoutAPartner) {
    EXPECT_EQ(DecodeUTF16("\xD8\x3C\xDF\xB5", true), "\xF0\x9F\x8E\xB5");
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(DecodeUTF16(std::string("\xD8\x3C\0a", 4), true), replacement + "a");
    EXPECT_EQ(DecodeUTF16("\xDF\xB5", true), replacement);
    EXPECT_EQ(DecodeUTF16("\xD8\x3C", true), replacement);
    EXPECT_EQ(DecodeUTF16("\xD8\x3C\xD8\x3C\xDF\xB5", true), replacement + "\xF0\x9F\x8E\xB5");
}

} // namespace kel::host
