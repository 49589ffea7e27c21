/// Subcommands of the program: their options and their execution. Used by one thread.
#pragma once

#include "base/Errors.h"
#include "commands/Option.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

struct CommonOptions;

/// Streams of the program.
struct Streams {
    std::ostream& out; ///< results
    std::ostream& err; ///< everything else: log records, warnings, errors, progress
};

/// A command line that works as it is, given its files.
struct Example {
    std::string line;    ///< "kelhost info take.wav"
    std::string purpose; ///< "Show facts about a file"
};

/// One subcommand. Its options are made with it, only when it is used. The parser fills the targets
/// of its options before anything else is called.
class Command {
public:
    Command() = default;
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    const std::vector<Option>& Options() const { return m_options; }

    /// Forms of the arguments after the name of the command: "INPUT OUTPUT". Empty where the
    /// arguments by position already show it.
    const std::vector<std::string>& Usages() const { return m_usages; }

    /// Examples, the most frequent task first.
    const std::vector<Example>& Examples() const { return m_examples; }

    /// Text after the options in the help; each line is a paragraph.
    const std::string& Notes() const { return m_notes; }

    /// True when the host's plug-ins are loaded before Run.
    virtual bool NeedsPlugins() const { return true; }

    /// Exit status when the command fails.
    virtual int FailureStatus() const { return kFailure; }

    /// Interprets the values of the options.
    /// @throws UsageError when one is invalid
    virtual void Interpret(const CommonOptions& /*common*/) {}

    /// Executes the command.
    /// @return the exit status
    /// @throws UsageError, JobError and Interrupted
    virtual int Run(const CommonOptions& common, const Streams& streams) = 0;

protected:
    /// Begins a group of options in the help: those that are added next.
    void BeginGroup(std::string title) { m_group = std::move(title); }
    void Add(Option option) {
        const bool hasGroup = !option.Group().empty();
        m_options.push_back(hasGroup ? std::move(option) : std::move(option).InGroup(m_group));
    }
    void AddUsage(std::string arguments) { m_usages.push_back(std::move(arguments)); }
    void AddExample(std::string line, std::string purpose) {
        m_examples.push_back({std::move(line), std::move(purpose)});
    }
    void SetNotes(std::string notes) { m_notes = std::move(notes); }

private:
    std::string m_group = "Options";
    std::string m_notes;
    std::vector<std::string> m_usages;
    std::vector<Example> m_examples;
    std::vector<Option> m_options;
};

/// A command by name. Making it builds its options.
struct CommandEntry {
    const char* name;
    const char* summary; ///< purpose of the command, in a few words
    std::unique_ptr<Command> (*make)();
};

/// Returns all commands, in the order of the help.
const std::vector<CommandEntry>& Commands();

} // namespace kel::host
