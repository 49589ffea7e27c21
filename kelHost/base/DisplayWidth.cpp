#include "base/DisplayWidth.h"

#include "base/CharacterWidthTables.h"

#include <PlatformString.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

template <std::size_t size>
bool Contains(const CodePointRange (&ranges)[size], wchar_t character) {
    const auto point = static_cast<char32_t>(character);
    const CodePointRange* range = std::lower_bound(
        std::begin(ranges), std::end(ranges), point,
        [](const CodePointRange& before, char32_t value) { return before.last < value; });
    return range != std::end(ranges) && range->first <= point;
}

std::size_t WidthOf(wchar_t character) {
    constexpr wchar_t kFirstCombining = 0x300; // no table has a smaller one
    if (character < kFirstCombining) {
        return 1;
    }
    return Contains(kCombining, character) ? 0 : Contains(kWide, character) ? 2 : 1;
}

std::size_t WidthOf(std::wstring_view characters) {
    std::size_t width = 0;
    for (const wchar_t character : characters) {
        width += WidthOf(character);
    }
    return width;
}

std::string Dots(std::size_t maxWidth) {
    constexpr std::size_t kDots = 3;
    std::string dots(std::min(maxWidth, kDots), '.');
    return dots;
}

} // namespace

std::size_t DisplayWidth(const std::string& text) {
    const bool isPlain =
        std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
    // Nearly all texts are plain, and a table has thousands.
    return isPlain ? text.size() : WidthOf(ConvertPlatformStringToWideString(text));
}

std::string Pad(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, DisplayWidth(text)), ' ');
}

std::string KeepBeginning(const std::string& text, std::size_t maxWidth) {
    const std::wstring characters = ConvertPlatformStringToWideString(text);
    if (WidthOf(characters) <= maxWidth) {
        return text;
    }
    const std::string dots = Dots(maxWidth);
    std::size_t end = 0;
    for (std::size_t width = 0; (width += WidthOf(characters[end])) <= maxWidth - dots.size();) {
        ++end;
    }
    return ConvertWideStringToPlatformString(characters.substr(0, end)) + dots;
}

std::string KeepEnd(const std::string& text, std::size_t maxWidth) {
    const std::wstring characters = ConvertPlatformStringToWideString(text);
    if (WidthOf(characters) <= maxWidth) {
        return text;
    }
    const std::string dots = Dots(maxWidth);
    std::size_t begin = characters.size();
    for (std::size_t width = 0;
         (width += WidthOf(characters[begin - 1])) <= maxWidth - dots.size();) {
        --begin;
    }
    // A mark without its letter would be drawn on the dots.
    while (begin < characters.size() && WidthOf(characters[begin]) == 0) {
        ++begin;
    }
    return dots + ConvertWideStringToPlatformString(characters.substr(begin));
}

} // namespace kel::host
