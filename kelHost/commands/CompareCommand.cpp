#include "commands/Command.h"

#include "analysis/AudioComparison.h"
#include "audio/TimeRange.h"
#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "commands/CommonOptions.h"
#include "commands/InputFiles.h"
#include "commands/InputOptions.h"
#include "commands/JobRunner.h"
#include "commands/OptionParsing.h"
#include "commands/TreeComparison.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::optional<TimePoint> Interpreted(const char* name, const std::optional<std::string>& value) {
    return value.has_value() ? std::optional(ParseTime(name, *value)) : std::nullopt;
}

class CompareCommand final : public Command {
public:
    CompareCommand() {
        Add(Option("A", "", &m_fileA,
                   "The first file; - is standard input; with --recursive, a directory")
                .Completes(Option::Values::Files)
                .Required());
        Add(Option("B", "", &m_fileB, "The second file, or -")
                .Completes(Option::Values::Files)
                .Required());
        BeginGroup("Comparison");
        Add(Option("--tolerance", "VALUE", &m_tolerance,
                   "Largest accepted difference of two values: 0.001 of full scale, or -60dB"));
        Add(Option("--start-a", "TIME", &m_startA,
                   "Beginning of the part of A: seconds (12.5), h:mm:ss.mmm or frames (48000f)"));
        Add(Option("--start-b", "TIME", &m_startB, "Beginning of the part of B"));
        Add(Option("--duration", "TIME", &m_duration, "Duration of both parts"));
        BeginGroup("Damaged inputs and pipes");
        for (Option& option : m_input.Options()) {
            Add(std::move(option));
        }
        BeginGroup("Directories");
        for (Option& option : m_tree.Options()) {
            Add(std::move(option));
        }
        AddExample("kelhost compare take.wav take.flac", "Find the first difference");
        AddExample("kelhost compare take.wav take.flac --tolerance -90dB",
                   "Ignore differences that cannot be heard");
        AddExample("kelhost compare -r recordings copies", "Compare two directories");
        AddExample("kelhost compare -q take.wav take.flac && echo same", "Use the exit status");
        SetNotes("Exit status: 0 the audio is the same, 1 it is different, 2 failure: a file "
                 "cannot be read, or the command line is wrong.");
    }

    int FailureStatus() const override { return kComparisonFailed; }

    void Interpret(const CommonOptions& /*common*/) override {
        const std::vector<FileName> files = InputNames({m_fileA, m_fileB});
        m_request.files = {files[0], files[1]};
        m_request.inputPolicy = m_input.Interpret();
        if (m_tree.recursive) {
            m_selection = m_tree.Interpret();
        }
        m_request.tolerance = ParseToleranceOption("--tolerance", m_tolerance);
        m_request.starts = {Interpreted("--start-a", m_startA), Interpreted("--start-b", m_startB)};
        m_request.duration = Interpreted("--duration", m_duration);
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        if (m_selection.has_value()) {
            return CompareTrees(m_fileA, m_fileB, *m_selection, m_request, common, streams);
        }
        JobRunner runner(common, streams.err);
        // If a worker is lost, the host cannot tell which of the files it worked on.
        runner.Add({"", m_request.files[0].shown + " and " + m_request.files[1].shown}, "",
                   [request = m_request](const HostLogger& log, Reporter& reporter) {
                       const Comparison comparison = CompareFiles(request, log, reporter);
                       JobResult result;
                       result.document = DumpJSON(comparison);
                       result.report = FormatComparison(comparison);
                       return result;
                   });
        const std::size_t failed = runner.Run([&](const JobResult& result) {
            streams.out << (common.style.quiet ? "" : result.report);
        });
        const nlohmann::json results = runner.Results();
        if (common.style.json) {
            streams.out << FormatDocument("compare",
                                          {{"results", results}, {"failures", runner.Failures()}});
        }
        if (failed > 0) {
            return kComparisonFailed;
        }
        return results.front().at("same").get<bool>() ? kSameAudio : kDifferentAudio;
    }

private:
    ComparisonRequest m_request;
    InputArguments m_input;
    TreeArguments m_tree;
    std::optional<TreeSelection> m_selection; // none: two files
    std::string m_fileA;
    std::string m_fileB;
    std::string m_tolerance = "0";
    std::optional<std::string> m_startA;
    std::optional<std::string> m_startB;
    std::optional<std::string> m_duration;
};

} // namespace

std::unique_ptr<Command> MakeCompareCommand() {
    return std::make_unique<CompareCommand>();
}

} // namespace kel::host
