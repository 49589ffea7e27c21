#include "commands/Command.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Suggestion.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"

#include <ElementFactoryType.h>
#include <ParametersCollection.h>
#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

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

void to_json(nlohmann::json& members, const Element& element) {
    auto settings = nlohmann::json::array();
    if (element.settings != nullptr) {
        for (const ParameterDescription& parameter : element.settings->GetParameters()) {
            settings.push_back({{"name", Escape(parameter.name)},
                                {"kind", ToString(parameter.kind)},
                                {"default", DefaultAsJSON(parameter)},
                                {"description", Escape(parameter.description)}});
        }
    }
    members = {{"implementation", Escape(element.implementation)},
               {"kind", element.kind},
               {"types", element.types},
               {"registered_by", Escape(element.registeredBy)},
               {"documentation", element.documentation},
               {"settings", settings}};
}

std::vector<std::string> NamesOf(const std::vector<Element>& elements) {
    std::vector<std::string> names;
    for (const Element& element : elements) {
        names.push_back(element.implementation);
    }
    return names;
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
    out << fmt::format(
        "Implementation  {}\nKind            {}\nTypes           {}\nRegistered by   {}\n",
        Escape(element.implementation), Escape(element.kind),
        Escape(fmt::format("{}", fmt::join(element.types, ", "))), Escape(element.registeredBy));
    // The author's own line breaks are kept.
    out << "\n" << element.documentation << "\n\n";

    const auto parameters = element.settings != nullptr ? element.settings->GetParameters()
                                                        : std::vector<ParameterDescription>{};
    if (parameters.empty()) {
        out << "It has no settings.\n";
        return;
    }
    std::vector<std::vector<std::string>> rows;
    for (const ParameterDescription& parameter : parameters) {
        rows.push_back({Escape(parameter.name), ToString(parameter.kind),
                        DescribeDefault(parameter), Escape(parameter.description)});
    }
    out << FormatTable({{"Setting"}, {"Kind"}, {"Default"}, {"Description"}}, rows);
}

class InspectCommand final : public Command {
public:
    InspectCommand() {
        Add(Option("IMPLEMENTATION", "", &m_implementation,
                   "Show this element with its documentation and settings")
                .Completes(Option::Values::Elements));
        AddExample("kelhost inspect", "List the elements");
        AddExample("kelhost inspect kel.LibsndfileSource", "Explain an element and its settings");
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        const std::vector<Element> elements = Select(RegisteredElements());
        if (common.style.json) {
            streams.out << FormatDocument("inspect", {{"elements", elements}});
        } else if (m_implementation.has_value()) {
            for (const Element& element : elements) {
                streams.out << (&element != &elements.front() ? "\n" : "");
                ShowOne(element, streams.out);
            }
        } else {
            ShowAll(elements, streams.out);
        }
        return kSuccess;
    }

private:
    std::vector<Element> Select(const std::vector<Element>& all) const {
        if (!m_implementation.has_value()) {
            return all;
        }
        std::vector<Element> selected;
        for (const Element& element : all) {
            if (element.implementation == *m_implementation) {
                selected.push_back(element);
            }
        }
        if (selected.empty()) {
            throw JobError(DescribeUnknown("element", *m_implementation, NamesOf(all)));
        }
        return selected;
    }

    std::optional<std::string> m_implementation;
};

} // namespace

std::unique_ptr<Command> MakeInspectCommand() {
    return std::make_unique<InspectCommand>();
}

} // namespace kel::host
