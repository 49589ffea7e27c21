#include "base/JSONDocument.h"

#include "base/Text.h"

#include <PlatformString.h>

#include <nlohmann/json.hpp>

#include <algorithm>
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

void AddPath(nlohmann::json& members, const std::string& name, const std::string& path) {
    const std::wstring text = ConvertPlatformStringToWideString(path);
    const bool isUTF8 = std::none_of(text.begin(), text.end(), [](wchar_t character) {
        return character >= 0xDC80 && character <= 0xDCFF; // a byte that is not UTF-8
    });
    members[name] = isUTF8 && !path.empty() ? nlohmann::json(path) : nlohmann::json();
    if (!isUTF8) {
        members[name + "_hex"] = Hexadecimal(path);
    }
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
