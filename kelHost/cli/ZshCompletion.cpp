#include "cli/Completion.h"

#include "cli/OptionText.h"
#include "cli/ProgramText.h"
#include "commands/Command.h"

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

// Returns text for a part of an entry, in which colons and brackets have meanings.
std::string EntryText(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        const bool hasMeaning = std::string_view(":[]\\").find(character) != std::string_view::npos;
        escaped += (hasMeaning ? "\\" : "") + std::string(1, character);
    }
    return escaped;
}

// Returns the action that offers values.
std::string ValueAction(const Option& option) {
    const std::vector<std::string> values = option.OfferedValues();
    if (option.IsList()) {
        return "_values -s , value " + JoinWords(values, " ");
    }
    if (!values.empty()) {
        return "(" + JoinWords(values, " ") + ")";
    }
    switch (option.Completion()) {
    case Option::Values::Files:
        return "_files";
    case Option::Values::Directories:
        return "_files -/";
    case Option::Values::Elements:
        return "_kelhost_elements";
    case Option::Values::Any:
        break;
    }
    return " "; // a number or a time: nothing to offer
}

// Returns the entries of an option, one for each of its names.
std::vector<std::string> EntriesOf(const Option& option) {
    const std::vector<std::string> spellings = option.Spellings();
    std::string excluded = JoinWords(spellings, " ");
    excluded += option.Excluded().empty() ? "" : " " + option.Excluded();
    const std::string before = option.IsRepeatable() ? "*" : "(" + excluded + ")";
    std::vector<std::string> entries;
    for (const std::string& name : spellings) {
        std::string text = before + name;
        text += option.IsFlag() ? "" : (name.size() == 2 ? "+" : "=");
        text += "[" + EntryText(DescribeOption(option)) + "]";
        if (!option.IsFlag()) {
            text += ":" + EntryText(option.ValueName()) + ":" + ValueAction(option);
        }
        entries.push_back(text);
    }
    return entries;
}

void WriteSpecifications(const std::vector<Option>& options, std::string_view indent,
                         std::ostream& out) {
    for (const Option& option : options) {
        if (option.IsArgument()) {
            out << indent
                << QuoteWord((option.IsRepeatable() ? "*:" : ":") + EntryText(option.Names()) +
                             ":" + ValueAction(option))
                << " \\\n";
            continue;
        }
        for (const std::string& entry : EntriesOf(option)) {
            out << indent << QuoteWord(entry) << " \\\n";
        }
    }
}

} // namespace

void WriteZshCompletion(const std::vector<Option>& common, std::ostream& out) {
    out << "#compdef " << kProgram << "\n# Completion of " << kProgram
        << " for zsh. Written by the program itself.\n\n"
           "_kelhost_elements() {\n"
           "    compadd -- ${(f)\"$(_call_program elements $program inspect 2>/dev/null |\n"
           "        sed -n '2,$s/ .*//p')\"}\n"
           "}\n\n"
           "_kelhost_commands() {\n"
           "    local -a commands=(\n";
    for (const CommandEntry& entry : Commands()) {
        out << "        " << QuoteWord(std::string(entry.name) + ":" + entry.summary) << "\n";
    }
    out << "        'help:Show the help of the program or of a command'\n"
           "    )\n"
           "    _describe command commands\n"
           "}\n\n"
           "_kelhost() {\n"
           "    local curcontext=$curcontext state line program=$words[1]\n"
           "    typeset -A opt_args\n"
           "    local -a common=( \\\n";
    std::vector<Option> all = common;
    const std::vector<Option> showing = ShowingOptions();
    all.insert(all.end(), showing.begin(), showing.end());
    WriteSpecifications(all, "        ", out);
    out << "    )\n"
           "    _arguments -C -s $common '1: :->command' '*:: :->argument' && return\n"
           "    case $state in\n"
           "    command) _kelhost_commands ;;\n"
           "    argument)\n"
           "        case $line[1] in\n";
    for (const CommandEntry& entry : Commands()) {
        out << "        " << entry.name << ")\n            _arguments -s \\\n";
        WriteSpecifications(entry.make()->Options(), "                ", out);
        out << "                $common\n            ;;\n";
    }
    out << "        help) _arguments '1: :_kelhost_commands' ;;\n"
           "        esac\n"
           "        ;;\n"
           "    esac\n"
           "}\n\n"
           "_kelhost \"$@\"\n";
}

} // namespace kel::host
