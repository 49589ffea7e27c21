#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace kel::test {

namespace {

using nlohmann::json;

// A directory with a recording, and a file that is none.
class Takes {
public:
    Takes() {
        WriteTake(m_directory / "take.wav");
        WriteFile(m_directory / "text.wav", "no audio at all, but a text of some length\n");
    }

    ProcessResult Run(const std::vector<std::string>& arguments) const {
        return RunKelhost(m_directory, arguments);
    }

    std::string operator/(const std::string& name) const { return m_directory / name; }
    const TemporaryDirectory& Directory() const { return m_directory; }

private:
    TemporaryDirectory m_directory;
};

std::vector<json> Parse(const std::string& text) {
    std::vector<json> documents;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        documents.push_back(json::parse(line));
    }
    return documents;
}

const std::string kTextWavError =
    "text.wav: cannot be read: [Unable to open file \"text.wav\" with libsndfile. Error "
    "is:\"Format not recognised.\"]";

json Error(const std::string& file, const std::string& message) {
    return {{"document", "kelhost.error"}, {"version", 1}, {"file", file}, {"message", message}};
}

} // namespace

TEST(Documents, OfCopiesSayWhatWasCopied) {
    const Takes takes;
    const ProcessResult result = takes.Run({"--json", "copy", "take.wav", "copy.aiff", "--verify"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.copy"}, result.out);
    const json channel{{"clipped", 0}, {"loudest", 0.0}, {"non_finite", 0}};
    EXPECT_EQ(Parse(result.out)[0], (json{{"document", "kelhost.copy"},
                                          {"version", 1},
                                          {"failures", json::array()},
                                          {"skipped", json::array()},
                                          {"results",
                                           {{{"input", "take.wav"},
                                             {"output", "copy.aiff"},
                                             {"container", "AIFF-C"},
                                             {"encoding", "int24"},
                                             {"byte_order", "big-endian"},
                                             {"channels", 2},
                                             {"rate", 48000},
                                             {"frames", 1000},
                                             {"bytes", 6000},
                                             {"verified", true},
                                             {"warnings", json::array()},
                                             {"conversion", {channel, channel}}}}}}));
}

TEST(Documents, OfCopiesSayWhatFailedAndWhatWasClipped) {
    const Takes takes;
    WriteAudio(takes / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000, {0.5F, 2.0F, -4.0F});
    const ProcessResult result =
        takes.Run({"copy", "--json", "loud.wav", "text.wav", "--output-dir", "out", "--encoding",
                   "int16", "--jobs", "1"});
    EXPECT_EQ(result.status, 1);
    ExpectDocuments({"kelhost.error"}, result.err);
    EXPECT_EQ(Parse(result.err)[0], Error("text.wav", kTextWavError));
    ExpectDocuments({"kelhost.copy"}, result.out);
    const json copy = Parse(result.out)[0];
    EXPECT_EQ(copy["failures"], (json{{{"file", "text.wav"}, {"message", kTextWavError}}}));
    ASSERT_EQ(copy["results"].size(), 1U);
    EXPECT_EQ(copy["results"][0]["output"], "out/loud.wav");
    EXPECT_EQ(copy["results"][0]["conversion"],
              (json{{{"clipped", 2}, {"loudest", 4.0}, {"non_finite", 0}}}));
}

TEST(Documents, OfInfoListTheFilesAndTheFailuresInTheirOrder) {
    const Takes takes;
    const ProcessResult result =
        takes.Run({"info", "--json", "missing.wav", "take.wav", "text.wav", "take.wav"});
    EXPECT_EQ(result.status, 1);
    ExpectDocuments({"kelhost.error", "kelhost.error"}, result.err);
    ExpectDocuments({"kelhost.info"}, result.out);
    const json file{{"file", "take.wav"},
                    {"channels", 2},
                    {"rate", 48000},
                    {"frames", 1000},
                    {"seconds", 1000.0 / 48000},
                    {"duration", "0:00:00.021"},
                    {"delivery", "32-bit float little-endian"}};
    EXPECT_EQ(
        Parse(result.out)[0],
        (json{{"document", "kelhost.info"},
              {"version", 1},
              {"files", {file, file}},
              {"failures",
               {{{"file", "missing.wav"}, {"message", "missing.wav: No such file or directory"}},
                {{"file", "text.wav"}, {"message", kTextWavError}}}}}));
}

TEST(Documents, OfInfoHoldTheMeasurementWithNullForWhatDoesNotExist) {
    const Takes takes;
    WriteAudio(takes / "silence.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000,
               std::vector<float>(8000, 0.0F));
    const ProcessResult result =
        takes.Run({"info", "--json", "--measure", "silence.wav", "take.wav"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.info"}, result.out);
    EXPECT_EQ(Parse(result.out)[0]["files"][0]["measurement"], (json{{"channels",
                                                                      {{{"peak", 0.0},
                                                                        {"peak_dbfs", nullptr},
                                                                        {"rms", 0.0},
                                                                        {"rms_dbfs", nullptr},
                                                                        {"at_full_scale", 0},
                                                                        {"non_finite", 0}}}},
                                                                     {"integrated_lufs", nullptr},
                                                                     {"range_lu", nullptr},
                                                                     {"true_peak_dbtp", nullptr}}));
}

TEST(Documents, OfPlotsNameThePictureOrHoldTheCharacters) {
    const Takes takes;
    const ProcessResult picture =
        takes.Run({"plot", "--json", "take.wav", "-o", "take.svg", "--size", "300x200"});
    EXPECT_EQ(picture.status, 0);
    EXPECT_EQ(picture.err, "");
    EXPECT_EQ(Parse(picture.out)[0], (json{{"document", "kelhost.plot"},
                                           {"version", 1},
                                           {"input", "take.wav"},
                                           {"picture", "take.svg"},
                                           {"width", 300},
                                           {"height", 200},
                                           {"text", ""}}));
    const ProcessResult characters = takes.Run({"plot", "--json", "take.wav"});
    EXPECT_EQ(characters.status, 0);
    EXPECT_EQ(characters.err, "");
    EXPECT_EQ(Parse(characters.out)[0]["text"], takes.Run({"plot", "take.wav"}).out);
    ExpectDocuments({"kelhost.plot", "kelhost.plot"}, picture.out + characters.out);
}

TEST(Documents, OfFormatsHoldTheWholeMatrix) {
    const Takes takes;
    const ProcessResult result = takes.Run({"formats", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.formats"}, result.out);
    std::vector<std::string> written;
    const json formats = Parse(result.out)[0]["formats"];
    EXPECT_EQ(formats.size(), 3U * 5 * 2);
    for (const json& format : formats) {
        EXPECT_EQ(format["readers"].get<std::string>().empty(), !format["written"].get<bool>());
        if (format["written"].get<bool>()) {
            written.push_back(format["format"].get<std::string>() + " " +
                              format["encoding"].get<std::string>() + " " +
                              format["byte_order"].get<std::string>());
        }
    }
    EXPECT_EQ(
        written,
        (std::vector<std::string>{
            "wave int16 little-endian", "wave int24 little-endian", "wave int32 little-endian",
            "wave float32 little-endian", "wave float64 little-endian", "bwave int16 little-endian",
            "bwave int24 little-endian", "bwave int32 little-endian", "bwave float32 little-endian",
            "bwave float64 little-endian", "aiff int16 little-endian", "aiff int16 big-endian",
            "aiff int24 little-endian", "aiff int24 big-endian", "aiff int32 little-endian",
            "aiff int32 big-endian"}));
}

TEST(Documents, OfInspectHoldTheElementsWithTheirSettings) {
    const Takes takes;
    const ProcessResult all = takes.Run({"inspect", "--json"});
    const ProcessResult one = takes.Run({"inspect", "--json", "kel.LibsndfileSource"});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(one.status, 0);
    ExpectDocuments({"kelhost.inspect", "kelhost.inspect"}, all.out + one.out);
    std::vector<std::string> names;
    const json listed = Parse(all.out)[0]["elements"];
    for (const json& element : listed) {
        names.push_back(element["implementation"]);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"kel", "kel.LibsndfileSource", "kel.LibsndfileSink"}));
    const json elements = Parse(one.out)[0]["elements"];
    ASSERT_EQ(elements.size(), 1U);
    EXPECT_EQ(elements[0]["kind"], "AudioSource");
    EXPECT_EQ(elements[0]["types"], (json{"AIFF", "WAVE", "BWAVE"}));
    EXPECT_EQ(elements[0]["settings"][1],
              (json{{"name", "MaxSamplesPerBuffer"},
                    {"kind", "integer"},
                    {"default", 1024},
                    {"description", "Maximum number of samples that will be returned in each "
                                    "buffer. Configurable."}}));
    EXPECT_EQ(elements[0]["settings"][0]["default"], nullptr);
}

TEST(Documents, OfTheDemonstrationAreThoseOfCopyAndInfo) {
    const Takes takes;
    const ProcessResult result = takes.Run({"demo", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.copy", "kelhost.info"}, result.out);
}

TEST(Documents, OfErrorsTellOfEveryWrongCommandLine) {
    const Takes takes;
    struct Row {
        std::vector<std::string> arguments;
        std::string message;
    };
    const std::string commands = "copy, run, info, plot, formats, inspect, validate, demo";
    std::string documents;
    const std::vector<Row> rows{
        {{"--json"}, "a command is missing: " + commands},
        {{"--json", "frobnicate"}, "there is no command \"frobnicate\"; choose from " + commands},
        {{"--json", "--frobnicate"}, "there is no option --frobnicate before a command"},
        {{"info", "--json"}, "FILE is required"},
        {{"info", "--frobnicate", "take.wav", "--json"},
         "The following argument was not expected: --frobnicate"},
        {{"info", "--json", "take.wav", "--frob\nnicate=\x1B[2J"},
         "The following argument was not expected: --frob\\nnicate=\\x1B[2J"},
        {{"copy", "--json", "a.wav", "b.wav", "--block"},
         "--block: 1 required FRAMES:UINT in [1 - 1048576] missing"},
        {{"copy", "--json", "a.wav", "b.wav", "--block", "0"},
         "--block: Value 0 not in range 1 to 1048576"},
        {{"copy", "--json", "a.wav"},
         "copy takes one INPUT and one OUTPUT, or several inputs with --output-dir"},
        {{"copy", "--json", "a.wav", "b.wav", "--format", "mp3"},
         "there is no format \"mp3\"; choose from wave, bwave, aiff"},
        {{"plot", "--json", "take.wav", "--size", "big"},
         "--size does not understand \"big\"; it is WIDTHxHEIGHT, each from 100 to 30000"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        const ProcessResult result = takes.Run(row.arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(Parse(result.err), std::vector<json>{Error("", row.message)});
        documents += result.err;
    }
    ExpectDocuments(std::vector<std::string>(rows.size(), "kelhost.error"), documents);
    EXPECT_EQ(SortedNames(takes.Directory()), (Names{"take.wav", "text.wav"}));
}

TEST(Documents, OfErrorsTellOfFailuresThatAreAboutNoFile) {
    const Takes takes;
    struct Row {
        std::vector<std::string> arguments;
        std::string message;
    };
    std::string documents;
    for (const Row& row :
         {Row{{"--json", "inspect", "kel.Nothing"},
              "there is no element \"kel.Nothing\"; registered are kel, kel.LibsndfileSource, "
              "kel.LibsndfileSink"},
          Row{{"--json", "--plugin", TestPlugin("kelThrowsError"), "inspect"},
              "the plug-in " + TestPlugin("kelThrowsError") + " failed in RegisterAll: "}}) {
        const ProcessResult result = takes.Run(row.arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        const std::vector<json> errors = Parse(result.err);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_EQ(errors[0]["file"], "");
        EXPECT_EQ(errors[0]["message"].get<std::string>().substr(0, row.message.size()),
                  row.message);
        documents += result.err;
    }
    ExpectDocuments({"kelhost.error", "kelhost.error"}, documents);
}

TEST(Documents, ShowOtherFileNamesEscaped) {
    const Takes takes;
    const std::string name = "a\n\xFF\x1B\xC3\xA4.wav";
    WriteTake(takes / name);
    const ProcessResult info = takes.Run({"info", "--json", name});
    const ProcessResult error = takes.Run({"info", "--json", "\xFE.wav"});
    ExpectDocuments({"kelhost.info", "kelhost.error", "kelhost.info"},
                    info.out + error.err + error.out);
    EXPECT_EQ(Parse(info.out)[0]["files"][0]["file"], "a\\n\\xFF\\x1B\xC3\xA4.wav");
    EXPECT_EQ(Parse(error.err)[0], Error("\\xFE.wav", "\\xFE.wav: No such file or directory"));
}

TEST(Documents, OfTheLogAreLinesOfStandardError) {
    const Takes takes;
    const ProcessResult result = takes.Run({"copy", "--json", "--verbose", "take.wav", "copy.wav"});
    EXPECT_EQ(result.status, 0);
    const std::vector<json> lines = Parse(result.err);
    EXPECT_GT(lines.size(), 4U);
    ExpectDocuments(std::vector<std::string>(lines.size(), "kelhost.log"), result.err);
}

TEST(Documents, OfTheLogTellOfPluginsThatCanNotBeLoaded) {
    const Takes takes;
    const TemporaryDirectory plugins;
    std::filesystem::create_symlink(TestPlugin("kelNoEntryPoint"), plugins / "libkelA.so");
    std::filesystem::create_symlink(TestPlugin("kelFaultyElements"), plugins / "libkelB.so");
    Command command = Kelhost(takes.Directory(), {"inspect", "--json"});
    command.environment["KEL_PLUGIN_PATH"] = plugins.Path().string();
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0);
    ExpectDocuments({"kelhost.log", "kelhost.inspect"}, result.err + result.out);
    const std::string warning =
        "kelhost: warning: the plug-in " + (plugins / "libkelA.so") + " has no entry point";
    EXPECT_EQ(Parse(result.err)[0]["text"].get<std::string>().substr(0, warning.size()), warning);
}

TEST(Documents, OfProgressEndWithAllThatThereIs) {
    const Takes takes;
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"copy", "take.wav", "copy.wav"},
          {"info", "--measure", "take.wav"},
          {"plot", "take.wav"}}) {
        SCOPED_TRACE(command.front());
        std::vector<std::string> arguments = command;
        arguments.insert(arguments.end(), {"--progress", "json"});
        const ProcessResult result = takes.Run(arguments);
        EXPECT_EQ(result.status, 0);
        ExpectDocuments({"kelhost.progress", "kelhost.progress"}, result.err);
        EXPECT_EQ(Parse(result.err), (std::vector<json>{{{"document", "kelhost.progress"},
                                                         {"version", 1},
                                                         {"file", "take.wav"},
                                                         {"done", 1000},
                                                         {"total", 1000},
                                                         {"rate", 48000}},
                                                        {{"document", "kelhost.progress"},
                                                         {"version", 1},
                                                         {"file", "take.wav"},
                                                         {"finished", true},
                                                         {"succeeded", true}}}));
    }
    const ProcessResult failed = takes.Run({"info", "missing.wav", "--json", "--progress", "json"});
    EXPECT_EQ(failed.status, 1);
    ExpectDocuments({"kelhost.error", "kelhost.progress"}, failed.err);
    EXPECT_EQ(Parse(failed.err)[1], (json{{"document", "kelhost.progress"},
                                          {"version", 1},
                                          {"file", "missing.wav"},
                                          {"finished", true},
                                          {"succeeded", false}}));
}

TEST(DocumentSchemas, RefuseWhatIsNotAsTheySay) {
    const std::string documents =
        R"({"document":"kelhost.error","version":1,"file":"","message":"m"})"
        "\n"
        R"({"document":"kelhost.error","version":2,"file":"","message":"m"})"
        "\n"
        R"({"document":"kelhost.error","version":1,"file":"","message":"m","more":1})"
        "\n"
        R"({"document":"kelhost.error","version":1,"file":""})"
        "\n"
        R"({"document":"kelhost.unknown","version":1})"
        "\n"
        R"(["kelhost.error"])"
        "\n"
        "kelhost: m\n"
        R"({"document":"kelhost.progress","version":1,"file":"f","done":1,"total":2,"rate":1})"
        "\n"
        R"({"document":"kelhost.progress","version":1,"file":"f","done":1,"total":2})"
        "\n"
        R"({"document":"kelhost.info","version":1,"failures":[],"files":[{"file":"f"}]})"
        "\n"
        R"({"document":"kelhost.plot","version":1,"input":"f","picture":"","width":-1,"height":0,"text":""})"
        "\n"
        R"({"document":"kelhost.copy","version":1,"results":[],"skipped":[],"failures":[{"file":"f"}]})"
        "\n";
    const ProcessResult result = Validate(documents);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    std::vector<std::string> numbers;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        numbers.push_back(line.substr(0, line.find(':')));
    }
    EXPECT_EQ(numbers,
              (std::vector<std::string>{"2", "3", "4", "5", "6", "7", "9", "10", "11", "12"}))
        << result.out;
}

} // namespace kel::test
