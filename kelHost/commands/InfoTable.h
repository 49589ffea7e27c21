/// Facts about several files as a table. Pure functions.
#pragma once

#include "analysis/FileInfo.h"

#include <string>
#include <vector>

namespace kel::host {

/// Returns the cells of a file as one text, for ShowTable.
std::string FormatRow(const FileInfo& info);

/// Returns the table: formats and lengths, or levels and loudness if these were measured.
/// @param request the facts that were read
/// @param rows results of FormatRow
/// @return an empty text without rows
std::string FormatInfoTable(const InfoRequest& request, const std::vector<std::string>& rows);

} // namespace kel::host
