#include "cli/ArgumentParser.h"

#include "base/Errors.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kEndOfOptions = "--";

// An option with its counterpart in the parser.
using ParserOptions = std::vector<std::pair<const Option*, CLI::Option*>>;

const Option* FindOption(const std::vector<Option>& options, std::string_view name) {
    const auto found = std::find_if(options.begin(), options.end(),
                                    [name](const Option& option) { return option.IsCalled(name); });
    return found == options.end() ? nullptr : &*found;
}

// True for a word of several letters that begins with a short option, unless all are flags or a
// number follows the option.
bool IsMangled(const std::vector<Option>& options, const std::string& word) {
    const auto find = [&](std::size_t place) {
        return FindOption(options, std::string("-") + word[place]);
    };
    const Option* first = find(1);
    if (first == nullptr) {
        return false; // nothing is mistaken for it
    }
    if (!first->IsFlag()) {
        return word.find_first_not_of("0123456789", 2) != std::string::npos;
    }
    for (std::size_t place = 2; place < word.size(); ++place) {
        const Option* option = find(place);
        if (option == nullptr || (!option->IsFlag() && place + 1 < word.size())) {
            return true;
        }
    }
    return false;
}

CLI::Option* AddOption(CLI::App& app, const Option& option) {
    CLI::Option* added = std::visit(
        [&](auto* variable) {
            if constexpr (std::is_same_v<std::remove_pointer_t<decltype(variable)>, bool>) {
                return app.add_flag(option.Names(), *variable);
            } else {
                return app.add_option(option.Names(), *variable);
            }
        },
        option.Variable());
    if (!option.IsArgument() && option.IsRepeatable()) {
        added->allow_extra_args(false); // one value each time
    }
    return added;
}

// Appends "--name=value" as two arguments: the parser takes the next argument for an empty value.
void AppendParts(const std::vector<Option>& options, const std::string& argument,
                 std::vector<std::string>& parts) {
    const std::size_t equals = argument.find('=');
    const Option* option = argument.rfind("--", 0) == 0 && equals != std::string::npos
                               ? FindOption(options, argument.substr(0, equals))
                               : nullptr;
    if (option == nullptr) {
        parts.push_back(argument);
        return;
    }
    if (option->IsFlag()) {
        throw UsageError(argument.substr(0, equals) + " has no value; leave out " +
                         argument.substr(equals));
    }
    parts.push_back(argument.substr(0, equals));
    parts.push_back(argument.substr(equals + 1));
}

// Returns the arguments in reverse order, as the parser expects them. The parser takes a name in
// brackets for a list of names; such a name gets its directory.
std::vector<std::string> ReversedArguments(const std::vector<Option>& options,
                                           const std::vector<std::string>& arguments) {
    std::vector<std::string> parts;
    const auto end = std::find(arguments.begin(), arguments.end(), kEndOfOptions);
    std::for_each(arguments.begin(), end,
                  [&](const std::string& argument) { AppendParts(options, argument, parts); });
    parts.insert(parts.end(), end, arguments.end());
    for (std::string& part : parts) {
        const bool inBrackets = !part.empty() && part.front() == '[' && part.back() == ']';
        part.insert(0, inBrackets ? "./" : "");
    }
    std::reverse(parts.begin(), parts.end());
    return parts;
}

// Describes why the parser refused the values of an option.
UsageError DescribeMismatch(const ParserOptions& parsed, const CLI::ParseError& error) {
    for (const auto& [option, counterpart] : parsed) {
        if (!option->IsArgument() && !option->IsRepeatable() && counterpart->count() > 1) {
            return UsageError(option->LongName() + " is given twice");
        }
    }
    // Only the last argument can be an option without its value.
    for (const auto& [option, counterpart] : parsed) {
        const std::string text = error.what();
        if (!option->IsArgument() && text.substr(0, text.find(':')) == counterpart->get_name()) {
            return UsageError(option->LongName() + " needs a value: " + option->ValueName());
        }
    }
    return UsageError(error.what());
}

// The values that an option has received.
std::vector<std::string> ValuesOf(const Option& option) {
    return std::visit(
        [](const auto* variable) -> std::vector<std::string> {
            using Variable = std::remove_const_t<std::remove_pointer_t<decltype(variable)>>;
            if constexpr (std::is_same_v<Variable, std::vector<std::string>>) {
                return *variable;
            } else if constexpr (std::is_same_v<Variable, std::string>) {
                return {*variable};
            } else if constexpr (std::is_same_v<Variable, std::optional<std::string>>) {
                return {variable->value_or("")};
            } else {
                return {}; // a flag
            }
        },
        option.Variable());
}

bool IsUsed(const ParsedArguments& parsed, std::string_view name) {
    return std::any_of(parsed.used.begin(), parsed.used.end(),
                       [name](const Option* option) { return option->IsCalled(name); });
}

} // namespace

DividedArguments DivideArguments(const std::vector<std::string>& arguments,
                                 const std::vector<Option>& common) {
    auto word = arguments.begin();
    for (; word != arguments.end() && *word != kEndOfOptions; ++word) {
        if (word->size() < 2 || word->front() != '-') {
            DividedArguments divided{*word, {arguments.begin(), word}};
            divided.others.insert(divided.others.end(), word + 1, arguments.end());
            return divided;
        }
        const Option* option = FindOption(common, *word);
        if (option != nullptr && !option->IsFlag() && word + 1 != arguments.end()) {
            ++word; // its value
        }
    }
    return {std::nullopt, arguments};
}

bool HasFlag(const std::vector<std::string>& arguments, const std::vector<std::string>& names) {
    const auto end = std::find(arguments.begin(), arguments.end(), kEndOfOptions);
    return std::find_first_of(arguments.begin(), end, names.begin(), names.end()) != end;
}

std::optional<std::string> FindMangledOption(const std::vector<Option>& options,
                                             const std::vector<std::string>& arguments) {
    for (auto word = arguments.begin(); word != arguments.end() && *word != kEndOfOptions; ++word) {
        if (word->size() < 2 || word->front() != '-') {
            continue;
        }
        const Option* whole = FindOption(options, *word);
        if (whole != nullptr) {
            if (!whole->IsFlag() && word + 1 != arguments.end()) {
                ++word; // its value
            }
        } else if ((*word)[1] != '-' && IsMangled(options, *word)) {
            return *word;
        }
    }
    return std::nullopt;
}

ParsedArguments ParseArguments(const std::vector<Option>& options,
                               const std::vector<std::string>& arguments) {
    CLI::App app;
    app.set_help_flag();
    app.allow_extras();
    ParserOptions parserOptions;
    for (const Option& option : options) {
        parserOptions.emplace_back(&option, AddOption(app, option));
    }
    try {
        app.parse(ReversedArguments(options, arguments));
    } catch (const CLI::ParseError& error) {
        throw DescribeMismatch(parserOptions, error);
    }
    ParsedArguments parsed;
    for (const auto& [option, counterpart] : parserOptions) {
        if (counterpart->count() > 0) {
            parsed.used.push_back(option);
        }
    }
    const std::vector<std::string> remaining = app.remaining();
    std::copy_if(remaining.begin(), remaining.end(), std::back_inserter(parsed.unknown),
                 [](const std::string& argument) { return argument != kEndOfOptions; });
    return parsed;
}

void RequireNames(const ParsedArguments& parsed) {
    for (const Option* option : parsed.used) {
        const bool isDirectory = option->Completion() == Option::Values::Directories;
        if (!isDirectory && option->Completion() != Option::Values::Files) {
            continue;
        }
        const std::vector<std::string> names = ValuesOf(*option);
        const auto place = std::find(names.begin(), names.end(), "");
        if (place != names.end()) {
            const bool isNumbered = option->IsArgument() && option->IsRepeatable();
            throw UsageError(fmt::format("empty name for {}: expected the name of a {}",
                                         isNumbered
                                             ? fmt::format("argument {}", place - names.begin() + 1)
                                             : option->LongName(),
                                         isDirectory ? "directory" : "file"));
        }
    }
}

void RequireComplete(const std::vector<Option>& options, const ParsedArguments& parsed) {
    for (const Option& option : options) {
        if (option.IsRequired() && !IsUsed(parsed, option.Names())) {
            throw UsageError(option.Names() + " is missing");
        }
    }
    for (const Option* option : parsed.used) {
        if (!option->Excluded().empty() && IsUsed(parsed, option->Excluded())) {
            throw UsageError(option->LongName() + " excludes " + option->Excluded());
        }
        if (!option->Needed().empty() && !IsUsed(parsed, option->Needed())) {
            throw UsageError(option->LongName() + " requires " + option->Needed());
        }
    }
}

} // namespace kel::host
