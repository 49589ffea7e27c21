// kelhost validate on plug-ins that have one fault each, and on damaged files.

#include "Program.h"
#include "ValidationResults.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <elf.h>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct Fault {
    std::string name;
    std::vector<std::string> findings;
    Arguments arguments{}; // besides the usual
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
          "argument of RegisterAll",
          "plugin.registers-again: the registrations of one call are not all under its name"}},
        {"null-name", {"plugin.null-name: a null name is not refused"}},
        {"registers-once",
         {"plugin.registers-again: the second call of RegisterAll registered 0 elements, the first "
          "one 3, or others"}},
        {"crashes-when-unloaded",
         {"plugin.unloads: signal 11 (Segmentation fault) ended the process during "
          "unloading"}},
        {"other-class",
         {"registration.class: test.Tone:WAVE is registered as AudioSink and its factory makes "
          "AudioSource"}},
        {"no-type", {"registration.type: test.Tone: has no type"}},
        {"no-implementation", {"registration.implementation: :WAVE has no implementation"}},
        {"no-documentation", {"registration.documentation: test.Tone:WAVE has no doc"}},
        {"no-settings", {"registration.settings: test.Tone:WAVE has no init_config"}},
        {"undocumented-setting",
         {"registration.documented-settings: test.Tone:WAVE does not describe its settings "
          "Frames"}},
        {"own-core-id",
         {"registration.core-id: test.Tone:WAVE was registered with the core id \"my own core\", "
          "which GetKELCoreIdInternal does not return for any version"}},
        {"registered-twice", {"registration.unique: test.Tone:WAVE is registered twice"}},

        {"no-element", {"element.new-each-time test.Tone:WAVE: the creator returned no element"}},
        {"same-element",
         {"element.new-each-time test.Tone:WAVE: the creator returns the same element twice"}},
        {"no-manifest",
         {"element.manifest test.Tone:WAVE: GetManifest does not return the collection that the "
          "creator received"}},
        {"two-controls",
         {"element.one-element test.Tone:WAVE: IMediaSource does not lead to IBasicControl, or to "
          "several"}},
        {"release-needs-settings",
         {"element.unused test.Tone:WAVE: Release without SetInitConfig failed: [not configured] [ "
          "Condition is not true ]"}},
        {"throws-at-defaults",
         {"element.default-settings test.Tone:WAVE: SetInitConfig with the defaults threw an "
          "exception other than KELRuntimeError: the defaults are no good"},
         {"--set", "Frames=2000"}},
        {"small-blocks",
         {"allocator.returns-blocks test.Heap:Heap: Allocate(1) returned a block of 0 bytes"}},

        {"describes-nothing",
         {"source.opens test.Tone:WAVE: GetDefinedOutput returns nothing for an open medium"}},
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
         {"source.frames-equal-limits test.Tone:WAVE: it delivered 2999 frames, and its limits "
          "declare "
          "3000"}},
        {"gap-in-stamps",
         {"source.stamps-without-gaps test.Tone:WAVE: sample 1 is stamped 1025, and 1024 is "
          "next"}},
        {"sample-after-end",
         {"source.nothing-after-end test.Tone:WAVE: GetSample returned something at call 1 after "
          "the end"}},
        {"seeks-elsewhere",
         {"source.seek-to-each-edge test.Tone:WAVE: from frame 1 on, it delivers others than when "
          "it is read from start to end"}},
        {"stays-at-its-end",
         {"source.seek-to-each-edge test.Tone:WAVE: after its end and back at its start, it does "
          "not deliver all of it again"}},
        {"seeks-outside",
         {"source.seek-outside test.Tone:WAVE: GotoTimeOffset after the end was not refused",
          "source.random-calls test.Tone:WAVE: at some step: GotoTimeOffset after the end was not "
          "refused"}},
        {"crashes",
         {"source.seek-outside test.Tone:WAVE: signal 11 (Segmentation fault) ended the process "
          "during GotoTimeOffset in another rate"}},
        {"hangs",
         {"source.seek-outside test.Tone:WAVE: it did not return within 0.5 s during "
          "GotoTimeOffset in another rate"},
         {"--timeout", "0.5", "--check", "source.seek-outside"}},
        {"exits",
         {"source.seek-outside test.Tone:WAVE: it ended the process with status 3 during "
          "GotoTimeOffset in another rate"}},
        {"throws-number",
         {"source.seek-outside test.Tone:WAVE: GotoTimeOffset in another rate threw something "
          "other than an exception"}},
        {"throws-another-error",
         {"source.seek-outside test.Tone:WAVE: GotoTimeOffset in another rate threw an exception "
          "other than KELRuntimeError: no such rate\\nat all"}},
        {"ignores-outputs",
         {"source.outputs-off-and-on test.Tone:WAVE: with all outputs off, GetSample returns "
          "something",
          "source.random-calls test.Tone:WAVE: at some step: GetSample returned something with all "
          "outputs off"}},
        {"goes-on-after-reopening",
         {"source.release-and-reopen test.Tone:WAVE: after Release and Open, it does not deliver "
          "what it did at first"}},
        {"source-leaks-descriptors",
         {"source.closes-descriptors test.Tone:WAVE: after 100 rounds, 100 more descriptors are "
          "open, on /dev/null"}},
        {"source-leaves-files", {"source.leaves-no-files test.Tone:WAVE: it leaves left-behind"}},
#ifndef KEL_TEST_UNCOUNTED_HEAP
        {"source-leaks-memory", {"source.frees-memory test.Tone:WAVE: each round loses 32 bytes"}},
        {"sink-leaks-memory", {"sink.frees-memory test.Bytes:RAW: each round loses 32 bytes"}},
#endif
        {"source-crashes-when-interrupted",
         {"source.reports-errors test.Tone:WAVE: signal 11 (Segmentation fault) ended the process "
          "during Interrupt",
          "source.random-calls test.Tone:WAVE: signal 11 (Segmentation fault) ended the process "
          "during Interrupt at some step"}},

        {"has-an-input-at-once",
         {"sink.closed test.Bytes:RAW: GetDefinedInput returns something before DefineInput",
          "sink.check-changes-nothing test.Bytes:RAW: after CheckInputAndAdaptIfNecessary with "
          "float32 little-endian of 2 channels, GetDefinedInput returns something"}},
        {"check-accepts-too-much",
         {"sink.check-agrees-with-define test.Bytes:RAW: CheckInputAndAdaptIfNecessary accepts "
          "float64 little-endian of 2 channels, and DefineInput refuses it",
          "sink.random-calls test.Bytes:RAW: at some step: DefineInput with float64 little-endian "
          "of 2 channels failed: [not this input] [ "
          "Condition is not true ]"}},
        {"accepts-once",
         {"sink.random-calls test.Bytes:RAW: float32 little-endian of 2 channels is judged "
          "otherwise than before"},
         {"--check", "sink.random-calls"}},
        {"check-makes-a-file",
         {"sink.check-changes-nothing test.Bytes:RAW: after CheckInputAndAdaptIfNecessary there is "
          "left-behind"}},
        {"refusal-leaves-file",
         {"sink.refusals-leave-no-file test.Bytes:RAW: after it has refused int16 little-endian of "
          "2 channels, there is output.out"}},
        {"logs-an-error",
         {"sink.reports-errors test.Bytes:RAW: PushSample succeeded and logged the error "
          "\"something went wrong\""}},
        {"opens-while-writing",
         {"sink.opens-once test.Bytes:RAW: Open while it writes was not refused",
          "sink.random-calls test.Bytes:RAW: at some step: Open while it writes was not refused"}},
        {"loses-samples",
         {"sink.push-after-close test.Bytes:RAW: PushSample after Close is neither refused nor "
          "logged as an error"}},
        {"sink-leaks-descriptors",
         {"sink.closes-descriptors test.Bytes:RAW: after 100 rounds, 100 more descriptors are "
          "open, "
          "on /dev/null"}},
        {"sink-leaves-files", {"sink.leaves-no-files test.Bytes:RAW: it leaves left-behind"}},
        {"sink-crashes-when-interrupted",
         {"sink.reports-errors test.Bytes:RAW: signal 11 (Segmentation fault) ended the process "
          "during Interrupt",
          "sink.random-calls test.Bytes:RAW: signal 11 (Segmentation fault) ended the process "
          "during Interrupt at some step"}},
    };
    return faults;
}

class ValidateFault : public testing::TestWithParam<Fault> {};

} // namespace

TEST_P(ValidateFault, IsFoundAndNoOther) {
    const TemporaryDirectory directory;
    const std::string plugin = directory / ("libkelBroken-" + GetParam().name + ".so");
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    Arguments arguments{"validate", plugin, "--json", "--seed", "1"};
    // Checks of the other elements take as long again, and belong to other faults.
    for (const std::string element : {"test.Tone", "test.Bytes", "test.Heap"}) {
        const std::string& finding = GetParam().findings.front();
        if (finding.find(" " + element + ":") < finding.find(": ")) {
            arguments = arguments + Arguments{"--element", element};
        }
    }
    const ProcessResult result = RunKelhost(directory, arguments + GetParam().arguments);
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

TEST(ValidateFaults, AreMissingInTheSamePluginUnderAnotherNameAndExistForEveryCheck) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        RunKelhost(directory, {"validate", TestPlugin("kelBroken"), "--json"});
    EXPECT_EQ(result.status, 0);
    std::set<std::string> missing;
    std::set<std::string> notApplicable;
    const json document = json::parse(result.out);
    for (const json& entry : document.at("results")) {
        const auto check = entry.at("check").get<std::string>();
        EXPECT_NE(entry.at("verdict"), "failed") << entry;
        if (entry.at("verdict") == "not-applicable") {
            notApplicable.insert(check + ": " + entry.at("message").get<std::string>());
        }
        missing.insert(check);
    }
    for (const Fault& fault : Faults()) {
        for (const std::string& finding : fault.findings) {
            missing.erase(finding.substr(0, finding.find_first_of(" :")));
        }
    }
    // Other libraries have these faults.
    std::set<std::string> expectedMissing{"plugin.loads", "plugin.one-entry-point",
                                          "allocator.reports-errors", "sink.defines-and-writes"};
    std::set<std::string> expected{"source.missing-file: it reads no file",
                                   "element.manifest: an allocator has no manifest",
                                   "element.one-element: an allocator has one interface",
                                   "element.default-settings: an allocator has no settings"};
#ifdef KEL_TEST_UNCOUNTED_HEAP
    for (const std::string check : {"source.frees-memory", "sink.frees-memory"}) {
        expectedMissing.insert(check);
        expected.insert(check + ": the heap of this process does not count its memory");
    }
#endif
    EXPECT_EQ(missing, expectedMissing);
    EXPECT_EQ(notApplicable, expected);
}

TEST(ValidateFaults, AreMissingInASinkThatAcceptsEveryInput) {
    const TemporaryDirectory directory;
    const std::string plugin = directory / "libkelBroken-accepts-every-input.so";
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    const ProcessResult result =
        RunKelhost(directory, {"validate", plugin, "--json", "--seed", "1", "--check",
                               "sink.check-agrees-with-define", "--check", "sink.random-calls"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(FindingsOf(result), std::vector<std::string>{});
    EXPECT_EQ(json::parse(result.out).at("passed"), 2);
}

TEST(ValidateFaults, OfTheLibraryAreFound) {
    const TemporaryDirectory directory;
    const std::string whole = ReadFile(KEL_TEST_PLUGIN);
    const std::string damaged = directory / "damaged.so";
    const std::string undefined = TestPlugin("kelUndefinedSymbol");
    struct Row {
        std::string plugin;
        std::string bytes; // of damaged.so
        std::vector<std::string> findings;
    };
    const std::string cannotLoad = std::string("plugin.loads: cannot load the plug-in: ");
    const std::vector<Row> rows{
        {damaged, whole.substr(0, 20000), {cannotLoad + "it was cut off after 20000 bytes"}},
        {undefined,
         "",
         {"plugin.loads: cannot load the plug-in: " + undefined +
          ": undefined symbol: kelSymbolThatIsMissing"}},
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

TEST(Validate, ReportsWhyTheExportsOfALibraryAreNotChecked) {
    const TemporaryDirectory directory;
    const std::string file = directory / "library.so";
    const std::string whole = ReadFile(KEL_TEST_PLUGIN);
    // The place of the sections in the header of a library, and their number.
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
        {"no library\n", "is not a library for this machine", false},
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
        EXPECT_EQ(results[1].at("message"), row.reason);
    }
}

} // namespace kel::test
