/// JSON documents: results and errors for programs. Pure functions.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace kel::host {

/// Returns a value as text in one line. Bytes that are not UTF-8 are replaced.
std::string DumpJSON(const nlohmann::json& value);

/// Returns the value of a text that DumpJSON returned.
nlohmann::json ParseJSON(const std::string& text);

/// Returns a document as a line of text: its kind, "kelhost.KIND", its version, and its members.
/// docs/json.md lists the kinds and their members.
std::string FormatDocument(const std::string& kind, nlohmann::json members);

} // namespace kel::host
