#include "base/Text.h"

#include "Program.h"

#include <PlatformString.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::string EveryByteOf(unsigned first, unsigned last) {
    std::string text;
    for (unsigned byte = first; byte <= last; ++byte) {
        text.push_back(static_cast<char>(static_cast<unsigned char>(byte)));
    }
    return text;
}

// The categories of all code points, as Python's own Unicode database has them: "C" for control and
// format characters and for separators of lines and paragraphs, "-" for surrogates and for code
// points without a character, "." for all others.
std::string CategoriesInPython() {
    test::Command command;
    command.program = KEL_TEST_PYTHON;
    command.arguments = {"-c", "from sys import stdout\n"
                               "from unicodedata import category\n"
                               "marks = dict.fromkeys(('Cc', 'Cf', 'Zl', 'Zp'), 'C')\n"
                               "marks.update(dict.fromkeys(('Cn', 'Cs'), '-'))\n"
                               "stdout.write(''.join(marks.get(category(chr(point)), '.')\n"
                               "                    for point in range(1, 0x110000)))"};
    return "-" + test::RunCommand(command).out; // not NUL, which has no narrow form
}

struct Duration {
    std::int64_t frames;
    std::uint32_t rate;
    std::string text;
};

} // namespace

TEST(TextEscape, LeavesPrintableTextAsItIs) {
    const std::string ascii = EveryByteOf(0x20, 0x7E);
    EXPECT_EQ(Escape(ascii), ascii);
    const std::string utf8 = "\xC2\xA0 \xC3\xA4 \xE2\x82\xAC \xE6\x97\xA5 \xF0\x9F\x8E\xB5";
    EXPECT_EQ(Escape(utf8), utf8);
}

TEST(TextEscape, ReplacesEveryControlCharacter) {
    EXPECT_EQ(Escape(EveryByteOf(0x00, 0x1F)),
              "\\x00\\x01\\x02\\x03\\x04\\x05\\x06\\x07\\x08\\t\\n\\x0B\\x0C\\r\\x0E\\x0F"
              "\\x10\\x11\\x12\\x13\\x14\\x15\\x16\\x17\\x18\\x19\\x1A\\x1B\\x1C\\x1D\\x1E\\x1F");
    EXPECT_EQ(Escape("a\x7Fz"), "a\\x7Fz");
    EXPECT_EQ(Escape("\xC2\x80\xC2\x9F"), "\\x80\\x9F");
}

TEST(TextEscape, ReplacesCharactersThatReorderHideOrBreakText) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"a\u202Egpj.wav", "a\\u202Egpj.wav"},  // right-to-left override
        {"a\u2066b\u2069", "a\\u2066b\\u2069"}, // isolates
        {"a\u200Fb", "a\\u200Fb"},              // right-to-left mark
        {"a\u200Bb\uFEFFc", "a\\u200Bb\\uFEFFc"},
        {"a\u2028b\u2029c", "a\\u2028b\\u2029c"},
        {"a\u00ADb", "a\\u00ADb"}, // not a byte
        {"a\U000E0041b", "a\\U000E0041b"},
        {"\u2027\u202F\u2065", "\u2027\u202F\u2065"},
    };
    for (const auto& [text, escaped] : rows) {
        EXPECT_EQ(Escape(text), escaped);
        EXPECT_EQ(Escape(escaped), escaped);
    }
}

TEST(TextEscape, AgreesWithAnotherDatabaseOnEveryCharacter) {
    const std::string categories = CategoriesInPython();
    ASSERT_EQ(categories.size(), 0x110000U);
    for (std::size_t point = 0; point < categories.size(); ++point) {
        if (categories[point] == '-') {
            continue;
        }
        const std::string text =
            ConvertWideStringToPlatformString(std::wstring(1, static_cast<wchar_t>(point)));
        ASSERT_EQ(Escape(text) != text, categories[point] == 'C') << "code point " << point;
    }
}

TEST(TextEscape, ShowsInvalidUtf8ByteByByte) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"", ""},
        {"a\x80z", "a\\x80z"},                        // a continuation byte
        {"\xE2\x82", "\\xE2\\x82"},                   // a sequence that is cut
        {"\xC0\xAF", "\\xC0\\xAF"},                   // a slash in a form that is too long
        {"\xED\xA0\x80", "\\xED\\xA0\\x80"},          // a surrogate
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"}, // beyond the last code point
        {"\xFE\xFF", "\\xFE\\xFF"},                   // bytes that never occur
        {"\xE2\xC3\xA4", "\\xE2\xC3\xA4"},            // valid after invalid
    };
    for (const auto& [text, escaped] : rows) {
        EXPECT_EQ(Escape(text), escaped);
    }
}

TEST(TextFormatSize, HasTheLargestUnitThatFits) {
    const std::vector<std::pair<std::uint64_t, std::string>> rows{
        {0, "0 bytes"},
        {1, "1 byte"},
        {1023, "1023 bytes"},
        {1024, "1.0 KiB"},
        {1536, "1.5 KiB"},
        {(1U << 20U) - 52, "1023.9 KiB"},
        {(1U << 20U) - 51, "1.0 MiB"},
        {std::uint64_t{5} << 30U, "5.0 GiB"},
        {std::uint64_t{1} << 50U, "1024.0 TiB"},
    };
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(FormatSize(bytes), text);
    }
}

TEST(TextFormatDuration, ShowsHoursMinutesSecondsAndMilliseconds) {
    const std::vector<Duration> cases{
        {0, 48000, "0:00:00.000"},
        {48000, 0, "unknown"},
        {48000, 48000, "0:00:01.000"},
        {3599 * 8000 + 7992, 8000, "0:59:59.999"},
        {3600 * 8000, 8000, "1:00:00.000"},
        {std::int64_t{1234} * 3600 * 44100 + 44100, 44100, "1234:00:01.000"},
        {1, std::numeric_limits<std::uint32_t>::max(), "0:00:00.000"},
        {std::numeric_limits<std::int64_t>::max(), 1, "2562047788015215:30:07.000"},
        {std::numeric_limits<std::int64_t>::max(), 1000, "2562047788015:12:55.807"},
    };
    for (const Duration& entry : cases) {
        EXPECT_EQ(FormatDuration(entry.frames, entry.rate), entry.text)
            << entry.frames << " frames at " << entry.rate;
    }
}

TEST(TextFormatDuration, RoundsToTheNearestMillisecondAndCarries) {
    const std::vector<Duration> cases{
        {23, 48000, "0:00:00.000"},
        {24, 48000, "0:00:00.001"},
        {47975, 48000, "0:00:00.999"},
        {47976, 48000, "0:00:01.000"},
        {59 * 48000 + 47976, 48000, "0:01:00.000"},
        {3599 * 48000 + 47976, 48000, "1:00:00.000"},
        {2, 3, "0:00:00.667"},
    };
    for (const Duration& entry : cases) {
        EXPECT_EQ(FormatDuration(entry.frames, entry.rate), entry.text)
            << entry.frames << " frames at " << entry.rate;
    }
}

TEST(TextFormatSeconds, ShowsHoursMinutesAndSeconds) {
    EXPECT_EQ(FormatSeconds(0), "0:00:00");
    EXPECT_EQ(FormatSeconds(59), "0:00:59");
    EXPECT_EQ(FormatSeconds(3599), "0:59:59");
    EXPECT_EQ(FormatSeconds(36061), "10:01:01");
}

TEST(TextFormatTable, AlignsColumnsToTheirWidestCell) {
    EXPECT_EQ(FormatTable({{"Name"}, {"Count", Align::Right}, {"Note"}},
                          {{"a", "1", "first"}, {"longer name", "123456", ""}, {"", "22", "x"}}),
              "Name          Count  Note\n"
              "a                 1  first\n"
              "longer name  123456\n"
              "                 22  x\n");
    EXPECT_EQ(FormatTable({{"Name"}, {"Count", Align::Right}}, {}), "Name  Count\n");
}

TEST(TextFormatTable, AlignsNamesInAnyScript) {
    EXPECT_EQ(FormatTable({{"N"}, {"V", Align::Right}}, {{"\xC3\xA4\xC3\xB6", "1"},
                                                         {"\xE2\x82\xAC", "22"},
                                                         {"\xF0\x9F\x8E\xB5", "3"},
                                                         {"a\xCC\x88", "4"},
                                                         {"abc", "\xE7\x95\x8C"}}),
              "N     V\n"
              "\xC3\xA4\xC3\xB6    1\n"
              "\xE2\x82\xAC    22\n"
              "\xF0\x9F\x8E\xB5    3\n"
              "a\xCC\x88     4\n"
              "abc  \xE7\x95\x8C\n");
}

} // namespace kel::host
