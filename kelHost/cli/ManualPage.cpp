#include "cli/ManualPage.h"

#include "cli/OptionText.h"
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

// Writes the options below the titles of their groups, if there are several groups.
void WriteOptions(const std::vector<Option>& options, std::ostream& out) {
    std::string group = options.empty() ? "" : options.front().Group();
    for (const Option& option : options) {
        if (!option.IsArgument() && option.Group() != group) {
            group = option.Group();
            out << ".PP\n" << Troff(group) << ":\n";
        }
        if (option.IsArgument()) {
            out << ".TP\n.I " << Troff(option.Names()) << "\n";
        } else {
            const std::string names = DisplayedNames(option);
            const std::size_t value = names.size() - option.ValueName().size();
            out << ".TP\n\\fB" << Troff(names.substr(0, value)) << "\\fR";
            if (!option.IsFlag()) {
                out << "\\fI" << Troff(option.ValueName()) << "\\fR";
            }
            out << "\n";
        }
        out << Troff(Sentence(DescribeOption(option))) << "\n";
    }
}

// Writes examples as they are typed, each below its purpose.
void WriteExamples(const std::vector<Example>& examples, std::ostream& out) {
    constexpr std::size_t kWidth = 66; // of a page in 80 columns, between its margins
    for (const Example& example : examples) {
        out << ".PP\n" << Troff(example.purpose) << ":\n.PP\n.RS 4\n.EX\n";
        for (const std::string& line : ExampleLines(example, kWidth)) {
            out << Troff(line) << "\n";
        }
        out << ".EE\n.RE\n";
    }
}

void WriteNotes(const std::string& notes, std::ostream& out) {
    for (const std::string& paragraph : SplitLines(notes)) {
        out << ".PP\n" << Troff(paragraph) << "\n";
    }
}

void WriteSynopsis(const CommandEntry& entry, const Command& command, std::ostream& out) {
    for (const std::string& usage : UsagesOf(command)) {
        out << ".B " << kProgram << " " << entry.name << "\n[options]" << (usage.empty() ? "" : " ")
            << Troff(usage) << "\n.br\n";
    }
}

void WriteCommand(const CommandEntry& entry, std::ostream& out) {
    const std::unique_ptr<Command> command = entry.make();
    out << ".SS " << Troff(entry.name) << "\n" << Troff(entry.summary) << ".\n";
    WriteOptions(command->Options(), out);
    WriteNotes(command->Notes(), out);
    WriteExamples(command->Examples(), out);
}

} // namespace

void WriteManual(const std::vector<Option>& commonOptions, const std::string& version,
                 std::ostream& out) {
    out << ".\\\" Written by the program itself.\n"
        << ".TH " << kProgram << R"( 1 "" ")" << kProgram << " " << version
        << "\" \"User Commands\"\n"
        << ".ad l\n.nh\n.SH NAME\n"
        << kProgram << " \\- copies, converts, measures and plots audio files\n"
        << ".SH SYNOPSIS\n";
    for (const CommandEntry& entry : Commands()) {
        WriteSynopsis(entry, *entry.make(), out);
    }
    out << ".B " << kProgram << " help\n[COMMAND]\n"
        << ".SH DESCRIPTION\n"
        << Troff(kDescription) << "\n";
    WriteExamples(ProgramExamples(), out);
    out << ".SH OPTIONS\nThey are accepted before and after the command.\n";
    WriteOptions(commonOptions, out);
    WriteOptions(ShowingOptions(), out);
    out << ".SH COMMANDS\n";
    for (const CommandEntry& entry : Commands()) {
        WriteCommand(entry, out);
    }
    out << ".SH EXIT STATUS\n";
    WriteNotes(kNotes, out);
    out << ".SH ENVIRONMENT\n"
           ".TP\n.B KEL_PLUGIN_PATH\n"
           "Absolute paths of directories, separated by colons, whose plug\\-ins are loaded "
           "instead "
           "of\n"
           "those installed with the program. Directories that other users can change are "
           "skipped.\n"
           "Ignored when the process runs with raised rights.\n"
           ".TP\n.B KEL_LOG\n"
           "Log records to show: none, error, warning, milestone or info.\n"
           ".TP\n.B COLUMNS\n"
           "Width of help texts, in characters.\n"
           ".TP\n.B NO_COLOR\n"
           "When set and not empty, nothing is coloured.\n";
}

} // namespace kel::host
