#include "commands/InfoFields.h"

#include "analysis/MetadataDocument.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Suggestion.h"
#include "base/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

constexpr std::string_view kMeasurementFields = "measurement.";
constexpr std::string_view kTags = "tags.";

bool StartsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back().push_back(character);
        }
    }
    return parts;
}

// True for the number of an item, as written without leading zeros.
bool IsIndex(const std::string& part) {
    constexpr std::size_t kMaxDigits = 7;
    const bool isNumber = !part.empty() && part.size() <= kMaxDigits &&
                          std::all_of(part.begin(), part.end(),
                                      [](unsigned char digit) { return std::isdigit(digit) != 0; });
    return isNumber && (part.size() == 1 || part.front() != '0');
}

// A file that has one item of each kind.
FileInfo ExampleInfo() {
    FileInfo info;
    info.rate = 1;
    info.md5.emplace();
    info.measurement.emplace();
    info.measurement->channels.emplace_back();
    info.metadata.emplace();
    info.metadata->broadcast.emplace();
    info.metadata->broadcast->loudness.emplace();
    info.metadata->cuePoints.emplace_back();
    info.metadata->others.emplace_back();
    info.metadata->problems.emplace_back();
    return info;
}

// Returns the field of the first item that corresponds to a field of any item.
std::string FieldOfFirst(const std::string& field) {
    std::string first;
    for (const std::string& part : Split(field, '.')) {
        first += (first.empty() ? "" : ".") + (IsIndex(part) ? "0" : part);
    }
    return first;
}

bool IsField(const std::string& field, const std::vector<std::string>& names) {
    if (StartsWith(field, kTags)) {
        return field.size() > kTags.size();
    }
    return std::find(names.begin(), names.end(), FieldOfFirst(field)) != names.end();
}

bool IsMetadata(const std::string& field) {
    const std::string member = field.substr(0, field.find('.'));
    json members;
    AddMetadata(members, Metadata(), 1);
    return members.contains(member);
}

// Returns the values of all tags of a name; null for none.
json TagValue(const json& file, const std::string& name) {
    std::string values;
    bool isFound = false;
    for (const json& tag : file.at("tags")) {
        if (tag.at("name") == name) {
            values += (isFound ? "; " : "") + tag.at("value").get<std::string>();
            isFound = true;
        }
    }
    return isFound ? json(values) : json();
}

// Returns the noun for the items of an array.
std::string ItemNoun(const std::string& array) {
    static const std::map<std::string, std::string> nouns{{"channels", "channel"},
                                                          {"cue_points", "cue point"},
                                                          {"chunks", "chunk"},
                                                          {"problems", "problem"}};
    return nouns.at(array);
}

std::string TextOf(const json& value) {
    return value.is_string() ? Escape(value.get<std::string>()) : DumpJSON(value);
}

} // namespace

std::vector<std::string> FieldNames() {
    std::vector<std::string> names;
    json example(ExampleInfo());
    example.erase("tags");
    const json members = example.flatten();
    for (const auto& [pointer, value] : members.items()) {
        std::string name = pointer.substr(1);
        std::replace(name.begin(), name.end(), '/', '.');
        names.push_back(name);
    }
    names.push_back(std::string(kTags) + "NAME");
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> ParseFields(const std::string& text) {
    std::vector<std::string> fields = Split(text, ',');
    const std::vector<std::string> names = FieldNames();
    for (const std::string& field : fields) {
        if (!IsField(field, names)) {
            throw InvalidChoice("--field", field, names);
        }
    }
    return fields;
}

std::vector<std::string> CSVFields(const InfoRequest& request) {
    std::vector<std::string> fields{"file",
                                    "container",
                                    "encoding",
                                    "bytes",
                                    "channels",
                                    "layout",
                                    "rate",
                                    "frames",
                                    "seconds",
                                    "broadcast.description",
                                    "broadcast.originator",
                                    "broadcast.originator_reference",
                                    "broadcast.date",
                                    "broadcast.time",
                                    "broadcast.time_reference",
                                    "tags.title",
                                    "tags.artist",
                                    "tags.album",
                                    "tags.date",
                                    "tags.comment"};
    if (request.checksum) {
        fields.emplace_back("md5");
    }
    if (request.measure) {
        fields.insert(fields.end(), {"measurement.integrated_lufs", "measurement.range_lu",
                                     "measurement.true_peak_dbtp"});
    }
    return fields;
}

void RequestFields(const std::vector<std::string>& fields, InfoRequest& request) {
    for (const std::string& field : fields) {
        request.measure = request.measure || StartsWith(field, kMeasurementFields);
        request.checksum = request.checksum || field == "md5";
        request.metadata = request.metadata || IsMetadata(field);
    }
}

json MembersOf(json file, const std::vector<std::string>& fields) {
    json members{{"file", file.at("file")}};
    for (const std::string& field : fields) {
        const std::string member = field.substr(0, field.find('.'));
        if (!members.contains(member)) {
            members[member] = std::move(file.at(member));
        }
    }
    return members;
}

json FieldOf(const json& file, const std::string& field) {
    if (StartsWith(field, kTags)) {
        return TagValue(file, field.substr(kTags.size()));
    }
    const json* value = &file;
    std::string member;
    for (const std::string& part : Split(field, '.')) {
        if (value->is_null()) {
            break;
        }
        if (!value->is_array()) {
            value = &value->at(part);
        } else if (const std::size_t index = std::stoul(part); index < value->size()) {
            value = &value->at(index);
        } else {
            throw JobError(file.at("file"),
                           fmt::format("has no field {}; it has {}, counted from 0", field,
                                       Count(value->size(), ItemNoun(member))));
        }
        member = part;
    }
    return *value;
}

std::string FormatFields(const std::vector<json>& values, bool asJSON) {
    std::string line;
    for (const json& value : values) {
        line += (line.empty() ? "" : "\t") + (asJSON ? DumpJSON(value) : TextOf(value));
    }
    return line + "\n";
}

std::string FormatCSVLine(const std::vector<std::string>& texts) {
    std::string line;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const bool hasSpecial = texts[i].find_first_of(",\"\r\n") != std::string::npos;
        line += i == 0 ? "" : ",";
        if (!hasSpecial) {
            line += texts[i];
            continue;
        }
        line += '"';
        for (const char character : texts[i]) {
            line += character == '"' ? "\"\"" : std::string(1, character);
        }
        line += '"';
    }
    return line + "\r\n";
}

std::string FormatCSVLine(const std::vector<json>& values) {
    std::vector<std::string> texts;
    for (const json& value : values) {
        texts.push_back(value.is_null() ? "" : TextOf(value));
    }
    return FormatCSVLine(texts);
}

} // namespace kel::host
