// Inputs that end before the end that their header declares.

#include "AudioFiles.h"
#include "HeaderFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace {

const std::string kCounts = "declares 1000 frames and contains 250; it is truncated";

class TruncatedInput : public testing::Test {
protected:
    TruncatedInput() {
        WriteTake(m_directory / "take.wav");
        std::filesystem::resize_file(m_directory / "take.wav", 44 + 1000);
        WriteTake(m_directory / "part.wav", 250);
    }

    ProcessResult Run(const Arguments& arguments) const {
        return RunKelhost(m_directory, arguments);
    }

    // The commands that read the whole file.
    static std::vector<Arguments> Commands() {
        return {{"copy", "take.wav", "out.wav"},
                {"run", "kel.LibsndfileSource:WAVE", "FilePath=take.wav", "!", "kel.LibsndfileSink",
                 "FilePath=out.wav"},
                {"info", "--measure", "take.wav"},
                {"plot", "take.wav"},
                {"compare", "part.wav", "take.wav"}};
    }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(TruncatedInput, IsRefusedWithBothCounts) {
    for (const Arguments& arguments : Commands()) {
        SCOPED_TRACE(arguments.front());
        ExpectResult(
            Run(arguments), arguments.front() == "compare" ? 2 : 1, "",
            Error("take.wav", kCounts + " (--allow-truncated accepts the frames that exist)"));
        EXPECT_EQ(SortedNames(m_directory), (Names{"part.wav", "take.wav"}));
    }
}

TEST_F(TruncatedInput, IsReadAsFarAsItExistsWhereThatIsAllowed) {
    for (const Arguments& arguments : Commands()) {
        SCOPED_TRACE(arguments.front());
        Arguments whole = arguments + Arguments{"--allow-truncated"};
        for (std::string& argument : whole) {
            argument = ReplaceMatches(argument, "take.wav", "part.wav");
        }
        const ProcessResult expected = Run(whole);
        EXPECT_EQ(expected.status, 0);
        std::filesystem::remove(m_directory / "out.wav");
        ProcessResult result = Run(arguments + Arguments{"--allow-truncated"});
        result.out = ReplaceMatches(result.out, "take.wav", "part.wav");
        result.out = ReplaceMatches(result.out, "Truncated [^\n]*\n", "");
        ExpectResult(result, 0, expected.out, "kelhost: warning: take.wav: " + kCounts + "\n");
        std::filesystem::remove(m_directory / "out.wav");
    }
}

TEST_F(TruncatedInput, IsShownInDocuments) {
    std::string documents;
    const std::string warnings = R"("warnings":["take.wav: )" + kCounts + "\"]";
    for (const Arguments& arguments : Commands()) {
        const ProcessResult result = Run(arguments + Arguments{"--allow-truncated", "--json"});
        EXPECT_NE(result.out.find(warnings), std::string::npos) << result.out;
        documents += result.out;
        std::filesystem::remove(m_directory / "out.wav");
    }
    const std::string truncated = R"({"declared":1000,"present":250,"unit":"frames"})";
    const ProcessResult info = Run({"info", "--json", "take.wav"});
    EXPECT_NE(info.out.find("\"truncated\":" + truncated), std::string::npos) << info.out;
    ExpectResult(Run({"info", "--field", "truncated", "take.wav"}), 0, truncated + "\n", "");
    const ProcessResult validated = Validate(documents + info.out);
    EXPECT_EQ(validated.status, 0) << validated.out << validated.err;
}

TEST_F(TruncatedInput, IsShownByInfo) {
    const ProcessResult details = Run({"info", "take.wav"});
    EXPECT_NE(details.out.find("\nTruncated            declares 1000 frames and contains 250\n"),
              std::string::npos)
        << details.out;
    const ProcessResult table = Run({"info", "take.wav", "take.wav"});
    EXPECT_EQ(LinesOf(table.out).at(1), LinesOf(table.out).at(2));
    EXPECT_NE(table.out.find("WAVE 16-bit integer, truncated  "), std::string::npos) << table.out;
}

TEST_F(TruncatedInput, MayHaveAllOfItsSamples) {
    WriteFile(m_directory / "take.wav", MakeWave(1000, {}));
    const std::string counts = "declares 1008 bytes and contains 244; it is truncated";
    ExpectResult(Run({"copy", "take.wav", "out.wav"}), 1, "",
                 Error("take.wav", counts + " after its samples (--allow-truncated accepts it as "
                                            "it is)"));
    ExpectResult(Run({"copy", "--allow-truncated", "--quiet", "take.wav", "out.wav"}), 0, "",
                 "kelhost: warning: take.wav: " + counts + " after its samples\n");
    EXPECT_EQ(ReadAudio(m_directory / "out.wav").values.size(), 100U);
}

TEST(FramesOfAIFF, AreComparedWithThoseOfTheSamples) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.aiff", MakeAIFF({}, {}, 300));
    const std::string warning = "kelhost: warning: take.aiff: its chunk \"COMM\" declares 300 "
                                "frames; the 100 of its samples are read\n";
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "take.aiff", "out.aiff"}), 0, "",
                 warning);
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames", "take.aiff"}), 0, "100\n",
                 warning);
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames", "out.aiff"}), 0, "100\n", "");
}

} // namespace kel::test
