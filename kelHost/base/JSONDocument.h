/// JSON documents: results and errors for programs. Pure functions.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// Returns a value as text in one line. Bytes that are not UTF-8 are replaced.
std::string DumpJSON(const nlohmann::json& value);

/// Returns the value of a text that DumpJSON returned.
nlohmann::json ParseJSON(const std::string& text);

/// Adds the name of a file for programs that open it: a member with the path. It is null without
/// a file, and when the bytes are not UTF-8; NAME_hex then has them as hexadecimal digits.
/// @param members an object
/// @param name "path"
void AddPath(nlohmann::json& members, const std::string& name, const std::string& path);

/// Returns a document as a line of text: its kind, "kelhost.KIND", its version, and its members.
/// docs/json.md lists the kinds and their members.
std::string FormatDocument(const std::string& kind, nlohmann::json members);

/// Writes the same document, with another member: an array. It is not built in memory.
/// @param array name of the array
/// @param items texts that DumpJSON returned
void WriteDocument(std::ostream& out, const std::string& kind, nlohmann::json members,
                   const std::string& array, const std::vector<std::string>& items);

} // namespace kel::host
