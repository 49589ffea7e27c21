#include "commands/CopyCommand.h"

#include "base/Errors.h"
#include "base/FileName.h"
#include "base/JSONDocument.h"
#include "base/Suggestion.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "commands/ForeignRequests.h"
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
#include <map>
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

// Returns the name of an output in a directory: the input's, with the extension of the output
// format.
std::string NameInDirectory(const std::string& input, const std::string& directory,
                            const FormatChoice& format) {
    fs::path name = fs::path(input).filename();
    const Container* own = ContainerByExtension(input);
    if (format.container != nullptr) {
        if (own != format.container) {
            name.replace_extension(format.container->extensions.front());
        }
    } else if (own == nullptr) {
        name.replace_extension(FindContainer(WrapperFormat::WAVE)->extensions.front());
    }
    return (fs::path(directory) / name).string();
}

// Refuses formats that no sink supports before any file is touched.
void RequireSupportedFormats(const std::vector<CopyRequest>& requests, const FormatChoice& choice) {
    const Container* checked = nullptr;
    for (const CopyRequest& request : requests) {
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
        Add(Option("FILE", "", &m_files,
                   "INPUT and OUTPUT, of which - is standard input or output; with "
                   "--output-dir, only inputs")
                .Completes(Option::Values::Files)
                .Required());
        BeginGroup("Output files");
        Add(Option("-o,--output-dir", "DIRECTORY", &m_outputDirectory,
                   "Copy every input into this directory, under its own name")
                .Completes(Option::Values::Directories));
        Add(Option("-f,--force", "", &m_options.replace, "Replace an existing output"));
        Add(Option("--skip-existing", "", &m_options.skip,
                   "Leave an existing output as it is, and continue with the others")
                .Excludes("--force"));
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
                   "channels)"));
        AddExample("kelhost copy take.flac take.wav", "Convert a recording");
        AddExample("kelhost copy take.wav part.wav --start 0:01:00 --duration 30",
                   "Cut out a part");
        AddExample("kelhost copy take.wav mono.aiff --channels 1 --encoding int16 --dither tpdf",
                   "Write the first channel with 16 bits");
        AddExample("kelhost copy *.flac --output-dir wave --format wave --skip-existing",
                   "Convert several recordings, and continue after an interruption");
    }

    void Interpret(const CommonOptions& /*common*/) override {
        if (m_container.has_value()) {
            m_format.container = FindContainer(*m_container);
            if (m_format.container == nullptr) {
                RequireNotForeign(*m_container, m_files.front(),
                                  fs::path(m_files.back()).replace_extension(*m_container));
                RequireChoice("--format", *m_container, NamesIn(Containers()));
            }
        }
        InterpretEncoding();
        if (m_channels.has_value()) {
            m_options.channels = ParseChannels(*m_channels);
        }
        m_options.range = m_range.Interpret();
        m_options.input = m_input.Interpret();
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
        m_requests = MakeRequests();
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        RequireSupportedFormats(m_requests, m_format);
        if (m_outputDirectory.has_value()) {
            MakeDirectory(*m_outputDirectory);
        }
        if (!m_outputDirectory.has_value()) {
            const CopyRequest& request = m_requests.front();
            const auto stream =
                StreamedOutput::Open(request.output, request.input,
                                     request.options.input.spool.directory, common.openTimeout);
            if (stream != nullptr) {
                return CopyToStream(*stream, common, streams);
            }
        }
        const CopyCounts counts = MakeCopies(m_requests, common, streams);
        if (m_requests.size() > 1 && !common.style.quiet && !common.style.json) {
            streams.out << fmt::format(
                "{} files: {} copied, {}{} failed\n", m_requests.size(),
                m_requests.size() - counts.skipped - counts.failed,
                m_options.skip ? fmt::format("{} skipped, ", counts.skipped) : "", counts.failed);
        }
        return counts.failed == 0 ? kSuccess : kFailure;
    }

private:
    int CopyToStream(const StreamedOutput& stream, const CommonOptions& common,
                     const Streams& streams) const {
        CopyRequest request = m_requests.front();
        request.output = stream.File();
        request.isStreamed = true;
        return stream.Run(streams, [&](const Streams& texts) {
            return MakeCopies({request}, common, texts).failed == 0;
        });
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

    std::vector<CopyRequest> MakeRequests() const {
        if (!m_outputDirectory.has_value()) {
            if (m_files.size() != 2) {
                throw UsageError("copy expects one INPUT and one OUTPUT, or several inputs with "
                                 "--output-dir");
            }
            RequireStreamable(OutputName(m_files[1]));
            return {MakeRequest(InputName(m_files[0]), OutputName(m_files[1]))};
        }
        if (m_outputDirectory->empty()) {
            throw InvalidValue("--output-dir", "", "the name of a directory");
        }
        // Elsewhere, -o is the option for an output file.
        if (m_files.size() == 1 && ContainerByExtension(*m_outputDirectory) != nullptr &&
            !fs::is_directory(*m_outputDirectory)) {
            throw UsageError(
                fmt::format("--output-dir {} is the name of a file; name the output after the "
                            "input: kelhost copy {} {}",
                            *m_outputDirectory, m_files.front(), *m_outputDirectory));
        }
        std::vector<CopyRequest> requests;
        std::map<std::string, std::string> inputs; // by the output's name
        for (const std::string& input : m_files) {
            if (IsStandardInput(InputName(input))) {
                throw UsageError("standard input has no name for --output-dir; use kelhost copy - "
                                 "OUTPUT");
            }
            const std::string output = NameInDirectory(input, *m_outputDirectory, m_format);
            const auto [other, isNew] = inputs.emplace(output, input);
            if (!isNew) {
                throw UsageError(fmt::format("{} and {} would both be written to {}", other->second,
                                             input, output));
            }
            requests.push_back(MakeRequest(input, output));
        }
        return requests;
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
        if (m_options.skip) {
            throw UsageError("--skip-existing has no meaning for standard output; omit it");
        }
    }

    CopyRequest MakeRequest(const FileName& input, const FileName& output) const {
        if (m_format.container == nullptr) {
            const std::string extension = fs::path(output.path).extension().string();
            RequireNotForeign(extension.substr(extension.empty() ? 0 : 1), input.path, output.path);
        }
        return {input, output, ResolveFormat(m_format, output.path), m_options};
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
    std::vector<CopyRequest> m_requests;
};

} // namespace

CopyCounts MakeCopies(const std::vector<CopyRequest>& requests, const CommonOptions& common,
                      const Streams& streams) {
    JobRunner runner(common, streams.err);
    for (const CopyRequest& request : requests) {
        runner.Add(request.input.shown, request.isStreamed ? "" : request.output.path,
                   [request](const HostLogger& log, Reporter& reporter) {
                       return Copy(request, log, reporter);
                   });
    }
    CopyCounts counts;
    counts.failed = runner.Run([&](const JobResult& result) {
        streams.out << (common.style.quiet ? "" : result.report) << std::flush;
    });
    counts.skipped = runner.Skipped();
    if (common.style.json) {
        auto results = nlohmann::json::array();
        auto skipped = nlohmann::json::array();
        for (nlohmann::json& result : runner.Results()) {
            const bool isSkipped = result.erase("skipped") > 0;
            (isSkipped ? skipped : results).push_back(std::move(result));
        }
        streams.out << FormatDocument(
            "copy", {{"results", results}, {"skipped", skipped}, {"failures", runner.Failures()}});
    }
    return counts;
}

std::unique_ptr<Command> MakeCopyCommand() {
    return std::make_unique<CopyCommand>();
}

} // namespace kel::host
