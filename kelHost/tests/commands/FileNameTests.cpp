#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace {

struct FileName {
    std::string what;
    std::string name;
    std::string shown;
};

// One name for each way to misread one.
const std::vector<FileName> kDifficultNames{
    {"a blank and a newline", "a b\n.wav", "a b\\n.wav"},
    {"an escape sequence", "\x1B[31m.wav", "\\x1B[31m.wav"},
    {"format specifiers", "%s%n{}{0}.wav", "%s%n{}{0}.wav"},
    {"marks of a shell", "'\"`\\$HOME*#.wav", "'\"`\\$HOME*#.wav"},
    {"UTF-8", "\xC3\xA4\xE6\x97\xA5\xF0\x9F\x8E\xB5.wav",
     "\xC3\xA4\xE6\x97\xA5\xF0\x9F\x8E\xB5.wav"},
    {"bytes that are no UTF-8, and a C1 control", "caf\xE9\xFF\xC2\x9B.wav",
     "caf\\xE9\\xFF\\x9B.wav"},
    {"marks that reverse, hide and break text", "\u202Evaw.a\u200Bb\u2028.wav",
     "\\u202Evaw.a\\u200Bb\\u2028.wav"},
    {"the first of the two dots", "..wav", "..wav"},
    {"signs of settings and types", "[a=b:c].wav", "[a=b:c].wav"},
    {"255 bytes", std::string(251, 'n') + ".wav", std::string(251, 'n') + ".wav"},
};

// The first line of the facts about a file.
std::string NameLine(const std::string& shown) {
    return "File                 " + shown;
}

// The same as the program shows it.
std::string ShownNameLine(const TemporaryDirectory& directory, const std::string& name) {
    const ProcessResult result = RunKelhost(directory, {"info", name});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out.substr(0, result.out.find('\n'));
}

} // namespace

TEST(FileNames, MayHaveAnyBytesAndAreShownOnOneLine) {
    for (const FileName& file : kDifficultNames) {
        SCOPED_TRACE(file.what);
        const TemporaryDirectory directory;
        ExpectResult(RunKelhost(directory, {"info", file.name}), 1, "",
                     Error(file.shown, "cannot open for reading: No such file or directory"));
        WriteFile(directory / file.name, kNoAudio);
        ExpectResult(RunKelhost(directory, {"info", file.name}), 1, "", NoAudioError(file.shown));
        WriteTake(directory / "take");
        ExpectResult(RunKelhost(directory, {"copy", "take", file.name, "--force"}), 0,
                     CopyReport("take", file.shown), "");
        EXPECT_EQ(ReadAudio(directory / file.name).values, ReadAudio(directory / "take").values);
        ExpectResult(RunKelhost(directory, {"copy", file.name, "copy.wav"}), 0,
                     CopyReport(file.shown, "copy.wav"), "");
        EXPECT_EQ(ShownNameLine(directory, file.name), NameLine(file.shown));
        EXPECT_EQ(directory.Names().size(), 3U);
    }
}

TEST(FileNames, MayBeginWithADashAfterTwoDashes) {
    const TemporaryDirectory directory;
    WriteTake(directory / "-take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--", "-take.wav", "--copy.wav"}), 0,
                 CopyReport("-take.wav", "--copy.wav"), "");
    EXPECT_EQ(SortedNames(directory), (Names{"--copy.wav", "-take.wav"}));
}

TEST(FileNames, MayBeWordsOfTheCommandLine) {
    for (const std::string name : {"copy", "help", "{a}", "[take].wav"}) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        WriteTake(directory / name);
        EXPECT_EQ(ShownNameLine(directory, name), NameLine(name));
        ExpectResult(RunKelhost(directory, {"copy", name, "result.wav"}), 0,
                     CopyReport(name, "result.wav"), "");
        ExpectResult(
            RunKelhost(directory, {"copy", "--force", "--format", "wave", "result.wav", name}), 0,
            CopyReport("result.wav", name), "");
    }
    // Shown with the directory that keeps the command line from taking them for lists.
    for (const std::string name : {"[take]", "[]", "[a,b]"}) {
        const TemporaryDirectory directory;
        WriteTake(directory / name);
        EXPECT_EQ(ShownNameLine(directory, name), NameLine("./" + name));
    }
}

TEST(FileNames, MayBeADashInADirectory) {
    const TemporaryDirectory directory;
    WriteTake(directory / "-");
    ExpectResult(RunKelhost(directory, {"copy", "./-", "copy.wav"}), 0,
                 CopyReport("./-", "copy.wav"), "");
}

TEST(FileNames, MayNotBeEmpty) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    struct Row {
        Arguments arguments;
        std::string name;
        std::string kind = "file";
    };
    for (const Row& row :
         {Row{{"info", ""}, "argument 1"}, Row{{"info", "take.wav", ""}, "argument 2"},
          Row{{"copy", "", "copy.wav"}, "argument 1"}, Row{{"copy", "take.wav", ""}, "argument 2"},
          Row{{"copy", "--format", "wave", "take.wav", ""}, "argument 2"},
          Row{{"plot", "take.wav", ""}, "PICTURE"}, Row{{"compare", "take.wav", ""}, "B"},
          Row{{"info", "--files-from", ""}, "--files-from"},
          Row{{"info", "--plugin=", "take.wav"}, "--plugin"}, Row{{"validate", ""}, "PLUGIN"},
          Row{{"demo", ""}, "DIRECTORY", "directory"}}) {
        ExpectResult(RunKelhost(directory, row.arguments), 2, "",
                     "kelhost: empty name for " + row.name + ": expected the name of a " +
                         row.kind + "; see kelhost " + row.arguments[0] + " --help\n");
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(FileNames, OfInputsAreNotCutWhereTheyAreTooLongForLibsndfile) {
    const TemporaryDirectory directory;
    std::string path = directory.Path().string();
    while (path.size() < 900) {
        path += "/" + std::string(99, 'd');
    }
    std::filesystem::create_directories(path);
    // The file that a cut name would lead to.
    const std::string cut = path + "/" + std::string(1023 - path.size() - 1, 'n');
    const std::string wanted = cut + "m";
    ASSERT_EQ(wanted.size(), 1024U);
    WriteTake(cut, 7);
    WriteTake(directory / "take", 1000);
    std::filesystem::rename(directory / "take", wanted);
    const std::string error =
        Error(wanted,
              "the path is longer than 1023 bytes; change to its directory or use a shorter name");
    ExpectResult(RunKelhost(directory, {"info", wanted}), 1, "", error);
    ExpectResult(RunKelhost(directory, {"copy", wanted, "copy.wav"}), 1, "", error);
    EXPECT_FALSE(std::filesystem::exists(directory / "copy.wav"));
    // From its directory it can be named.
    Command command =
        Kelhost(directory, {"info", "--field", "frames", wanted.substr(path.size() + 1)});
    command.directory = path;
    ExpectResult(RunCommand(command), 0, "1000\n", "");
}

} // namespace kel::test
