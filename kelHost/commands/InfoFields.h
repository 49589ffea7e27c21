/// Single fields of the results of info: "frames", "broadcast.date". Pure functions.
#pragma once

#include "analysis/FileInfo.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Returns the names of all fields, for completion. Items such as channels are counted from 0.
std::vector<std::string> FieldNames();

/// Interprets the value of --field: names, separated by commas.
/// @throws UsageError when one does not exist
std::vector<std::string> ParseFields(const std::string& text);

/// Returns the fields of a line of --csv.
/// @param request the facts that are read
std::vector<std::string> CSVFields(const InfoRequest& request);

/// Requests what the fields need.
void RequestFields(const std::vector<std::string>& fields, InfoRequest& request);

/// Returns the members that contain the fields, and the name of the file. The others need not be
/// sent to the host.
/// @param file a result of info
nlohmann::json MembersOf(nlohmann::json file, const std::vector<std::string>& fields);

/// Returns the value of a field: null where the file does not have it, as for a tag.
/// @param file a result of info
/// @throws JobError when it is one of an item, such as a channel, that the file does not have
nlohmann::json FieldOf(const nlohmann::json& file, const std::string& field);

/// Returns values as text, separated by tabs.
/// @param asJSON whether texts are in quotes; otherwise they are escaped
std::string FormatFields(const std::vector<nlohmann::json>& values, bool asJSON);

/// Returns texts as a line of CSV (RFC 4180).
std::string FormatCSVLine(const std::vector<std::string>& texts);

/// Returns values as a line of CSV. Null becomes an empty text.
std::string FormatCSVLine(const std::vector<nlohmann::json>& values);

} // namespace kel::host
