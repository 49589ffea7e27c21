// kelhost validate on correct plug-ins, and the forms of its report.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// Times and sizes as "0 ms" and "0 MiB".
std::string WithoutCosts(const std::string& text) {
    return ReplaceMatches(ReplaceMatches(text, " +[0-9]+ ms", " 0 ms"), " +[0-9.]+ MiB", " 0 MiB");
}

std::string Broken(const TemporaryDirectory& directory, const std::string& fault) {
    std::string path = directory / ("libkelBroken-" + fault + ".so");
    fs::create_symlink(TestPlugin("kelBroken"), path);
    return path;
}

json Results(const ProcessResult& result) {
    return json::parse(result.out).at("results");
}

// Counts each verdict.
std::map<std::string, int> Verdicts(const json& results) {
    std::map<std::string, int> counts;
    for (const json& entry : results) {
        ++counts[entry.at("verdict").get<std::string>()];
    }
    return counts;
}

// Reads a report with Python's parser; returns a line for each test case.
std::string ReadJUnit(const std::string& path) {
    Command command;
    command.program = KEL_TEST_PYTHON;
    command.arguments = {
        "-c",
        "import sys, xml.etree.ElementTree as tree\n"
        "root = tree.parse(sys.argv[1]).getroot()\n"
        "suite = root.find('testsuite')\n"
        "print(root.tag, suite.get('name'), suite.get('tests'), suite.get('failures'),\n"
        "      suite.get('skipped'), suite.find('properties/property').get('value'))\n"
        "for case in suite.iter('testcase'):\n"
        "    float(case.get('time'))\n"
        "    kinds = [(child.tag, child.get('message'), child.text) for child in case]\n"
        "    print(case.get('classname'), case.get('name'), ascii(kinds))\n",
        path};
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.err, "");
    return result.out;
}

} // namespace

TEST(Validate, FindsNothingWrongWithTheProjectsOwnPlugin) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        RunKelhost(directory, {"validate", KEL_TEST_PLUGIN, "--seed", "1", "--json"});
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    using Counts = std::map<std::string, int>;
    std::map<std::string, Counts> verdicts;
    for (const json& entry : Results(result)) {
        ++verdicts[entry.at("element").get<std::string>()][entry.at("verdict").get<std::string>()];
    }
#ifdef KEL_TEST_UNCOUNTED_HEAP
    const Counts source{{"passed", 20}, {"not-applicable", 1}};
    const Counts sink{{"passed", 16}, {"not-applicable", 1}};
#else
    const Counts source{{"passed", 21}};
    const Counts sink{{"passed", 17}};
#endif
    // It takes no input where its type is none that it can write.
#ifdef KEL_TEST_UNCOUNTED_HEAP
    const Counts idleSink{{"passed", 12}, {"not-applicable", 5}};
#else
    const Counts idleSink{{"passed", 13}, {"not-applicable", 4}};
#endif
    EXPECT_EQ(verdicts,
              (std::map<std::string, Counts>{{"", {{"passed", 14}, {"not-applicable", 2}}},
                                             {"kel.LibsndfileSource:AIFF", source},
                                             {"kel.LibsndfileSource:WAVE", source},
                                             {"kel.LibsndfileSource:BWAVE", source},
                                             {"kel.LibsndfileSink:Unknown", idleSink},
                                             {"kel.LibsndfileSink:AIFF", sink},
                                             {"kel.LibsndfileSink:WAVE", sink},
                                             {"kel.LibsndfileSink:BWAVE", sink},
                                             {"kel.LibsndfileSink:RAW", idleSink}}));
}

TEST(Validate, ShowsALineForEachCheckAndASummary) {
    const TemporaryDirectory directory;
    const ProcessResult result = RunKelhost(
        directory, {"validate", Broken(directory, "frames-short"), "--seed", "7", "--element",
                    "test.Tone", "--check", "plugin.loads", "--check", "source.frames-equal-limits",
                    "--check", "source.missing-file", "--check", "sink.closed"});
    ExpectResult(
        {result.status, WithoutCosts(result.out), result.err}, 1,
        "passed  plugin.loads 0 ms 0 MiB\n"
        "n/a     sink.closed                                        -          -  there is no "
        "element to which it applies\n"
        "n/a     source.missing-file         test.Tone:WAVE 0 ms 0 MiB  it reads no file\n"
        "FAILED  source.frames-equal-limits  test.Tone:WAVE 0 ms 0 MiB  it delivered 2999 frames, "
        "and its limits declare 3000\n"
        "4 checks: 1 passed, 1 failed, 2 not applicable; --seed 7 repeats the random calls\n",
        "");
}

TEST(Validate, ShowsOnlyFindingsAndTheirSeedWhenItIsQuiet) {
    const TemporaryDirectory directory;
    const std::string plugin = Broken(directory, "frames-short");
    const ProcessResult result =
        RunKelhost(directory, {"validate", "--quiet", plugin, "--seed", "7", "--check",
                               "plugin.loads", "--check", "source.frames-equal-limits"});
    ExpectResult(
        {result.status, WithoutCosts(result.out), result.err}, 1,
        "FAILED  source.frames-equal-limits  test.Tone:WAVE 0 ms 0 MiB  it delivered 2999 frames, "
        "and its limits declare 3000\n"
        "2 checks: 1 passed, 1 failed, 0 not applicable; --seed 7 repeats the random calls\n",
        "");
    ExpectResult(RunKelhost(directory, {"validate", "--quiet", plugin, "--check", "plugin.loads"}),
                 0, "", "");
}

TEST(Validate, ShowsEachResultAsSoonAsItsCheckHasEnded) {
    const TemporaryDirectory directory;
    const TemporaryDirectory temporary;
    WriteFile(directory / "lines", "");
    Command command =
        Kelhost(directory, {"validate", Broken(directory, "hangs"), "--check", "source.opens",
                            "--check", "source.seek-outside", "--timeout", "10"});
    command.environment["TMPDIR"] = temporary.Path().string();
    command.standardOutput = directory / "lines";
    RunningProcess process(command);
    while (ReadFile(directory / "lines").empty() && !process.HasEnded()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    process.Signal(SIGTERM);
    ExpectResult(process.Wait(), 143, "", "kelhost: interrupted; no unfinished output is left\n");
    EXPECT_EQ(WithoutCosts(ReadFile(directory / "lines")),
              "passed  source.opens         test.Tone:WAVE 0 ms 0 MiB\n");
}

TEST(Validate, NeedsAFile) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "plugins");
    ExpectResult(RunKelhost(directory, {"validate", "missing.so"}), 1, "",
                 Error("missing.so", "cannot load the plug-in: No such file or directory"));
    ExpectResult(RunKelhost(directory, {"validate", "plugins"}), 1, "",
                 Error("plugins", "cannot load the plug-in: it is a directory"));
}

TEST(Validate, EndsWithOneErrorForAFileThatIsNoLibrary) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const std::string cause = "cannot load the plug-in: it is not a library for this machine; name "
                              "the plug-in's .so file";
    for (const Arguments& others : {Arguments{}, Arguments{"--check", "source.opens"},
                                    Arguments{"--debug", "plugin.registers"}}) {
        ExpectResult(RunKelhost(directory, Arguments{"validate", "take.wav"} + others), 1, "",
                     Error("take.wav", cause));
    }
    ExpectResult(RunKelhost(directory, {"validate", "/dev/null"}), 1, "",
                 Error("/dev/null", cause));
    fs::permissions(directory / "take.wav", fs::perms::none);
    const std::string denied = "cannot load the plug-in: Permission denied";
    ExpectResult(RunKelhost(directory, {"validate", "take.wav"}), 1, "",
                 Error("take.wav", geteuid() == 0 ? cause : denied));
}

TEST(Validate, WritesADocument) {
    const TemporaryDirectory directory;
    const ProcessResult result =
        RunKelhost(directory, {"validate", "--json", Broken(directory, "frames-short"), "--seed",
                               "18446744073709551615", "--check", "source.frames-equal-limits"});
    EXPECT_EQ(result.status, 1);
    ExpectDocuments({"kelhost.validate"}, result.out);
    json document = json::parse(result.out);
    json& entry = document.at("results").at(0);
    EXPECT_GT(entry.at("seconds"), 0.0);
    EXPECT_GT(entry.at("peak_kib"), 1000);
    entry.erase("seconds");
    entry.erase("peak_kib");
    EXPECT_EQ(document,
              (json{{"document", "kelhost.validate"},
                    {"version", 1},
                    {"plugin", directory / "libkelBroken-frames-short.so"},
                    {"seed", 18446744073709551615U},
                    {"passed", 0},
                    {"failed", 1},
                    {"not_applicable", 0},
                    {"results",
                     {{{"check", "source.frames-equal-limits"},
                       {"requirement", "It delivers as many frames as GetTimeLimits declares."},
                       {"element", "test.Tone:WAVE"},
                       {"verdict", "failed"},
                       {"message", "it delivered 2999 frames, and its limits declare 3000"},
                       {"warning", ""},
                       {"output", ""}}}}}));
}

TEST(Validate, WritesAReportInXML) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "a & <b>");
    const std::string plugin = directory / "a & <b>/libkelBroken-throws-another-error.so";
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    WriteFile(directory / "report.xml", "an older one");
    const Arguments command{"validate", plugin,
                            "--seed",   "7",
                            "--junit",  "report.xml",
                            "--check",  "plugin.loads",
                            "--check",  "source.seek-outside",
                            "--check",  "source.missing-file"};
    ExpectResult(RunKelhost(directory, command), 1, "",
                 Error("report.xml", "exists already; use --force to replace it"));
    EXPECT_EQ(ReadFile(directory / "report.xml"), "an older one");
    EXPECT_EQ(RunKelhost(directory, command + Arguments{"--force"}).status, 1);
    EXPECT_EQ(
        ReadJUnit(directory / "report.xml"),
        "testsuites " + plugin + " 3 1 1 7\n" +
            "plug-in plugin.loads []\n"
            "test.Tone:WAVE source.missing-file [('skipped', 'it reads no file', None)]\n"
            "test.Tone:WAVE source.seek-outside [('failure', 'GotoTimeOffset in another rate threw "
            "an exception other than KELRuntimeError: no such rate\\\\nat all', 'It refuses to "
            "seek "
            "outside of its limits and in another rate.')]\n");
}

TEST(Validate, EscapesTextsOfThePluginInItsReport) {
    const TemporaryDirectory directory;
    const std::string plugin = directory / "libkelBroken-odd-words.so";
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    const ProcessResult result = RunKelhost(
        directory, {"validate", plugin, "--junit", "report.xml", "--check", "plugin.registers"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(LinesOf(ReadJUnit(directory / "report.xml")).at(1),
              "plug-in plugin.registers [('failure', 'RegisterAll failed: \"<a>&\\\\x01\\\\xFF ]]>"
              " \\\\u2028', 'RegisterAll registers elements, all under the name in its argument.'),"
              " ('system-err', None, 'printed <b>&\\n\\\\x02\\n')]");
}

TEST(Validate, RepeatsRandomCallsWithTheSameSeed) {
    const TemporaryDirectory directory;
    const std::string plugin = Broken(directory, "limits-while-closed");
    const auto messageWith = [&](const std::string& seed) {
        const ProcessResult result = RunKelhost(directory, {"validate", plugin, "--json", "--check",
                                                            "source.random-calls", "--seed", seed});
        EXPECT_EQ(result.status, 1);
        return Results(result).at(0).at("message").get<std::string>();
    };
    const std::string first = messageWith("1");
    EXPECT_EQ(messageWith("1"), first);
    EXPECT_NE(messageWith("2"), first);
    EXPECT_NE(first.find("): GetTimeLimits without a medium was not refused"), std::string::npos)
        << first;
}

TEST(Validate, ChoosesAndPrintsASeed) {
    const TemporaryDirectory directory;
    std::set<std::string> seeds;
    for (int run = 0; run < 2; ++run) {
        const std::string line = LinesOf(RunKelhost(directory, {"validate", TestPlugin("kelBroken"),
                                                                "--check", "plugin.loads"})
                                             .out)
                                     .back();
        EXPECT_THAT(line, testing::MatchesRegex("1 check: 1 passed, 0 failed, 0 not applicable; "
                                                "--seed [0-9]+ repeats the random calls"));
        seeds.insert(line);
    }
    EXPECT_EQ(seeds.size(), 2U) << "from 2^32";
}

TEST(Validate, OpensTheFileThatIsNamed) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", "no sound\n");
    const auto verdicts = [&](const std::string& input) {
        return Verdicts(Results(
            RunKelhost(directory, {"validate", KEL_TEST_PLUGIN, "--json", "--input", input,
                                   "--element", "kel.LibsndfileSource:WAVE", "--check",
                                   "source.opens", "--check", "source.frames-equal-limits"})));
    };
    EXPECT_EQ(verdicts("take.wav"), (std::map<std::string, int>{{"passed", 2}}));
    EXPECT_EQ(verdicts("text.wav"),
              (std::map<std::string, int>{{"failed", 1}, {"not-applicable", 1}}));
}

TEST(Validate, PassesSettingsToElements) {
    const TemporaryDirectory directory;
    const auto run = [&](const std::string& setting) {
        return RunKelhost(directory, {"validate", Broken(directory, "frames-short"), "--json",
                                      "--set", setting, "--check", "source.frames-equal-limits"});
    };
    EXPECT_EQ(Results(run("Frames=17")).at(0).at("message"),
              "it delivered 16 frames, and its limits declare 17");
    fs::remove(directory / "libkelBroken-frames-short.so");
    EXPECT_EQ(Results(run("Frames=2000000000")).at(0).at("message"),
              "its medium has 2000000000 frames, too many to be kept; give it a shorter one with "
              "--input or --set");
    fs::remove(directory / "libkelBroken-frames-short.so");
    ExpectResult(
        run("Frames=many"), 2, "",
        "{\"document\":\"kelhost.error\",\"file\":\"\",\"message\":\"invalid value "
        "\\\"Frames=many\\\" for --set: expected a value of kind integer, as test.Tone:WAVE "
        "declares it\",\"path\":null,\"version\":1}\n");
}

TEST(Validate, RefusesWrongCommandLines) {
    const TemporaryDirectory directory;
    struct Row {
        Arguments arguments;
        std::string error;
    };
    const std::string plugin = TestPlugin("kelBroken");
    const std::vector<Row> rows{
        {{plugin, "--element", "test.Tone", "--element", "none.AIFF"},
         "there is no element \"none.AIFF\"; use test.Tone:WAVE, test.Bytes:RAW "
         "or test.Heap:Heap"},
        {{plugin, "--element", "Tone"},
         "there is no element \"Tone\"; did you mean test.Tone:WAVE?"},
        {{plugin, "--check", "plugin.load"},
         "there is no check \"plugin.load\"; did you mean plugin.loads?"},
        {{plugin, "--set", "frame=3"}, "there is no setting \"frame\"; did you mean Frames?"},
        {{plugin, "--set", "Length=3"}, "there is no setting \"Length\"; use FilePath or Frames"},
        {{plugin, "--set", "Length"}, "invalid value \"Length\" for --set: expected NAME=VALUE"},
        {{plugin, "--input", "missing.wav"},
         "invalid value \"missing.wav\" for --input: expected an existing file"},
        {{plugin, "--seed", "-1"},
         "invalid value \"-1\" for --seed: expected an integer from 0 to 18446744073709551615"},
        {{plugin, "--plugin", plugin},
         "validate expects the plug-in as its argument; remove --plugin"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        ExpectResult(RunKelhost(directory, Arguments{"validate"} + row.arguments), 2, "",
                     "kelhost: " + row.error + "\n");
    }
    const ProcessResult unknown = RunKelhost(directory, {"validate", plugin, "--check", "~"});
    EXPECT_EQ(unknown.status, 2);
    const std::string start = "kelhost: there is no check \"~\"; use plugin.loads, ";
    EXPECT_EQ(unknown.err.substr(0, start.size()), start);
    ExpectResult(
        RunKelhost(directory, {"validate", plugin, "--junit", "missing/report.xml"}), 1, "",
        "kelhost: missing/report.xml: cannot create the file: No such file or directory\n");
}

TEST(Validate, IsDocumentedCheckByCheck) {
    const TemporaryDirectory directory;
    std::vector<std::string> rows;
    for (const json& entry :
         Results(RunKelhost(directory, {"validate", TestPlugin("kelNoEntryPoint"), "--json"}))) {
        rows.push_back("| `" + entry.at("check").get<std::string>() + "` | " +
                       entry.at("requirement").get<std::string>() + " |");
    }
    std::vector<std::string> documented;
    for (const std::string& line : LinesOf(ReadFile(KEL_TEST_SCHEMAS "/../validating.md"))) {
        if (line.rfind("| `", 0) == 0) {
            documented.push_back(line.substr(0, line.find(" | ", line.find(" | ") + 1) + 2));
        }
    }
    EXPECT_EQ(documented, rows);
}

TEST(Validate, RemovesTheFilesOfItsChecks) {
    const TemporaryDirectory directory;
    const TemporaryDirectory temporary;
    Command command = Kelhost(directory, {"validate", Broken(directory, "source-leaves-files"),
                                          "--check", "source.leaves-no-files"});
    command.environment["TMPDIR"] = temporary.Path().string();
    EXPECT_EQ(RunCommand(command).status, 1);
    EXPECT_EQ(SortedNames(directory), Names{"libkelBroken-source-leaves-files.so"});
    EXPECT_EQ(SortedNames(temporary), Names{});
}

TEST(Validate, ShowsTheLogOfEachCheckWhereItIsAskedFor) {
    const TemporaryDirectory directory;
    const std::vector<std::string> arguments{"validate",  KEL_TEST_PLUGIN,
                                             "--check",   "source.opens",
                                             "--element", "kel.LibsndfileSource:WAVE"};
    EXPECT_EQ(RunKelhost(directory, arguments).err, "");
    Command command = Kelhost(directory, arguments);
    command.environment["KEL_LOG"] = "info";
    const std::string log = RunCommand(command).err;
    EXPECT_NE(log.find("Successfully opened "), std::string::npos) << log;
}

} // namespace kel::test
