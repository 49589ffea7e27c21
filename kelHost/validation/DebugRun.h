/// A check for a debugger: in this process, without a time limit and without caught signals. The
/// debugger then stops where the element fails. Used by one thread, once in a process.
#pragma once

#include "validation/CheckSelection.h"
#include "validation/Report.h"

namespace kel::host {

/// Loads the plug-in into this process and makes one check of one element, or of the plug-in. The
/// working directory is an empty one, which is removed at the end. A crash of the plug-in ends the
/// program, and the directory remains.
/// @param request names one check, and the element when several have it
/// @return the report, with one result
/// @throws UsageError when the request names something unknown, selects several elements or has
/// options that mean nothing to the check; JobError when the plug-in is missing
ValidationReport DebugCheck(const ValidationRequest& request);

} // namespace kel::host
