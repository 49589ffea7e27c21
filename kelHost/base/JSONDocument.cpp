#include "base/JSONDocument.h"

#include <nlohmann/json.hpp>

#include <string>

namespace kel::host {

std::string DumpJSON(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json ParseJSON(const std::string& text) {
    return nlohmann::json::parse(text);
}

std::string FormatDocument(const std::string& kind, nlohmann::json members) {
    members["document"] = "kelhost." + kind;
    members["version"] = 1;
    return DumpJSON(members) + "\n";
}

} // namespace kel::host
