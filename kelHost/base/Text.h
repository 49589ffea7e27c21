/// Text for people: escaped file names, counts, durations, tables. Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Returns text that stays on one line, does nothing to a terminal and reads as it is stored.
/// Control characters and bytes that are not UTF-8 become \n, \r, \t or \xHH. Format characters,
/// such as those that reverse or hide text, and the separators of lines and paragraphs become
/// \uHHHH or \UHHHHHHHH. Everything else is unchanged. Escaping twice changes nothing.
std::string Escape(std::string_view text);

/// Colours of a terminal.
enum class Colour { Red, Green, Yellow };

/// Returns a text in a colour, by the control sequences of terminals (ECMA-48).
/// @param isOn whether it is coloured at all; an empty text never is
std::string Coloured(std::string_view text, Colour colour, bool isOn);

/// Returns a warning as a line for the user, escaped, without a newline.
std::string WarningLine(std::string_view message);

/// Returns a number with its noun: "1 channel", "2 channels".
std::string Count(std::uint64_t number, std::string_view noun);

/// Returns alternatives as a list: "little or big", "wave, bwave or aiff".
std::string ListAlternatives(const std::vector<std::string>& names);

/// Returns bytes as hexadecimal digits: "060a".
std::string Hexadecimal(std::string_view bytes);

/// Returns a size in the largest unit in which it is 1 or more: "800 bytes", "1.5 KiB".
std::string FormatSize(std::uint64_t bytes);

/// Returns a duration as h:mm:ss.mmm, rounded to the millisecond.
/// @param frames number of frames, not negative
/// @param rate frames per second; 0 returns "unknown"
std::string FormatDuration(std::int64_t frames, std::uint32_t rate);

/// Returns a duration as h:mm:ss.
/// @param seconds not negative
std::string FormatSeconds(std::int64_t seconds);

/// Alignment of the cells of a column.
enum class Align { Left, Right };

/// One column of a table.
struct Column {
    std::string title;
    Align align = Align::Left;
};

/// Returns a table of aligned columns with a title line; each line ends with a newline. Names
/// in any script line up.
/// @param columns the columns, from left to right
/// @param rows the cells of each row, one for each column
std::string FormatTable(const std::vector<Column>& columns,
                        const std::vector<std::vector<std::string>>& rows);

} // namespace kel::host
