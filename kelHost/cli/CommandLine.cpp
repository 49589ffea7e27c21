#include "cli/CommandLine.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "cli/BashCompletion.h"
#include "cli/ManualPage.h"
#include "cli/ProgramText.h"
#include "commands/Command.h"
#include "commands/CommonOptions.h"
#include "elements/HostLogger.h"
#include "elements/PluginLoader.h"
#include "jobs/Console.h"
#include "jobs/OutputStream.h"
#include "jobs/Posix.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <unistd.h>
#include <variant>
#include <vector>

namespace kel::host {

namespace {

// The parser with its commands. CLI11 is used in this file only: it takes long to compile.
struct CommandLine {
    CommonArguments arguments;
    std::vector<Option> commonOptions = arguments.Options();
    std::vector<std::unique_ptr<Command>> commands = MakeCommands();
    CLI::App app{kDescription, kProgram};
    std::vector<CLI::App*> parsers; // of the commands
    CLI::App* manual = nullptr;
    CLI::App* completion = nullptr;
};

// The options of a parser by name. The parser's own search ends the process where memory runs out.
using ParsedOptions = std::map<std::string, CLI::Option*>;

void AddOption(CLI::App& app, ParsedOptions& others, const Option& option) {
    CLI::Option* parsed = std::visit(
        [&](auto* variable) {
            using Variable = std::remove_pointer_t<decltype(variable)>;
            if constexpr (std::is_same_v<Variable, bool>) {
                return app.add_flag(option.Names(), *variable, option.Description());
            } else {
                CLI::Option* added =
                    app.add_option(option.Names(), *variable, option.Description());
                if constexpr (std::is_same_v<Variable, std::string>) {
                    added->capture_default_str();
                }
                return added->type_name(option.ValueName());
            }
        },
        option.Variable());
    parsed->required(option.IsRequired());
    if (!option.IsArgument() && option.IsRepeatable()) {
        parsed->allow_extra_args(false); // one value each time
    }
    if (!option.Excluded().empty()) {
        parsed->excludes(others.at(option.Excluded()));
    }
    if (!option.Needed().empty()) {
        parsed->needs(others.at(option.Needed()));
    }
    others[option.Names()] = parsed;
}

void Define(CommandLine& line) {
    line.app.require_subcommand(1);
    line.app.set_version_flag("--version", "kelhost " KEL_HOST_VERSION);
    line.app.fallthrough();
    line.app.footer(kNotes);
    ParsedOptions common;
    for (const Option& option : line.commonOptions) {
        AddOption(line.app, common, option);
    }
    for (const auto& command : line.commands) {
        CLI::App* parser = line.app.add_subcommand(command->Name(), command->Summary());
        parser->footer(command->Notes());
        ParsedOptions own;
        for (const Option& option : command->Options()) {
            AddOption(*parser, own, option);
        }
        line.parsers.push_back(parser);
    }
    // For packagers; not listed.
    line.manual = line.app.add_subcommand("manual", "Write the manual page")->group("");
    line.completion =
        line.app.add_subcommand("completion", "Write the completion for bash")->group("");
}

// Returns the arguments in reverse order, as the parser expects them. The parser takes a name in
// brackets for a list of names; such a name gets its directory.
std::vector<std::string> ReversedArguments(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        const std::string argument = argv[i];
        const bool inBrackets =
            !argument.empty() && argument.front() == '[' && argument.back() == ']';
        arguments.push_back(inBrackets ? "./" + argument : argument);
    }
    return arguments;
}

// Loads the plug-ins, and shows each message about them at once: a plug-in may end the process.
std::vector<LoadedPlugin> Load(const std::vector<std::string>& files, Console& console) {
    LoadObserver observer;
    observer.onWarning = [&console](const std::string& line) {
        console.ShowLog(line);
    };
    observer.onExit = [&console](const JobError& error) {
        console.ShowError(DescribeError(error));
    };
    return LoadPlugins(files, observer);
}

// The command that was typed; null for none, and for those that are not listed.
Command* ParsedCommand(const CommandLine& line) {
    const auto parsed = std::find_if(line.parsers.begin(), line.parsers.end(),
                                     [](const CLI::App* parser) { return parser->parsed(); });
    return parsed == line.parsers.end()
               ? nullptr
               : line.commands[static_cast<std::size_t>(parsed - line.parsers.begin())].get();
}

int Execute(const CommandLine& line, const Streams& streams, Console& console) {
    if (line.manual->parsed()) {
        WriteManual(line.commonOptions, line.commands, KEL_HOST_VERSION, streams.out);
        return kSuccess;
    }
    if (line.completion->parsed()) {
        WriteCompletion(line.commonOptions, line.commands, streams.out);
        return kSuccess;
    }
    const CommonOptions common = line.arguments.Interpret();
    Command& command = *ParsedCommand(line);
    command.Interpret(common);
    const auto log = std::make_shared<HostLogger>(
        [&console](const std::string& text) { console.ShowLog(text); }, common.verbosity);
    const InstalledLogger installed(log);
    const std::vector<LoadedPlugin> plugins =
        command.NeedsPlugins() ? Load(common.plugins, console) : std::vector<LoadedPlugin>();
    return command.Run(common, streams);
}

std::string ListCommands(const CommandLine& line) {
    std::vector<std::string> names;
    for (const auto& command : line.commands) {
        names.push_back(command->Name());
    }
    return ListAlternatives(names);
}

// Describes the problem of a command line that could not be parsed.
std::string DescribeParseError(const CommandLine& line, const CLI::ParseError& error) {
    // Without a command, the parser reports only that one is missing.
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::RequiredError) ||
        !line.app.get_subcommands().empty()) {
        return error.what();
    }
    const std::vector<std::string> rest = line.app.remaining();
    if (rest.empty()) {
        return "a command is missing: " + ListCommands(line);
    }
    const std::string& first = rest.front();
    return first.front() == '-'
               ? "there is no option " + first + " before a command"
               : "there is no command \"" + first + "\"; use " + ListCommands(line);
}

// Returns whether --json is among the arguments, for arguments that cannot be parsed.
bool RequestsJSON(int argc, const char* const* argv) {
    return std::any_of(argv, argv + argc,
                       [](const char* argument) { return std::string_view(argument) == "--json"; });
}

// Parses the arguments. Returns an exit status when nothing is left to do.
std::optional<int> Parse(CommandLine& line, int argc, const char* const* argv,
                         const Streams& streams) {
    try {
        line.app.parse(ReversedArguments(argc, argv));
        return std::nullopt;
    } catch (const CLI::Success& success) {
        return line.app.exit(success, streams.out, streams.err); // help or the version
    } catch (const CLI::ParseError& error) {
        const std::string problem = Escape(DescribeParseError(line, error));
        line.arguments.json = RequestsJSON(argc, argv);
        if (line.arguments.json) {
            Console(streams.err, {true}).ShowError({"", problem});
        } else {
            streams.err << "kelhost: " << problem << "\nRun with --help for more information.\n";
        }
        return kUsage;
    }
}

// Runs the program. Sets the status of a failure as soon as it knows the command.
int RunCommandLine(int argc, const char* const* argv, const Streams& streams, int& failure) {
    CommandLine line;
    Define(line);
    std::optional<int> status = Parse(line, argc, argv, streams);
    if (const Command* command = ParsedCommand(line)) {
        failure = command->FailureStatus();
    }
    Console console(streams.err, {line.arguments.json});
    try {
        if (!status.has_value()) {
            status = Execute(line, streams, console);
        }
        if (!streams.out.flush()) {
            throw JobError("cannot write to standard output");
        }
        return *status;
    } catch (const UsageError& error) {
        console.ShowError(DescribeError(error));
        return kUsage;
    } catch (const Interrupted& interrupted) {
        console.ShowError({"", "interrupted; no unfinished output is left"});
        return 128 + interrupted.signal;
    } catch (const std::exception& error) {
        console.ShowError(DescribeError(error));
    }
    return failure;
}

} // namespace

int Run(int argc, const char* const* argv) {
    // Before anything can be opened under the number of a standard stream.
    if (!OpenStandardDescriptors()) {
        return kFailure;
    }
    OutputStream out(STDOUT_FILENO);
    OutputStream err(STDERR_FILENO);
    // A closed pipe and the limit of file sizes are errors of the write that meets them.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    int failure = kFailure;
    try {
        return RunCommandLine(argc, argv, {out, err}, failure);
    } catch (...) {
        // Not even the error could be described.
        err << "kelhost: " << kNoMemory << '\n';
        return failure;
    }
}

} // namespace kel::host
