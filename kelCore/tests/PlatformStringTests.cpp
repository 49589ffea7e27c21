#include <CapturingWriter.h>
#include <PlatformString.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

// A text of code points; a literal cannot hold surrogates.
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

TEST(WellFormedText, IsUtf8InItsNarrowFormAndCodePointsInItsWideForm) {
    for (const Pair& pair : kWellFormed) {
        EXPECT_EQ(ConvertWideStringToPlatformString(Wide(pair.wide)), pair.narrow)
            << Hex(pair.narrow);
        EXPECT_EQ(ConvertPlatformStringToWideString(pair.narrow), Wide(pair.wide))
            << Hex(pair.narrow);
    }
}

TEST(WellFormedText, OfEveryCodePointIsRestored) {
    std::wstring wide;
    for (std::uint32_t codePoint = 1; codePoint <= 0x10FFFF; ++codePoint) {
        if (codePoint < 0xD800 || codePoint > 0xDFFF) {
            wide.push_back(static_cast<wchar_t>(codePoint));
        }
    }
    EXPECT_TRUE(ConvertPlatformStringToWideString(ConvertWideStringToPlatformString(wide)) == wide);
}

// The wide form of malformed text: each byte of 0x80 or more is escaped.
std::wstring EscapedBytes(const std::string& narrow) {
    std::wstring wide;
    for (const char character : narrow) {
        const auto byte = static_cast<unsigned char>(character);
        wide.push_back(static_cast<wchar_t>(byte < 0x80 ? byte : 0xDC00 + byte));
    }
    return wide;
}

TEST(MalformedText, HasOneCharacterForEachByteAndLeavesItsNeighboursUnchanged) {
    const std::vector<std::string> kMalformed = {
        // Continuation bytes without a first byte, and bytes that begin nothing.
        "\x80", "\xBF", "\x80\xBF", "\xC0", "\xC1", "\xF5", "\xF8", "\xFC", "\xFE", "\xFF",
        // Longer forms than necessary.
        "\xC0\x80", "\xC0\xAF", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x80\x80\x80",
        "\xF0\x8F\xBF\xBF",
        // Surrogates, an escaped byte among them.
        "\xED\xA0\x80", "\xED\xAF\xBF", "\xED\xB2\x80", "\xED\xBF\xBF", "\xED\xA0\xB4\xED\xB4\x9E",
        // Values beyond U+10FFFF.
        "\xF4\x90\x80\x80", "\xF7\xBF\xBF\xBF", "\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80",
        // Truncated characters.
        "\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9D", "\xF0\x9D\x84",
        // Characters with ASCII in the place of a continuation byte.
        "\xC3\x41", "\xE2\x82\x41", "\xE2\x41\x82", "\xF0\x9D\x84\x41", "caf\xE9"};
    for (const std::string& bytes : kMalformed) {
        EXPECT_EQ(ConvertPlatformStringToWideString(bytes), EscapedBytes(bytes)) << Hex(bytes);
        const std::string within = "\xC3\xA9" + bytes + "\xE2\x82\xAC";
        const std::wstring wide = L"\u00E9" + EscapedBytes(bytes) + L"\u20AC";
        EXPECT_EQ(ConvertPlatformStringToWideString(within), wide) << Hex(bytes);
        EXPECT_EQ(Hex(ConvertWideStringToPlatformString(wide)), Hex(within));
    }
}

TEST(NarrowText, OfTwoBytesIsRestored) {
    for (unsigned int first = 1; first < 0x100; ++first) {
        for (unsigned int second = 1; second < 0x100; ++second) {
            const std::string narrow{static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(ConvertWideStringToPlatformString(ConvertPlatformStringToWideString(narrow)),
                      narrow)
                << Hex(narrow);
        }
    }
}

TEST(NarrowText, WithANulHasAWideForm) {
    EXPECT_EQ(ConvertPlatformStringToWideString(std::string("a\0b", 3)), Wide({'a', 0, 'b'}));
}

TEST(WideText, WithoutANarrowFormIsRefusedWithItsPosition) {
    for (const std::uint32_t character : {0U, 0xD800U, 0xDBFFU, 0xDC00U, 0xDC7FU, 0xDD00U, 0xDFFFU,
                                          0x110000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        test::ExpectFailure("[the wide text has no narrow form: character " +
                                std::to_string(character) + " at position 3]",
                            "kelCore/PlatformString.cpp", [character] {
                                ConvertWideStringToPlatformString(
                                    Wide({'a', 0x20AC, 0xDC80, character, 'b', character}));
                            });
    }
}

TEST(TheFileName, FollowsTheLastSeparator) {
    const std::vector<std::pair<std::wstring, std::wstring>> kPaths = {
        {L"/music/takes/one.wav", L"one.wav"},
        {L"/one.wav", L"one.wav"},
        {L"one.wav", L"one.wav"},
        {L"takes//one.wav", L"one.wav"},
        {L"takes/..", L".."},
        {L"takes.d/one", L"one"},
        {L"takes\\one.wav", L"takes\\one.wav"},
        {L"d\u00E9j\u00E0/vu \u20AC.wav", L"vu \u20AC.wav"},
        {L"takes/", L""},
        {L"/", L""},
        {L"", L""},
    };
    for (const auto& [path, name] : kPaths) {
        EXPECT_EQ(ExtractFilenameFromPath(path), name);
    }
}

} // namespace
} // namespace kel
