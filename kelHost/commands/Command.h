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

/// One subcommand. The parser fills the targets of its options before anything else is called.
class Command {
public:
    Command(std::string name, std::string summary);
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    const std::string& Name() const { return m_name; }

    /// Purpose of the command, in a few words.
    const std::string& Summary() const { return m_summary; }

    const std::vector<Option>& Options() const { return m_options; }

    /// Text after the options in the help: notes, then examples. Lines of examples are indented.
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
    void Add(Option option) { m_options.push_back(std::move(option)); }
    void SetNotes(std::string notes) { m_notes = std::move(notes); }

private:
    std::string m_name;
    std::string m_summary;
    std::string m_notes;
    std::vector<Option> m_options;
};

/// Returns all commands, in the order of the help.
std::vector<std::unique_ptr<Command>> MakeCommands();

} // namespace kel::host
