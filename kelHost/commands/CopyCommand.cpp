#include "commands/CopyCommand.h"

#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/Suggestion.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "commands/CopyPlan.h"
#include "commands/ForeignRequests.h"
#include "commands/InputFiles.h"
#include "commands/InputOptions.h"
#include "commands/JobRunner.h"
#include "commands/OptionParsing.h"
#include "commands/StreamedOutput.h"
#include "elements/SupportedFormats.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kKeep = "keep";

std::vector<std::string> EncodingNames() {
    std::vector<std::string> names = NamesIn(Encodings());
    names.insert(names.begin(), kKeep);
    return names;
}

std::vector<std::string> ClipActions() {
    return {"warn", "fail"};
}

std::vector<std::string> MetadataActions() {
    return {"keep", "none"};
}

std::vector<std::string> DitherKinds() {
    return {"tpdf"};
}

// Parses "2,1": the channels of the output, counted from 1.
std::vector<std::uint32_t> ParseChannels(const std::string& text) {
    constexpr std::uint32_t kMaxChannels = 1024; // of any file
    std::vector<std::uint32_t> channels;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const auto channel =
            ParseInteger<std::uint32_t>(std::string_view(text).substr(start, comma - start));
        if (!channel.has_value() || *channel < 1 || *channel > kMaxChannels ||
            channels.size() == kMaxChannels) {
            throw InvalidValue(
                "--channels", text,
                fmt::format("at most {} channels, counted from 1: 2,1", kMaxChannels));
        }
        channels.push_back(*channel);
        start = comma + 1;
    }
    return channels;
}

// Refuses formats that no sink supports before any file is touched.
void RequireSupportedFormats(const CopyJobs& jobs, const FormatChoice& choice) {
    const Container* checked = nullptr;
    for (std::size_t i = 0; i < jobs.count; ++i) {
        const CopyRequest request = jobs.request(i);
        const OutputFormat& format = request.format;
        // An encoding to keep is known when the input is open.
        if (request.options.dither.has_value() && format.encoding != nullptr &&
            format.encoding->type != AudioPCMType::Integer) {
            throw UsageError(fmt::format("--dither needs an integer encoding, and {} is written as "
                                         "{}; add --encoding int16, int24 or int32",
                                         request.output.shown, format.encoding->name));
        }
        const bool isChosen = choice.encoding != nullptr || choice.byteOrder.has_value();
        if (isChosen && format.container != checked) {
            RequireSupported(format);
            checked = format.container;
        }
    }
}

// Refuses a format that only other tools write, with the line that does it.
void RequireNotForeign(const std::string& format, const std::string& input,
                       const std::string& output) {
    if (const auto explained = ExplainForeignFormat(format, input, output)) {
        throw UsageError(output + ": " + *explained);
    }
}

class CopyCommand final : public Command {
public:
    CopyCommand() {
        AddUsage("INPUT OUTPUT");
        AddUsage("INPUT... --output-dir DIRECTORY");
        AddUsage("--recursive DIRECTORY... --output-dir DIRECTORY");
        Add(Option("FILE", "", &m_files,
                   "INPUT and OUTPUT; - is standard input or output. With --output-dir, all are "
                   "inputs")
                .Completes(Option::Values::Files));
        BeginGroup("Output files");
        Add(Option("-o,--output-dir", "DIRECTORY", &m_outputDirectory,
                   "Copy every input into this directory, under its own name")
                .Completes(Option::Values::Directories));
        Add(Option("-f,--force", "", &m_options.replace, "Replace an existing output"));
        Add(Option("--skip-existing", "", &m_options.skip,
                   "Leave an existing output that fits its input as it is, and continue with the "
                   "others")
                .Excludes("--force"));
        Add(Option("--update", "", &m_options.update,
                   "Replace an existing output only if its input is newer")
                .Excludes("--force"));
        Add(Option("--parents", "", &m_keepsParents,
                   "Keep the whole names of inputs below the output directory: day/a.wav becomes "
                   "DIRECTORY/day/a.wav")
                .Needs("--output-dir"));
        Add(Option("-n,--dry-run", "", &m_options.dryRun,
                   "Show what would be written, and write nothing"));
        BeginGroup("Many inputs");
        for (Option& option : m_tree.Options()) {
            Add(std::move(option));
        }
        for (Option& option : m_list.Options()) {
            Add(std::move(option));
        }
        BeginGroup("Format");
        Add(Option(
                "--format", "FORMAT", &m_container,
                "Container: wave, bwave (RF64) or aiff, or one of the extensions; default: by the "
                "extension: " +
                    ListExtensions())
                .Choices(NamesIn(Containers())));
        Add(Option("--encoding", "ENCODING", &m_encoding,
                   "keep (the input's; int24 for floats in AIFF), int16, int24, int32, float32 "
                   "or float64; also 16, 32f, s24le, pcm_f32be and the like")
                .Choices(EncodingNames()));
        Add(Option("--byte-order", "ORDER", &m_byteOrder,
                   "little or big; default: little, big in AIFF")
                .Choices(NamesIn(ByteOrders())));
        BeginGroup("Contents");
        Add(Option("--channels", "LIST", &m_channels,
                   "Channels to copy and their order, counted from 1: 2,1"));
        for (Option& option : m_range.Options()) {
            Add(std::move(option));
        }
        Add(Option("--metadata", "ACTION", &m_metadata,
                   "Tags, broadcast fields, markers and other data of the input: keep or none")
                .Choices(MetadataActions()));
        BeginGroup("Exactness");
        Add(Option("--on-clip", "ACTION", &m_onClip,
                   "Action when integers cannot hold a value: warn or fail")
                .Choices(ClipActions()));
        Add(Option("--dither", "KIND", &m_dither, "Noise before rounding to integers: tpdf")
                .Choices(DitherKinds()));
        Add(Option("--seed", "NUMBER", &m_seed,
                   "Seed of the noise; the same seed makes the same noise")
                .Needs("--dither"));
        Add(Option("--require-exact", "", &m_options.requireExact,
                   "Fail unless the output holds exactly the values of the input")
                .Excludes("--dither"));
        Add(Option("--verify", "", &m_verify,
                   "Read the whole output back from its disk and compare it; default on network "
                   "and user-space file systems"));
        Add(Option("--no-verify", "", &m_noVerify, "Never read the output back")
                .Excludes("--verify"));
        BeginGroup("Damaged inputs and pipes");
        for (Option& option : m_input.Options()) {
            Add(std::move(option));
        }
        BeginGroup("Memory");
        Add(Option("--block", "FRAMES", &m_block,
                   "Maximum number of frames in a sample (default: 16384, fewer with many "
                   "channels, more in long files)"));
        AddExample("kelhost copy take.flac take.wav", "Convert a recording");
        AddExample("kelhost copy take.wav part.wav --start 0:01:00 --duration 30",
                   "Cut out a part");
        AddExample("kelhost copy take.wav mono.aiff --channels 1 --encoding int16 --dither tpdf",
                   "Write the first channel with 16 bits");
        AddExample("kelhost copy -r recordings --output-dir wave --format wave --skip-existing",
                   "Convert a directory, and continue after an interruption");
    }

    void Interpret(const CommonOptions& /*common*/) override {
        if (m_container.has_value()) {
            m_format.container = FindContainer(*m_container);
            if (m_format.container == nullptr) {
                if (!m_files.empty()) {
                    RequireNotForeign(*m_container, m_files.front(),
                                      fs::path(m_files.back()).replace_extension(*m_container));
                }
                RequireChoice("--format", *m_container, NamesIn(Containers()));
            }
        }
        InterpretEncoding();
        if (m_channels.has_value()) {
            m_options.channels = ParseChannels(*m_channels);
        }
        m_options.range = m_range.Interpret();
        m_options.input = m_input.Interpret();
        if (m_options.update && m_options.skip) {
            throw UsageError("--update excludes --skip-existing");
        }
        m_options.replace = m_options.replace || m_options.update;
        RequireChoice("--on-clip", m_onClip, ClipActions());
        m_options.failOnClip = m_onClip == "fail";
        RequireChoice("--metadata", m_metadata, MetadataActions());
        m_options.keepMetadata = m_metadata == "keep";
        if (m_dither.has_value()) {
            RequireChoice("--dither", *m_dither, DitherKinds());
            m_options.dither = ParseIntegerOption<std::uint64_t>(
                "--seed", m_seed, 0, std::numeric_limits<std::uint64_t>::max());
        }
        constexpr std::uint32_t kMaxBlock = 1U << 20U;
        if (m_block.has_value()) {
            m_options.blockFrames = ParseIntegerOption("--block", *m_block, 1U, kMaxBlock);
        }
        if (m_verify || m_noVerify) {
            m_options.verify = m_verify;
        }
        if (m_tree.recursive) {
            m_selection = m_tree.Interpret();
        }
        InterpretOutput();
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        if (m_single.has_value()) {
            RequireSupportedFormats(SingleJob(*m_single), m_format);
            const auto stream =
                StreamedOutput::Open(m_single->output, m_single->input,
                                     m_single->options.input.spool.directory, common.openTimeout);
            if (stream != nullptr) {
                return CopyToStream(*stream, common, streams);
            }
        }
        const CopyJobs jobs = MakeJobs(common, streams.err);
        const CopyCounts counts = MakeCopies(jobs, common, streams);
        const std::size_t skipped = CountAll(counts.skipped);
        const std::size_t files = jobs.count + jobs.unused.size();
        const bool skips = m_options.skip || m_options.update || m_selection.has_value();
        if ((files != 1 || m_selection.has_value()) && !common.style.quiet && !common.style.json) {
            streams.out << fmt::format(
                "{}: {} {}, {}{}\n", Count(files, "file"),
                files + jobs.failures.size() - skipped - counts.failed,
                m_options.dryRun ? "would be copied" : "copied",
                skips ? FormatSkipped(counts.skipped, m_selection.has_value()) + ", " : "",
                FormatFailed(counts.failed, jobs.failures.size()));
        }
        return counts.failed == 0 ? kSuccess : kFailure;
    }

private:
    int CopyToStream(const StreamedOutput& stream, const CommonOptions& common,
                     const Streams& streams) const {
        CopyRequest request = *m_single;
        request.output = stream.File();
        request.isStreamed = true;
        return stream.Run(streams, [&](const Streams& texts) {
            return MakeCopies(SingleJob(request), common, texts).failed == 0;
        });
    }

    CopyJobs SingleJob(const CopyRequest& request) const {
        return {1, [request](std::size_t) { return request; }, {}, {}, !m_options.dryRun};
    }

    void InterpretEncoding() {
        if (m_byteOrder.has_value()) {
            m_format.byteOrder = ParseTableOption("--byte-order", *m_byteOrder, ByteOrders()).value;
        }
        if (m_encoding == kKeep) {
            return;
        }
        const auto named = FindEncoding(m_encoding);
        if (!named.has_value()) {
            throw InvalidChoice("--encoding", m_encoding, EncodingNames());
        }
        m_format.encoding = named->encoding;
        if (!named->byteOrder.has_value()) {
            return;
        }
        if (m_format.byteOrder.value_or(*named->byteOrder) != *named->byteOrder) {
            throw UsageError(fmt::format("--encoding {} is {}, and --byte-order is {}; leave out "
                                         "one of the two",
                                         m_encoding, Describe(*named->byteOrder), *m_byteOrder));
        }
        m_format.byteOrder = named->byteOrder;
    }

    void InterpretOutput() {
        std::vector<std::string> inputs = m_files;
        if (!m_outputDirectory.has_value() && inputs.size() > 1) {
            inputs.pop_back(); // the output
        }
        m_list.RequireNames(inputs);
        if (m_outputDirectory.has_value()) {
            // Elsewhere, -o is the option for an output file.
            if (m_files.size() == 1 && !m_tree.recursive &&
                ContainerByExtension(*m_outputDirectory) != nullptr &&
                !FindDirectory(*m_outputDirectory).has_value()) {
                throw UsageError(
                    fmt::format("--output-dir {} is the name of a file; name the output after the "
                                "input: kelhost copy {} {}",
                                *m_outputDirectory, m_files.front(), *m_outputDirectory));
            }
            for (const std::string& file : m_files) {
                if (IsStandardInput(InputName(file))) {
                    throw UsageError("standard input has no name for --output-dir; use kelhost "
                                     "copy - OUTPUT");
                }
            }
            m_options.makeDirectories = true;
            return;
        }
        RequireOutputFile();
        RequireTwoFiles();
        const FileName input = InputName(m_files[0]);
        const FileName output = OutputName(m_files[1]);
        RequireStreamable(output);
        if (m_format.container == nullptr) {
            const std::string extension = fs::path(output.path).extension().string();
            RequireNotForeign(extension.substr(extension.empty() ? 0 : 1), input.path, output.path);
        }
        m_single = {input, output, ResolveFormat(m_format, output.path), m_options};
    }

    void RequireTwoFiles() const {
        if (m_files.size() < 2) {
            throw UsageError(fmt::format("OUTPUT is missing; name it after the input: kelhost copy "
                                         "{} out.wav",
                                         m_files.front()));
        }
        if (m_files.size() == 2) {
            return;
        }
        // As sox names an effect.
        const std::string& effect = m_files[2];
        if (const auto explained = ExplainForeignCommand(effect, m_files)) {
            throw UsageError(fmt::format("copy has no effect \"{}\"; {}", effect, *explained));
        }
        throw UsageError(fmt::format("copy expects one INPUT and one OUTPUT; to copy {} into the "
                                     "directory {}, use --output-dir {}",
                                     Count(m_files.size() - 1, "file"), m_files.back(),
                                     m_files.back()));
    }

    // Refuses options without a meaning for standard output.
    void RequireStreamable(const FileName& output) const {
        if (!IsStandardOutput(output)) {
            return;
        }
        if (m_format.container == nullptr) {
            throw UsageError(fmt::format("standard output has no extension; add --format: kelhost "
                                         "copy {} - --format wave",
                                         m_files[0]));
        }
        for (const auto& [isUsed, name] :
             {std::pair{m_options.skip, "--skip-existing"}, std::pair{m_options.update, "--update"},
              std::pair{m_options.dryRun, "--dry-run"}}) {
            if (isUsed) {
                throw UsageError(
                    fmt::format("{} has no meaning for standard output; omit it", name));
            }
        }
    }

    // Other programs that copy accept a directory as their last argument.
    void RequireOutputFile() const {
        std::string last = m_files.size() > 1 ? m_files.back() : "";
        const bool isDirectory =
            !last.empty() && (last.back() == '/' || FindDirectory(last).has_value());
        while (last.size() > 1 && last.back() == '/') {
            last.pop_back();
        }
        if (isDirectory) {
            throw UsageError(
                fmt::format("{}: is a directory; use --output-dir {}", m_files.back(), last));
        }
        if (m_tree.recursive || m_list.file.has_value()) {
            throw UsageError(fmt::format("{} needs --output-dir {}",
                                         m_tree.recursive ? "--recursive" : "--files-from",
                                         last.empty() ? "DIRECTORY" : last));
        }
    }

    CopyJobs MakeJobs(const CommonOptions& common, std::ostream& err) {
        if (!m_outputDirectory.has_value()) {
            return SingleJob(*m_single);
        }
        if (m_selection.has_value()) {
            m_selection->output = FindDirectory(*m_outputDirectory);
        }
        m_list.Append(m_files);
        m_plan.emplace(ListInputs(m_files, m_selection, m_keepsParents), *m_outputDirectory,
                       m_format);
        m_files = {}; // a list may be long
        m_plan->RequireDistinctOutputs(common, err);
        const InputList& inputs = m_plan->Inputs();
        CopyJobs jobs{inputs.files.size(), [this](std::size_t index) { return Planned(index); },
                      inputs.unused, inputs.failures, !m_options.dryRun};
        RequireSupportedFormats(jobs, m_format);
        RequireDirectory(*m_outputDirectory);
        return jobs;
    }

    CopyRequest Planned(std::size_t index) const {
        const ListedFile& input = m_plan->Inputs().files[index];
        const std::string output = m_plan->Output(index);
        return {input.path, output, ResolveFormat(m_format, output), m_options, input.isFound};
    }

    std::vector<std::string> m_files;
    std::optional<std::string> m_outputDirectory;
    std::optional<std::string> m_container;
    std::string m_encoding = kKeep;
    std::optional<std::string> m_byteOrder;
    std::optional<std::string> m_channels;
    RangeOptions m_range;
    InputArguments m_input;
    std::string m_metadata = "keep";
    std::string m_onClip = "warn";
    std::optional<std::string> m_dither;
    std::string m_seed = "1";
    std::optional<std::string> m_block;
    bool m_verify = false;
    bool m_noVerify = false;
    FormatChoice m_format;
    CopyOptions m_options;
    TreeArguments m_tree;
    ListArguments m_list;
    bool m_keepsParents = false;
    std::optional<TreeSelection> m_selection; // none: directories are not accepted
    std::optional<CopyRequest> m_single;      // without a directory for outputs
    std::optional<CopyPlan> m_plan;           // with one
};

} // namespace

CopyCounts MakeCopies(const CopyJobs& jobs, const CommonOptions& common, const Streams& streams) {
    JobRunner runner(common, streams.err);
    const auto show = [&](const JobResult& result) {
        streams.out << (common.style.quiet ? "" : result.report) << std::flush;
    };
    runner.ForgetDocuments();
    runner.Begin(jobs.failures, jobs.unused, show);
    for (std::size_t i = 0; i < jobs.count; ++i) {
        const CopyRequest request = jobs.request(i);
        runner.Add(request.input, request.isStreamed ? "" : request.output.path,
                   [&jobs, i](const HostLogger& log, Reporter& reporter) {
                       return Copy(jobs.request(i), log, reporter);
                   });
    }
    CopyCounts counts{runner.Run(show), runner.Skipped()};
    if (common.style.json) {
        nlohmann::json members{{"results", nlohmann::json::array()},
                               {"skipped", runner.SkippedFiles()},
                               {"failures", runner.Failures()}};
        members[jobs.areWritten ? "results" : "planned"] = runner.Results();
        streams.out << FormatDocument("copy", members);
    }
    return counts;
}

std::unique_ptr<Command> MakeCopyCommand() {
    return std::make_unique<CopyCommand>();
}

} // namespace kel::host
