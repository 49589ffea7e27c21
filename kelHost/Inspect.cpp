#include "Inspect.h"

#include "Errors.h"
#include "Text.h"

#include <ElementFactoryType.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
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

void Inspect(const std::optional<std::string>& implementation, std::ostream& out) {
    const std::vector<Element> elements = RegisteredElements();
    if (!implementation.has_value()) {
        ShowAll(elements, out);
        return;
    }
    bool found = false;
    std::vector<std::string> names;
    for (const Element& element : elements) {
        if (element.implementation == *implementation) {
            out << (found ? "\n" : "");
            ShowOne(element, out);
            found = true;
        }
        names.push_back(Escape(element.implementation));
    }
    if (!found) {
        throw JobError(fmt::format("there is no element \"{}\"; registered are {}",
                                   Escape(*implementation), fmt::join(names, ", ")));
    }
}

} // namespace kel::host
