#include "commands/TreeComparison.h"

#include "base/JSONDocument.h"
#include "base/Text.h"
#include "commands/FilePairs.h"
#include "commands/InputFiles.h"
#include "commands/JobRunner.h"
#include "elements/SourceReader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <utility>

namespace kel::host {

namespace {

using nlohmann::json;

JobResult SkippedAsOther(const std::string& file) {
    return DescribeSkipped({file, FileName(), SkipReason::NotAudio});
}

JobResult ComparePair(const ComparisonRequest& request, const HostLogger& log, Reporter& reporter) {
    const auto& [a, b] = request.files;
    try {
        const Comparison comparison = CompareFiles(request, log, reporter);
        JobResult result;
        result.document = DumpJSON(comparison);
        result.report = FormatComparison(comparison);
        return result;
    } catch (const UnrecognisedFile& error) {
        if (MayBeAudio(error.File() == a.shown ? b.path : a.path, reporter)) {
            throw;
        }
        return SkippedAsOther(a.shown);
    }
}

// @param member "only_in_a" or "only_in_b"
// @param directory of the file
JobResult ReportSingle(const std::string& file, const char* member, const std::string& directory,
                       Reporter& reporter) {
    if (!MayBeAudio(file, reporter)) {
        return SkippedAsOther(file);
    }
    JobResult result;
    result.document = DumpJSON({{member, Escape(file)}});
    result.report = fmt::format("{}: only in {}\n", Escape(file), Escape(directory));
    return result;
}

// Results by their kind.
struct TreeResults {
    json comparisons = json::array();
    json onlyInA = json::array();
    json onlyInB = json::array();
    std::size_t same = 0;

    explicit TreeResults(const JobRunner& runner) {
        for (const std::string& document : runner.Documents()) {
            json result = ParseJSON(document);
            if (result.contains("only_in_a")) {
                onlyInA.push_back(result["only_in_a"]);
            } else if (result.contains("only_in_b")) {
                onlyInB.push_back(result["only_in_b"]);
            } else {
                same += result.at("same").get<bool>() ? std::size_t{1} : 0;
                comparisons.push_back(std::move(result));
            }
        }
    }

    bool AreSame() const {
        return same == comparisons.size() && onlyInA.empty() && onlyInB.empty();
    }
};

} // namespace

int CompareTrees(const std::string& directoryA, const std::string& directoryB,
                 const TreeSelection& selection, const ComparisonRequest& request,
                 const CommonOptions& common, const Streams& streams) {
    const PairedTrees trees = PairFiles(directoryA, directoryB, selection);
    const auto show = [&](const JobResult& result) {
        streams.out << (common.style.quiet ? "" : result.report) << std::flush;
    };
    JobRunner runner(common, streams.err);
    runner.Begin(trees.failures, trees.unused, show);
    for (const FilePair& pair : trees.pairs) {
        if (pair.a.empty() || pair.b.empty()) {
            runner.Add(pair.a + pair.b, "", [&](const HostLogger&, Reporter& reporter) {
                return pair.b.empty() ? ReportSingle(pair.a, "only_in_a", directoryA, reporter)
                                      : ReportSingle(pair.b, "only_in_b", directoryB, reporter);
            });
            continue;
        }
        runner.Add({"", pair.a + " and " + pair.b}, "",
                   [&](const HostLogger& log, Reporter& reporter) {
                       ComparisonRequest ofPair = request;
                       ofPair.files = {pair.a, pair.b};
                       return ComparePair(ofPair, log, reporter);
                   });
    }
    const std::size_t failed = runner.Run(show);
    const TreeResults results(runner);
    if (common.style.json) {
        streams.out << FormatDocument("compare", {{"results", results.comparisons},
                                                  {"only_in_a", results.onlyInA},
                                                  {"only_in_b", results.onlyInB},
                                                  {"skipped", runner.SkippedInputs()},
                                                  {"failures", runner.Failures()}});
    } else if (!common.style.quiet) {
        streams.out << fmt::format(
            "{}: {} the same, {} different, {} only in {}, {} only in {}, {}, {}\n",
            Count(results.comparisons.size(), "pair"), results.same,
            results.comparisons.size() - results.same, results.onlyInA.size(), Escape(directoryA),
            results.onlyInB.size(), Escape(directoryB), FormatSkipped(runner.Skipped(), true),
            FormatFailed(failed, runner.UnreadDirectories()));
    }
    return failed > 0 ? kComparisonFailed : results.AreSame() ? kSameAudio : kDifferentAudio;
}

} // namespace kel::host
