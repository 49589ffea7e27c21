/// Text for people: escaped file names, durations, tables.
///
/// Pure functions of their arguments.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Returns a file name or a message so that it stays on one line and does nothing to a terminal:
/// control characters and bytes that are not UTF-8 as \n, \t, \xHH; everything else as it is.
std::string Escape(std::string_view text);

/// Returns a length as h:mm:ss.mmm, rounded to the millisecond.
/// @param frames number of frames, not negative
/// @param rate frames per second; 0 gives "unknown"
std::string FormatDuration(std::int64_t frames, std::uint32_t rate);

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
