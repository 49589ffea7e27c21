/// Texts in audio files. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kel::host {

/// Returns a text up to its first byte 0, as UTF-8. Text that is not UTF-8 is taken as
/// Windows-1252. A field may end within a character; such a rest of UTF-8 text is dropped.
std::string DecodeText(std::string_view stored);

/// Returns UTF-16 text up to its first character 0, as UTF-8. A byte order mark decides about the
/// byte order and is dropped. Surrogates without a partner become U+FFFD.
std::string DecodeUTF16(std::string_view stored, bool isBigEndian);

/// Returns the longest beginning of a UTF-8 text that ends with a whole character.
std::string LimitText(const std::string& text, std::size_t maxBytes);

/// Returns a text with small instead of capital letters of ASCII.
std::string LowerCase(std::string_view text);

/// Returns a text with capital instead of small letters of ASCII.
std::string UpperCase(std::string_view text);

} // namespace kel::host
