/// Container formats of audio files, and their labels.
/// Pure functions of their arguments: any thread may call them.
/// @ingroup formats
#pragma once

#include "Export.h"

#include <cstdint>
#include <string>

namespace kel {

/// Container format of an audio file. Other programs store the values, which are not contiguous.
enum class WrapperFormat : std::int32_t {
    Unknown = 0, ///< no format
    AIFF = 1,    ///< Audio Interchange File Format
    BWAVE = 5,   ///< broadcast wave with 64-bit sizes: RF64 (EBU Tech 3306)
    RAW = 28,    ///< sample data without a header
    WAVE = 32,   ///< RIFF WAVE
};

/// Returns the label of @p format ("Unknown", "AIFF", "BWAVE", "RAW", "WAVE"), the value of "type"
/// in registry entries; "WrapperFormat(N)" for a value N without a name.
KEL_CORE_EXPORT std::string GetLabel(WrapperFormat format);

/// Returns the same text as GetLabel, for messages.
KEL_CORE_EXPORT std::string ToString(WrapperFormat format);

/// Parses a label back into the enumeration.
///
/// The comparison is exact, upper case included. @p out is written only when @p text is a label, so
/// a caller sets it to WrapperFormat::Unknown beforehand and may ignore the result.
/// @return true when @p text is one of the five labels
KEL_CORE_EXPORT bool FromString(WrapperFormat& out, const std::string& text);

} // namespace kel
