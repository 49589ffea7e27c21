/// Conversions between wide texts and the narrow texts of the platform.
/// Pure functions of their arguments: any thread may call them.
///
/// The narrow form is UTF-8 (RFC 3629) in every locale. A Linux file name is any bytes but NUL and
/// "/", so bytes that are not UTF-8 are kept: each is one code point of U+DC80 to U+DCFF in wide
/// text, which no UTF-8 text can contain. The conversion to wide text and back restores every byte.
/// @ingroup library
#pragma once

#include "Export.h"

#include <string>

namespace kel {

/// Returns the narrow form of a wide text, as the file functions of the platform expect it.
/// @throws KELRuntimeError with the position of the first character that has no narrow form: NUL,
/// a surrogate outside U+DC80 to U+DCFF, or a value beyond U+10FFFF
KEL_CORE_EXPORT std::string ConvertWideStringToPlatformString(const std::wstring& text);

/// Returns the wide form of a narrow text. Every text has one.
KEL_CORE_EXPORT std::wstring ConvertPlatformStringToWideString(const std::string& text);

/// Returns the last component of a path: the text after the last "/", the whole path without one,
/// the empty text when the path ends with one.
KEL_CORE_EXPORT std::wstring ExtractFilenameFromPath(std::wstring path);

} // namespace kel
