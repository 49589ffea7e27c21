#include "cli/CommandLine.h"

#include "audio/Formats.h"
#include "base/Errors.h"
#include "base/Text.h"
#include "cli/ManualPage.h"
#include "commands/InspectCommand.h"
#include "commands/JobRunner.h"
#include "elements/HostLogger.h"
#include "elements/PluginLoader.h"
#include "jobs/Console.h"
#include "validation/Validator.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

// What the command line says, as it says it.
struct Arguments {
    std::vector<std::string> plugins;
    bool verbose = false;
    bool json = false;
    bool quiet = false;
    std::string progress = "auto";
    double openTimeout = 10;
    unsigned jobs = 0;

    CopyCommand copy;
    std::optional<std::string> format;
    std::optional<std::string> encoding;
    std::optional<std::string> byteOrder;
    std::optional<std::string> channels;
    std::optional<std::string> start;
    std::optional<std::string> end;
    std::optional<std::string> duration;
    std::string onClip = "warn";
    std::string dither;
    std::string seed = "1";

    RunCommand run;
    InfoCommand info;
    PlotRequest plot;
    std::optional<std::string> size;
    std::string level = "linear";
    std::optional<std::string> implementation;
    ValidateCommand validate;
    double timeout = 30;
    std::optional<std::string> validationSeed;
    std::string demonstrationDirectory = "kelhost-demo";
};

struct CommandLine {
    CLI::App app{"Copies, converts and describes audio files through the elements of a "
                 "media-workflow framework.",
                 "kelhost"};
    CLI::App* copy = nullptr;
    CLI::App* run = nullptr;
    CLI::App* info = nullptr;
    CLI::App* plot = nullptr;
    CLI::App* formats = nullptr;
    CLI::App* inspect = nullptr;
    CLI::App* validate = nullptr;
    CLI::App* demo = nullptr;
    CLI::App* manual = nullptr;
    CLI::App* completion = nullptr;
};

// The part of the file, for the commands that take one.
void DefineRange(CLI::App& command, Arguments& arguments) {
    command
        .add_option("--start", arguments.start,
                    "Where to begin: seconds (12.5), h:mm:ss.mmm or frames (48000f)")
        ->type_name("TIME");
    auto* end = command.add_option("--end", arguments.end, "Where to end")->type_name("TIME");
    command.add_option("--duration", arguments.duration, "How much, instead of --end")
        ->type_name("TIME")
        ->excludes(end);
}

void DefineCopy(CLI::App& copy, Arguments& arguments) {
    CopyOptions& options = arguments.copy.options;
    copy.add_option("FILE", arguments.copy.files,
                    "INPUT and OUTPUT; with --output-dir, inputs alone")
        ->required()
        ->type_name("");
    copy.add_option("--output-dir", arguments.copy.outputDirectory,
                    "Copy every input into this directory, under its own name")
        ->type_name("DIR");
    copy.add_option("--format", arguments.format,
                    "Container: wave, bwave (RF64) or aiff; else the extension says it: " +
                        ListExtensions())
        ->type_name("FORMAT");
    copy.add_option("--encoding", arguments.encoding,
                    "float32, float64, int16, int24 or int32; else float32, int24 in AIFF")
        ->type_name("ENCODING");
    copy.add_option("--byte-order", arguments.byteOrder, "little or big; else little, big in AIFF")
        ->type_name("ORDER");
    copy.add_option("--channels", arguments.channels,
                    "Channels to copy and their order, counted from 1: 2,1")
        ->type_name("LIST");
    DefineRange(copy, arguments);
    copy.add_option("--on-clip", arguments.onClip,
                    "What to do when integers cannot hold a value: warn or fail")
        ->type_name("ACTION")
        ->check(CLI::IsMember({"warn", "fail"}))
        ->capture_default_str();
    auto* dither =
        copy.add_option("--dither", arguments.dither, "Noise before rounding to integers: tpdf")
            ->type_name("KIND")
            ->check(CLI::IsMember({"tpdf"}));
    copy.add_option("--seed", arguments.seed, "Seed of the noise; the same seed, the same noise")
        ->needs(dither)
        ->type_name("NUMBER")
        ->capture_default_str();
    copy.add_option("--block", options.blockFrames, "Frames that travel at once")
        ->type_name("FRAMES")
        ->check(CLI::Range(1U, 1U << 20U))
        ->capture_default_str();
    copy.add_flag("--verify", options.verify, "Read the whole output back and compare it");
    copy.add_flag("--allow-short", options.allowShort,
                  "Copy what there is of an input that is shorter than it promises");
    auto* force = copy.add_flag("--force", options.replace, "Replace an output that exists");
    copy.add_flag("--skip-existing", options.skip,
                  "Leave an output that exists as it is, and go on with the others")
        ->excludes(force);
    copy.footer("Examples:\n"
                "  kelhost copy take.wav copy.wav\n"
                "  kelhost copy take.flac take.rf64 --encoding int24\n"
                "  kelhost copy take.wav part.wav --start 0:01:00 --duration 30\n"
                "  kelhost copy take.wav mono.aiff --channels 1 --encoding int16 --dither tpdf\n"
                "  kelhost copy *.flac --output-dir wave --format wave --verify\n"
                "  kelhost copy *.flac --output-dir wave --skip-existing");
}

void DefineRun(CLI::App& run, Arguments& arguments) {
    run.add_option("ELEMENT", arguments.run.words,
                   "SOURCE[:TYPE] key=value ... ! SINK[:TYPE] key=value ...; the names, types and "
                   "keys are those that inspect shows")
        ->required()
        ->type_name("");
    run.add_flag("--allow-short", arguments.run.allowShort,
                 "Take what there is of a source that delivers less than it promises");
    run.add_flag("--force", arguments.run.replace, "Replace the sink's file if it exists");
    run.footer("The type is needed where an element has several and the extension of its FilePath "
               "means none of them.\n"
               "Nothing is converted. The file that a sink's FilePath names appears when it is "
               "whole.\n"
               "\n"
               "Examples:\n"
               "  kelhost run kel.LibsndfileSource FilePath=take.wav ! kel.LibsndfileSink "
               "FilePath=copy.wav\n"
               "  kelhost run kel.LibsndfileSource:WAVE FilePath=take.wav MaxSamplesPerBuffer=480 "
               "! kel.LibsndfileSink:BWAVE FilePath=take.rf64");
}

void DefinePlot(CLI::App& plot, Arguments& arguments) {
    plot.add_option("FILE", arguments.plot.input, "The file to draw")->required()->type_name("");
    plot.add_option("-o,--output", arguments.plot.picture,
                    "The picture, .png, .svg or .pdf; without it, characters")
        ->type_name("PICTURE");
    plot.add_option("--size", arguments.size, "Size of the picture: 1600x600")->type_name("WxH");
    plot.add_option("--level", arguments.level, "The level axis: linear or db")
        ->check(CLI::IsMember({"linear", "db"}))
        ->type_name("SCALE")
        ->capture_default_str();
    DefineRange(plot, arguments);
    plot.add_flag("--force", arguments.plot.replace, "Replace a picture that exists");
    plot.footer("Examples:\n"
                "  kelhost plot take.wav\n"
                "  kelhost plot take.wav -o take.png --level db\n"
                "  kelhost plot take.wav -o bar.svg --start 0:01:00 --duration 2 --size 800x300");
}

void DefineValidate(CLI::App& validate, Arguments& arguments) {
    ValidateCommand& command = arguments.validate;
    validate.add_option("PLUGIN", command.plugin, "The plug-in's library")
        ->required()
        ->type_name("");
    validate
        .add_option("--check", command.checks, "Make this check alone; may be given several times")
        ->allow_extra_args(false)
        ->type_name("NAME");
    validate
        .add_option("--element", command.elements,
                    "Check this element alone, IMPLEMENTATION or IMPLEMENTATION:TYPE; may be given "
                    "several times")
        ->allow_extra_args(false)
        ->type_name("NAME");
    validate
        .add_option("--input", command.input,
                    "What sources open that read files; else a short recording of their type")
        ->type_name("FILE");
    validate
        .add_option("--set", command.settings,
                    "A setting, NAME=VALUE, for the elements that have it; may be given several "
                    "times")
        ->allow_extra_args(false)
        ->type_name("SETTING");
    validate
        .add_option("--seed", arguments.validationSeed,
                    "Seed of the random calls; the same seed, the same calls")
        ->type_name("NUMBER");
    validate.add_option("--timeout", arguments.timeout, "Seconds that each check may take")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
    validate.add_option("--junit", command.junit, "Write a report in JUnit's format, too")
        ->type_name("FILE");
    validate.footer("Examples:\n"
                    "  kelhost validate libkelLibsndfile.so\n"
                    "  kelhost validate libkelLibsndfile.so --element kel.LibsndfileSink "
                    "--junit report.xml --seed 7\n"
                    "  kelhost validate libkelLibsndfile.so --check source.seek-to-each-edge\n"
                    "  kelhost validate libkelLibsndfile.so --element kel.LibsndfileSource:WAVE "
                    "--input take.wav\n"
                    "\n"
                    "Each check runs in a process of its own. Exit status: 0 nothing failed, "
                    "1 something did.");
}

void Define(CommandLine& line, Arguments& arguments) {
    CLI::App& app = line.app;
    app.require_subcommand(1);
    app.set_version_flag("--version", "kelhost " KEL_HOST_VERSION);
    app.fallthrough();
    app.add_option("--plugin", arguments.plugins,
                   "Load this plug-in instead of those in KEL_PLUGIN_PATH or beside the program; "
                   "may be given several times")
        ->allow_extra_args(false)
        ->type_name("FILE");
    app.add_flag("--json", arguments.json, "Results, errors and log records as JSON");
    app.add_flag("--quiet", arguments.quiet, "No progress, no reports of what was written");
    app.add_option("--progress", arguments.progress,
                   "auto (on a terminal), none, or json: lines of JSON on standard error")
        ->type_name("STYLE")
        ->check(CLI::IsMember({"auto", "none", "json"}))
        ->capture_default_str();
    app.add_option("--jobs", arguments.jobs, "Files worked on at once; else as many as processors")
        ->type_name("N")
        ->check(CLI::Range(1U, 256U));
    app.add_option("--open-timeout", arguments.openTimeout, "Seconds that opening a file may take")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
    app.add_flag(
        "--verbose", arguments.verbose,
        "Show all log records; KEL_LOG=none, error, warning, milestone or info shows some");
    app.footer("Examples:\n"
               "  kelhost copy take.flac take.wav                   convert a recording\n"
               "  kelhost copy *.flac --output-dir wave             convert a directory of them\n"
               "  kelhost info *.wav                                what is in these files?\n"
               "  kelhost info --measure take.wav                   its levels and loudness\n"
               "  kelhost plot take.wav                             look at it\n"
               "  kelhost copy --help                               more about a command\n"
               "\n"
               "Results go to standard output, everything else to standard error.\n"
               "Exit status: 0 all of it worked, 1 the job failed, 2 the command line was wrong, "
               "130 interrupted, 143 terminated.");

    line.copy = app.add_subcommand("copy", "Copy and convert audio files");
    DefineCopy(*line.copy, arguments);

    line.run = app.add_subcommand("run", "Run any source into any sink");
    DefineRun(*line.run, arguments);

    line.info = app.add_subcommand("info", "Show what is in audio files");
    line.info->add_option("FILE", arguments.info.files, "The files to look at")
        ->required()
        ->type_name("");
    line.info
        ->add_option("--field", arguments.info.field,
                     "Show this field of each file alone: frames, measurement.range_lu, ...")
        ->type_name("NAME");
    line.info->add_flag("--measure", arguments.info.measure,
                        "Read the files and measure peak, RMS, and loudness by EBU R 128");
    line.info->footer("Examples:\n"
                      "  kelhost info *.wav\n"
                      "  kelhost info --measure take.wav\n"
                      "  kelhost info --field frames take.wav\n"
                      "  kelhost info --field measurement.integrated_lufs *.wav\n"
                      "  kelhost info --json --measure take.wav");

    line.plot = app.add_subcommand("plot", "Draw the waveform of an audio file");
    DefinePlot(*line.plot, arguments);

    line.formats = app.add_subcommand("formats", "Show which encodings go into which containers");
    line.formats->footer("Examples:\n  kelhost formats\n  kelhost formats --json");

    line.inspect = app.add_subcommand("inspect", "Show the elements that are registered");
    line.inspect
        ->add_option("IMPLEMENTATION", arguments.implementation,
                     "Show this element with its documentation and settings")
        ->type_name("");
    line.inspect->footer("Examples:\n  kelhost inspect\n  kelhost inspect kel.LibsndfileSource\n"
                         "  kelhost inspect --json");

    line.validate =
        app.add_subcommand("validate", "Check that a plug-in does what the framework demands");
    DefineValidate(*line.validate, arguments);

    line.demo = app.add_subcommand("demo", "Write a short tone and copy it into every format");
    line.demo->add_option("DIRECTORY", arguments.demonstrationDirectory, "Where the files go")
        ->type_name("")
        ->capture_default_str();
    line.demo->footer("Examples:\n  kelhost demo\n  kelhost demo tone");

    // For those who install the program; not listed.
    line.manual = app.add_subcommand("manual", "Write the manual page")->group("");
    line.completion = app.add_subcommand("completion", "Write the completion for bash")->group("");
}

std::optional<TimePoint> ParseOptionalTime(const std::string& option,
                                           const std::optional<std::string>& text) {
    return text.has_value() ? std::optional(ParseTime(option, *text)) : std::nullopt;
}

TimeRange InterpretRange(const Arguments& arguments) {
    return {ParseOptionalTime("--start", arguments.start),
            ParseOptionalTime("--end", arguments.end),
            ParseOptionalTime("--duration", arguments.duration)};
}

// As many characters as the terminal is wide that a stream goes to.
std::size_t TerminalWidth(int descriptor) {
    constexpr std::size_t kUsual = 80;
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

// A whole number without a sign; none for every other text.
template <typename Number>
std::optional<Number> ParseWhole(std::string_view text) {
    Number number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

// 0 for what is no number.
unsigned ParsePixels(const std::string& text) {
    return ParseWhole<unsigned>(text).value_or(0);
}

// "2,1": what the channels of the output are, counted from 1.
std::vector<std::uint32_t> ParseChannels(const std::string& text) {
    constexpr std::uint32_t kMost = 1024; // no file has more
    std::vector<std::uint32_t> channels;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const auto channel =
            ParseWhole<std::uint32_t>(std::string_view(text).substr(start, comma - start));
        if (!channel.has_value() || *channel < 1 || *channel > kMost || channels.size() == kMost) {
            throw UsageError(fmt::format("--channels does not understand \"{}\"; it lists channels "
                                         "counted from 1, at most {}: 2,1",
                                         Escape(text), kMost));
        }
        channels.push_back(*channel);
        start = comma + 1;
    }
    return channels;
}

std::uint64_t ParseSeed(const std::string& text) {
    const auto seed = ParseWhole<std::uint64_t>(text);
    if (!seed.has_value()) {
        throw UsageError(fmt::format("--seed does not understand \"{}\"; it is a whole number from "
                                     "0 to {}",
                                     Escape(text), std::numeric_limits<std::uint64_t>::max()));
    }
    return *seed;
}

void InterpretPlot(Arguments& arguments) {
    PlotRequest& plot = arguments.plot;
    plot.range = InterpretRange(arguments);
    plot.scale = arguments.level == "db" ? LevelScale::Decibels : LevelScale::Linear;
    if (arguments.size.has_value()) {
        constexpr unsigned kSmallest = 100;
        constexpr unsigned kLargest = 30000;
        const std::string& size = *arguments.size;
        const std::size_t cross = std::min(size.find('x'), size.size());
        const unsigned width = ParsePixels(size.substr(0, cross));
        const unsigned height = ParsePixels(size.substr(std::min(cross + 1, size.size())));
        if (std::min(width, height) < kSmallest || std::max(width, height) > kLargest) {
            throw UsageError(fmt::format("--size does not understand \"{}\"; it is WIDTHxHEIGHT, "
                                         "each from {} to {}",
                                         Escape(*arguments.size), kSmallest, kLargest));
        }
        plot.width = width;
        plot.height = height;
    } else if (!plot.picture.has_value()) {
        plot.width = TerminalWidth(STDOUT_FILENO);
    }
}

void InterpretCopy(Arguments& arguments) {
    CopyOptions& options = arguments.copy.options;
    if (arguments.format.has_value()) {
        options.container = &ContainerByName(*arguments.format);
    }
    if (arguments.encoding.has_value()) {
        options.encoding = &EncodingByName(*arguments.encoding);
    }
    if (arguments.byteOrder.has_value()) {
        options.byteOrder = ByteOrderByName(*arguments.byteOrder);
    }
    if (arguments.channels.has_value()) {
        options.channels = ParseChannels(*arguments.channels);
    }
    options.range = InterpretRange(arguments);
    options.failOnClip = arguments.onClip == "fail";
    if (!arguments.dither.empty()) {
        options.dither = ParseSeed(arguments.seed);
    }
}

std::chrono::milliseconds Milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

void InterpretValidate(Arguments& arguments) {
    arguments.validate.timeout = Milliseconds(arguments.timeout);
    if (arguments.validationSeed.has_value()) {
        arguments.validate.seed = ParseSeed(*arguments.validationSeed);
    }
    if (!arguments.plugins.empty()) {
        throw UsageError("validate takes the plug-in as its argument; leave --plugin away");
    }
}

CommonOptions InterpretCommon(const Arguments& arguments) {
    CommonOptions common;
    common.style.json = arguments.json;
    common.style.quiet = arguments.quiet;
    if (arguments.progress == "json") {
        common.style.progress = ProgressStyle::JSON;
    } else if (arguments.progress == "auto" && !arguments.json && isatty(STDERR_FILENO) == 1) {
        common.style.progress = ProgressStyle::Line;
        common.style.width = TerminalWidth(STDERR_FILENO);
    }
    const char* level = std::getenv("KEL_LOG");
    if (level != nullptr && *level != '\0') {
        common.verbosity = ParseVerbosity(level);
    }
    if (arguments.verbose) {
        common.verbosity = Verbosity::Everything;
    }
    common.openTimeout = Milliseconds(arguments.openTimeout);
    common.jobs =
        arguments.jobs != 0 ? arguments.jobs : std::max(1U, std::thread::hardware_concurrency());
    return common;
}

// The arguments, in the reverse order that the parser takes. A name in brackets, which it would
// take for a list of names, gets the directory that it lies in.
std::vector<std::string> PlainArguments(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        const std::string argument = argv[i];
        const bool inBrackets =
            !argument.empty() && argument.front() == '[' && argument.back() == ']';
        arguments.push_back(inBrackets ? "./" + argument : argument);
    }
    return arguments;
}

// Loads the plug-ins, and shows what is wrong with those that cannot be loaded.
std::vector<LoadedPlugin> Load(const Arguments& arguments, Console& console) {
    std::stringstream warnings;
    const auto show = [&] {
        for (std::string line; std::getline(warnings, line);) {
            console.ShowLog(line);
        }
    };
    try {
        std::vector<LoadedPlugin> plugins = LoadPlugins(arguments.plugins, warnings);
        show();
        return plugins;
    } catch (...) {
        show();
        throw;
    }
}

int Execute(const CommandLine& line, Arguments& arguments, std::ostream& out, std::ostream& err,
            Console& console) {
    if (line.manual->parsed()) {
        WriteManual(line.app, KEL_HOST_VERSION, out);
        return kSuccess;
    }
    if (line.completion->parsed()) {
        WriteCompletion(line.app, out);
        return kSuccess;
    }
    const CommonOptions common = InterpretCommon(arguments);
    InterpretCopy(arguments);
    InterpretPlot(arguments);
    const auto log = std::make_shared<HostLogger>(
        [&console](const std::string& text) { console.ShowLog(text); }, common.verbosity);
    const InstalledLogger installed(log);
    if (line.validate->parsed()) {
        // No plug-in is loaded into this process, not even another.
        InterpretValidate(arguments);
        return RunValidate(arguments.validate, common, out, err);
    }
    const std::vector<LoadedPlugin> plugins = Load(arguments, console);

    if (line.copy->parsed()) {
        return RunCopy(arguments.copy, common, out, err);
    }
    if (line.run->parsed()) {
        return RunRun(arguments.run, common, out, err);
    }
    if (line.info->parsed()) {
        return RunInfo(arguments.info, common, out, err);
    }
    if (line.plot->parsed()) {
        return RunPlot(arguments.plot, common, out, err);
    }
    if (line.formats->parsed()) {
        return RunFormats(common, out);
    }
    if (line.demo->parsed()) {
        return RunDemo(arguments.demonstrationDirectory, common, out, err);
    }
    Inspect(arguments.implementation, common.style.json ? InspectStyle::JSON : InspectStyle::Text,
            out);
    return kSuccess;
}

std::string ListCommands(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        if (!command->get_group().empty()) {
            names.push_back(command->get_name());
        }
    }
    return fmt::format("{}", fmt::join(names, ", "));
}

// What is wrong with a command line that could not be parsed.
std::string ParseProblem(const CLI::App& app, const CLI::ParseError& error) {
    // Without a command, the parser misses that and nothing else.
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::RequiredError) ||
        !app.get_subcommands().empty()) {
        return Escape(error.what());
    }
    const std::vector<std::string> rest = app.remaining();
    if (rest.empty()) {
        return "a command is missing: " + ListCommands(app);
    }
    const std::string first = Escape(rest.front());
    return first.front() == '-' ? fmt::format("there is no option {} before a command", first)
                                : fmt::format("there is no command \"{}\"; choose from {}", first,
                                              ListCommands(app));
}

// Whether --json is among the arguments; for when they cannot be parsed.
bool AsksForJSON(int argc, const char* const* argv) {
    return std::any_of(argv, argv + argc,
                       [](const char* argument) { return std::string_view(argument) == "--json"; });
}

// Parses the arguments; an exit status where there is no more to do.
std::optional<int> Parse(CommandLine& line, Arguments& arguments, int argc, const char* const* argv,
                         std::ostream& out, std::ostream& err) {
    try {
        line.app.parse(PlainArguments(argc, argv));
        return std::nullopt;
    } catch (const CLI::Success& success) {
        return line.app.exit(success, out, err); // help or the version
    } catch (const CLI::ParseError& error) {
        const std::string problem = ParseProblem(line.app, error);
        arguments.json = AsksForJSON(argc, argv);
        if (arguments.json) {
            Console(err, {true}).ShowError("", problem);
        } else {
            err << problem << "\nRun with --help for more information.\n";
        }
        return kUsage;
    }
}

int RunCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CommandLine line;
    Arguments arguments;
    Define(line, arguments);
    std::optional<int> status = Parse(line, arguments, argc, argv, out, err);
    Console console(err, {arguments.json});
    try {
        if (!status.has_value()) {
            status = Execute(line, arguments, out, err, console);
        }
        if (!out.flush()) {
            throw JobError("standard output cannot be written");
        }
        return *status;
    } catch (const UsageError& error) {
        console.ShowError("", error.what());
        return kUsage;
    } catch (const Interrupted& interrupted) {
        console.ShowError("", "interrupted; nothing is left of what was not finished");
        return 128 + interrupted.signal;
    } catch (const JobError& error) {
        console.ShowError("", error.what());
    } catch (const std::exception& error) {
        console.ShowError("", Escape(UserMessage(error)));
    }
    return kFailure;
}

} // namespace

int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    // A reader that has gone and a file that may not grow are errors of the write that meets them.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    try {
        return RunCommandLine(argc, argv, out, err);
    } catch (...) {
        // There was not even the memory to tell of it.
        err << "kelhost: " << kNoMemory << '\n';
        return kFailure;
    }
}

} // namespace kel::host
