// kelhost validate, on plug-ins of which each has one fault, and on files that are none.

#include "Program.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <elf.h>
#include <filesystem>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// A finding as the tests write it: "CHECK ELEMENT: MESSAGE", "CHECK: MESSAGE" for the plug-in as a
// whole. Where random calls lead to it, the steps are left out.
std::vector<std::string> FindingsOf(const ProcessResult& result) {
    static const std::regex steps("at step [0-9]+ \\(the last: [^)]*\\)");
    std::vector<std::string> findings;
    const json document = json::parse(result.out);
    for (const json& entry : document.at("results")) {
        if (entry.at("verdict") == "failed") {
            const auto element = entry.at("element").get<std::string>();
            findings.push_back(
                entry.at("check").get<std::string>() + (element.empty() ? "" : " " + element) +
                ": " +
                std::regex_replace(entry.at("message").get<std::string>(), steps, "at some step"));
        }
    }
    return findings;
}

struct Fault {
    std::string name;
    std::vector<std::string> findings;
    std::vector<std::string> arguments{}; // besides the usual
};

void PrintTo(const Fault& fault, std::ostream* out) {
    *out << fault.name;
}

const std::vector<Fault>& Faults() {
    static const std::vector<Fault> faults{
        {"registers-nothing", {"plugin.registers: RegisterAll registered nothing"}},
        {"throws-while-registering",
         {"plugin.registers: RegisterAll failed: the licence\\nis missing"}},
        {"throws-number-while-registering",
         {"plugin.registers: RegisterAll failed with an exception of an unknown type"}},
        {"own-name",
         {"plugin.registers: test.Tone:WAVE is registered under \"my own name\", not under the "
          "name that RegisterAll was given",
          "plugin.registers-again: the registrations of one call are not all under its name"}},
        {"null-name", {"plugin.null-name: a null name is not refused"}},
        {"registers-once",
         {"plugin.registers-again: the second call of RegisterAll registered 0 elements, the first "
          "one 3, or others"}},
        {"crashes-when-unloaded",
         {"plugin.unloads: the process was ended by signal 11 (Segmentation fault) during "
          "unloading"}},
        {"other-class",
         {"registration.class: test.Tone:WAVE is registered as AudioSink and its factory makes "
          "AudioSource"}},
        {"no-type", {"registration.type: test.Tone: has no type"}},
        {"no-implementation", {"registration.implementation: :WAVE has no implementation"}},
        {"no-documentation", {"registration.documentation: test.Tone:WAVE has no doc"}},
        {"no-settings", {"registration.settings: test.Tone:WAVE has no init_config"}},
        {"undocumented-setting",
         {"registration.documented-settings: test.Tone:WAVE says nothing of its settings Frames"}},
        {"own-core-id",
         {"registration.core-id: test.Tone:WAVE was registered with the core id \"my own core\", "
          "which is not what GetKELCoreIdInternal gives for a version"}},
        {"registered-twice", {"registration.unique: test.Tone:WAVE is registered twice"}},

        {"no-element", {"element.new-each-time test.Tone:WAVE: the creator gave no element"}},
        {"same-element",
         {"element.new-each-time test.Tone:WAVE: the creator gives the same element twice"}},
        {"no-manifest",
         {"element.manifest test.Tone:WAVE: GetManifest does not give what the creator was given"}},
        {"two-controls",
         {"element.one-element test.Tone:WAVE: IMediaSource does not lead to IBasicControl, or to "
          "several"}},
        {"release-needs-settings",
         {"element.unused test.Tone:WAVE: Release without SetInitConfig failed: [not configured] [ "
          "Condition is not true ]"}},
        {"throws-at-defaults",
         {"element.default-settings test.Tone:WAVE: SetInitConfig with the defaults threw an "
          "exception that is no KELRuntimeError: the defaults are no good"},
         {"--set", "Frames=2000"}},
        {"small-blocks",
         {"allocator.gives-blocks test.Heap:Heap: Allocate(1) gave a block of 0 bytes"}},

        {"describes-nothing",
         {"source.opens test.Tone:WAVE: GetDefinedOutput gives nothing of an open medium"}},
        {"limits-while-closed",
         {"source.closed test.Tone:WAVE: after Release, GetTimeLimits was not refused",
          "source.random-calls test.Tone:WAVE: at some step: GetTimeLimits without a medium was "
          "not refused"}},
        {"opens-twice",
         {"source.opens-once test.Tone:WAVE: a second Open was not refused",
          "source.random-calls test.Tone:WAVE: at some step: a second Open was not refused"}},
        {"opens-missing-file",
         {"source.missing-file test.Tone:WAVE: Open of a missing file was not refused",
          "source.random-calls test.Tone:WAVE: at some step: Open of a missing file was not "
          "refused"}},
        {"frames-short",
         {"source.frames-equal-limits test.Tone:WAVE: it delivered 2999 frames, and its limits say "
          "3000"}},
        {"gap-in-stamps",
         {"source.stamps-without-gaps test.Tone:WAVE: sample 1 is stamped 1025, and 1024 is "
          "next"}},
        {"sample-after-end",
         {"source.nothing-after-end test.Tone:WAVE: GetSample gave something at call 1 behind the "
          "end"}},
        {"seeks-elsewhere",
         {"source.seek-to-each-edge test.Tone:WAVE: from frame 1 on, it delivers others than when "
          "it is read from start to end"}},
        {"seeks-outside",
         {"source.seek-outside test.Tone:WAVE: GotoTimeOffset behind the end was not refused",
          "source.random-calls test.Tone:WAVE: at some step: GotoTimeOffset behind the end was not "
          "refused"}},
        {"crashes",
         {"source.seek-outside test.Tone:WAVE: the process was ended by signal 11 (Segmentation "
          "fault) during GotoTimeOffset in another rate"}},
        {"hangs",
         {"source.seek-outside test.Tone:WAVE: it did not come back within 5 s during "
          "GotoTimeOffset in another rate"},
         {"--timeout", "5"}},
        {"exits",
         {"source.seek-outside test.Tone:WAVE: it ended the process with status 3 during "
          "GotoTimeOffset in another rate"}},
        {"throws-number",
         {"source.seek-outside test.Tone:WAVE: GotoTimeOffset in another rate threw something that "
          "is no exception of the framework"}},
        {"throws-another-error",
         {"source.seek-outside test.Tone:WAVE: GotoTimeOffset in another rate threw an exception "
          "that is no KELRuntimeError: no such rate\\nat all"}},
        {"ignores-outputs",
         {"source.outputs-off-and-on test.Tone:WAVE: with all outputs off, GetSample gives "
          "something",
          "source.random-calls test.Tone:WAVE: at some step: GetSample gave something with all "
          "outputs off"}},
        {"goes-on-after-reopening",
         {"source.release-and-reopen test.Tone:WAVE: after Release and Open, it does not deliver "
          "what it did at first"}},
        {"source-leaks-descriptors",
         {"source.closes-descriptors test.Tone:WAVE: after 100 rounds 100 more descriptors are "
          "open, on /dev/null"}},
        {"source-leaves-files", {"source.leaves-no-files test.Tone:WAVE: it leaves left-behind"}},
#ifndef KEL_TEST_UNCOUNTED_HEAP
        {"source-leaks-memory",
         {"source.frees-memory test.Tone:WAVE: each round takes 32 bytes for good"}},
        {"sink-leaks-memory",
         {"sink.frees-memory test.Bytes:RAW: each round takes 32 bytes for good"}},
#endif
        {"source-crashes-when-interrupted",
         {"source.random-calls test.Tone:WAVE: the process was ended by signal 11 (Segmentation "
          "fault) during Interrupt at some step"}},

        {"has-an-input-at-once",
         {"sink.closed test.Bytes:RAW: GetDefinedInput gives something before DefineInput",
          "sink.check-changes-nothing test.Bytes:RAW: after CheckInputAndAdaptIfNecessary with "
          "float32 little-endian of 2 channels, GetDefinedInput gives something"}},
        {"check-accepts-too-much",
         {"sink.check-agrees-with-define test.Bytes:RAW: CheckInputAndAdaptIfNecessary accepts "
          "float64 little-endian of 2 channels, and DefineInput refuses it",
          "sink.random-calls test.Bytes:RAW: at some step: DefineInput with float64 little-endian "
          "of 2 channels failed: [not this input] [ "
          "Condition is not true ]"}},
        {"check-makes-a-file",
         {"sink.check-changes-nothing test.Bytes:RAW: after CheckInputAndAdaptIfNecessary there is "
          "left-behind"}},
        {"refusal-leaves-file",
         {"sink.refusals-leave-no-file test.Bytes:RAW: after it has refused int16 little-endian of "
          "2 channels, there is output.out"}},
        {"logs-an-error",
         {"sink.defines-and-writes test.Bytes:RAW: it logged an error, and refused nothing"}},
        {"opens-while-writing",
         {"sink.opens-once test.Bytes:RAW: Open while it writes was not refused",
          "sink.random-calls test.Bytes:RAW: at some step: Open while it writes was not refused"}},
        {"loses-samples",
         {"sink.push-after-close test.Bytes:RAW: PushSample after Close is neither refused nor "
          "logged as an error"}},
        {"sink-leaks-descriptors",
         {"sink.closes-descriptors test.Bytes:RAW: after 100 rounds 100 more descriptors are open, "
          "on /dev/null"}},
        {"sink-leaves-files", {"sink.leaves-no-files test.Bytes:RAW: it leaves left-behind"}},
        {"sink-crashes-when-interrupted",
         {"sink.random-calls test.Bytes:RAW: the process was ended by signal 11 (Segmentation "
          "fault) during Interrupt at some step"}},
    };
    return faults;
}

class ValidateFault : public testing::TestWithParam<Fault> {};

} // namespace

TEST_P(ValidateFault, IsFoundAndNoOther) {
    const TemporaryDirectory directory;
    const std::string plugin = directory / ("libkelBroken-" + GetParam().name + ".so");
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    std::vector<std::string> arguments{"validate", plugin, "--json", "--seed", "1"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const ProcessResult result = RunKelhost(directory, arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(FindingsOf(result), GetParam().findings);
}

INSTANTIATE_TEST_SUITE_P(Each, ValidateFault, testing::ValuesIn(Faults()), [](const auto& test) {
    std::string name;
    bool isFirst = true; // of a word
    for (const char letter : test.param.name) {
        if (letter != '-') {
            name.push_back(isFirst ? static_cast<char>(letter - 'a' + 'A') : letter);
        }
        isFirst = letter == '-';
    }
    return name;
});

TEST(ValidateFaults, AreThereForEveryCheckThatIsNotOfTheLibraryItself) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        RunKelhost(directory, {"validate", TestPlugin("kelBroken"), "--json"});
    std::vector<std::string> missing;
    const json document = json::parse(result.out);
    for (const json& entry : document.at("results")) {
        const auto check = entry.at("check").get<std::string>();
        bool isFound = false;
        for (const Fault& fault : Faults()) {
            for (const std::string& finding : fault.findings) {
                isFound = isFound || finding.compare(0, check.size(), check) == 0;
            }
        }
        if (!isFound && std::find(missing.begin(), missing.end(), check) == missing.end()) {
            missing.push_back(check);
        }
    }
    std::vector<std::string> expected{"plugin.loads", "plugin.one-entry-point"};
#ifdef KEL_TEST_UNCOUNTED_HEAP
    expected.insert(expected.end(), {"source.frees-memory", "sink.frees-memory"});
#endif
    EXPECT_EQ(missing, expected);
}

TEST(ValidateFaults, OfTheLibraryItselfAreFound) {
    const TemporaryDirectory directory;
    const std::string whole = Content(KEL_TEST_PLUGIN);
    const auto withByte = [&](std::size_t place, char byte) {
        std::string bytes = whole;
        bytes.at(place) = byte;
        return bytes;
    };
    const std::string damaged = directory / "damaged.so";
    const std::string undefined = TestPlugin("kelUndefinedSymbol");
    struct Row {
        std::string plugin;
        std::string bytes; // of damaged.so
        std::vector<std::string> findings;
    };
    const std::string cannotLoad = "plugin.loads: the plug-in " + damaged + " cannot be loaded: ";
    const std::vector<Row> rows{
        {directory / "missing.so",
         "",
         {"plugin.loads: the plug-in " + (directory / "missing.so") +
          " cannot be loaded: " + (directory / "missing.so") +
          ": cannot open shared object file: No such file or directory"}},
        {damaged, "no library\n", {cannotLoad + damaged + ": file too short"}},
        {damaged, whole.substr(0, 20000), {cannotLoad + "it was cut off after 20000 bytes"}},
        {damaged, withByte(18, 8), {cannotLoad + "it is for another processor"}},
        {undefined,
         "",
         {"plugin.loads: the plug-in " + undefined + " cannot be loaded: " + undefined +
          ": undefined symbol: kelSymbolThatNobodyHas"}},
        {TestPlugin("kelNoEntryPoint"),
         "",
         {"plugin.one-entry-point: it does not export the function RegisterAll"}},
        {TestPlugin("kelBrokenTwoFunctions"),
         "",
         {"plugin.one-entry-point: it exports SomethingElse as well"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.findings.front());
        WriteFile(damaged, row.bytes);
        const ProcessResult result = RunKelhost(directory, {"validate", row.plugin, "--json"});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(FindingsOf(result), row.findings);
    }
}

TEST(Validate, TellsWhyItDoesNotLookAtWhatALibraryExports) {
    const TemporaryDirectory directory;
    const std::string file = directory / "library.so";
    const std::string whole = Content(KEL_TEST_PLUGIN);
    // Where the header of a library tells the place of its sections, and their number.
    constexpr std::size_t kSections = offsetof(Elf64_Ehdr, e_shoff);
    constexpr std::size_t kCount = offsetof(Elf64_Ehdr, e_shnum);
    const auto with = [&](std::size_t place, const std::string& bytes) {
        return std::string(whole).replace(place, bytes.size(), bytes);
    };
    struct Row {
        std::string bytes;
        std::string reason;
        bool isLoaded;
    };
    const std::vector<Row> rows{
        {"no library\n", "is no library for this machine", false},
        {whole.substr(0, 20000), "its tables are damaged", false},
        {with(kSections, std::string(8, '\xff')), "its tables are damaged", true},
        {with(kCount, std::string(2, '\0')), "has no section of dynamic symbols", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reason);
        WriteFile(file, row.bytes);
        const ProcessResult result =
            RunKelhost(directory, {"validate", file, "--json", "--check", "plugin.loads", "--check",
                                   "plugin.one-entry-point"});
        EXPECT_EQ(result.status, row.isLoaded ? 0 : 1);
        const json results = json::parse(result.out).at("results");
        ASSERT_EQ(results.size(), 2U);
        EXPECT_EQ(results[0].at("verdict"), row.isLoaded ? "passed" : "failed");
        EXPECT_EQ(results[1].at("verdict"), "not-applicable");
        EXPECT_EQ(results[1].at("message"), file + ": " + row.reason);
    }
}

} // namespace kel::test
