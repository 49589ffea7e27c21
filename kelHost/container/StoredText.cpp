#include "container/StoredText.h"

#include <PlatformString.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

constexpr unsigned kASCIIEnd = 0x80;

// Characters 0x80 to 0x9F of Windows-1252. The undefined ones keep their number.
constexpr std::array<wchar_t, 32> kWindows1252{
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

wchar_t Windows1252Character(char stored) {
    const auto byte = static_cast<unsigned char>(stored);
    const bool isInTable = byte >= kASCIIEnd && byte < kASCIIEnd + kWindows1252.size();
    return isInTable ? kWindows1252[byte - kASCIIEnd] : static_cast<wchar_t>(byte);
}

// A byte that is not part of UTF-8 text, see ConvertPlatformStringToWideString.
bool IsForeignByte(wchar_t character) {
    return character >= 0xDC80 && character <= 0xDCFF;
}

bool IsNotASCII(wchar_t character) {
    return character >= static_cast<wchar_t>(kASCIIEnd);
}

bool IsInsideCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

char LowerLetter(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

char UpperLetter(char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

} // namespace

std::string DecodeText(std::string_view stored) {
    std::string bytes(stored.substr(0, stored.find('\0')));
    std::wstring text = ConvertPlatformStringToWideString(bytes);
    const auto foreign = std::find_if(text.begin(), text.end(), IsForeignByte);
    if (foreign == text.end()) {
        return bytes;
    }
    constexpr std::ptrdiff_t kMaxRest = 3; // bytes of an incomplete character
    if (text.end() - foreign <= kMaxRest && std::all_of(foreign, text.end(), IsForeignByte) &&
        std::any_of(text.begin(), foreign, IsNotASCII)) {
        text.erase(foreign, text.end());
        return ConvertWideStringToPlatformString(text);
    }
    text.resize(bytes.size());
    std::transform(bytes.begin(), bytes.end(), text.begin(), Windows1252Character);
    return ConvertWideStringToPlatformString(text);
}

std::string DecodeUTF16(std::string_view stored, bool isBigEndian) {
    constexpr wchar_t kReplacement = 0xFFFD;
    std::wstring text;
    wchar_t high = 0; // a surrogate whose partner follows
    for (std::size_t i = 0; i + 1 < stored.size(); i += 2) {
        const auto first = static_cast<unsigned char>(stored[i]);
        const auto second = static_cast<unsigned char>(stored[i + 1]);
        const auto unit =
            static_cast<wchar_t>(isBigEndian ? first * 256 + second : second * 256 + first);
        if (i == 0 && (unit == 0xFEFF || unit == 0xFFFE)) {
            isBigEndian = isBigEndian == (unit == 0xFEFF);
            continue;
        }
        const bool isLow = unit >= 0xDC00 && unit <= 0xDFFF;
        if (high != 0) {
            text.push_back(isLow ? 0x10000 + (high - 0xD800) * 0x400 + (unit - 0xDC00)
                                 : kReplacement);
        }
        const bool isPaired = high != 0 && isLow;
        high = unit >= 0xD800 && unit <= 0xDBFF ? unit : 0;
        if (unit == 0) {
            break;
        }
        if (high == 0 && !isPaired) {
            text.push_back(isLow ? kReplacement : unit);
        }
    }
    if (high != 0) {
        text.push_back(kReplacement);
    }
    return ConvertWideStringToPlatformString(text);
}

std::string LimitText(const std::string& text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return text;
    }
    while (maxBytes > 0 && IsInsideCharacter(text[maxBytes])) {
        --maxBytes;
    }
    return text.substr(0, maxBytes);
}

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), LowerLetter);
    return lower;
}

std::string UpperCase(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), UpperLetter);
    return upper;
}

} // namespace kel::host
