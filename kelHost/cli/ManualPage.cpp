#include "cli/ManualPage.h"

#include "base/Text.h"
#include "cli/ProgramText.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

// Returns a description as a sentence.
std::string Sentence(const std::string& text) {
    return !text.empty() && text.back() == '.' ? text : text + '.';
}

// Returns text that troff shows unchanged: hyphens that can be copied, no line that begins with a
// request.
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

std::string DisplayedNames(const Option& option) {
    std::string names = option.Names();
    const std::size_t comma = names.find(',');
    return comma == std::string::npos ? names : names.insert(comma + 1, " ");
}

// Returns the description with the choices, unless it names them itself, and the default.
std::string Describe(const Option& option) {
    const std::vector<std::string>& choices = option.AllowedValues();
    std::string text = option.Description();
    const bool named = std::all_of(choices.begin(), choices.end(), [&](const std::string& choice) {
        return option.Description().find(choice) != std::string::npos;
    });
    if (!named) {
        text += ": " + ListAlternatives(choices);
    }
    if (!option.IsArgument() && !option.Default().empty()) {
        text += " (default: " + option.Default() + ")";
    }
    return text;
}

void WriteOptions(const std::vector<Option>& options, std::ostream& out) {
    for (const Option& option : options) {
        if (option.IsArgument()) {
            out << ".TP\n.I " << Troff(option.Names()) << "\n";
        } else {
            out << ".TP\n\\fB" << Troff(DisplayedNames(option)) << "\\fR";
            if (!option.IsFlag()) {
                out << " \\fI" << Troff(option.ValueName()) << "\\fR";
            }
            out << "\n";
        }
        out << Troff(Sentence(Describe(option))) << "\n";
    }
}

// Writes notes: indented lines are examples, as they are typed; the others are text.
void WriteNotes(const std::string& notes, std::ostream& out) {
    std::istringstream lines(notes);
    bool inExamples = false;
    for (std::string line; std::getline(lines, line);) {
        const bool isExample = line.rfind("  ", 0) == 0;
        if (isExample != inExamples) {
            out << (isExample ? ".PP\n.EX\n" : ".EE\n.PP\n");
            inExamples = isExample;
        }
        if (!line.empty() && line != "Examples:") {
            out << Troff(line) << "\n";
        }
    }
    if (inExamples) {
        out << ".EE\n";
    }
}

void WriteSynopsis(const Command& command, std::ostream& out) {
    out << ".B " << kProgram << " " << command.Name() << "\n.RI [ options ]";
    for (const Option& option : command.Options()) {
        if (option.IsArgument()) {
            out << "\n.RI " << (option.IsRequired() ? "\"\"" : "[") << " " << option.Names()
                << (option.IsRepeatable() ? " ..." : "") << " " << (option.IsRequired() ? "" : "]");
        }
    }
    out << "\n.br\n";
}

} // namespace

void WriteManual(const std::vector<Option>& commonOptions,
                 const std::vector<std::unique_ptr<Command>>& commands, const std::string& version,
                 std::ostream& out) {
    out << ".\\\" Written by the program itself.\n"
        << ".TH " << kProgram << R"( 1 "" ")" << kProgram << " " << version
        << "\" \"User Commands\"\n"
        << ".SH NAME\n"
        << kProgram << " \\- copies, converts, measures and plots audio files\n"
        << ".SH SYNOPSIS\n";
    for (const auto& command : commands) {
        WriteSynopsis(*command, out);
    }
    out << ".SH DESCRIPTION\n"
        << Troff(kDescription)
        << "\n.SH OPTIONS\nThey are accepted before and after the command.\n";
    WriteOptions(commonOptions, out);
    WriteOptions({Option("--version", "", static_cast<bool*>(nullptr), "Show the version and exit"),
                  Option("-h,--help", "", static_cast<bool*>(nullptr),
                         "Show the help of the program or of a command and exit")},
                 out);
    out << ".SH COMMANDS\n";
    for (const auto& command : commands) {
        out << ".SS " << Troff(command->Name()) << "\n" << Troff(command->Summary()) << ".\n";
        WriteOptions(command->Options(), out);
        WriteNotes(command->Notes(), out);
    }
    out << ".SH EXAMPLES AND EXIT STATUS\n";
    WriteNotes(kNotes, out);
    out << ".SH ENVIRONMENT\n"
           ".TP\n.B KEL_PLUGIN_PATH\n"
           "Absolute paths of directories, separated by colons, whose plug-ins are loaded instead "
           "of\n"
           "those installed with the program. Directories that other users can change are "
           "skipped.\n"
           "Ignored when the process runs with raised rights.\n"
           ".TP\n.B KEL_LOG\n"
           "Log records to show: none, error, warning, milestone or info.\n";
}

} // namespace kel::host
