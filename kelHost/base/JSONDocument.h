/// JSON documents: results and errors for programs.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace kel::host {

/// Returns a document as text, a line of its own: its kind, "kelhost.KIND", its version, and its
/// members. Bytes that are not UTF-8 are replaced. docs/json.md lists the
/// kinds and their members.
inline std::string FormatDocument(const std::string& kind, nlohmann::json members) {
    members["document"] = "kelhost." + kind;
    members["version"] = 1;
    return members.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace kel::host
