// kelhost validate on elements of other codecs, with other containers and with other lengths.

#include "Program.h"
#include "Schemas.h"
#include "ValidationResults.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kPacketSource = "test.PacketSource";
constexpr const char* kPacketSink = "test.PacketSink";

std::string Unusual(const TemporaryDirectory& directory, const std::string& variant) {
    std::string path = directory / ("libkelUnusual-" + variant + ".so");
    fs::create_symlink(TestPlugin("kelUnusual"), path);
    return path;
}

// A variant with its findings, after the name of the element. Those that are correct have none.
struct Variant {
    std::string name;
    std::string element;
    std::vector<std::string> findings{};
    std::vector<std::string> warnings{};
};

void PrintTo(const Variant& variant, std::ostream* out) {
    *out << variant.name;
}

std::vector<std::string> ForEach(const std::vector<std::string>& checks, const std::string& text) {
    std::vector<std::string> lines;
    for (const std::string& check : checks) {
        lines.push_back(check + text);
    }
    return lines;
}

const std::vector<std::string> kSourceLives{"source.closes-descriptors", "source.leaves-no-files",
                                            "source.frees-memory", "source.random-calls"};
const std::vector<std::string> kSinkLives{"sink.closes-descriptors", "sink.leaves-no-files",
                                          "sink.frees-memory", "sink.random-calls"};

const std::vector<Variant>& Variants() {
    const std::string foreign = ": it was offered a file of another type, because none of type "
                                "PACKETS is known; name one with --input";
    const std::string idle =
        ": it was called without an input, because it accepts none of the offered ones";
    const std::string source = " test.PacketSource:PACKETS: ";
    const std::string sink = " test.PacketSink:PACKETS: ";
    const std::string aborted = "signal 6 (Aborted) ended the process during PushSample ";
    const std::string logged = " succeeded and logged the error \"something\\nwent wrong\"";
    static const std::vector<Variant> variants{
        {"packets", kPacketSource},
        {"packets", kPacketSink},
        {"two-outputs", kPacketSource},
        {"growing", kPacketSource},
        {"endless", kPacketSource},
        {"live", kPacketSource},
        {"samples-of-another-kind", kPacketSource},
        {"reads-its-own-type", kPacketSource, {}, ForEach(kSourceLives, foreign)},
        {"reads-everything", kPacketSource, {}, ForEach(kSourceLives, foreign)},
        {"accepts-nothing", kPacketSink, {}, ForEach(kSinkLives, idle)},
        {"accepts-no-codec", kPacketSink},
        {"accepts-pcm", kPacketSink},
        {"proposes", kPacketSink},
        {"refuses-zeros", kPacketSink},
        {"writes-a-file", kPacketSink},

        {"empty-samples",
         kPacketSource,
         {"source.random-calls" + source +
          "at some step: GetSample returns a container with an empty sample"}},
        {"samples-without-buffers",
         kPacketSource,
         {"source.random-calls" + source +
          "at some step: GetSample returns a sample without a buffer"}},
        {"buffers-without-data",
         kPacketSource,
         {"source.random-calls" + source +
          "at some step: GetSample returns a buffer of 4 bytes without data"}},
        {"negative-limits", kPacketSource, {"source.opens" + source + "its limits last -1"}},
        {"null-rate",
         kPacketSource,
         {"source.opens" + source + "its limits are counted in 0/1 units per second"}},
        {"seeks-while-closed",
         kPacketSource,
         {"source.closed" + source + "after Release, GotoTimeOffset was not refused",
          "source.random-calls" + source +
              "at some step: GotoTimeOffset before the start was not refused"}},
        {"opens-twice",
         kPacketSource,
         {"source.random-calls" + source + "at some step: a second Open was not refused"},
         ForEach({kSourceLives.begin(), kSourceLives.end() - 1}, foreign)},
        {"crashes-without-an-input",
         kPacketSink,
         {"sink.push-after-close" + sink + aborted + "after Close",
          "sink.closes-descriptors" + sink + aborted + "after Close",
          "sink.leaves-no-files" + sink + aborted + "after Close",
          "sink.frees-memory" + sink + aborted + "after Close",
          "sink.random-calls" + sink + aborted + "with two samples at some step"}},
        {"needs-other-settings",
         kPacketSink,
         {"sink.defines-and-writes" + sink +
          "SetInitConfig failed: [needs other settings] [ Condition is not true ]"}},

        {"logs-an-error-in-open",
         kPacketSource,
         {"source.reports-errors" + source + "Open" + logged}},
        {"logs-an-error-in-get-sample",
         kPacketSource,
         {"source.reports-errors" + source + "GetSample" + logged}},
        {"logs-an-error-in-release",
         kPacketSource,
         {"source.reports-errors" + source + "Release" + logged}},
        {"logs-an-error-at-its-end", kPacketSource},
        {"logs-an-error-in-second-release",
         kPacketSource,
         {},
         {"source.reports-errors: a second Release" + logged}},
        {"logs-an-error-in-interrupt",
         kPacketSource,
         {},
         {"source.reports-errors: Interrupt" + logged}},
        {"logs-an-error-in-check",
         kPacketSink,
         {"sink.reports-errors" + sink +
          "CheckInputAndAdaptIfNecessary with a stream of an unknown codec" + logged}},
        {"logs-an-error-in-close", kPacketSink, {"sink.reports-errors" + sink + "Close" + logged}},
        {"logs-an-error-in-push-sample", kPacketSink},
        {"logs-an-error-in-second-close",
         kPacketSink,
         {},
         {"sink.reports-errors: a second Close" + logged}},
        {"logs-an-error-in-allocate",
         "test.Blocks",
         {"allocator.reports-errors test.Blocks:PACKETS: Allocate(1)" + logged}},
    };
    return variants;
}

class ValidateUnusual : public testing::TestWithParam<Variant> {};

} // namespace

TEST_P(ValidateUnusual, HasTheseFindingsAndWarnings) {
    const Variant& variant = GetParam();
    const TemporaryDirectory directory;
    const ProcessResult result =
        RunKelhost(directory, {"validate", Unusual(directory, variant.name), "--json", "--seed",
                               "1", "--element", variant.element});
    EXPECT_EQ(result.status, variant.findings.empty() ? 0 : 1);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(FindingsOf(result), variant.findings);
    std::vector<std::string> warnings = variant.warnings;
#ifdef KEL_TEST_UNCOUNTED_HEAP
    const auto isAboutMemory = [](const std::string& warning) {
        return warning.find(".frees-memory: ") != std::string::npos;
    };
    warnings.erase(std::remove_if(warnings.begin(), warnings.end(), isAboutMemory), warnings.end());
#endif
    EXPECT_EQ(WarningsOf(result), warnings);
    if (variant.findings.empty()) {
        const json document = json::parse(result.out);
        for (const json& entry : document.at("results")) {
            const auto check = entry.at("check").get<std::string>();
            if (check.find(".random-calls") != std::string::npos && entry.at("element") != "") {
                EXPECT_EQ(entry.at("verdict"), "passed");
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Each, ValidateUnusual, testing::ValuesIn(Variants()),
                         [](const auto& test) {
                             std::string name = test.param.name + test.param.element.substr(11);
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

TEST(Validate, NamesTheReasonWhereFramesAreNotCounted) {
    const TemporaryDirectory directory;
    const auto reason = [&](const std::string& variant) {
        const ProcessResult result =
            RunKelhost(directory, {"validate", Unusual(directory, variant), "--json", "--check",
                                   "source.seek-outside"});
        const json document = json::parse(result.out);
        return document.at("results").at(0).at("message").get<std::string>();
    };
    EXPECT_EQ(reason("packets"), "its output is not PCM, and frames cannot be counted");
    EXPECT_EQ(reason("two-outputs"), "it has 2 outputs, and frames are counted of one");
    EXPECT_EQ(reason("growing"), "its medium is growing");
    EXPECT_EQ(reason("endless"), "its limits are too large to count positions outside of them");
}

TEST(Validate, WarnsOfAnErrorThatConcernsAFileOfTheUser) {
    const TemporaryDirectory directory;
    WriteFile(directory / "packets", "packets\n");
    const ProcessResult result =
        RunKelhost(directory, {"validate", Unusual(directory, "logs-an-error-about-its-file"),
                               "--json", "--input", "packets", "--check", "source.reports-errors"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(WarningsOf(result),
              std::vector<std::string>{"source.reports-errors: GetSample succeeded and logged the "
                                       "error \"something\\nwent wrong\""});
}

TEST(Validate, ShowsWarnings) {
    const TemporaryDirectory directory;
    const std::string plugin = Unusual(directory, "accepts-nothing");
    const Arguments command{"validate",          plugin,    "--seed",     "1", "--check",
                            "sink.random-calls", "--check", "sink.closed"};
    const std::string text =
        ReplaceMatches(ReplaceMatches(RunKelhost(directory, command).out, " +[0-9]+ ms", " 0 ms"),
                       " +[0-9.]+ MiB", " 0 MiB");
    EXPECT_EQ(text,
              "passed  sink.closed        test.PacketSink:PACKETS 0 ms 0 MiB\n"
              "passed  sink.random-calls  test.PacketSink:PACKETS 0 ms 0 MiB  warning: it was "
              "called without an input, because it accepts none of the offered ones\n"
              "2 checks: 2 passed (1 with a warning), 0 failed, 0 not applicable; --seed 1 repeats "
              "the random calls\n");
    ExpectResult(RunKelhost(directory, command + Arguments{"--quiet", "--junit", "report.xml"}), 0,
                 "", "");
    const std::string report = ReadFile(directory / "report.xml");
    EXPECT_NE(report.find("      <system-out>warning: it was called without an input, because it "
                          "accepts none of the offered ones</system-out>\n"),
              std::string::npos)
        << report;
    const ProcessResult result = RunKelhost(directory, command + Arguments{"--json"});
    ExpectDocuments({"kelhost.validate"}, result.out);
}

} // namespace kel::test
