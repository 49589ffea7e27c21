#include "jobs/SkippedFile.h"

#include "base/JSONDocument.h"
#include "base/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

struct ReasonTexts {
    SkipReason reason;
    std::string_view label;    // in documents
    std::string_view sentence; // about one file
    std::string_view one;      // in counts
    std::string_view many;
};

constexpr std::array<ReasonTexts, 5> kReasons{
    {{SkipReason::Exists, "exists", "exists already", "existing", "existing"},
     {SkipReason::UpToDate, "up-to-date", "is up to date", "up to date", "up to date"},
     {SkipReason::NotAudio, "not-audio", "is not audio", "not audio", "not audio"},
     {SkipReason::SymbolicLink, "symbolic-link", "is a symbolic link", "symbolic link",
      "symbolic links"},
     {SkipReason::SpecialFile, "special-file", "is not a regular file", "special file",
      "special files"}}};

template <typename Condition>
const ReasonTexts& FindReason(Condition condition) {
    return *std::find_if(kReasons.begin(), kReasons.end(), condition);
}

} // namespace

JobResult DescribeSkipped(const SkippedFile& file) {
    const ReasonTexts& texts =
        FindReason([&](const ReasonTexts& known) { return known.reason == file.reason; });
    const std::string input = Escape(file.input.shown);
    const std::string output = Escape(file.output.shown);
    JobResult result;
    nlohmann::json members{{"input", input},
                           {"output", output.empty() ? nlohmann::json() : nlohmann::json(output)},
                           {"reason", texts.label}};
    AddPath(members, "input_path", PathToOpen(file.input));
    AddPath(members, "output_path", PathToOpen(file.output));
    result.document = DumpJSON(members);
    result.report = fmt::format("{}{}: {}, skipped\n", input, output.empty() ? "" : " -> " + output,
                                texts.sentence);
    result.isSkipped = true;
    return result;
}

SkipReason ReasonIn(const std::string& document) {
    const auto label = ParseJSON(document).at("reason").get<std::string>();
    return FindReason([&](const ReasonTexts& known) { return known.label == label; }).reason;
}

std::size_t CountAll(const SkipCounts& counts) {
    return std::accumulate(counts.begin(), counts.end(), std::size_t{0},
                           [](std::size_t sum, const auto& reason) { return sum + reason.second; });
}

std::string FormatSkipped(const SkipCounts& counts, bool withReasons) {
    std::string reasons;
    for (const auto& [reason, count] : counts) {
        const SkipReason wanted = reason;
        const ReasonTexts& texts =
            FindReason([&](const ReasonTexts& known) { return known.reason == wanted; });
        reasons += fmt::format("{}{} {}", reasons.empty() ? "" : ", ", count,
                               count == 1 ? texts.one : texts.many);
    }
    return fmt::format("{} skipped{}", CountAll(counts),
                       withReasons && !reasons.empty() ? " (" + reasons + ")" : "");
}

} // namespace kel::host
