#include "base/Text.h"

#include "base/DisplayWidth.h"

#include <PlatformString.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

// Category Cc of Unicode.
bool IsControl(wchar_t character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

struct CodePoints {
    wchar_t first;
    wchar_t last;
};

// Characters without a shape of their own: format characters (category Cf), and the separators of
// lines (Zl) and paragraphs (Zp). They reorder, join, hide or break text. From
// extracted/DerivedGeneralCategory.txt of the Unicode Character Database, version 15.0,
// https://www.unicode.org/Public/15.0.0/ucd/.
constexpr CodePoints kShapeless[] = {
    {0x00AD, 0x00AD},   // soft hyphen
    {0x0600, 0x0605},   // Arabic number signs
    {0x061C, 0x061C},   // Arabic letter mark
    {0x06DD, 0x06DD},   // Arabic end of ayah
    {0x070F, 0x070F},   // Syriac abbreviation mark
    {0x0890, 0x0891},   // Arabic pound and piastre marks
    {0x08E2, 0x08E2},   // Arabic disputed end of ayah
    {0x180E, 0x180E},   // Mongolian vowel separator
    {0x200B, 0x200F},   // zero-width space, non-joiner and joiner; directional marks
    {0x2028, 0x202E},   // line and paragraph separators; bidirectional embeddings, overrides
    {0x2060, 0x2064},   // word joiner, invisible operators
    {0x2066, 0x206F},   // bidirectional isolates; deprecated format characters
    {0xFEFF, 0xFEFF},   // zero-width no-break space
    {0xFFF9, 0xFFFB},   // interlinear annotations
    {0x110BD, 0x110BD}, // Kaithi number sign
    {0x110CD, 0x110CD}, // Kaithi number sign above
    {0x13430, 0x1343F}, // Egyptian hieroglyph joiners and enclosures
    {0x1BCA0, 0x1BCA3}, // shorthand format controls
    {0x1D173, 0x1D17A}, // musical format controls
    {0xE0001, 0xE0001}, // language tag
    {0xE0020, 0xE007F}, // tag characters
};

bool IsShapeless(wchar_t character) {
    return std::any_of(std::begin(kShapeless), std::end(kShapeless), [=](const CodePoints& range) {
        return character >= range.first && character <= range.last;
    });
}

// Code points that represent bytes which are not UTF-8, see ConvertPlatformStringToWideString.
bool IsEscapedByte(wchar_t character) {
    return character >= 0xDC80 && character <= 0xDCFF;
}

std::string EscapeCharacter(wchar_t character) {
    switch (character) {
    case L'\n':
        return "\\n";
    case L'\r':
        return "\\r";
    case L'\t':
        return "\\t";
    default:
        break;
    }
    if (IsEscapedByte(character)) {
        return fmt::format("\\x{:02X}", static_cast<unsigned>(character) & 0xFFU);
    }
    if (IsControl(character)) {
        return fmt::format("\\x{:02X}", static_cast<unsigned>(character));
    }
    if (IsShapeless(character)) {
        const auto number = static_cast<unsigned>(character);
        return number <= 0xFFFF ? fmt::format("\\u{:04X}", number)
                                : fmt::format("\\U{:08X}", number);
    }
    return ConvertWideStringToPlatformString(std::wstring(1, character));
}

} // namespace

std::string Coloured(std::string_view text, Colour colour, bool isOn) {
    if (!isOn || text.empty()) {
        return std::string(text);
    }
    const int number = colour == Colour::Red ? 31 : colour == Colour::Green ? 32 : 33;
    return fmt::format("\x1B[1;{}m{}\x1B[0m", number, text);
}

std::string WarningLine(std::string_view message) {
    return "kelhost: warning: " + Escape(message);
}

std::string Count(std::uint64_t number, std::string_view noun) {
    return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string ListAlternatives(const std::vector<std::string>& names) {
    std::string list;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const bool isLast = i + 1 == names.size();
        list += i == 0 ? "" : (isLast ? " or " : ", ");
        list += names[i];
    }
    return list;
}

std::string Escape(std::string_view text) {
    const bool isPlain =
        std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
    if (isPlain) {
        return std::string(text); // nearly all names, and a table has thousands
    }
    std::string escaped;
    for (const wchar_t character : ConvertPlatformStringToWideString(std::string(text))) {
        escaped += EscapeCharacter(character);
    }
    return escaped;
}

std::string Hexadecimal(std::string_view bytes) {
    std::string digits;
    for (const char byte : bytes) {
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return digits;
}

std::string FormatSize(std::uint64_t bytes) {
    constexpr double kStep = 1024;
    constexpr double kRounded = kStep - 0.05; // from there on, 1024.0 would be shown
    constexpr std::array<const char*, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};
    if (static_cast<double>(bytes) < kStep) {
        return Count(bytes, "byte");
    }
    double size = static_cast<double>(bytes) / kStep;
    std::size_t unit = 0;
    for (; size >= kRounded && unit + 1 < kUnits.size(); ++unit) {
        size /= kStep;
    }
    return fmt::format("{:.1f} {}", size, kUnits[unit]);
}

std::string FormatDuration(std::int64_t frames, std::uint32_t rate) {
    if (rate == 0) {
        return "unknown";
    }
    // Seconds and milliseconds are computed apart: the whole in milliseconds may overflow.
    const std::int64_t rest = frames % rate;
    const std::int64_t millis = (rest * 1000 + rate / 2) / rate;
    return fmt::format("{}.{:03}", FormatSeconds(frames / rate + millis / 1000), millis % 1000);
}

std::string FormatSeconds(std::int64_t seconds) {
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string FormatTable(const std::vector<Column>& columns,
                        const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    std::vector<std::string> titles;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::size_t width = DisplayWidth(columns[i].title);
        for (const auto& row : rows) {
            width = std::max(width, DisplayWidth(row[i]));
        }
        widths.push_back(width);
        titles.push_back(columns[i].title);
    }

    std::string table;
    const auto appendRow = [&](const std::vector<std::string>& row) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::size_t padding = widths[i] - DisplayWidth(row[i]);
            const bool isRight = columns[i].align == Align::Right;
            table += i == 0 ? "" : "  ";
            table.append(isRight ? padding : 0, ' ');
            table += row[i];
            table.append(isRight ? 0 : padding, ' ');
        }
        table.erase(table.find_last_not_of(' ') + 1);
        table += '\n';
    };
    appendRow(titles);
    for (const auto& row : rows) {
        appendRow(row);
    }
    return table;
}

} // namespace kel::host
