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

// Returns a word in single quotes, in which only a quote and a backslash have meanings.
std::string QuoteForFish(std::string_view word) {
    std::string quoted = "'";
    for (const char character : word) {
        quoted += (character == '\'' || character == '\\' ? "\\" : "") + std::string(1, character);
    }
    return quoted + "'";
}

// Returns the part of a line that offers values.
std::string OffersOf(const Option& option) {
    const std::vector<std::string> values = option.OfferedValues();
    if (option.IsList()) {
        return "-xa " + QuoteForFish("(__kelhost_list " + JoinWords(values, " ") + ")");
    }
    if (!values.empty()) {
        return "-xa " + QuoteForFish(JoinWords(values, " "));
    }
    switch (option.Completion()) {
    case Option::Values::Files:
        return "-rF";
    case Option::Values::Directories:
        return "-xa '(__fish_complete_directories)'";
    case Option::Values::Elements:
        return "-xa '(__kelhost_elements)'";
    case Option::Values::Any:
        break;
    }
    return "-x"; // a number or a time: nothing to offer
}

void WriteOptionLines(const std::vector<Option>& options, const std::string& condition,
                      std::ostream& out) {
    for (const Option& option : options) {
        out << "complete -c " << kProgram << condition;
        if (option.IsArgument()) {
            out << " " << OffersOf(option) << "\n";
            continue;
        }
        for (const std::string& name : option.Spellings()) {
            out << (name.size() == 2 ? " -s " : " -l ") << name.substr(name.size() == 2 ? 1 : 2);
        }
        out << (option.IsFlag() ? "" : " " + OffersOf(option)) << " -d "
            << QuoteForFish(DescribeOption(option)) << "\n";
    }
}

void WriteCommandLine(std::string_view name, std::string_view summary, std::ostream& out) {
    out << "complete -c " << kProgram
        << " -n '__fish_use_subcommand; or __fish_seen_subcommand_from help' -a " << name << " -d "
        << QuoteForFish(summary) << "\n";
}

} // namespace

void WriteFishCompletion(const std::vector<Option>& common, std::ostream& out) {
    out << "# Completion of " << kProgram
        << " for fish. Written by the program itself.\n\n"
           "function __kelhost_elements\n"
           "    set -l program (commandline -opc)[1]\n"
           "    $program inspect 2>/dev/null | sed -n '2,$s/ .*//p'\n"
           "end\n\n"
           "# Names after those that are already in a list with commas.\n"
           "function __kelhost_list\n"
           "    set -l before (commandline -ct | string match -r '^.*[,=]' | string replace -r "
           "'^--[^=]*=' '')\n"
           "    for name in $argv\n"
           "        echo $before$name\n"
           "    end\n"
           "end\n\n"
           "complete -c "
        << kProgram << " -f\n";
    for (const CommandEntry& entry : Commands()) {
        WriteCommandLine(entry.name, entry.summary, out);
    }
    WriteCommandLine("help", "Show the help of the program or of a command", out);
    WriteOptionLines(common, "", out);
    WriteOptionLines(ShowingOptions(), "", out);
    for (const CommandEntry& entry : Commands()) {
        WriteOptionLines(entry.make()->Options(),
                         std::string(" -n '__fish_seen_subcommand_from ") + entry.name + "'", out);
    }
}

} // namespace kel::host
