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

// Names that careless programs stumble over.
const std::vector<FileName>& DifficultNames() {
    static const std::vector<FileName> names{
        {"a blank", "a b.wav", "a b.wav"},
        {"a newline", "a\nb.wav", "a\\nb.wav"},
        {"an escape sequence", "\x1B[31m.wav", "\\x1B[31m.wav"},
        {"a tab and a delete", "a\tb\x7F.wav", "a\\tb\\x7F.wav"},
        {"a percent sign", "%s%n%d.wav", "%s%n%d.wav"},
        {"braces", "{}{0}.wav", "{}{0}.wav"},
        {"quotes", "'\"`.wav", "'\"`.wav"},
        {"a backslash", "a\\n.wav", "a\\n.wav"},
        {"a dollar sign", "$HOME.wav", "$HOME.wav"},
        {"a star", "*.wav", "*.wav"},
        {"UTF-8", "\xC3\xA4\xE6\x97\xA5\xF0\x9F\x8E\xB5.wav",
         "\xC3\xA4\xE6\x97\xA5\xF0\x9F\x8E\xB5.wav"},
        {"bytes that are no UTF-8", "caf\xE9\xFF.wav", "caf\\xE9\\xFF.wav"},
        {"a C1 control", "a\xC2\x9B.wav", "a\\x9B.wav"},
        {"the first of the two dots", "..wav", "..wav"},
        {"an equals sign", "a=b.wav", "a=b.wav"},
        {"brackets all around", "[a].wav", "[a].wav"},
        {"a hash", "#.wav", "#.wav"},
        {"a colon", "a:b.wav", "a:b.wav"},
        {"255 bytes", std::string(251, 'n') + ".wav", std::string(251, 'n') + ".wav"},
    };
    return names;
}

const std::string kReport = ": extensible WAVE, float32 little-endian, 2 channels, 48000 Hz, 1000 "
                            "frames, 0:00:00.021\n";

std::string Table(const std::string& shown) {
    // Widths count code points.
    std::size_t width = 0;
    for (const char character : shown) {
        width += (static_cast<unsigned char>(character) & 0xC0U) != 0x80U ? 1 : 0;
    }
    const auto column = std::max<std::size_t>(width, 4);
    return "File" + std::string(column - 4, ' ') +
           "  Channels      Rate  Frames     Duration  Delivered as\n" + shown +
           std::string(column - width, ' ') +
           "         2  48000 Hz    1000  0:00:00.021  32-bit float little-endian\n";
}

// Expects that files of such names can be shown and copied.
void ExpectUsable(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        WriteTake(directory / name);
        ExpectResult(RunKelhost(directory, {"info", name}), 0, Table(name), "");
        ExpectResult(RunKelhost(directory, {"copy", name, "result.wav"}), 0,
                     name + " -> result.wav" + kReport, "");
    }
}

} // namespace

TEST(FileNames, CanBeReadWhateverTheyHold) {
    for (const FileName& file : DifficultNames()) {
        SCOPED_TRACE(file.what);
        const TemporaryDirectory directory;
        WriteTake(directory / file.name);
        ExpectResult(RunKelhost(directory, {"copy", file.name, "copy.wav"}), 0,
                     file.shown + " -> copy.wav" + kReport, "");
        ExpectResult(RunKelhost(directory, {"info", file.name}), 0, Table(file.shown), "");
    }
}

TEST(FileNames, CanBeWrittenWhateverTheyHold) {
    for (const FileName& file : DifficultNames()) {
        SCOPED_TRACE(file.what);
        const TemporaryDirectory directory;
        WriteTake(directory / "take");
        ExpectResult(RunKelhost(directory, {"copy", "take", file.name}), 0,
                     "take -> " + file.shown + kReport, "");
        EXPECT_EQ(ReadAudio(directory / file.name).values, ReadAudio(directory / "take").values);
        EXPECT_EQ(directory.Names().size(), 2U);
    }
}

TEST(FileNames, AreShownOnOneLineInErrors) {
    for (const FileName& file : DifficultNames()) {
        SCOPED_TRACE(file.what);
        const TemporaryDirectory directory;
        ExpectResult(RunKelhost(directory, {"copy", file.name, "copy.wav"}), 1, "",
                     "kelhost: " + file.shown + ": No such file or directory\n");
        ExpectResult(RunKelhost(directory, {"info", file.name}), 1, "",
                     "kelhost: " + file.shown + ": No such file or directory\n");
        WriteFile(directory / "take", "no audio at all, but a text of some length\n");
        WriteFile(directory / file.name, "no audio at all, but a text of some length\n");
        ExpectResult(RunKelhost(directory, {"info", file.name}), 1, "",
                     "kelhost: " + file.shown + ": cannot be read: [Unable to open file \"" +
                         file.shown + "\" with libsndfile. Error is:\"Format not recognised.\"]\n");
    }
}

TEST(FileNames, MayBeginWithADashBehindTwoDashes) {
    const TemporaryDirectory directory;
    WriteTake(directory / "-take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--", "-take.wav", "--copy.wav"}), 0,
                 "-take.wav -> --copy.wav" + kReport, "");
    ExpectResult(RunKelhost(directory, {"info", "--", "-take.wav"}), 0, Table("-take.wav"), "");
    EXPECT_EQ(SortedNames(directory), (Names{"--copy.wav", "-take.wav"}));
}

TEST(FileNames, MayBeADashWhichIsNoStandardStream) {
    const TemporaryDirectory directory;
    WriteTake(directory / "-");
    ExpectResult(RunKelhost(directory, {"info", "-"}), 0, Table("-"), "");
    ExpectResult(RunKelhost(directory, {"copy", "-", "copy.wav"}), 0, "- -> copy.wav" + kReport,
                 "");
    ExpectResult(RunKelhost(directory, {"copy", "--format", "wave", "--force", "copy.wav", "-"}), 0,
                 "copy.wav -> -" + kReport, "");
    EXPECT_EQ(ReadAudio(directory / "./-").values, ReadAudio(directory / "copy.wav").values);
    EXPECT_EQ(SortedNames(directory), (Names{"-", "copy.wav"}));
}

TEST(FileNames, MayBeThoseOfCommands) {
    ExpectUsable({"copy", "info", "demo", "help"});
}

TEST(FileNames, MayBeInBrackets) {
    ExpectUsable({"{a}", "%take%", "(a)", "[take].wav"});
    // Shown with the directory that keeps the command line from taking them for lists.
    for (const std::string name : {"[take]", "[]", "[a,b]"}) {
        const TemporaryDirectory directory;
        WriteTake(directory / name);
        ExpectResult(RunKelhost(directory, {"info", name}), 0, Table("./" + name), "");
    }
}

TEST(FileNames, MayNotBeEmpty) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"info", ""}), 1, "",
                 "kelhost: : No such file or directory\n");
    ExpectResult(RunKelhost(directory, {"copy", "", "copy.wav"}), 1, "",
                 "kelhost: : No such file or directory\n");
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", ""}).status, 2);
    EXPECT_EQ(RunKelhost(directory, {"copy", "--format", "wave", "take.wav", ""}).status, 1);
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(FileNames, MayHave1023BytesWithTheirDirectories) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    std::string path = directory.Path().string();
    while (path.size() < 900) {
        path += "/" + std::string(99, 'd');
    }
    std::filesystem::create_directories(path);
    const std::string name(1023 - path.size() - 5, 'n');
    const std::string longest = path + "/" + name + ".wav";
    ASSERT_EQ(longest.size(), 1023U);
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", longest}), 0,
                 "take.wav -> " + longest + kReport, "");
    ExpectResult(RunKelhost(directory, {"info", longest}), 0, Table(longest), "");
    EXPECT_EQ(ReadAudio(longest).values, ReadAudio(directory / "take.wav").values);
}

TEST(FileNames, OfInputsAreNotCutWhenTheyAreLongerThanLibsndfileTakes) {
    const TemporaryDirectory directory;
    std::string path = directory.Path().string();
    while (path.size() < 900) {
        path += "/" + std::string(99, 'd');
    }
    std::filesystem::create_directories(path);
    // What a cut name would lead to is there, too.
    const std::string cut = path + "/" + std::string(1023 - path.size() - 1, 'n');
    const std::string wanted = cut + "m";
    ASSERT_EQ(wanted.size(), 1024U);
    WriteTake(cut, 7);
    WriteTake(directory / "take", 1000);
    std::filesystem::rename(directory / "take", wanted);
    const std::string error =
        "kelhost: " + wanted +
        ": the path is longer than 1023 bytes; change to its directory or use a "
        "shorter name\n";
    ExpectResult(RunKelhost(directory, {"info", wanted}), 1, "", error);
    ExpectResult(RunKelhost(directory, {"copy", wanted, "copy.wav"}), 1, "", error);
    EXPECT_FALSE(std::filesystem::exists(directory / "copy.wav"));
    // From its directory it can be named.
    Command command =
        Kelhost(directory, {"info", "--field", "frames", wanted.substr(path.size() + 1)});
    command.directory = path;
    ExpectResult(RunCommand(command), 0, "1000\n", "");
}

TEST(FileNames, OfOutputsAreRefusedWhenTheyAreLongerThanLibsndfileTakes) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    std::string path = directory.Path().string();
    while (path.size() < 900) {
        path += "/" + std::string(99, 'd');
    }
    // Within the limit itself, but not with a temporary name.
    const std::string deep = path + "/" + std::string(1023 - path.size() - 1 - 6, 'd');
    std::filesystem::create_directories(deep);
    struct Row {
        std::string output;
        std::string error;
    };
    const std::string tooLong =
        ": the path is longer than 1023 bytes; change to its directory or use a shorter name\n";
    const std::string tooLongUnfinished =
        ": is written under a temporary name first, whose path would be longer than 1023 bytes; "
        "change to its directory\n";
    for (const Row& row :
         {Row{path + "/" + std::string(1024 - path.size() - 5, 'n') + ".wav", tooLong},
          Row{std::string(5000, 'n') + ".wav", tooLong}, Row{deep + "/ab.wav", tooLong},
          Row{deep + "/a.wav", tooLongUnfinished}}) {
        for (const std::string force : {"--quiet", "--force"}) {
            ExpectResult(RunKelhost(directory, {"copy", force, "take.wav", row.output}), 1, "",
                         "kelhost: " + row.output + row.error);
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(deep));
    // From its directory it can be written.
    Command command = Kelhost(directory, {"copy", "--quiet", directory / "take.wav", "a.wav"});
    command.directory = deep;
    ExpectResult(RunCommand(command), 0, "", "");
    EXPECT_TRUE(std::filesystem::exists(deep + "/a.wav"));
}

} // namespace kel::test
