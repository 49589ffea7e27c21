#include "CommandLine.h"

#include "Copy.h"
#include "Demonstration.h"
#include "Errors.h"
#include "Formats.h"
#include "HostLog.h"
#include "Info.h"
#include "Inspect.h"
#include "PluginLoader.h"
#include "Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// What the command line can say.
struct Options {
    std::optional<std::string> plugin;
    bool verbose = false;

    CopyRequest copy;
    std::string format;
    std::vector<std::string> infoFiles;
    std::optional<std::string> implementation;
    std::string demonstrationFolder = "kelhost-demo";
};

struct CommandLine {
    CLI::App app{"Copies and describes audio files through the elements of a media-workflow "
                 "framework.",
                 "kelhost"};
    CLI::App* copy = nullptr;
    CLI::App* info = nullptr;
    CLI::App* inspect = nullptr;
    CLI::App* demo = nullptr;
};

void Define(CommandLine& line, Options& options) {
    CLI::App& app = line.app;
    app.require_subcommand(1);
    app.set_version_flag("--version", "kelhost " KEL_HOST_VERSION);
    app.fallthrough();
    app.add_option("--plugin", options.plugin,
                   "Load this plug-in instead of those in KEL_PLUGIN_PATH or beside the program")
        ->type_name("FILE");
    app.add_flag("--verbose", options.verbose, "Show all log records");
    app.footer("Results go to standard output, everything else to standard error.\n"
               "Exit status: 0 all of it worked, 1 the job failed, 2 the command line was wrong, "
               "130 interrupted.");

    line.copy = app.add_subcommand("copy", "Copy an audio file");
    line.copy->add_option("INPUT", options.copy.input, "The file to read")->required();
    line.copy
        ->add_option("OUTPUT", options.copy.output,
                     "The file to write; its extension says the format: " + ListExtensions())
        ->required();
    line.copy
        ->add_option("--format", options.format,
                     "Format of the output, whatever its extension: wave, bwave (RF64) or aiff")
        ->type_name("FORMAT");
    line.copy->add_flag("--force", options.copy.replace, "Replace OUTPUT if it exists");
    line.copy->footer("Examples:\n"
                      "  kelhost copy take.wav copy.wav\n"
                      "  kelhost copy take.flac take.rf64\n"
                      "  kelhost copy --force take.wav take.aiff\n"
                      "WAVE and RF64 are written as 32-bit float, AIFF as 24-bit integers.");

    line.info = app.add_subcommand("info", "Show what is in audio files");
    line.info->add_option("FILE", options.infoFiles, "The files to look at")->required();
    line.info->footer("Example:\n  kelhost info *.wav");

    line.inspect = app.add_subcommand("inspect", "Show the elements that are registered");
    line.inspect->add_option("IMPLEMENTATION", options.implementation,
                             "Show this element with its documentation and settings");
    line.inspect->footer("Examples:\n  kelhost inspect\n  kelhost inspect kel.LibsndfileSource");

    line.demo = app.add_subcommand("demo", "Write a short tone and copy it into every format");
    line.demo->add_option("FOLDER", options.demonstrationFolder, "Where the files go")
        ->capture_default_str();
}

int Execute(const CommandLine& line, Options& options, std::ostream& out, std::ostream& err) {
    const auto log = std::make_shared<HostLog>(err, options.verbose);
    const InstalledLog installed(log);
    const std::vector<LoadedPlugin> plugins = LoadPlugins(options.plugin, err);

    if (line.copy->parsed()) {
        if (!options.format.empty()) {
            options.copy.container = &ContainerByName(options.format);
        }
        out << Describe(options.copy, Copy(options.copy, *log));
    } else if (line.info->parsed()) {
        return ShowInfo(options.infoFiles, out, err) ? kSuccess : kFailure;
    } else if (line.inspect->parsed()) {
        Inspect(options.implementation, out);
    } else {
        Demonstrate(options.demonstrationFolder, *log, out);
    }
    return kSuccess;
}

} // namespace

int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CommandLine line;
    Options options;
    Define(line, options);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return line.app.exit(error, out, err) == 0 ? kSuccess : kUsage;
    }
    try {
        const int status = Execute(line, options, out, err);
        if (!out.flush()) {
            throw JobError("standard output can not be written");
        }
        return status;
    } catch (const UsageError& error) {
        fmt::print(err, "kelhost: {}\n", error.what());
        return kUsage;
    } catch (const JobError& error) {
        fmt::print(err, "kelhost: {}\n", error.what());
        return kFailure;
    } catch (const std::exception& error) {
        fmt::print(err, "kelhost: {}\n", Escape(error.what()));
        return kFailure;
    }
}

} // namespace kel::host
