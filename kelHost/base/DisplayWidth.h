/// Width of text on a terminal, in columns: 0 for a combining mark, 2 for a character of an East
/// Asian script or an emoji, 1 for every other character. The locale has no influence. Texts are
/// escaped, see Escape. Pure functions.
#pragma once

#include <cstddef>
#include <string>

namespace kel::host {

/// Returns the number of columns that a text occupies.
std::size_t DisplayWidth(const std::string& text);

/// Returns a text followed by spaces up to a width. A wider text is unchanged.
std::string Pad(const std::string& text, std::size_t width);

/// Shortens a text to at most so many columns. Dots replace its end.
std::string KeepBeginning(const std::string& text, std::size_t maxWidth);

/// Shortens a text to at most so many columns. Dots replace its beginning, because files of one
/// take differ at the end of their names.
std::string KeepEnd(const std::string& text, std::size_t maxWidth);

} // namespace kel::host
