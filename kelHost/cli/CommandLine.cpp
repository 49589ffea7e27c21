#include "cli/CommandLine.h"

#include "audio/Formats.h"
#include "base/Errors.h"
#include "base/Numbers.h"
#include "base/Suggestion.h"
#include "cli/ArgumentParser.h"
#include "cli/Completion.h"
#include "cli/HelpText.h"
#include "cli/ManualPage.h"
#include "cli/ProgramText.h"
#include "commands/Command.h"
#include "commands/CommonOptions.h"
#include "commands/ForeignRequests.h"
#include "commands/OptionParsing.h"
#include "elements/HostLogger.h"
#include "elements/PluginLoader.h"
#include "jobs/Console.h"
#include "jobs/OutputStream.h"
#include "jobs/Posix.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

// The arguments of the program, interpreted as far as that is possible without their command.
struct CommandLine {
    explicit CommandLine(const std::vector<std::string>& words)
        : commonOptions(arguments.Options()), divided(DivideArguments(words, commonOptions)) {}

    CommonArguments arguments;
    std::vector<Option> commonOptions;
    DividedArguments divided;
};

const CommandEntry* FindCommand(const std::string& name) {
    const std::vector<CommandEntry>& commands = Commands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const CommandEntry& entry) { return entry.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

std::vector<std::string> CommandNames() {
    std::vector<std::string> names;
    for (const CommandEntry& entry : Commands()) {
        names.emplace_back(entry.name);
    }
    return names;
}

// Returns whether a file is named where a command is expected.
bool IsAudioFile(const std::string& name) {
    struct stat status {};
    return ContainerByExtension(name) != nullptr ||
           (stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode));
}

const CommandEntry& RequireCommand(const std::string& name,
                                   const std::vector<std::string>& arguments) {
    const CommandEntry* entry = FindCommand(name);
    if (entry != nullptr) {
        return *entry;
    }
    if (const auto explained = ExplainForeignCommand(name, arguments)) {
        throw UsageError("there is no command \"" + name + "\"; " + *explained);
    }
    if (IsAudioFile(name)) {
        std::vector<std::string> words{name};
        words.insert(words.end(), arguments.begin(), arguments.end());
        throw UsageError("there is no command \"" + name + "\"; " + ExplainMissingCommand(words));
    }
    throw UsageError(DescribeUnknown("command", name, CommandNames()));
}

// Returns the error with the command line that explains the options.
UsageError WithHelp(const std::string& problem, const std::string& command) {
    return UsageError(problem + (problem.back() == '?' ? " See " : "; see ") + kProgram +
                      (command.empty() ? "" : " ") + command + " --help");
}

// Returns "-o out" for "-oout"; empty where the letter is no option with a value.
std::string SeparateValue(const std::string& word, const std::vector<Option>& options) {
    const std::string letter = word.substr(0, 2);
    const auto option = std::find_if(options.begin(), options.end(),
                                     [&](const Option& known) { return known.IsCalled(letter); });
    const std::size_t value = std::min(word.find_first_not_of('=', 2), word.size());
    return option == options.end() || option->IsFlag() ? "" : letter + " " + word.substr(value);
}

// Describes an option that does not exist: with its equivalent, or the option that is meant.
UsageError DescribeUnknownOption(const std::string& word, const std::vector<Option>& options,
                                 const std::vector<std::string>& arguments,
                                 const std::string& command) {
    const std::string name = word.substr(0, word.find('='));
    const std::string problem = "there is no option " + name;
    if (const auto explained = ExplainForeignOption(word, arguments, command)) {
        return UsageError(problem + "; " + *explained);
    }
    std::vector<std::string> names{"help", "version"};
    for (const Option& option : options) {
        if (!option.IsArgument()) {
            names.push_back(option.LongName().substr(2));
        }
    }
    std::string bareName = name.substr(std::min(name.find_first_not_of('-'), name.size()));
    std::replace(bareName.begin(), bareName.end(), '_', '-');
    const auto closest = ClosestName(bareName, names);
    const std::string meant = closest.has_value() ? "--" + *closest : SeparateValue(word, options);
    return WithHelp(problem + (meant.empty() ? "" : "; did you mean " + meant + "?"), command);
}

// Refuses "-r 44100", which is a rate for other tools. A flag of that name would take the number
// for a file.
void RequireNoRate(const std::vector<std::string>& arguments, const std::string& command) {
    const auto place = std::find(arguments.begin(), arguments.end(), "-r");
    if (place == arguments.end() || place + 1 == arguments.end()) {
        return;
    }
    const std::string& rate = *(place + 1);
    if (ParseInteger<std::uint32_t>(rate).has_value() && access(rate.c_str(), F_OK) != 0) {
        throw UsageError("there is no option -r " + rate + "; " +
                         ExplainForeignOption("-r", arguments, command).value_or(""));
    }
}

// Parses the arguments of a command.
void Parse(CommandLine& line, const std::string& name, const std::vector<Option>& own) {
    std::vector<Option> options = own;
    options.insert(options.end(), line.commonOptions.begin(), line.commonOptions.end());
    RequireNoRate(line.divided.others, name);
    ParsedArguments parsed;
    if (const auto word = FindMangledOption(options, line.divided.others)) {
        throw DescribeUnknownOption(*word, options, line.divided.others, name);
    }
    try {
        parsed = ParseArguments(options, line.divided.others);
        if (parsed.unknown.empty()) {
            RequireNames(parsed);
            RequireComplete(options, parsed);
        }
    } catch (const UsageError& error) {
        throw WithHelp(error.what(), name);
    }
    if (!parsed.unknown.empty()) {
        const std::string& word = parsed.unknown.front();
        if (word.size() > 1 && word.front() == '-') {
            throw DescribeUnknownOption(word, options, line.divided.others, name);
        }
        throw WithHelp("unexpected argument \"" + word + "\"", name);
    }
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

int RunCommand(CommandLine& line, const CommandEntry& entry, const Streams& streams,
               Console& console, int& failure) {
    const std::unique_ptr<Command> command = entry.make();
    failure = command->FailureStatus();
    Parse(line, entry.name, command->Options());
    const CommonOptions common = line.arguments.Interpret();
    command->Interpret(common);
    const auto log = std::make_shared<HostLogger>(
        [&console](const std::string& text) { console.ShowLog(text); }, common.verbosity);
    const InstalledLogger installed(log);
    const std::vector<LoadedPlugin> plugins =
        command->NeedsPlugins() ? Load(common.plugins, console) : std::vector<LoadedPlugin>();
    return command->Run(common, streams);
}

// Writes the help of the program, or of one command.
void ShowHelp(const std::vector<std::string>& names, std::ostream& out) {
    if (names.size() > 1) {
        throw UsageError(std::string("help expects one command: ") + kProgram + " help " +
                         names.front());
    }
    if (names.empty()) {
        WriteProgramHelp(HelpWidth(), out);
    } else {
        WriteCommandHelp(RequireCommand(names.front(), {}), HelpWidth(), out);
    }
}

// Executes the command that the arguments name. "manual" and "completion" are for packagers, and
// not listed.
int Dispatch(CommandLine& line, const Streams& streams, Console& console, int& failure) {
    const std::optional<std::string>& name = line.divided.command;
    if (!name.has_value()) {
        Parse(line, "", {});
        throw WithHelp("a command is missing", "");
    }
    if (name == "help") {
        ShowHelp(line.divided.others, streams.out);
    } else if (HasFlag(line.divided.others, {"-h", "--help"})) {
        ShowHelp({*name}, streams.out);
    } else if (name == "manual") {
        WriteManual(line.commonOptions, KEL_HOST_VERSION, streams.out);
    } else if (name == "completion") {
        const std::vector<std::string>& others = line.divided.others;
        WriteCompletion(others.empty() ? "" : others.front(), line.commonOptions, streams.out);
    } else {
        return RunCommand(line, RequireCommand(*name, line.divided.others), streams, console,
                          failure);
    }
    return kSuccess;
}

int Execute(const std::vector<std::string>& words, const Streams& streams, Console& console,
            int& failure) {
    if (HasFlag(words, {"--version"})) {
        streams.out << kProgram << " " << KEL_HOST_VERSION << '\n';
        return kSuccess;
    }
    CommandLine line(words);
    const bool asksForHelp = HasFlag(words, {"-h", "--help"});
    if (words.empty() || (asksForHelp && !line.divided.command.has_value())) {
        ShowHelp({}, streams.out);
        return kSuccess;
    }
    return Dispatch(line, streams, console, failure);
}

// Runs the program. Sets the status of a failure as soon as it knows the command.
int RunCommandLine(const std::vector<std::string>& words, const Streams& streams, int& failure) {
    // Arguments that cannot be parsed are reported in the form that they request.
    ConsoleStyle style;
    style.json = HasFlag(words, {"--json"});
    style.colours = !style.json && UsesColour(STDERR_FILENO);
    Console console(streams.err, style);
    try {
        const int status = Execute(words, streams, console, failure);
        if (!streams.out.flush()) {
            if (SignalReader::HasLostReader()) {
                throw Interrupted{SIGPIPE};
            }
            throw JobError("cannot write to standard output");
        }
        return status;
    } catch (const UsageError& error) {
        console.ShowError(DescribeError(error));
        return kUsage;
    } catch (const Interrupted& interrupted) {
        if (interrupted.signal != SIGPIPE) { // as quiet as a program that the signal ends
            console.ShowError({"", "interrupted; no unfinished output is left", ""});
        }
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
    OutputStream out(STDOUT_FILENO, OutputStream::LostReader::EndsProgram);
    OutputStream err(STDERR_FILENO);
    // A closed pipe and the limit of file sizes are errors of the write that meets them.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    int failure = kFailure;
    try {
        return RunCommandLine({argv + 1, argv + argc}, {out, err}, failure);
    } catch (...) {
        // Not even the error could be described.
        err << "kelhost: " << kNoMemory << '\n';
        return failure;
    }
}

} // namespace kel::host
