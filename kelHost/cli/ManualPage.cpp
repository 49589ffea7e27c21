#include "cli/ManualPage.h"

#include "audio/Formats.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
    return app.get_subcommands(
        [](const CLI::App* command) { return !command->get_group().empty(); });
}

// What is given by name, "--start"; the others are known by their place. Every command has --help,
// which is told of once.
std::vector<const CLI::Option*> NamedOptionsOf(const CLI::App& app) {
    return app.get_options([&app](const CLI::Option* option) {
        const bool isToldElsewhere = app.get_parent() != nullptr && option == app.get_help_ptr();
        return option->nonpositional() && !isToldElsewhere;
    });
}

std::vector<const CLI::Option*> PlacedOptionsOf(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) { return !option->nonpositional(); });
}

// "-o", "--output"
std::vector<std::string> NamesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

bool TakesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

// "SCALE" of an option whose type is "SCALE:{linear,db}".
std::string TypeOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    return type.substr(0, type.find_first_of(":{ "));
}

// The words of which an option takes one; none where it takes any text.
std::vector<std::string> ChoicesOf(const CLI::Option& option) {
    std::vector<std::string> choices;
    const std::string type = option.get_type_name();
    const std::size_t brace = type.find('{');
    if (brace != std::string::npos) {
        std::istringstream list(type.substr(brace + 1, type.find('}', brace) - brace - 1));
        for (std::string choice; std::getline(list, choice, ',');) {
            choices.push_back(choice);
        }
    } else if (TypeOf(option) == "FORMAT") {
        for (const Container& container : Containers()) {
            choices.emplace_back(container.name);
        }
    } else if (TypeOf(option) == "ENCODING") {
        for (const Encoding& encoding : Encodings()) {
            choices.emplace_back(encoding.name);
        }
    } else if (TypeOf(option) == "ORDER") {
        choices = {"little", "big"};
    }
    return choices;
}

// A description as a sentence.
std::string Sentence(const std::string& text) {
    return !text.empty() && text.back() == '.' ? text : text + '.';
}

// Text as troff shows it unchanged: hyphens that can be copied, no line that begins with a request.
std::string Troff(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char character = text[i];
        if ((character == '.' || character == '\'') && (i == 0 || text[i - 1] == '\n')) {
            result += "\\&";
        }
        if (character == '-') {
            result += "\\-";
        } else if (character == '\\') {
            result += "\\e";
        } else {
            result += character;
        }
    }
    return result;
}

void WriteOptions(const CLI::App& app, std::ostream& out) {
    for (const CLI::Option* option : PlacedOptionsOf(app)) {
        fmt::print(out, ".TP\n.I {}\n{}\n", Troff(option->get_name()),
                   Troff(Sentence(option->get_description())));
    }
    for (const CLI::Option* option : NamedOptionsOf(app)) {
        const std::vector<std::string> names = NamesOf(*option);
        fmt::print(out, ".TP\n\\fB{}\\fR", Troff(fmt::format("{}", fmt::join(names, ", "))));
        if (TakesValue(*option)) {
            fmt::print(out, " \\fI{}\\fR", Troff(TypeOf(*option)));
        }
        std::string text = option->get_description();
        const std::vector<std::string> choices = ChoicesOf(*option);
        // A description may name its choices itself, with a word about each.
        const bool named =
            std::all_of(choices.begin(), choices.end(), [&](const std::string& choice) {
                return option->get_description().find(choice) != std::string::npos;
            });
        if (!named) {
            text += fmt::format(": {}", fmt::join(choices, ", "));
        }
        if (!option->get_default_str().empty()) {
            text += fmt::format(" (default: {})", option->get_default_str());
        }
        fmt::print(out, "\n{}\n", Troff(Sentence(text)));
    }
}

// The lines of a footer that are commands, as they are typed; the lines after them are text.
void WriteExamples(const CLI::App& app, std::ostream& out) {
    std::istringstream footer(app.get_footer());
    bool inExamples = false;
    for (std::string line; std::getline(footer, line);) {
        const bool isExample = line.rfind("  ", 0) == 0;
        if (isExample != inExamples) {
            out << (isExample ? ".PP\n.EX\n" : ".EE\n.PP\n");
            inExamples = isExample;
        }
        if (!line.empty() && line != "Examples:") {
            fmt::print(out, "{}\n", Troff(line));
        }
    }
    if (inExamples) {
        out << ".EE\n";
    }
}

// A word in single quotes, for the shell.
std::string Quote(std::string_view word) {
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

// "--format|--type) ... ;;" for every option whose values are not files.
void WriteValueCases(const CLI::App& app, std::string_view command, std::ostream& out) {
    for (const CLI::Option* option : NamedOptionsOf(app)) {
        if (!TakesValue(*option)) {
            continue;
        }
        std::vector<std::string> patterns;
        for (const std::string& name : NamesOf(*option)) {
            patterns.push_back(fmt::format("{}:{}", command, name));
        }
        const std::string type = TypeOf(*option);
        const std::vector<std::string> choices = ChoicesOf(*option);
        std::string action = "return"; // a number, a time: nothing to offer
        if (!choices.empty()) {
            action = fmt::format("_kelhost_words {}; return",
                                 Quote(fmt::format("{}", fmt::join(choices, " "))));
        } else if (type == "FILE" || type == "PICTURE") {
            action = "_kelhost_files; return";
        } else if (type == "DIR") {
            action = "_kelhost_directories; return";
        }
        fmt::print(out, "        {}) {} ;;\n", fmt::join(patterns, "|"), action);
    }
}

std::vector<std::string> AllNamesOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : NamedOptionsOf(app)) {
        const std::vector<std::string> some = NamesOf(*option);
        names.insert(names.end(), some.begin(), some.end());
    }
    return names;
}

} // namespace

void WriteManual(const CLI::App& app, const std::string& version, std::ostream& out) {
    const std::string& name = app.get_name();
    fmt::print(out,
               ".\\\" Written by the program itself.\n"
               ".TH {} 1 \"\" \"{} {}\" \"User Commands\"\n"
               ".SH NAME\n"
               "{} \\- copies, converts and describes audio files\n"
               ".SH SYNOPSIS\n",
               name, name, version, name);
    for (const CLI::App* command : CommandsOf(app)) {
        fmt::print(out, ".B {} {}\n.RI [ options ]", name, command->get_name());
        for (const CLI::Option* option : PlacedOptionsOf(*command)) {
            const bool many = option->get_items_expected_max() > 1;
            fmt::print(out, "\n.RI {} {} {}", option->get_required() ? "\"\"" : "[",
                       option->get_name() + (many ? " ..." : ""),
                       option->get_required() ? "" : "]");
        }
        out << "\n.br\n";
    }
    fmt::print(out,
               ".SH DESCRIPTION\n{}\n.SH OPTIONS\nThey may stand before or after the command.\n",
               Troff(app.get_description()));
    WriteOptions(app, out);
    out << ".SH COMMANDS\n";
    for (const CLI::App* command : CommandsOf(app)) {
        fmt::print(out, ".SS {}\n{}.\n", Troff(command->get_name()),
                   Troff(command->get_description()));
        WriteOptions(*command, out);
        WriteExamples(*command, out);
    }
    out << ".SH EXAMPLES AND EXIT STATUS\n";
    WriteExamples(app, out);
    out << ".SH ENVIRONMENT\n"
           ".TP\n.B KEL_PLUGIN_PATH\n"
           "Directories, separated by colons, whose plug-ins are loaded instead of those that "
           "were\n"
           "installed with the program. Not looked at when the process runs with raised rights.\n"
           ".TP\n.B KEL_LOG\n"
           "Which log records are shown: none, error, warning, milestone or info.\n";
}

void WriteCompletion(const CLI::App& app, std::ostream& out) {
    const std::vector<std::string> common = AllNamesOf(app);
    std::vector<std::string> commands;
    for (const CLI::App* command : CommandsOf(app)) {
        commands.push_back(command->get_name());
    }
    fmt::print(
        out,
        "# Completion of {0} for bash. Written by the program itself.\n\n"
        "_kelhost_words() {{ mapfile -t COMPREPLY < <(compgen -W \"$1\" -- \"$current\"); }}\n"
        "_kelhost_files() {{\n"
        "    compopt -o filenames\n"
        "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
        "}}\n"
        "_kelhost_directories() {{\n"
        "    compopt -o filenames\n"
        "    mapfile -t COMPREPLY < <(compgen -d -- \"$current\")\n"
        "}}\n\n"
        "_kelhost() {{\n"
        "    local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}}\n"
        "    # --option=value comes as three words.\n"
        "    [ \"$previous\" != = ] || previous=${{COMP_WORDS[COMP_CWORD - 2]}}\n"
        "    [ \"$current\" != = ] || current=\n"
        "    local command= word\n"
        "    for word in \"${{COMP_WORDS[@]:1:COMP_CWORD - 1}}\"; do\n"
        "        case $word in\n"
        "        {1})\n"
        "            command=$word\n"
        "            break\n"
        "            ;;\n"
        "        esac\n"
        "    done\n"
        "    COMPREPLY=()\n"
        "    case $command:$previous in\n",
        app.get_name(), fmt::join(commands, "|"));
    for (const CLI::App* command : CommandsOf(app)) {
        WriteValueCases(*command, command->get_name(), out);
    }
    WriteValueCases(app, "*", out);
    out << "    esac\n"
           "    case $command:$current in\n";
    for (const CLI::App* command : CommandsOf(app)) {
        fmt::print(out, "        {}:-*) _kelhost_words {} ;;\n", command->get_name(),
                   Quote(fmt::format("{} {}", fmt::join(AllNamesOf(*command), " "),
                                     fmt::join(common, " "))));
    }
    fmt::print(out,
               "        :-*) _kelhost_words {} ;;\n"
               "        :*) _kelhost_words {} ;;\n"
               "        *) _kelhost_files ;;\n"
               "    esac\n"
               "}}\n"
               "complete -F _kelhost {}\n",
               Quote(fmt::format("{}", fmt::join(common, " "))),
               Quote(fmt::format("{}", fmt::join(commands, " "))), app.get_name());
}

} // namespace kel::host
