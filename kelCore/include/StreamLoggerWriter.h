/// A logger writer that prints records on a stream, one line for each.
/// Any thread may call the function; the writer may be used by several threads at once.
/// @ingroup logging
#pragma once

#include "Export.h"
#include "LogLevel.h"
#include "Logging.h"

#include <memory>
#include <ostream>

namespace kel {

/// Makes a writer for SetCurrentLoggerWriter that prints each record as one line and flushes it:
/// "TIME LEVEL [THREAD] MESSAGE (FILE:LINE)", with " in CONTEXT" at the end if there is a context.
/// Control characters, line separators and bytes that are not UTF-8 are printed as `\n`, `\r`,
/// `\t`, `\xHH` or `\uHHHH`, so that a record is always one line and does nothing to a terminal.
///
/// The values of LogLevel are not in the order of their severity. The order here is Info,
/// Milestone, Warning, Error. Records of other values are always printed.
/// @param level the lowest level that is printed: LogLevel::Milestone prints all but Info
/// @param stream must exist as long as the writer. The writer locks only itself: no other writer
/// and no other code may use the stream at the same time
/// @return a writer whose Write throws std::ios_base::failure when the stream is or becomes bad;
/// the record is then written to standard error, see ILoggerWriter
/// @throws KELRuntimeError when @p level is none of these four
KEL_CORE_EXPORT std::shared_ptr<ILoggerWriter> CreateStreamLoggerWriter(LogLevel level,
                                                                        std::ostream& stream);

} // namespace kel
