#include "base/JSONDocument.h"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

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

void WriteDocument(std::ostream& out, const std::string& kind, nlohmann::json members,
                   const std::string& array, const std::vector<std::string>& items) {
    members["document"] = "kelhost." + kind;
    members["version"] = 1;
    members[array] = nullptr;
    const char* before = "{";
    for (const auto& [name, value] : members.items()) {
        out << std::exchange(before, ",") << DumpJSON(name) << ':';
        if (name != array) {
            out << DumpJSON(value);
            continue;
        }
        out << '[';
        for (const std::string& item : items) {
            out << (&item == &items.front() ? "" : ",") << item;
        }
        out << ']';
    }
    out << "}\n";
}

} // namespace kel::host
