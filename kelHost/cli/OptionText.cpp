#include "cli/OptionText.h"

#include "base/DisplayWidth.h"
#include "base/Text.h"
#include "commands/Command.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

std::string JoinWords(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        text += text.empty() ? "" : separator;
        text += word;
    }
    return text;
}

std::string DisplayedNames(const Option& option) {
    std::string names = JoinWords(option.Spellings(), ", ");
    return option.ValueName().empty() ? names : names + " " + option.ValueName();
}

std::string DescribeOption(const Option& option) {
    const std::vector<std::string>& choices = option.AllowedValues();
    std::string text = option.Description();
    const bool named = std::all_of(choices.begin(), choices.end(), [&](const std::string& choice) {
        return option.Description().find(choice) != std::string::npos;
    });
    if (!named) {
        text += ": " + ListAlternatives(choices);
    }
    std::vector<std::string> remarks;
    if (!option.Excluded().empty()) {
        remarks.push_back("not with " + option.Excluded());
    }
    if (!option.Needed().empty()) {
        remarks.push_back("only with " + option.Needed());
    }
    if (!option.Default().empty()) {
        remarks.push_back("default: " + option.Default());
    }
    return remarks.empty() ? text : text + " (" + JoinWords(remarks, "; ") + ")";
}

std::vector<std::string> GroupTitles(const std::vector<Option>& options) {
    std::vector<std::string> titles;
    for (const Option& option : options) {
        if (std::find(titles.begin(), titles.end(), option.Group()) == titles.end()) {
            titles.push_back(option.Group());
        }
    }
    return titles;
}

std::vector<Option> ShowingOptions() {
    constexpr bool* kNoVariable = nullptr;
    return {Option("--version", "", kNoVariable, "Show the version"),
            Option("-h,--help", "", kNoVariable, "Show the help of the program or of a command")};
}

std::vector<std::string> UsagesOf(const Command& command) {
    if (!command.Usages().empty()) {
        return command.Usages();
    }
    std::vector<std::string> words;
    for (const Option& option : command.Options()) {
        if (option.IsArgument()) {
            const std::string name = option.Names() + (option.IsRepeatable() ? "..." : "");
            words.push_back(option.IsRequired() ? name : "[" + name + "]");
        }
    }
    return {JoinWords(words, " ")};
}

std::vector<std::string> ExampleLines(const Example& example, std::size_t width) {
    constexpr std::string_view kContinuation = " \\";
    constexpr std::string_view kIndent = "    ";
    if (example.line.size() <= width) {
        return {example.line};
    }
    const std::size_t room = width - kIndent.size() - kContinuation.size();
    std::vector<std::string> lines = WrapWords(example.line, room);
    for (std::string& line : lines) {
        const bool isFirst = &line == &lines.front();
        const bool isLast = &line == &lines.back();
        line.insert(0, isFirst ? "" : kIndent);
        line += isLast ? "" : kContinuation;
    }
    return lines;
}

std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines;
    std::istringstream stream{std::string(text)};
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> WrapWords(std::string_view text, std::size_t width) {
    std::vector<std::string> lines;
    std::istringstream words{std::string(text)};
    for (std::string word; words >> word;) {
        const bool fits =
            !lines.empty() && DisplayWidth(lines.back()) + 1 + DisplayWidth(word) <= width;
        if (fits) {
            lines.back() += " " + word;
        } else {
            lines.push_back(word);
        }
    }
    return lines;
}

} // namespace kel::host
