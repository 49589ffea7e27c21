// Copies and looks at many files in one call.

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Orphans.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

const std::string kFloats = "extensible WAVE, float32 little-endian";
const std::string kIntegers = "AIFF-C, int24 big-endian";

// What is said of a copy of a WriteTake.
std::string Line(const std::string& input, const std::string& output,
                 const std::string& what = kFloats) {
    return input + " -> " + output + ": " + what + ", 2 channels, 48000 Hz, 1000 frames, " +
           "0:00:00.021\n";
}

std::string TooSlow(const std::string& name) {
    return "kelhost: " + name +
           ": could not be opened within 0.5 s; it is damaged, or nobody writes into it "
           "(--open-timeout SECONDS allows more)\n";
}

std::string Lost(const std::string& name, const std::string& how) {
    return "kelhost: " + name + ": the process that worked on it was ended " + how +
           "; the file is damaged, or the plug-in is\n";
}

// The names in a folder within another.
Names NamesIn(const TemporaryFolder& folder, const std::string& name) {
    Names names;
    for (const auto& entry : fs::directory_iterator(folder / name)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Whether a copy holds what WriteTake writes.
bool IsTake(const std::string& path) {
    return ReadAudio(path).values == MakeValues(2000);
}

// Runs kelhost on the files of the test plug-in.
ProcessResult RunOnTexts(const TemporaryFolder& folder, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--plugin", TestPlugin("kelFaultyElements")});
    return RunKelhost(folder, arguments);
}

const std::vector<std::string> kNumbersOfJobs{"1", "2", "4", "256"};
const std::vector<std::string> kOneAndFourJobs{"1", "4"}; // where it takes a while

} // namespace

TEST(Batch, PutsEveryFileUnderItsOwnNameIntoTheFolder) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "sub");
    WriteTake(folder / "sub/a.wav");
    WriteTake(folder / "b.c.flac");
    WriteTake(folder / "d");
    WriteTake(folder / ".e");
    WriteTake(folder / "f.AIF");
    WriteTake(folder / "g.rf64");
    WriteTake(folder / "h.WAVE");
    ExpectResult(RunKelhost(folder, {"copy", "sub/a.wav", "b.c.flac", "d", ".e", "f.AIF", "g.rf64",
                                     "./h.WAVE", "--output-dir", "out"}),
                 0,
                 Line("sub/a.wav", "out/a.wav") + Line("b.c.flac", "out/b.c.wav") +
                     Line("d", "out/d.wav") + Line(".e", "out/.e.wav") +
                     Line("f.AIF", "out/f.AIF", kIntegers) +
                     Line("g.rf64", "out/g.rf64", "RF64, float32 little-endian") +
                     Line("./h.WAVE", "out/h.WAVE") + "7 files: 7 copied, 0 failed\n",
                 "");
    EXPECT_EQ(NamesIn(folder, "out"),
              (Names{".e.wav", "a.wav", "b.c.wav", "d.wav", "f.AIF", "g.rf64", "h.WAVE"}));
    for (const std::string& name : NamesIn(folder, "out")) {
        EXPECT_TRUE(IsTake((folder / "out/") + name)) << name;
    }
}

TEST(Batch, GivesTheExtensionOfTheFormatThatIsAskedFor) {
    const TemporaryFolder folder;
    for (const char* name : {"a.wav", "b.flac", "c", "d.aif", "e.AIFF", "f.x.rf64"}) {
        WriteTake(folder / name);
    }
    ExpectResult(RunKelhost(folder, {"copy", "--format", "aiff", "a.wav", "b.flac", "c", "d.aif",
                                     "e.AIFF", "f.x.rf64", "--output-dir", "out"}),
                 0,
                 Line("a.wav", "out/a.aiff", kIntegers) + Line("b.flac", "out/b.aiff", kIntegers) +
                     Line("c", "out/c.aiff", kIntegers) + Line("d.aif", "out/d.aif", kIntegers) +
                     Line("e.AIFF", "out/e.AIFF", kIntegers) +
                     Line("f.x.rf64", "out/f.x.aiff", kIntegers) + "6 files: 6 copied, 0 failed\n",
                 "");
    EXPECT_EQ(NamesIn(folder, "out"),
              (Names{"a.aiff", "b.aiff", "c.aiff", "d.aif", "e.AIFF", "f.x.aiff"}));
}

TEST(Batch, RefusesTwoInputsForOneNameBeforeAnythingIsMade) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "sub");
    for (const char* name : {"a.wav", "sub/a.wav", "a.flac", "b.wav"}) {
        WriteTake(folder / name);
    }
    struct Row {
        std::string first;
        std::string second;
        std::string output;
    };
    for (const Row& row :
         {Row{"a.wav", "sub/a.wav", "out/a.wav"}, Row{"a.wav", "a.wav", "out/a.wav"},
          Row{"a.wav", "./a.wav", "out/a.wav"}, Row{"a.flac", "a.wav", "out/a.wav"},
          Row{"a\n.wav", "x/a\n.wav", "out/a\\n.wav"}}) {
        std::string shown = row.first + " and " + row.second;
        for (std::size_t place = 0; (place = shown.find('\n')) != std::string::npos;) {
            shown.replace(place, 1, "\\n");
        }
        ExpectResult(
            RunKelhost(folder, {"copy", "b.wav", row.first, row.second, "--output-dir", "out"}), 2,
            "", "kelhost: " + shown + " would both be written to " + row.output + "\n");
    }
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(Batch, MakesTheFolderWithThoseThatItLiesIn) {
    for (const char* name : {"out", "deep/down/out", "out/", "./out", "."}) {
        const TemporaryFolder folder;
        fs::create_directory(folder / "in");
        WriteTake(folder / "in/a.wav");
        const std::string output = (fs::path(name) / "a.wav").string();
        ExpectResult(RunKelhost(folder, {"copy", "in/a.wav", "--output-dir", name}), 0,
                     Line("in/a.wav", output), "");
        EXPECT_TRUE(IsTake(folder / output));
    }
}

TEST(Batch, NeedsAFolderThatCanBeMadeAndWritten) {
    const TemporaryFolder folder;
    WriteTake(folder / "a.wav");
    WriteTake(folder / "b.wav");
    WriteFile(folder / "file", "untouched");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_directory(folder / "locked");
    fs::permissions(folder / "locked", fs::perms(0555));
    struct Row {
        std::string name;
        std::string error;
    };
    for (const Row& row :
         {Row{"file", "file: can not be made: Not a directory"},
          Row{"file/out", "file/out: can not be made: Not a directory"},
          Row{"locked/out", "locked/out: can not be made: Permission denied"},
          Row{"locked", "locked/a.wav: can not be created: Permission denied\n"
                        "kelhost: locked/b.wav: can not be created: Permission denied"}}) {
        SCOPED_TRACE(row.name);
        Command command =
            Kelhost(folder, {"copy", "a.wav", "b.wav", "--quiet", "--output-dir", row.name});
        command.obeysPermissions = true;
        ExpectResult(RunCommand(command), 1, "", "kelhost: " + row.error + "\n");
    }
    ExpectResult(RunKelhost(folder, {"copy", "a.wav", "--output-dir", ""}), 2, "",
                 "kelhost: --output-dir needs the name of a folder, and is empty\n");
    EXPECT_EQ(Content(folder / "file"), "untouched");
    EXPECT_TRUE(fs::is_empty(folder / "locked"));
    EXPECT_EQ(SortedNames(folder), (Names{"a.wav", "b.wav", "dangling", "file", "locked"}));
}

TEST(Batch, GoesOnBehindFilesThatAreBrokenAndTellsInTheirOrder) {
    for (const std::string& jobs : kNumbersOfJobs) {
        SCOPED_TRACE(jobs);
        const TemporaryFolder folder;
        WriteTake(folder / "a.wav");
        WriteFile(folder / "b.wav", "no audio at all, but a text of some length\n");
        WriteTake(folder / "c.wav");
        fs::create_directory(folder / "e.wav");
        WriteTake(folder / "f.flac");
        ExpectResult(RunKelhost(folder, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav",
                                         "f.flac", "--output-dir", "out", "--jobs", jobs}),
                     1,
                     Line("a.wav", "out/a.wav") + Line("c.wav", "out/c.wav") +
                         Line("f.flac", "out/f.wav") + "6 files: 3 copied, 3 failed\n",
                     "kelhost: b.wav: can not be read: [Unable to open file \"b.wav\" with "
                     "libsndfile. Error is:\"Format not recognised.\"]\n"
                     "kelhost: d.wav: No such file or directory\n"
                     "kelhost: e.wav: is a folder; name the audio files in it\n");
        EXPECT_EQ(NamesIn(folder, "out"), (Names{"a.wav", "c.wav", "f.wav"}));
        for (const std::string& name : NamesIn(folder, "out")) {
            EXPECT_TRUE(IsTake((folder / "out/") + name)) << name;
        }
    }
}

TEST(Batch, ReplacesNothingWithoutForce) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "out");
    WriteTake(folder / "a.wav");
    WriteTake(folder / "b.wav");
    WriteFile(folder / "out/a.wav", "before");
    const std::vector<std::string> arguments{"copy", "a.wav", "b.wav", "--output-dir", "out"};
    ExpectResult(RunKelhost(folder, arguments), 1,
                 Line("b.wav", "out/b.wav") + "2 files: 1 copied, 1 failed\n",
                 "kelhost: out/a.wav: exists already; use --force to replace it\n");
    EXPECT_EQ(Content(folder / "out/a.wav"), "before");

    std::vector<std::string> forced = arguments;
    forced.emplace_back("--force");
    ExpectResult(RunKelhost(folder, forced), 0,
                 Line("a.wav", "out/a.wav") + Line("b.wav", "out/b.wav") +
                     "2 files: 2 copied, 0 failed\n",
                 "");
    EXPECT_TRUE(IsTake(folder / "out/a.wav"));
    EXPECT_EQ(NamesIn(folder, "out"), (Names{"a.wav", "b.wav"}));
}

TEST(Batch, NeverReplacesAnInput) {
    const TemporaryFolder folder;
    WriteTake(folder / "a.wav");
    WriteTake(folder / "b.flac");
    const std::string before = Content(folder / "a.wav");
    ExpectResult(RunKelhost(folder, {"copy", "a.wav", "b.flac", "--output-dir", ".", "--force"}), 1,
                 Line("b.flac", "./b.wav") + "2 files: 1 copied, 1 failed\n",
                 "kelhost: ./a.wav: is the same file as the input a.wav; name another output\n");
    EXPECT_EQ(Content(folder / "a.wav"), before);
    EXPECT_EQ(SortedNames(folder), (Names{"a.wav", "b.flac", "b.wav"}));
}

TEST(Batch, IsQuietWhenAskedTo) {
    const TemporaryFolder folder;
    WriteTake(folder / "a.wav");
    ExpectResult(RunKelhost(folder, {"copy", "a.wav", "b.wav", "--output-dir", "out", "--quiet"}),
                 1, "", "kelhost: b.wav: No such file or directory\n");
    EXPECT_EQ(NamesIn(folder, "out"), Names{"a.wav"});
}

TEST(Batch, GivesOneDocumentAndALineForEachError) {
    const auto result = [](const std::string& input, const std::string& output) {
        const std::string channel = R"({"clipped":0,"loudest":0.0,"non_finite":0})";
        return R"({"byte_order":"little-endian","bytes":8000,"channels":2,)"
               R"("container":"extensible WAVE","conversion":[)" +
               channel + "," + channel + R"(],"encoding":"float32","frames":1000,"input":")" +
               input + R"(","output":")" + output +
               R"(","rate":48000,"verified":false,"warnings":[]})";
    };
    const std::string missing = R"("file":"b.wav","message":"b.wav: No such file or directory")";
    const std::string folderError =
        R"("file":"c.wav","message":"c.wav: is a folder; name the audio files in it")";
    for (const std::string& jobs : kNumbersOfJobs) {
        SCOPED_TRACE(jobs);
        const TemporaryFolder folder;
        WriteTake(folder / "a.wav");
        fs::create_directory(folder / "c.wav");
        WriteTake(folder / "d.wav");
        ExpectResult(RunKelhost(folder, {"--json", "copy", "a.wav", "b.wav", "c.wav", "d.wav",
                                         "--output-dir", "out", "--jobs", jobs}),
                     1,
                     R"({"document":"kelhost.copy","failures":[{)" + missing + "},{" + folderError +
                         R"(}],"results":[)" + result("a.wav", "out/a.wav") + "," +
                         result("d.wav", "out/d.wav") + "],\"skipped\":[],\"version\":1}\n",
                     R"({"document":"kelhost.error",)" + missing + ",\"version\":1}\n" +
                         R"({"document":"kelhost.error",)" + folderError + ",\"version\":1}\n");
    }
}

TEST(Batch, GoesOnBehindFilesThatHangWhileTheyAreOpened) {
    for (const std::string& jobs : kOneAndFourJobs) {
        SCOPED_TRACE(jobs);
        const Orphans orphans;
        const TemporaryFolder folder;
        WriteTake(folder / "a.wav");
        WriteEndlessList(folder / "b.wav", 0xFFFFFFF4);
        ASSERT_EQ(mkfifo((folder / "c.wav").c_str(), 0600), 0);
        WriteTake(folder / "d.wav");
        WriteEndlessList(folder / "e.wav", 0xFFFFFFF8);
        WriteTake(folder / "f.wav");
        ExpectResult(
            RunKelhost(folder, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.wav",
                                "--output-dir", "out", "--open-timeout", "0.5", "--jobs", jobs}),
            1,
            Line("a.wav", "out/a.wav") + Line("d.wav", "out/d.wav") + Line("f.wav", "out/f.wav") +
                "6 files: 3 copied, 3 failed\n",
            TooSlow("b.wav") + TooSlow("c.wav") + TooSlow("e.wav"));
        EXPECT_EQ(NamesIn(folder, "out"), (Names{"a.wav", "d.wav", "f.wav"}));
        for (const std::string& name : NamesIn(folder, "out")) {
            EXPECT_TRUE(IsTake((folder / "out/") + name)) << name;
        }
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(Batch, GoesOnBehindFilesThatCrashTheirWorker) {
    for (const std::string& jobs : kNumbersOfJobs) {
        SCOPED_TRACE(jobs);
        const Orphans orphans;
        const TemporaryFolder folder;
        const std::string whole = "40000 2 48000\n";
        for (const char* name : {"a.wav", "d.wav", "g.wav"}) {
            WriteFile(folder / name, whole);
        }
        WriteFile(folder / "b.wav", "40000 2 48000 crashes while opening\n");
        WriteFile(folder / "c.wav", "40000 2 48000 aborts while opening\n");
        WriteFile(folder / "e.wav", "40000 2 48000 crashes while reading\n");
        WriteFile(folder / "f.wav", "40000 2 48000 exits while opening\n");
        const auto line = [](const std::string& name) {
            return name + " -> out/" + name + ": " + kFloats +
                   ", 2 channels, 48000 Hz, 40000 frames, 0:00:00.833\n";
        };
        ExpectResult(
            RunOnTexts(folder, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.wav",
                                "g.wav", "--output-dir", "out", "--jobs", jobs}),
            1, line("a.wav") + line("d.wav") + line("g.wav") + "7 files: 3 copied, 4 failed\n",
            Lost("b.wav", "by signal 11 (Segmentation fault)") +
                Lost("c.wav", "by signal 6 (Aborted)") +
                Lost("e.wav", "by signal 11 (Segmentation fault)") +
                Lost("f.wav", "with status 3"));
        EXPECT_EQ(NamesIn(folder, "out"), (Names{"a.wav", "d.wav", "g.wav"}));
        for (const std::string& name : NamesIn(folder, "out")) {
            EXPECT_EQ(Content((folder / "out/") + name), whole);
        }
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(Batch, TouchesNothingThatStoodThereWhenAWorkerCrashesWhileWriting) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "out");
    WriteFile(folder / "a.wav", "40000 2 48000 crashes while reading\n");
    WriteFile(folder / "out/a.wav", "before");
    WriteFile(folder / "out/.kelhost-1-abcdef.part.wav", "of another process");
    ExpectResult(RunOnTexts(folder, {"copy", "a.wav", "--output-dir", "out", "--force"}), 1, "",
                 Lost("a.wav", "by signal 11 (Segmentation fault)"));
    EXPECT_EQ(NamesIn(folder, "out"), (Names{".kelhost-1-abcdef.part.wav", "a.wav"}));
    EXPECT_EQ(Content(folder / "out/a.wav"), "before");
}

TEST(BatchOfOne, EndsInAnErrorWhenOpeningHangs) {
    const Orphans orphans;
    const TemporaryFolder folder;
    WriteEndlessList(folder / "a.wav");
    ASSERT_EQ(mkfifo((folder / "b.wav").c_str(), 0600), 0);
    for (const char* name : {"a.wav", "b.wav"}) {
        ExpectResult(RunKelhost(folder, {"copy", name, "out.wav", "--open-timeout", "0.5"}), 1, "",
                     TooSlow(name));
        ExpectResult(RunKelhost(folder, {"info", name, "--open-timeout", "0.5"}), 1, "",
                     TooSlow(name));
    }
    EXPECT_EQ(SortedNames(folder), (Names{"a.wav", "b.wav"}));
    EXPECT_TRUE(Orphans::AreNone());
}

TEST(BatchOfOne, EndsInAnErrorWhenTheWorkerCrashes) {
    struct Row {
        std::string fault;
        std::string how;
    };
    for (const Row& row : {Row{"crashes while opening", "by signal 11 (Segmentation fault)"},
                           Row{"crashes while reading", "by signal 11 (Segmentation fault)"},
                           Row{"aborts while opening", "by signal 6 (Aborted)"},
                           Row{"exits while opening", "with status 3"}}) {
        SCOPED_TRACE(row.fault);
        const Orphans orphans;
        const TemporaryFolder folder;
        WriteFile(folder / "a.wav", "40000 2 48000 " + row.fault + "\n");
        ExpectResult(RunOnTexts(folder, {"copy", "a.wav", "out.wav"}), 1, "",
                     Lost("a.wav", row.how));
        EXPECT_EQ(SortedNames(folder), Names{"a.wav"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchOfInfos, GoesOnBehindFilesThatHangOrCrash) {
    for (const std::string& jobs : kOneAndFourJobs) {
        SCOPED_TRACE(jobs);
        const Orphans orphans;
        const TemporaryFolder folder;
        WriteFile(folder / "a.wav", "1000 2 48000\n");
        WriteFile(folder / "b.wav", "1000 2 48000 crashes while opening\n");
        ASSERT_EQ(mkfifo((folder / "c.wav").c_str(), 0600), 0);
        WriteFile(folder / "d.wav", "48000 1 48000\n");
        ExpectResult(RunOnTexts(folder, {"info", "a.wav", "b.wav", "c.wav", "d.wav",
                                         "--open-timeout", "0.5", "--jobs", jobs}),
                     1,
                     "File   Channels      Rate  Frames     Duration  Delivered as\n"
                     "a.wav         2  48000 Hz    1000  0:00:00.021  32-bit float little-endian\n"
                     "d.wav         1  48000 Hz   48000  0:00:01.000  32-bit float little-endian\n",
                     Lost("b.wav", "by signal 11 (Segmentation fault)") + TooSlow("c.wav"));
        EXPECT_TRUE(Orphans::AreNone());
    }
}

} // namespace kel::test
