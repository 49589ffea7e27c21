#include "commands/InspectCommand.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Text.h"

#include <ElementFactoryType.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

namespace kel::host {

namespace {

// All registrations of one element.
struct Element {
    std::string implementation;
    std::string kind;
    std::vector<std::string> types;
    std::string registeredBy;
    std::string documentation;
    std::shared_ptr<const IParametersCollectionPrototype> settings;
};

std::vector<Element> RegisteredElements() {
    std::vector<Element> elements;
    for (const Registration& registration : GetRegistrations()) {
        const IParametersCollectionInstance& entry = *registration.entry;
        const std::string implementation = entry.GetStringValue("implementation");
        const std::string kind =
            GetLabel(static_cast<ElementFactoryType>(entry.GetIntegerValue("class")));
        auto element = std::find_if(elements.begin(), elements.end(), [&](const Element& other) {
            return other.implementation == implementation && other.kind == kind &&
                   other.registeredBy == registration.name;
        });
        if (element == elements.end()) {
            element = elements.insert(element, {implementation,
                                                kind,
                                                {},
                                                registration.name,
                                                entry.GetStringValue("doc"),
                                                entry.GetCollectionValue("init_config")});
        }
        element->types.push_back(entry.GetStringValue("type"));
    }
    return elements;
}

std::string DescribeDefault(const ParameterDescription& parameter) {
    if (!parameter.defaultValue.has_value()) {
        return "none";
    }
    if (const auto* integer = std::get_if<std::int32_t>(&*parameter.defaultValue)) {
        return fmt::format("{}", *integer);
    }
    if (const auto* text = std::get_if<std::string>(&*parameter.defaultValue)) {
        return fmt::format("\"{}\"", Escape(*text));
    }
    return "a collection";
}

nlohmann::json DefaultAsJSON(const ParameterDescription& parameter) {
    if (parameter.defaultValue.has_value()) {
        if (const auto* integer = std::get_if<std::int32_t>(&*parameter.defaultValue)) {
            return *integer;
        }
        if (const auto* text = std::get_if<std::string>(&*parameter.defaultValue)) {
            return Escape(*text);
        }
    }
    return nullptr;
}

void to_json(nlohmann::json& json, const Element& element) {
    auto settings = nlohmann::json::array();
    if (element.settings != nullptr) {
        for (const ParameterDescription& parameter : element.settings->GetParameters()) {
            settings.push_back({{"name", Escape(parameter.name)},
                                {"kind", ToString(parameter.kind)},
                                {"default", DefaultAsJSON(parameter)},
                                {"description", Escape(parameter.description)}});
        }
    }
    json = {{"implementation", Escape(element.implementation)},
            {"kind", element.kind},
            {"types", element.types},
            {"registered_by", Escape(element.registeredBy)},
            {"documentation", element.documentation},
            {"settings", settings}};
}

std::string ListNames(const std::vector<Element>& elements) {
    std::vector<std::string> names;
    for (const Element& element : elements) {
        names.push_back(Escape(element.implementation));
    }
    return fmt::format("{}", fmt::join(names, ", "));
}

void ShowAll(const std::vector<Element>& elements, std::ostream& out) {
    std::vector<std::vector<std::string>> rows;
    for (const Element& element : elements) {
        rows.push_back({Escape(element.implementation), Escape(element.kind),
                        Escape(fmt::format("{}", fmt::join(element.types, ", "))),
                        Escape(element.registeredBy)});
    }
    out << FormatTable({{"Implementation"}, {"Kind"}, {"Types"}, {"Registered by"}}, rows);
}

void ShowOne(const Element& element, std::ostream& out) {
    fmt::print(
        out, "Implementation  {}\nKind            {}\nTypes           {}\nRegistered by   {}\n",
        Escape(element.implementation), Escape(element.kind),
        Escape(fmt::format("{}", fmt::join(element.types, ", "))), Escape(element.registeredBy));
    // As the element's author wrote it, lines and all.
    fmt::print(out, "\n{}\n\n", element.documentation);

    const auto parameters = element.settings != nullptr ? element.settings->GetParameters()
                                                        : std::vector<ParameterDescription>{};
    if (parameters.empty()) {
        fmt::print(out, "It has no settings.\n");
        return;
    }
    std::vector<std::vector<std::string>> rows;
    for (const ParameterDescription& parameter : parameters) {
        rows.push_back({Escape(parameter.name), ToString(parameter.kind),
                        DescribeDefault(parameter), Escape(parameter.description)});
    }
    out << FormatTable({{"Setting"}, {"Kind"}, {"Default"}, {"Description"}}, rows);
}

} // namespace

void Inspect(const std::optional<std::string>& implementation, InspectStyle style,
             std::ostream& out) {
    std::vector<Element> elements = RegisteredElements();
    if (implementation.has_value()) {
        std::vector<Element> wanted;
        std::copy_if(
            elements.begin(), elements.end(), std::back_inserter(wanted),
            [&](const Element& element) { return element.implementation == *implementation; });
        if (wanted.empty()) {
            throw JobError(fmt::format("there is no element \"{}\"; registered are {}",
                                       Escape(*implementation), ListNames(elements)));
        }
        elements = std::move(wanted);
    }
    if (style == InspectStyle::JSON) {
        out << FormatDocument("inspect", {{"elements", elements}});
    } else if (implementation.has_value()) {
        for (const Element& element : elements) {
            out << (&element != &elements.front() ? "\n" : "");
            ShowOne(element, out);
        }
    } else {
        ShowAll(elements, out);
    }
}

} // namespace kel::host
