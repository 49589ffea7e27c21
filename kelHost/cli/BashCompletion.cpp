#include "cli/Completion.h"

#include "cli/OptionText.h"
#include "cli/ProgramText.h"
#include "commands/Command.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

std::vector<std::string> AllNamesOf(const std::vector<Option>& options) {
    std::vector<std::string> all;
    for (const Option& option : options) {
        if (!option.IsArgument()) {
            const std::vector<std::string> names = option.Spellings();
            all.insert(all.end(), names.begin(), names.end());
        }
    }
    return all;
}

// Returns the shell command that offers values.
std::string ActionFor(const Option& option) {
    const std::vector<std::string> values = option.OfferedValues();
    if (!values.empty()) {
        return (option.IsList() ? "_kelhost_list " : "_kelhost_words ") +
               QuoteWord(JoinWords(values, " "));
    }
    switch (option.Completion()) {
    case Option::Values::Files:
        return "_kelhost_files";
    case Option::Values::Directories:
        return "_kelhost_directories";
    case Option::Values::Elements:
        return "_kelhost_elements";
    case Option::Values::Any:
        break;
    }
    return ":"; // a number or a time: nothing to offer
}

// Returns the command that offers values for the arguments by position; they have one kind.
std::string ArgumentAction(const std::vector<Option>& options) {
    const auto argument = std::find_if(options.begin(), options.end(),
                                       [](const Option& option) { return option.IsArgument(); });
    return argument == options.end() ? ":" : ActionFor(*argument);
}

// Writes "copy:--format) ... ;;" for every option with a value.
void WriteValueCases(const std::vector<Option>& options, std::string_view command,
                     std::ostream& out) {
    for (const Option& option : options) {
        if (option.IsArgument() || option.IsFlag()) {
            continue;
        }
        std::vector<std::string> patterns;
        for (const std::string& name : option.Spellings()) {
            patterns.push_back(std::string(command) + ":" + name);
        }
        out << "        " << JoinWords(patterns, "|") << ") " << ActionFor(option)
            << "; return ;;\n";
    }
}

void WriteFunctions(std::ostream& out) {
    out << "_kelhost_words() { mapfile -t COMPREPLY < <(compgen -W \"$1\" -- \"$current\"); }\n"
           "_kelhost_files() {\n"
           "    compopt -o filenames\n"
           "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "}\n"
           "_kelhost_directories() {\n"
           "    compopt -o filenames\n"
           "    mapfile -t COMPREPLY < <(compgen -d -- \"$current\")\n"
           "}\n"
           "_kelhost_elements() {\n"
           "    # A value of a setting is usually a file.\n"
           "    [ \"$equals\" = 0 ] || { _kelhost_files; return; }\n"
           "    _kelhost_words \"$(\"${COMP_WORDS[0]}\" inspect 2>/dev/null |\n"
           "        sed -n '2,$s/ .*//p')\"\n"
           "}\n"
           "# Names after those that are already in a list with commas.\n"
           "_kelhost_list() {\n"
           "    local before=\n"
           "    case $current in *,*) before=${current%,*}, ;; esac\n"
           "    compopt -o nospace\n"
           "    mapfile -t COMPREPLY < <(compgen -P \"$before\" -W \"$1\" -- "
           "\"${current##*,}\")\n"
           "}\n\n";
}

} // namespace

void WriteBashCompletion(const std::vector<Option>& commonOptions, std::ostream& out) {
    std::vector<std::string> common = AllNamesOf(commonOptions);
    common.insert(common.end(), {"--version", "-h", "--help"});
    std::vector<std::string> names;
    for (const CommandEntry& entry : Commands()) {
        names.emplace_back(entry.name);
    }
    names.emplace_back("help");
    out << "# Completion of " << kProgram << " for bash. Written by the program itself.\n\n";
    WriteFunctions(out);
    out << "_kelhost() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    # --option=value comes as three words.\n"
           "    local equals=0\n"
           "    [ \"$previous\" != = ] || { equals=1; previous=${COMP_WORDS[COMP_CWORD - 2]}; }\n"
           "    [ \"$current\" != = ] || { equals=1; current=; }\n"
           "    local command= word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD - 1}\"; do\n"
           "        case $word in\n"
           "        "
        << JoinWords(names, "|")
        << ")\n"
           "            command=$word\n"
           "            break\n"
           "            ;;\n"
           "        esac\n"
           "    done\n"
           "    COMPREPLY=()\n"
           "    case $command:$previous in\n";
    for (const CommandEntry& entry : Commands()) {
        WriteValueCases(entry.make()->Options(), entry.name, out);
    }
    WriteValueCases(commonOptions, "*", out);
    out << "    esac\n"
           "    case $command:$current in\n";
    for (const CommandEntry& entry : Commands()) {
        std::vector<std::string> options = AllNamesOf(entry.make()->Options());
        options.insert(options.end(), common.begin(), common.end());
        out << "        " << entry.name << ":-*) _kelhost_words "
            << QuoteWord(JoinWords(options, " ")) << " ;;\n";
    }
    out << "        :-*) _kelhost_words " << QuoteWord(JoinWords(common, " "))
        << " ;;\n"
           "        :*) _kelhost_words "
        << QuoteWord(JoinWords(names, " "))
        << " ;;\n"
           "        help:*) _kelhost_words "
        << QuoteWord(JoinWords(names, " ")) << " ;;\n";
    for (const CommandEntry& entry : Commands()) {
        out << "        " << entry.name << ":*) " << ArgumentAction(entry.make()->Options())
            << " ;;\n";
    }
    out << ""
           "    esac\n"
           "}\n"
           "complete -F _kelhost "
        << kProgram << "\n";
}

} // namespace kel::host
