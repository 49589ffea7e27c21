#include "PlatformString.h"
#include "Checks.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

namespace {

// A byte b that is not part of UTF-8 is kEscapeBase + b in wide text.
constexpr std::uint32_t kEscapeBase = 0xDC00;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

constexpr bool IsSurrogate(std::uint32_t codePoint) {
    return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}

constexpr bool IsEscapedByte(std::uint32_t codePoint) {
    return codePoint >= kEscapeBase + 0x80 && codePoint <= kEscapeBase + 0xFF;
}

struct DecodedCharacter {
    std::uint32_t codePoint = 0;
    std::size_t length = 0; // bytes; 0 when the text does not begin with a well-formed character
};

// Decodes the first character of a text that begins with a byte of 0x80 or more. A well-formed
// character (RFC 3629, section 4) has the shortest form, is no surrogate and is at most U+10FFFF.
DecodedCharacter DecodeMultibyte(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    DecodedCharacter result;
    std::uint32_t smallest = 0;
    if (first >= 0xC2 && first <= 0xDF) {
        result = {first & 0x1FU, 2};
        smallest = 0x80;
    } else if (first >= 0xE0 && first <= 0xEF) {
        result = {first & 0x0FU, 3};
        smallest = 0x800;
    } else if (first >= 0xF0 && first <= 0xF4) {
        result = {first & 0x07U, 4};
        smallest = 0x10000;
    }
    if (result.length == 0 || text.size() < result.length) {
        return {};
    }
    for (std::size_t i = 1; i < result.length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0U) != 0x80U) {
            return {};
        }
        result.codePoint = (result.codePoint << 6U) | (next & 0x3FU);
    }
    if (result.codePoint < smallest || result.codePoint > kLastCodePoint ||
        IsSurrogate(result.codePoint)) {
        return {};
    }
    return result;
}

void AppendByte(std::string& out, std::uint32_t byte) {
    out.push_back(static_cast<char>(static_cast<unsigned char>(byte)));
}

void AppendUtf8(std::string& out, std::uint32_t codePoint) {
    if (codePoint < 0x80) {
        AppendByte(out, codePoint);
    } else if (codePoint < 0x800) {
        AppendByte(out, 0xC0U | (codePoint >> 6U));
        AppendByte(out, 0x80U | (codePoint & 0x3FU));
    } else if (codePoint < 0x10000) {
        AppendByte(out, 0xE0U | (codePoint >> 12U));
        AppendByte(out, 0x80U | ((codePoint >> 6U) & 0x3FU));
        AppendByte(out, 0x80U | (codePoint & 0x3FU));
    } else {
        AppendByte(out, 0xF0U | (codePoint >> 18U));
        AppendByte(out, 0x80U | ((codePoint >> 12U) & 0x3FU));
        AppendByte(out, 0x80U | ((codePoint >> 6U) & 0x3FU));
        AppendByte(out, 0x80U | (codePoint & 0x3FU));
    }
}

} // namespace

std::string ConvertWideStringToPlatformString(const std::wstring& text) {
    std::string narrow;
    narrow.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto codePoint = static_cast<std::uint32_t>(text[i]);
        if (IsEscapedByte(codePoint)) {
            AppendByte(narrow, codePoint - kEscapeBase);
        } else if (codePoint == 0 || codePoint > kLastCodePoint || IsSurrogate(codePoint)) {
            KEL_FAIL("the wide text has no narrow form: character " << codePoint << " at position "
                                                                    << i);
        } else {
            AppendUtf8(narrow, codePoint);
        }
    }
    return narrow;
}

std::wstring ConvertPlatformStringToWideString(const std::string& text) {
    std::wstring wide;
    wide.reserve(text.size());
    std::string_view rest = text;
    while (!rest.empty()) {
        const auto first = static_cast<unsigned char>(rest[0]);
        DecodedCharacter character{first, 1};
        if (first >= 0x80) {
            character = DecodeMultibyte(rest);
            if (character.length == 0) {
                character = {kEscapeBase + first, 1};
            }
        }
        wide.push_back(static_cast<wchar_t>(character.codePoint));
        rest.remove_prefix(character.length);
    }
    return wide;
}

std::wstring ExtractFilenameFromPath(std::wstring path) {
    const std::size_t separator = path.rfind(L'/');
    if (separator != std::wstring::npos) {
        path.erase(0, separator + 1);
    }
    return path;
}

} // namespace kel
