#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

using nlohmann::json;

// A directory with a recording and a file without sound, and the documents of runs in it. They are
// validated together at the end, as each validation starts an interpreter.
class Documents : public testing::Test {
protected:
    Documents() {
        WriteTake(m_directory / "take.wav");
        WriteFile(m_directory / "text.wav", kNoAudio);
    }
    ~Documents() override { ExpectDocuments(m_kinds, m_documents); }

    // Runs the program and returns its documents, those of standard error first.
    std::vector<json> Run(int status, const Names& kinds, const Arguments& arguments) {
        return Expect(RunKelhost(m_directory, arguments), status, kinds);
    }

    std::vector<json> Expect(const ProcessResult& result, int status, const Names& kinds) {
        EXPECT_EQ(result.status, status);
        m_kinds = m_kinds + kinds;
        m_documents += result.err + result.out;
        std::vector<json> documents;
        for (const std::string& line : LinesOf(result.err + result.out)) {
            documents.push_back(json::parse(line));
        }
        documents.resize(std::max(documents.size(), kinds.size()));
        return documents;
    }

    TemporaryDirectory m_directory;

private:
    Names m_kinds;
    std::string m_documents;
};

const std::string kTextWavError =
    "text.wav: cannot open for reading: its format is unknown or it is damaged (--verbose shows "
    "more)";

json ErrorDocument(const std::string& file, const std::string& message) {
    return {{"document", "kelhost.error"},
            {"version", 1},
            {"file", file},
            {"path", file.empty() ? json() : json(file)},
            {"message", message}};
}

json Failure(const std::string& file, const std::string& message) {
    return {{"file", file}, {"path", file}, {"message", message}};
}

} // namespace

TEST_F(Documents, OfCopiesListResultsAndFailures) {
    WriteAudio(m_directory / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 48000,
               {0.5F, 2.0F, -4.0F});
    const auto documents =
        Run(1, {"kelhost.log", "kelhost.error", "kelhost.copy"},
            {"copy", "--json", "take.wav", "loud.wav", "text.wav", "--output-dir", "out",
             "--encoding", "int16", "--format", "aiff", "--verify", "--jobs", "1"});
    const std::string clipped =
        "out/loud.aiff: channel 1: 2 values clipped, the loudest 4 times full scale";
    EXPECT_EQ(documents[0], (json{{"document", "kelhost.log"},
                                  {"version", 1},
                                  {"text", "kelhost: warning: " + clipped}}));
    EXPECT_EQ(documents[1], ErrorDocument("text.wav", kTextWavError));
    const auto result = [](const std::string& name, int channels, int frames, json conversion,
                           json warnings) {
        return json{{"input", name + ".wav"},
                    {"output", "out/" + name + ".aiff"},
                    {"input_path", name + ".wav"},
                    {"output_path", "out/" + name + ".aiff"},
                    {"container", "AIFF-C"},
                    {"encoding", "int16"},
                    {"byte_order", "big-endian"},
                    {"channels", channels},
                    {"rate", 48000},
                    {"frames", frames},
                    {"bytes", 2 * channels * frames},
                    {"verified", true},
                    {"rounded", 0},
                    {"metadata", {{"kept", json::array()}, {"not_preserved", json::array()}}},
                    {"warnings", std::move(warnings)},
                    {"conversion", std::move(conversion)}};
    };
    const json quiet{{"clipped", 0}, {"loudest", 0.0}, {"non_finite", 0}};
    const json loud{{"clipped", 2}, {"loudest", 4.0}, {"non_finite", 0}};
    EXPECT_EQ(documents[2],
              (json{{"document", "kelhost.copy"},
                    {"version", 1},
                    {"failures", {Failure("text.wav", kTextWavError)}},
                    {"skipped", json::array()},
                    {"results",
                     {result("take", 2, 1000, {quiet, quiet}, json::array()),
                      result("loud", 1, 3, json::array({loud}), json::array({clipped}))}}}));
}

TEST_F(Documents, OfInfoListTheFilesAndTheFailuresInTheirOrder) {
    const auto documents =
        Run(1, {"kelhost.error", "kelhost.error", "kelhost.info"},
            {"info", "--json", "missing.wav", "take.wav", "text.wav", "take.wav"});
    const json file{{"file", "take.wav"},
                    {"path", "take.wav"},
                    {"format", "WAVE 16-bit integer"},
                    {"container", "WAVE"},
                    {"encoding", "16-bit integer"},
                    {"bytes", 4044},
                    {"channels", 2},
                    {"layout", nullptr},
                    {"channel_mask", nullptr},
                    {"rate", 48000},
                    {"frames", 1000},
                    {"seconds", 1000.0 / 48000},
                    {"duration", "0:00:00.021"},
                    {"delivery", "32-bit float little-endian"},
                    {"broadcast", nullptr},
                    {"tags", json::array()},
                    {"cue_points", json::array()},
                    {"chunks", json::array()},
                    {"problems", json::array()},
                    {"truncated", nullptr},
                    {"warnings", json::array()}};
    EXPECT_EQ(documents[2],
              (json{{"document", "kelhost.info"},
                    {"version", 1},
                    {"files", {file, file}},
                    {"failures",
                     {Failure("missing.wav",
                              "missing.wav: cannot open for reading: No such file or directory"),
                      Failure("text.wav", kTextWavError)}}}));
    WriteAudio(m_directory / "silence.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000,
               std::vector<float>(8000, 0.0F));
    const json measured = Run(0, {"kelhost.info"}, {"info", "--json", "--measure", "silence.wav"})
                              .at(0)["files"][0]["measurement"];
    EXPECT_EQ(measured, (json{{"channels",
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

TEST_F(Documents, OfPlotsNameThePictureOrHoldTheCharacters) {
    const auto picture =
        Run(0, {"kelhost.plot"}, {"plot", "--json", "take.wav", "take.svg", "--size", "300x200"});
    EXPECT_EQ(picture[0], (json{{"document", "kelhost.plot"},
                                {"version", 1},
                                {"input", "take.wav"},
                                {"picture", "take.svg"},
                                {"input_path", "take.wav"},
                                {"picture_path", "take.svg"},
                                {"width", 300},
                                {"height", 200},
                                {"text", ""},
                                {"warnings", json::array()}}));
    const auto characters = Run(0, {"kelhost.plot"}, {"plot", "--json", "take.wav"});
    EXPECT_EQ(characters[0]["text"], RunKelhost(m_directory, {"plot", "take.wav"}).out);
}

TEST_F(Documents, OfFormatsHoldEachCombination) {
    const json formats = Run(0, {"kelhost.formats"}, {"formats", "--json"}).at(0)["formats"];
    ASSERT_EQ(formats.size(), 30U);
    EXPECT_EQ(formats[21], (json{{"format", "aiff"},
                                 {"container", "AIFF-C"},
                                 {"extensions", {".aiff", ".aif", ".aifc"}},
                                 {"encoding", "int16"},
                                 {"byte_order", "big-endian"},
                                 {"written", true},
                                 {"readers", "libsndfile, sox, ffmpeg"}}));
}

TEST_F(Documents, OfInspectHoldTheElementsWithTheirSettings) {
    const json listed = Run(0, {"kelhost.inspect"}, {"inspect", "--json"}).at(0)["elements"];
    EXPECT_EQ(listed.size(), 3U);
    const json elements = Run(0, {"kelhost.inspect"}, {"inspect", "--json", "kel.LibsndfileSource"})
                              .at(0)["elements"];
    EXPECT_EQ(elements, json::array({listed[1]}));
    EXPECT_EQ(elements[0]["kind"], "AudioSource");
    EXPECT_EQ(elements[0]["types"], (json{"AIFF", "WAVE", "BWAVE"}));
    EXPECT_EQ(elements[0]["settings"][0]["default"], nullptr);
    EXPECT_EQ(elements[0]["settings"][1],
              (json{{"name", "MaxSamplesPerBuffer"},
                    {"kind", "integer"},
                    {"default", 1024},
                    {"description", "Maximum number of samples that will be returned in each "
                                    "buffer. Configurable."}}));
}

TEST_F(Documents, OfTheDemonstrationAreThoseOfCopyAndInfo) {
    Run(0, {"kelhost.copy", "kelhost.info"}, {"demo", "--json"});
}

TEST_F(Documents, OfErrorsAreWrittenForEveryKindOfFailure) {
    const std::string commands =
        "copy, info, compare, plot, formats, run, inspect, validate or demo";
    struct Row {
        Arguments arguments;
        int status;
        std::string message;
        std::string file = {};
    };
    for (const Row& row : {
             Row{{"--json"}, 2, "a command is missing; see kelhost --help"},
             Row{{"--json", "frobnicate"},
                 2,
                 "there is no command \"frobnicate\"; use " + commands},
             Row{{"info", "--json", "take.wav", "--frob\nnicate=\x1B[2J"},
                 2,
                 "there is no option --frob\\nnicate; see kelhost info --help"},
             Row{{"copy", "--json", "a.wav", "b.wav", "--block", "0"},
                 2,
                 "invalid value \"0\" for --block: expected an integer from 1 to 1048576"},
             Row{{"copy", "--json", "a.wav"},
                 2,
                 "OUTPUT is missing; name it after the input: kelhost copy a.wav out.wav"},
             Row{{"--json", "inspect", "kel.Nothing"},
                 1,
                 "there is no element \"kel.Nothing\"; use kel, "
                 "kel.LibsndfileSource or kel.LibsndfileSink"},
             Row{{"--json", "--plugin", TestPlugin("kelNoEntryPoint"), "inspect"},
                 1,
                 TestPlugin("kelNoEntryPoint") + ": the plug-in has no entry point RegisterAll: " +
                     TestPlugin("kelNoEntryPoint") + ": undefined symbol: RegisterAll",
                 TestPlugin("kelNoEntryPoint")},
         }) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        EXPECT_EQ(Run(row.status, {"kelhost.error"}, row.arguments),
                  std::vector<json>{ErrorDocument(row.file, row.message)});
    }
}

TEST_F(Documents, HaveNamesThatCanBeOpened) {
    for (const std::string name : {"a\n\x1B\xC3\xA4.wav", "b\xFF\xC3\xA4.wav"}) {
        WriteTake(m_directory / name);
        const bool isUTF8 = name.front() == 'a';
        const std::string output = "out/" + name;
        const auto file = Run(0, {"kelhost.info"}, {"info", "--json", name})[0]["files"][0];
        EXPECT_EQ(file["path"], isUTF8 ? json(name) : json());
        EXPECT_EQ(file.value("path_hex", ""), isUTF8 ? "" : "62ffc3a42e776176");
        for (const std::string list : {"results", "skipped"}) {
            const auto copy = Run(0, {"kelhost.copy"},
                                  {"copy", "--json", "--skip-existing", name, "-o", "out"})[0];
            EXPECT_EQ(copy[list][0]["input_path"], file["path"]);
            EXPECT_EQ(copy[list][0]["output_path"], isUTF8 ? json(output) : json());
            EXPECT_EQ(copy[list][0].value("output_path_hex", ""),
                      isUTF8 ? "" : "6f75742f62ffc3a42e776176");
        }
        const auto compared =
            Run(0, {"kelhost.compare"}, {"compare", "--json", name, output})[0]["results"][0];
        EXPECT_EQ(compared["a"]["path"], file["path"]);
        EXPECT_EQ(compared["b"].value("path_hex", ""), isUTF8 ? "" : "6f75742f62ffc3a42e776176");
        const auto failed = Run(1, {"kelhost.error", "kelhost.progress", "kelhost.info"},
                                {"info", "--json", "--progress", "json", "no" + name});
        for (const json& item : {failed[0], failed[1], failed[2]["failures"][0]}) {
            EXPECT_EQ(item["path"], isUTF8 ? json("no" + name) : json());
            EXPECT_EQ(item.value("path_hex", ""), isUTF8 ? "" : "6e6f62ffc3a42e776176");
        }
    }
}

TEST_F(Documents, ShowOtherFileNamesEscaped) {
    const std::string name = "a\n\xFF\x1B\xC3\xA4.wav";
    WriteTake(m_directory / name);
    EXPECT_EQ(Run(0, {"kelhost.info"}, {"info", "--json", name})[0]["files"][0]["file"],
              "a\\n\\xFF\\x1B\xC3\xA4.wav");
    json expected =
        ErrorDocument("\\xFE.wav", "\\xFE.wav: cannot open for reading: No such file or directory");
    expected["path"] = nullptr;
    expected["path_hex"] = "fe2e776176";
    EXPECT_EQ(Run(1, {"kelhost.error", "kelhost.info"}, {"info", "--json", "\xFE.wav"})[0],
              expected);
}

TEST_F(Documents, OfTheLogAreLinesOfStandardError) {
    const TemporaryDirectory plugins;
    std::filesystem::create_symlink(TestPlugin("kelNoEntryPoint"), plugins / "libkelA.so");
    std::filesystem::create_symlink(KEL_TEST_PLUGIN, plugins / "libkelB.so");
    Command command = Kelhost(m_directory, {"info", "--json", "--verbose", "take.wav"});
    command.environment["KEL_PLUGIN_PATH"] = plugins.Path().string();
    const auto documents =
        Expect(RunCommand(command), 0,
               {"kelhost.log", "kelhost.log", "kelhost.log", "kelhost.log", "kelhost.info"});
    const std::string warning =
        "kelhost: warning: " + (plugins / "libkelA.so") + ": the plug-in has no entry point";
    EXPECT_EQ(documents[0]["text"].get<std::string>().substr(0, warning.size()), warning);
}

TEST_F(Documents, OfProgressEndWithTheWholeOrTheRange) {
    struct Row {
        Arguments arguments;
        int total;
        std::string file = "take.wav";
        bool succeeded = true;
    };
    for (const Row& row :
         {Row{{"copy", "take.wav", "copy.wav"}, 1000},
          Row{{"copy", "take.wav", "part.wav", "--start", "100f", "--duration", "200f"}, 200},
          Row{{"info", "--measure", "take.wav"}, 1000},
          Row{{"plot", "take.wav", "--start", "100f", "--duration", "200f"}, 200},
          Row{{"compare", "take.wav", "take.wav", "--duration", "200f"},
              200,
              "take.wav and take.wav"},
          Row{{"run", "example.ToneSource", "Length=1000", "!", "example.LevelMeterSink",
               "--plugin", TestPlugin("kelTone")},
              1000,
              "example.ToneSource"},
          Row{{"info", "missing.wav"}, 0, "missing.wav", false}}) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        ProcessResult result =
            RunKelhost(m_directory, row.arguments + Arguments{"--progress", "json", "--json"});
        result.out.clear();
        if (!row.succeeded) { // the error comes first
            result.err = result.err.substr(result.err.find('\n') + 1);
        }
        // Two files have no path, and an element has none.
        const json path = row.file.find(".wav") + 4 == row.file.size() ? json(row.file) : json();
        std::vector<json> expected{{{"document", "kelhost.progress"},
                                    {"version", 1},
                                    {"file", row.file},
                                    {"path", path},
                                    {"finished", true},
                                    {"succeeded", row.succeeded}}};
        if (row.succeeded) {
            expected.insert(expected.begin(), json{{"document", "kelhost.progress"},
                                                   {"version", 1},
                                                   {"file", row.file},
                                                   {"path", path},
                                                   {"done", row.total},
                                                   {"total", row.total},
                                                   {"rate", 48000}});
        }
        EXPECT_EQ(Expect(result, row.succeeded ? 0 : 1, Names(expected.size(), "kelhost.progress")),
                  expected);
    }
}

TEST(DocumentSchemas, RefuseDocumentsOfAnotherForm) {
    struct Row {
        std::string document;
        bool isRefused = true;
    };
    const std::vector<Row> rows{
        {R"({"document":"kelhost.error","version":1,"file":"","path":null,"message":"m"})", false},
        {R"({"document":"kelhost.error","version":1,"file":"","message":"m"})"},
        {R"({"document":"kelhost.error","version":2,"file":"","path":null,"message":"m"})"},
        {R"({"document":"kelhost.error","version":1,"file":"","path":null,"message":"m","more":1})"},
        {R"({"document":"kelhost.unknown","version":1})"},
        {R"(["kelhost.error"])"},
        {"kelhost: m"},
        {R"({"document":"kelhost.progress","version":1,"file":"f","path":"f","done":1,"total":2})"},
        {R"({"document":"kelhost.progress","version":1,"file":"f","path":"f","waiting":1})", false},
        {R"({"document":"kelhost.progress","version":1,"file":"f","path":"f","spooled":1})", false},
        {R"({"document":"kelhost.progress","version":1,"file":"f","path":"f","waiting":0})"},
        {R"({"document":"kelhost.progress","version":1,"file":"f","path":"f","waiting":1,)"
         R"("spooled":1})"},
        {R"({"document":"kelhost.progress","version":1,"file":"f","path":"f","waiting":1,)"
         R"("finished":true,)"
         R"("succeeded":true})"},
        {R"({"document":"kelhost.info","version":1,"failures":[],"files":[{"file":"f"}]})"},
        {R"({"document":"kelhost.plot","version":1,"input":"f","picture":"","width":-1,"height":0,)"
         R"("text":"","warnings":[]})"},
        {R"({"document":"kelhost.copy","version":1,"results":[],"skipped":[],)"
         R"("failures":[{"file":"f"}]})"},
    };
    std::string documents;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        documents += rows[i].document + "\n";
        if (rows[i].isRefused) {
            expected.push_back(std::to_string(i + 1));
        }
    }
    const ProcessResult result = Validate(documents);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    std::vector<std::string> numbers;
    for (const std::string& line : LinesOf(result.out)) {
        numbers.push_back(line.substr(0, line.find(':')));
    }
    EXPECT_EQ(numbers, expected) << result.out;
}

} // namespace kel::test
