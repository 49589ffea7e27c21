#include "cli/HelpText.h"

#include "base/Numbers.h"
#include "cli/OptionText.h"
#include "cli/ProgramText.h"
#include "commands/CommonOptions.h"
#include "commands/OptionParsing.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kIndent = 2;

// A name and its explanation.
struct Entry {
    std::string name;
    std::string text;
};

void WriteLines(const std::vector<std::string>& lines, std::size_t indent, std::ostream& out) {
    for (const std::string& line : lines) {
        out << std::string(indent, ' ') << line << '\n';
    }
}

void WriteParagraph(std::string_view text, std::size_t width, std::ostream& out) {
    WriteLines(WrapWords(text, width), 0, out);
}

constexpr std::size_t kGap = 2; // between the columns

// Returns the column of the explanations: after the longest name that leaves room for them.
std::size_t ColumnFor(const std::vector<Entry>& entries, std::size_t width) {
    const std::size_t max = width * 7 / 20;
    std::size_t column = 2 * kIndent;
    for (const Entry& entry : entries) {
        const std::size_t end = kIndent + entry.name.size() + kGap;
        column = end <= max ? std::max(column, end) : column;
    }
    return column;
}

// Writes entries in two columns. A name that is too long for its column has a line of its own.
void WriteEntries(const std::vector<Entry>& entries, std::size_t column, std::size_t width,
                  std::ostream& out) {
    for (const Entry& entry : entries) {
        std::vector<std::string> lines = WrapWords(entry.text, width - column);
        std::string name = std::string(kIndent, ' ') + entry.name;
        if (name.size() + kGap <= column) {
            name.resize(column, ' ');
            out << name << lines.front() << '\n';
            lines.erase(lines.begin());
        } else {
            out << name << '\n';
        }
        WriteLines(lines, column, out);
    }
}

// Writes examples with their purposes beside them, or above where a line is too long for that.
void WriteExamples(const std::vector<Example>& examples, std::size_t width, std::ostream& out) {
    std::size_t longestLine = 0;
    std::size_t longestPurpose = 0;
    for (const Example& example : examples) {
        longestLine = std::max(longestLine, example.line.size());
        longestPurpose = std::max(longestPurpose, example.purpose.size());
    }
    const bool isTable = kIndent + longestLine + kGap + longestPurpose <= width;
    out << "Examples:\n";
    for (const Example& example : examples) {
        if (isTable) {
            const std::string gap(longestLine - example.line.size() + kGap, ' ');
            WriteLines({example.line + gap + example.purpose}, kIndent, out);
        } else {
            WriteLines(WrapWords(example.purpose + ":", width - kIndent), kIndent, out);
            WriteLines(ExampleLines(example, width - 2 * kIndent), 2 * kIndent, out);
        }
    }
}

Entry EntryOf(const Option& option) {
    // Long names are below each other.
    const bool hasShortName = option.IsArgument() || option.Spellings().size() > 1;
    return {(hasShortName ? "" : "    ") + DisplayedNames(option), DescribeOption(option)};
}

void WriteOptions(const std::vector<Option>& options, std::size_t width, std::ostream& out) {
    std::vector<Entry> arguments;
    std::vector<Entry> all;
    for (const Option& option : options) {
        all.push_back(EntryOf(option));
        if (option.IsArgument()) {
            arguments.push_back(all.back());
        }
    }
    const std::size_t column = ColumnFor(all, width);
    out << (arguments.empty() ? "" : "\nArguments:\n");
    WriteEntries(arguments, column, width, out);
    for (const std::string& title : GroupTitles(options)) {
        std::vector<Entry> entries;
        for (const Option& option : options) {
            if (!option.IsArgument() && option.Group() == title) {
                entries.push_back(EntryOf(option));
            }
        }
        out << (entries.empty() ? "" : "\n" + title + ":\n");
        WriteEntries(entries, column, width, out);
    }
}

// Writes a usage line. What does not fit is indented below.
void WriteUsage(std::string_view usage, std::size_t width, std::ostream& out) {
    std::vector<std::string> lines = WrapWords(usage, width - 3 * kIndent);
    WriteLines({lines.front()}, kIndent, out);
    lines.erase(lines.begin());
    WriteLines(lines, 3 * kIndent, out);
}

void WriteNotes(std::string_view notes, std::size_t width, std::ostream& out) {
    out << (notes.empty() ? "" : "\n");
    for (const std::string& paragraph : SplitLines(notes)) {
        WriteParagraph(paragraph, width, out);
    }
}

} // namespace

std::size_t HelpWidth() {
    constexpr std::size_t kMin = 40;
    constexpr std::size_t kMax = 100; // longer lines are hard to read
    const char* columns = std::getenv("COLUMNS");
    const auto chosen =
        ParseInteger<std::size_t>(columns != nullptr ? std::string_view(columns) : "");
    const std::size_t width = chosen.value_or(0) > 0 ? *chosen : TerminalWidth(STDOUT_FILENO);
    return std::clamp(width, kMin, kMax);
}

void WriteProgramHelp(std::size_t width, std::ostream& out) {
    WriteParagraph(kDescription, width, out);
    out << '\n';
    WriteExamples(ProgramExamples(), width, out);
    out << "\nUsage:\n  kelhost COMMAND [OPTION...] [ARGUMENT...]\n";
    std::vector<Entry> commands;
    for (const CommandEntry& command : Commands()) {
        commands.push_back({command.name, command.summary});
    }
    commands.push_back({"help", "Show the help of the program or of a command"});
    out << "\nCommands:\n";
    WriteEntries(commands, ColumnFor(commands, width), width, out);
    CommonArguments arguments;
    std::vector<Option> options = arguments.Options();
    for (Option& option : ShowingOptions()) {
        options.push_back(std::move(option).InGroup(options.front().Group()));
    }
    WriteOptions(options, width, out);
    WriteNotes(kNotes, width, out);
}

void WriteCommandHelp(const CommandEntry& entry, std::size_t width, std::ostream& out) {
    const std::unique_ptr<Command> command = entry.make();
    WriteParagraph(std::string(entry.summary) + ".", width, out);
    out << '\n';
    WriteExamples(command->Examples(), width, out);
    out << "\nUsage:\n";
    for (const std::string& usage : UsagesOf(*command)) {
        WriteUsage(std::string(kProgram) + " " + entry.name + " [OPTION...] " + usage, width, out);
    }
    WriteOptions(command->Options(), width, out);
    std::string general;
    CommonArguments arguments;
    for (const Option& option : arguments.Options()) {
        general += (general.empty() ? "" : ", ") + option.LongName();
    }
    out << '\n';
    WriteParagraph("General options, see kelhost help: " + general, width, out);
    WriteNotes(command->Notes(), width, out);
}

} // namespace kel::host
