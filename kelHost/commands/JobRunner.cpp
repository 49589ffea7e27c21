#include "commands/JobRunner.h"

#include "analysis/FileInfo.h"
#include "audio/Formats.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "commands/DemoCommand.h"
#include "elements/SupportedFormats.h"
#include "transfer/Pipeline.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// A job whose log goes where its reporter goes.
Job MakeJob(const std::string& file, const CommonOptions& common,
            std::function<json(const HostLogger&, Reporter&)> run) {
    Job job;
    job.file = file;
    job.run = [verbosity = common.verbosity, run = std::move(run)](Reporter& reporter) {
        const auto log = std::make_shared<HostLogger>(
            [&reporter](const std::string& line) { reporter.Show(line); }, verbosity);
        const InstalledLogger installed(log);
        return run(*log, reporter);
    };
    return job;
}

Job MakeCopyJob(const CopyRequest& request, const CommonOptions& common) {
    Job job = MakeJob(request.input, common, [request](const HostLogger& log, Reporter& reporter) {
        return json(Copy(request, log, reporter));
    });
    job.outputDirectory = ParentDirectory(request.output);
    return job;
}

WorkerOptions MakeWorkerOptions(const CommonOptions& common) {
    return {common.jobs, common.openTimeout,
            !common.style.quiet && common.style.progress != ProgressStyle::Nothing};
}

void MakeDirectory(const std::string& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) {
        throw JobError(fmt::format("{}: cannot be made: {}", Escape(directory), error.message()));
    }
}

// The name of an output in a directory: the input's, with the extension of what is written.
std::string OutputName(const std::string& input, const std::string& directory,
                       const CopyOptions& options) {
    fs::path name = fs::path(input).filename();
    const Container* own = ContainerByExtension(input);
    if (options.container != nullptr) {
        if (own != options.container) {
            name.replace_extension(options.container->extensions.front());
        }
    } else if (own == nullptr) {
        name.replace_extension(ContainerByName("wave").extensions.front());
    }
    return (fs::path(directory) / name).string();
}

std::vector<CopyRequest> MakeRequests(const CopyCommand& command) {
    if (!command.outputDirectory.has_value()) {
        if (command.files.size() != 2) {
            throw UsageError("copy takes one INPUT and one OUTPUT, or several inputs with "
                             "--output-dir");
        }
        return {{command.files[0], command.files[1], command.options}};
    }
    if (command.outputDirectory->empty()) {
        throw UsageError("--output-dir needs the name of a directory, and is empty");
    }
    std::vector<CopyRequest> requests;
    std::map<std::string, std::string> inputs; // by the output's name
    for (const std::string& input : command.files) {
        const std::string output = OutputName(input, *command.outputDirectory, command.options);
        const auto [other, isNew] = inputs.emplace(output, input);
        if (!isNew) {
            throw UsageError(fmt::format("{} and {} would both be written to {}",
                                         Escape(other->second), Escape(input), Escape(output)));
        }
        requests.push_back({input, output, command.options});
    }
    return requests;
}

// Refuses what no sink takes before any file is touched.
void CheckChoices(const std::vector<CopyRequest>& requests) {
    const Container* checked = nullptr;
    for (const CopyRequest& request : requests) {
        const CopyOptions& options = request.options;
        const Container& container = ChooseContainer(options, request.output);
        const Encoding& encoding =
            options.encoding != nullptr ? *options.encoding : DefaultEncoding(container);
        if (options.dither.has_value() && encoding.type != AudioPCMType::Integer) {
            throw UsageError(fmt::format("--dither is for integers, and {} is written as {}; add "
                                         "--encoding int16, int24 or int32",
                                         Escape(request.output), encoding.name));
        }
        const bool isChosen = options.encoding != nullptr || options.byteOrder.has_value();
        if (isChosen && &container != checked) {
            RequireSupported(container, encoding,
                             options.byteOrder.value_or(DefaultByteOrder(container)));
            checked = &container;
        }
    }
}

json FailuresAsJSON(const Console& console) {
    auto failures = json::array();
    for (const Console::Failure& failure : console.Failures()) {
        failures.push_back({{"file", failure.file}, {"message", failure.error}});
    }
    return failures;
}

// What became of some of the jobs, in the order of the jobs.
json ListOf(const std::map<std::size_t, json>& results) {
    auto list = json::array();
    for (const auto& [job, result] : results) {
        list.push_back(result);
    }
    return list;
}

// Where a field lies in a result: "measurement.range_lu" is "/measurement/range_lu".
json::json_pointer PointerTo(const std::string& field) {
    std::string pointer = "/" + field;
    std::replace(pointer.begin(), pointer.end(), '.', '/');
    return json::json_pointer(pointer);
}

// The fields that the result of a mono file has, with all that can be asked for. Channels are
// counted from 0, as in the JSON document.
std::vector<std::string> FieldNames() {
    FileInfo mono;
    mono.rate = 1;
    mono.measurement.emplace();
    mono.measurement->channels.emplace_back();
    std::vector<std::string> names;
    const json members = json(mono).flatten();
    for (const auto& [pointer, value] : members.items()) {
        std::string name = pointer.substr(1);
        std::replace(name.begin(), name.end(), '/', '.');
        names.push_back(name);
    }
    return names;
}

bool IsMeasured(const std::string& field) {
    return field.rfind("measurement.", 0) == 0;
}

// Refuses a field that no file has before any file is read.
void CheckField(const std::string& field) {
    static const std::regex channel(R"(^(measurement\.channels\.)(0|[1-9][0-9]{0,3})\.)");
    const std::string inMono = std::regex_replace(field, channel, "$010.");
    const std::vector<std::string> names = FieldNames();
    if (std::find(names.begin(), names.end(), inMono) == names.end()) {
        throw UsageError(fmt::format("there is no field \"{}\"; choose from {}", Escape(field),
                                     fmt::join(names, ", ")));
    }
}

// Shows one field of each file; how many do not have it.
std::size_t ShowFields(const json& files, const std::string& field, bool asJSON, std::ostream& out,
                       Console& console) {
    std::size_t failed = 0;
    for (const json& file : files) {
        const json::json_pointer pointer = PointerTo(field);
        if (!file.contains(pointer)) {
            const auto name = file.at("file").get<std::string>();
            console.ShowError(
                name, fmt::format("{}: has no field {}; channels are counted from 0, and it has {}",
                                  name, field, file.at("channels").dump()));
            ++failed;
            continue;
        }
        const json& value = file.at(pointer);
        fmt::print(out, "{}\n",
                   value.is_string() && !asJSON ? value.get<std::string>() : value.dump());
    }
    return failed;
}

// How many copies were not made, and why.
struct CopyCounts {
    std::size_t skipped = 0;
    std::size_t failed = 0;
};

// Runs copies and shows each when it is done, or all as one document.
CopyCounts RunCopies(const std::vector<CopyRequest>& requests, const CommonOptions& common,
                     std::ostream& out, std::ostream& err) {
    std::vector<Job> jobs;
    for (const CopyRequest& request : requests) {
        jobs.push_back(MakeCopyJob(request, common));
    }
    Console console(err, common.style);
    std::map<std::size_t, json> results; // in the order of the inputs
    std::map<std::size_t, json> skipped;
    CopyCounts counts;
    counts.failed = console.Run(
        jobs, MakeWorkerOptions(common), [&](std::size_t job, const std::string& result) {
            const json document = json::parse(result);
            const auto copy = document.get<CopyResult>();
            if (copy.skipped) {
                skipped[job] = {{"input", copy.input}, {"output", copy.output}};
            } else {
                results[job] = document;
            }
            if (!common.style.json && !common.style.quiet) {
                out << Describe(copy) << std::flush;
            }
        });
    counts.skipped = skipped.size();
    if (common.style.json) {
        out << FormatDocument("copy", {{"results", ListOf(results)},
                                       {"skipped", ListOf(skipped)},
                                       {"failures", FailuresAsJSON(console)}});
    }
    return counts;
}

} // namespace

int RunCopy(const CopyCommand& command, const CommonOptions& common, std::ostream& out,
            std::ostream& err) {
    const std::vector<CopyRequest> requests = MakeRequests(command);
    CheckChoices(requests);
    if (command.outputDirectory.has_value()) {
        MakeDirectory(*command.outputDirectory);
    }
    const CopyCounts counts = RunCopies(requests, common, out, err);
    if (requests.size() > 1 && !common.style.quiet && !common.style.json) {
        fmt::print(out, "{} files: {} copied, {}{} failed\n", requests.size(),
                   requests.size() - counts.skipped - counts.failed,
                   command.options.skip ? fmt::format("{} skipped, ", counts.skipped) : "",
                   counts.failed);
    }
    return counts.failed == 0 ? kSuccess : kFailure;
}

int RunRun(const RunCommand& command, const CommonOptions& common, std::ostream& out,
           std::ostream& err) {
    PipelineRequest request = ParsePipeline(command.words);
    request.allowShort = command.allowShort;
    request.replace = command.replace;
    Job job = MakeJob(request.source.Name(), common,
                      [request](const HostLogger& log, Reporter& reporter) {
                          return json(RunPipeline(request, log, reporter));
                      });
    job.outputDirectory = request.sink.file.empty() ? "" : ParentDirectory(request.sink.file);
    Console console(err, common.style);
    auto results = json::array();
    const std::size_t failed =
        console.Run({job}, MakeWorkerOptions(common), [&](std::size_t, const std::string& text) {
            results.push_back(json::parse(text));
            if (common.style.json) {
                return;
            }
            const auto result = results.back().get<PipelineResult>();
            if (!common.style.quiet) {
                out << Describe(result);
            }
            for (const std::string& report : result.reports) {
                out << report << "\n";
            }
        });
    if (common.style.json) {
        out << FormatDocument("run", {{"results", results}, {"failures", FailuresAsJSON(console)}});
    }
    return failed == 0 ? kSuccess : kFailure;
}

int RunInfo(const InfoCommand& command, const CommonOptions& common, std::ostream& out,
            std::ostream& err) {
    if (command.field.has_value()) {
        CheckField(*command.field);
    }
    const bool measure =
        command.measure || (command.field.has_value() && IsMeasured(*command.field));
    std::vector<Job> jobs;
    for (const std::string& file : command.files) {
        jobs.push_back(
            MakeJob(file, common, [file, measure](const HostLogger& log, Reporter& reporter) {
                return json(GetInfo(file, measure, log, reporter));
            }));
    }
    Console console(err, common.style);
    std::map<std::size_t, json> results; // in the order of the files
    std::size_t failed = console.Run(
        jobs, MakeWorkerOptions(common),
        [&](std::size_t job, const std::string& result) { results[job] = json::parse(result); });

    std::vector<FileInfo> infos;
    for (const auto& [job, result] : results) {
        infos.push_back(result.get<FileInfo>());
    }
    const json list = ListOf(results);
    if (command.field.has_value()) {
        failed += ShowFields(list, *command.field, common.style.json, out, console);
    } else if (common.style.json) {
        out << FormatDocument("info", {{"files", list}, {"failures", FailuresAsJSON(console)}});
    } else if (!infos.empty()) {
        out << FormatInfoTable(infos);
        for (const FileInfo& info : infos) {
            if (info.measurement.has_value()) {
                out << "\n" << info.file << "\n" << FormatMeasurement(*info.measurement);
            }
        }
    }
    return failed == 0 ? kSuccess : kFailure;
}

int RunPlot(const PlotRequest& request, const CommonOptions& common, std::ostream& out,
            std::ostream& err) {
    if (request.picture.has_value()) {
        RequirePictureExtension(*request.picture);
    }
    Job job = MakeJob(request.input, common, [request](const HostLogger& log, Reporter& reporter) {
        return json(Plot(request, log, reporter));
    });
    job.outputDirectory = request.picture.has_value() ? ParentDirectory(*request.picture) : "";
    Console console(err, common.style);
    const std::size_t failed =
        console.Run({job}, MakeWorkerOptions(common), [&](std::size_t, const std::string& text) {
            const json document = json::parse(text);
            const auto result = document.get<PlotResult>();
            if (common.style.json) {
                out << FormatDocument("plot", document);
            } else if (!request.picture.has_value()) {
                out << result.text;
            } else if (!common.style.quiet) {
                fmt::print(out, "{} -> {}: {} x {}\n", result.input, result.picture, result.width,
                           result.height);
            }
        });
    return failed == 0 ? kSuccess : kFailure;
}

int RunFormats(const CommonOptions& common, std::ostream& out) {
    const std::vector<FormatChoice> choices = QuerySupportedFormats();
    if (common.style.json) {
        out << FormatDocument("formats", {{"formats", choices}});
    } else {
        out << FormatSupportedFormats(choices);
    }
    return kSuccess;
}

int RunDemo(const std::string& directory, const CommonOptions& common, std::ostream& out,
            std::ostream& err) {
    MakeDirectory(directory);
    const std::string tone = (fs::path(directory) / "tone.wav").string();
    Job toneJob = MakeJob(tone, common, [tone](const HostLogger& log, Reporter&) {
        WriteTone(tone, log);
        return json();
    });
    toneJob.outputDirectory = directory;
    Console console(err, common.style);
    if (console.Run({toneJob}, MakeWorkerOptions(common), [](std::size_t, const std::string&) {}) !=
        0) {
        return kFailure;
    }
    const bool talks = !common.style.json && !common.style.quiet;
    if (talks) {
        fmt::print(out,
                   "A short tone went through the sink into {}.\n\n"
                   "Copied through source and sink:\n",
                   Escape(tone));
    }
    std::vector<CopyRequest> requests;
    InfoCommand info{{tone}, {}};
    for (const Container& container : Containers()) {
        CopyRequest request;
        request.input = tone;
        request.output =
            (fs::path(directory) / fmt::format("copy{}", container.extensions.front())).string();
        request.options.replace = true;
        requests.push_back(request);
        info.files.push_back(request.output);
    }
    if (RunCopies(requests, common, out, err).failed != 0) {
        return kFailure;
    }
    if (talks) {
        fmt::print(out, "\nThe files:\n");
    }
    const int status = RunInfo(info, common, out, err);
    if (talks) {
        fmt::print(out, "\nListen to one, or copy a file of your own: kelhost copy INPUT OUTPUT\n");
    }
    return status;
}

} // namespace kel::host
