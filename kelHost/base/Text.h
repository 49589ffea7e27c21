/// Text for people: escaped file names, durations, tables.
///
/// Pure functions of their arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Returns a file name or a message so that it stays on one line and does nothing to a terminal:
/// control characters and bytes that are not UTF-8 as \n, \t, \xHH; everything else as it is.
std::string Escape(std::string_view text);

/// Number of characters in a text, of code points to be exact.
std::size_t CountCharacters(const std::string& text);

/// Returns a text that has no more than so many characters: the end of one that has, behind dots,
/// as files of one take differ at the end of their names.
std::string KeepEnd(const std::string& text, std::size_t most);

/// Returns a length as h:mm:ss.mmm, rounded to the millisecond.
/// @param frames number of frames, not negative
/// @param rate frames per second; 0 gives "unknown"
std::string FormatDuration(std::int64_t frames, std::uint32_t rate);

/// Returns a length as h:mm:ss.
/// @param seconds not negative
std::string FormatSeconds(std::int64_t seconds);

/// How a column of a table is set.
enum class Align { Left, Right };

/// One column of a table.
struct Column {
    std::string title;
    Align align = Align::Left;
};

/// Returns a table of aligned columns with a title line, each line ended by a newline. Widths count
/// code points, so that names in any script line up.
/// @param columns the columns, from left to right
/// @param rows the cells of each row, as many as there are columns
std::string FormatTable(const std::vector<Column>& columns,
                        const std::vector<std::vector<std::string>>& rows);

} // namespace kel::host
