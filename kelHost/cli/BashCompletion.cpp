#include "cli/BashCompletion.h"

#include "cli/ProgramText.h"
#include "commands/Command.h"

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

std::string Join(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        text += text.empty() ? "" : separator;
        text += word;
    }
    return text;
}

// Returns a word in single quotes, for the shell.
std::string Quote(std::string_view word) {
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

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
    if (!option.AllowedValues().empty()) {
        return "_kelhost_words " + Quote(Join(option.AllowedValues(), " ")) + "; return";
    }
    switch (option.Completion()) {
    case Option::Values::Files:
        return "_kelhost_files; return";
    case Option::Values::Directories:
        return "_kelhost_directories; return";
    case Option::Values::Elements:
    case Option::Values::Any:
        break;
    }
    return "return"; // a number or a time: nothing to offer
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
        out << "        " << Join(patterns, "|") << ") " << ActionFor(option) << " ;;\n";
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
           "}\n\n";
}

} // namespace

void WriteCompletion(const std::vector<Option>& commonOptions, std::ostream& out) {
    std::vector<std::string> common = AllNamesOf(commonOptions);
    common.insert(common.end(), {"--version", "-h", "--help"});
    std::vector<std::string> names;
    for (const CommandEntry& entry : Commands()) {
        names.emplace_back(entry.name);
    }
    out << "# Completion of " << kProgram << " for bash. Written by the program itself.\n\n";
    WriteFunctions(out);
    out << "_kelhost() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    # --option=value comes as three words.\n"
           "    [ \"$previous\" != = ] || previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    [ \"$current\" != = ] || current=\n"
           "    local command= word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD - 1}\"; do\n"
           "        case $word in\n"
           "        "
        << Join(names, "|")
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
        out << "        " << entry.name << ":-*) _kelhost_words " << Quote(Join(options, " "))
            << " ;;\n";
    }
    out << "        :-*) _kelhost_words " << Quote(Join(common, " "))
        << " ;;\n"
           "        :*) _kelhost_words "
        << Quote(Join(names, " "))
        << " ;;\n"
           "        *) _kelhost_files ;;\n"
           "    esac\n"
           "}\n"
           "complete -F _kelhost "
        << kProgram << "\n";
}

} // namespace kel::host
