/// Severity of a log record.
/// A plain value: any thread may use its own copy.
/// @ingroup logging
#pragma once

#include "Export.h"

#include <cstdint>
#include <string>

namespace kel {

/// Severity of a log record.
enum class LogLevel : std::int32_t {
    Info = 0,      ///< a note on success or on an inferred setting
    Warning = 1,   ///< something was overridden or left out; work goes on
    Error = 2,     ///< a failed check, a refusal, a short read or write
    Reserved = 3,  ///< not used; reserved so that no other level gets the value
    Milestone = 4, ///< the start of an operation that should be visible in the log
};

/// Returns the word for a level: "Info", "Warning", "Error", "Reserved" or "Milestone";
/// "LogLevel(N)" for a value N without a name. Any thread may call it.
KEL_CORE_EXPORT std::string ToString(LogLevel level);

} // namespace kel
