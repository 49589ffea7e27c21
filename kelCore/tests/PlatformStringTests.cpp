#include <CapturingWriter.h>
#include <PlatformString.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace kel {

namespace {

// Code points one after the other; a literal cannot hold surrogates.
std::wstring Wide(const std::vector<std::uint32_t>& codePoints) {
    std::wstring text;
    for (const std::uint32_t codePoint : codePoints) {
        text.push_back(static_cast<wchar_t>(codePoint));
    }
    return text;
}

// A readable form of any narrow text, for messages.
std::string Hex(const std::string& text) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string hex;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        hex += {kDigits[byte >> 4U], kDigits[byte & 15U], ' '};
    }
    return hex;
}

struct Pair {
    std::string narrow;
    std::vector<std::uint32_t> wide;
};

const std::vector<Pair> kWellFormed = {
    {"", {}},
    {"take.wav", {'t', 'a', 'k', 'e', '.', 'w', 'a', 'v'}},
    {"\x01", {0x01}},
    {"\x7F", {0x7F}},
    {"\xC2\x80", {0x80}},
    {"\xC3\xA9", {0xE9}},
    {"\xDF\xBF", {0x7FF}},
    {"\xE0\xA0\x80", {0x800}},
    {"\xE2\x82\xAC", {0x20AC}},
    {"\xED\x9F\xBF", {0xD7FF}},
    {"\xEE\x80\x80", {0xE000}},
    {"\xEF\xBB\xBF", {0xFEFF}},
    {"\xEF\xBF\xBD", {0xFFFD}},
    {"\xEF\xBF\xBF", {0xFFFF}},
    {"\xF0\x90\x80\x80", {0x10000}},
    {"\xF0\x9D\x84\x9E", {0x1D11E}},
    {"\xF4\x8F\xBF\xBF", {0x10FFFF}},
    {"a\xC3\xA9/\xE2\x82\xAC\xF0\x9D\x84\x9E z", {'a', 0xE9, '/', 0x20AC, 0x1D11E, ' ', 'z'}},
};

TEST(WellFormedText, IsUtf8InItsNarrowForm) {
    for (const Pair& pair : kWellFormed) {
        EXPECT_EQ(ConvertWideStringToPlatformString(Wide(pair.wide)), pair.narrow)
            << Hex(pair.narrow);
    }
}

TEST(WellFormedText, IsOneCharacterForEachCodePointInItsWideForm) {
    for (const Pair& pair : kWellFormed) {
        EXPECT_EQ(ConvertPlatformStringToWideString(pair.narrow), Wide(pair.wide))
            << Hex(pair.narrow);
    }
}

TEST(WellFormedText, OfEveryCodePointComesBack) {
    std::wstring wide;
    for (std::uint32_t codePoint = 1; codePoint <= 0x10FFFF; ++codePoint) {
        if (codePoint < 0xD800 || codePoint > 0xDFFF) {
            wide.push_back(static_cast<wchar_t>(codePoint));
        }
    }
    EXPECT_TRUE(ConvertPlatformStringToWideString(ConvertWideStringToPlatformString(wide)) == wide);
}

// Every byte of 0x80 or more of a malformed form stands for itself, the ASCII ones for ASCII.
std::wstring EachByteForItself(const std::string& narrow) {
    std::wstring wide;
    for (const char character : narrow) {
        const auto byte = static_cast<unsigned char>(character);
        wide.push_back(static_cast<wchar_t>(byte < 0x80 ? byte : 0xDC00 + byte));
    }
    return wide;
}

struct Malformed {
    const char* name;
    std::string bytes;
};

void PrintTo(const Malformed& malformed, std::ostream* stream) {
    *stream << Hex(malformed.bytes);
}

class MalformedText : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedText, KeepsEachByteAsOneCharacter) {
    EXPECT_EQ(ConvertPlatformStringToWideString(GetParam().bytes),
              EachByteForItself(GetParam().bytes));
}

TEST_P(MalformedText, LeavesItsNeighboursAlone) {
    EXPECT_EQ(ConvertPlatformStringToWideString("\xC3\xA9" + GetParam().bytes + "a\xE2\x82\xAC"),
              L"\u00E9" + EachByteForItself(GetParam().bytes) + L"a\u20AC");
}

TEST_P(MalformedText, ComesBack) {
    for (const std::string& text :
         {GetParam().bytes, "a" + GetParam().bytes, GetParam().bytes + "\xC3\xA9",
          "\xE2\x82\xAC" + GetParam().bytes, GetParam().bytes + GetParam().bytes}) {
        EXPECT_EQ(Hex(ConvertWideStringToPlatformString(ConvertPlatformStringToWideString(text))),
                  Hex(text));
    }
}

INSTANTIATE_TEST_SUITE_P(Of, MalformedText,
                         testing::ValuesIn(std::vector<Malformed>{
                             {"AFirstContinuationByteAlone", "\x80"},
                             {"ALastContinuationByteAlone", "\xBF"},
                             {"TwoContinuationBytesAlone", "\x80\xBF"},
                             {"ByteC0", "\xC0"},
                             {"ByteC1", "\xC1"},
                             {"ByteF5", "\xF5"},
                             {"ByteF8", "\xF8"},
                             {"ByteFC", "\xFC"},
                             {"ByteFE", "\xFE"},
                             {"ByteFF", "\xFF"},
                             {"NulInTwoBytes", "\xC0\x80"},
                             {"SlashInTwoBytes", "\xC0\xAF"},
                             {"U7FInTwoBytes", "\xC1\xBF"},
                             {"NulInThreeBytes", "\xE0\x80\x80"},
                             {"U7FFInThreeBytes", "\xE0\x9F\xBF"},
                             {"NulInFourBytes", "\xF0\x80\x80\x80"},
                             {"UFFFFInFourBytes", "\xF0\x8F\xBF\xBF"},
                             {"TheFirstSurrogate", "\xED\xA0\x80"},
                             {"TheLastHighSurrogate", "\xED\xAF\xBF"},
                             {"AnEscapedByteItself", "\xED\xB2\x80"},
                             {"TheLastSurrogate", "\xED\xBF\xBF"},
                             {"ASurrogatePair", "\xED\xA0\xB4\xED\xB4\x9E"},
                             {"TheFirstBeyondUnicode", "\xF4\x90\x80\x80"},
                             {"TheLastOfFourBytes", "\xF7\xBF\xBF\xBF"},
                             {"FiveBytes", "\xF8\x88\x80\x80\x80"},
                             {"SixBytes", "\xFC\x84\x80\x80\x80\x80"},
                             {"TwoBytesCutToOne", "\xC3"},
                             {"ThreeBytesCutToOne", "\xE2"},
                             {"ThreeBytesCutToTwo", "\xE2\x82"},
                             {"FourBytesCutToOne", "\xF0"},
                             {"FourBytesCutToTwo", "\xF0\x9D"},
                             {"FourBytesCutToThree", "\xF0\x9D\x84"},
                             {"TwoBytesThatEndInAscii", "\xC3\x41"},
                             {"ThreeBytesThatEndInAscii", "\xE2\x82\x41"},
                             {"ThreeBytesWithAsciiWithin", "\xE2\x41\x82"},
                             {"FourBytesThatEndInAscii", "\xF0\x9D\x84\x41"},
                             {"Latin1", "caf\xE9"},
                         }),
                         [](const testing::TestParamInfo<Malformed>& tested) {
                             return std::string(tested.param.name);
                         });

TEST(NarrowText, OfATruncatedCharacterBeforeAWholeOneKeepsTheWholeOne) {
    EXPECT_EQ(ConvertPlatformStringToWideString("\xE2\x82\xC3\xA9"), Wide({0xDCE2, 0xDC82, 0xE9}));
    EXPECT_EQ(ConvertPlatformStringToWideString("\xC3\xC3\xA9"), Wide({0xDCC3, 0xE9}));
}

TEST(NarrowText, OfOneByteComesBackWhateverTheByte) {
    for (unsigned int byte = 1; byte < 0x100; ++byte) {
        const std::string narrow(1, static_cast<char>(byte));
        const std::wstring wide = ConvertPlatformStringToWideString(narrow);
        EXPECT_EQ(wide, Wide({byte < 0x80 ? byte : 0xDC00 + byte}));
        EXPECT_EQ(ConvertWideStringToPlatformString(wide), narrow) << byte;
    }
}

TEST(NarrowText, OfTwoBytesComesBackWhateverTheBytes) {
    for (unsigned int first = 1; first < 0x100; ++first) {
        for (unsigned int second = 1; second < 0x100; ++second) {
            const std::string narrow{static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(ConvertWideStringToPlatformString(ConvertPlatformStringToWideString(narrow)),
                      narrow)
                << Hex(narrow);
        }
    }
}

TEST(NarrowText, OfRandomBytesComesBack) {
    std::mt19937 random(20240229); // the same bytes at every run
    std::uniform_int_distribution<int> anyByte(1, 0xFF);
    // Mostly bytes that begin or go on with a character, so that long forms come up often.
    std::uniform_int_distribution<int> longForms(0x80, 0xF5);
    for (int run = 0; run < 20000; ++run) {
        std::string narrow(static_cast<std::size_t>(random() % 24), '\0');
        for (char& character : narrow) {
            character = static_cast<char>(run % 2 == 0 ? anyByte(random) : longForms(random));
        }
        ASSERT_EQ(ConvertWideStringToPlatformString(ConvertPlatformStringToWideString(narrow)),
                  narrow)
            << Hex(narrow);
    }
}

TEST(NarrowText, WithANulHasAWideForm) {
    EXPECT_EQ(ConvertPlatformStringToWideString(std::string("a\0b", 3)), Wide({'a', 0, 'b'}));
}

TEST(WideText, OfEscapedBytesIsThoseBytes) {
    for (std::uint32_t byte = 0x80; byte <= 0xFF; ++byte) {
        EXPECT_EQ(ConvertWideStringToPlatformString(Wide({'a', 0xDC00 + byte, 'b'})),
                  std::string("a") + static_cast<char>(byte) + "b");
    }
}

class WideTextWithoutANarrowForm : public testing::TestWithParam<std::uint32_t> {};

TEST_P(WideTextWithoutANarrowForm, IsRefusedWithItsPosition) {
    const std::string character = "[the wide text has no narrow form: character " +
                                  std::to_string(GetParam()) + " at position ";
    const auto expectRefusal = [&](const std::vector<std::uint32_t>& text, const char* position) {
        test::ExpectFailure(character + position + "]", "kelCore/PlatformString.cpp",
                            [&] { ConvertWideStringToPlatformString(Wide(text)); });
    };
    expectRefusal({GetParam()}, "0");
    expectRefusal({'a', 0x20AC, 0xDC80, GetParam()}, "3");
    expectRefusal({'a', GetParam(), 'b', GetParam()}, "1");
}

INSTANTIATE_TEST_SUITE_P(Of, WideTextWithoutANarrowForm,
                         testing::Values(0U, 0xD800U, 0xDBFFU, 0xDC00U, 0xDC7FU, 0xDD00U, 0xDFFFU,
                                         0x110000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU));

struct Path {
    const wchar_t* path;
    const wchar_t* last;
};

TEST(TheFileName, IsWhatFollowsTheLastSeparator) {
    for (const Path& path : {
             Path{L"/music/takes/one.wav", L"one.wav"},
             Path{L"takes/one.wav", L"one.wav"},
             Path{L"/one.wav", L"one.wav"},
             Path{L"one.wav", L"one.wav"},
             Path{L"takes//one.wav", L"one.wav"},
             Path{L"takes/one", L"one"},
             Path{L"takes/.hidden", L".hidden"},
             Path{L"takes/..", L".."},
             Path{L"takes.d/one.two.wav", L"one.two.wav"},
             Path{L"takes\\one.wav", L"takes\\one.wav"},
             Path{L"d\u00E9j\u00E0/vu \u20AC.wav", L"vu \u20AC.wav"},
             Path{L"takes/", L""},
             Path{L"/", L""},
             Path{L"", L""},
         }) {
        EXPECT_EQ(ExtractFilenameFromPath(path.path), path.last)
            << testing::PrintToString(path.path);
    }
}

} // namespace
} // namespace kel
