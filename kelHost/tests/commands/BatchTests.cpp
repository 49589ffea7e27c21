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

// The names in a directory within another.
Names NamesIn(const TemporaryDirectory& directory, const std::string& name) {
    Names names;
    for (const auto& entry : fs::directory_iterator(directory / name)) {
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
ProcessResult RunOnTexts(const TemporaryDirectory& directory, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--plugin", TestPlugin("kelFaultyElements")});
    return RunKelhost(directory, arguments);
}

const std::vector<std::string> kNumbersOfJobs{"1", "2", "4", "256"};
const std::vector<std::string> kOneAndFourJobs{"1", "4"}; // where it takes a while

} // namespace

TEST(Batch, PutsEveryFileUnderItsOwnNameIntoTheDirectory) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "sub");
    WriteTake(directory / "sub/a.wav");
    WriteTake(directory / "b.c.flac");
    WriteTake(directory / "d");
    WriteTake(directory / ".e");
    WriteTake(directory / "f.AIF");
    WriteTake(directory / "g.rf64");
    WriteTake(directory / "h.WAVE");
    ExpectResult(RunKelhost(directory, {"copy", "sub/a.wav", "b.c.flac", "d", ".e", "f.AIF",
                                        "g.rf64", "./h.WAVE", "--output-dir", "out"}),
                 0,
                 Line("sub/a.wav", "out/a.wav") + Line("b.c.flac", "out/b.c.wav") +
                     Line("d", "out/d.wav") + Line(".e", "out/.e.wav") +
                     Line("f.AIF", "out/f.AIF", kIntegers) +
                     Line("g.rf64", "out/g.rf64", "RF64, float32 little-endian") +
                     Line("./h.WAVE", "out/h.WAVE") + "7 files: 7 copied, 0 failed\n",
                 "");
    EXPECT_EQ(NamesIn(directory, "out"),
              (Names{".e.wav", "a.wav", "b.c.wav", "d.wav", "f.AIF", "g.rf64", "h.WAVE"}));
    for (const std::string& name : NamesIn(directory, "out")) {
        EXPECT_TRUE(IsTake((directory / "out/") + name)) << name;
    }
}

TEST(Batch, GivesTheExtensionOfTheFormatThatIsAskedFor) {
    const TemporaryDirectory directory;
    for (const char* name : {"a.wav", "b.flac", "c", "d.aif", "e.AIFF", "f.x.rf64"}) {
        WriteTake(directory / name);
    }
    ExpectResult(RunKelhost(directory, {"copy", "--format", "aiff", "a.wav", "b.flac", "c", "d.aif",
                                        "e.AIFF", "f.x.rf64", "--output-dir", "out"}),
                 0,
                 Line("a.wav", "out/a.aiff", kIntegers) + Line("b.flac", "out/b.aiff", kIntegers) +
                     Line("c", "out/c.aiff", kIntegers) + Line("d.aif", "out/d.aif", kIntegers) +
                     Line("e.AIFF", "out/e.AIFF", kIntegers) +
                     Line("f.x.rf64", "out/f.x.aiff", kIntegers) + "6 files: 6 copied, 0 failed\n",
                 "");
    EXPECT_EQ(NamesIn(directory, "out"),
              (Names{"a.aiff", "b.aiff", "c.aiff", "d.aif", "e.AIFF", "f.x.aiff"}));
}

TEST(Batch, RefusesTwoInputsForOneNameBeforeAnythingIsMade) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "sub");
    for (const char* name : {"a.wav", "sub/a.wav", "a.flac", "b.wav"}) {
        WriteTake(directory / name);
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
            RunKelhost(directory, {"copy", "b.wav", row.first, row.second, "--output-dir", "out"}),
            2, "", "kelhost: " + shown + " would both be written to " + row.output + "\n");
    }
    EXPECT_FALSE(fs::exists(directory / "out"));
}

TEST(Batch, MakesTheDirectoryWithThoseThatItLiesIn) {
    for (const char* name : {"out", "deep/down/out", "out/", "./out", "."}) {
        const TemporaryDirectory directory;
        fs::create_directory(directory / "in");
        WriteTake(directory / "in/a.wav");
        const std::string output = (fs::path(name) / "a.wav").string();
        ExpectResult(RunKelhost(directory, {"copy", "in/a.wav", "--output-dir", name}), 0,
                     Line("in/a.wav", output), "");
        EXPECT_TRUE(IsTake(directory / output));
    }
}

TEST(Batch, NeedsADirectoryThatCanBeMadeAndWritten) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.wav");
    WriteFile(directory / "file", "untouched");
    fs::create_symlink("nowhere", directory / "dangling");
    fs::create_directory(directory / "locked");
    fs::permissions(directory / "locked", fs::perms(0555));
    struct Row {
        std::string name;
        std::string error;
    };
    for (const Row& row :
         {Row{"file", "file: cannot be made: Not a directory"},
          Row{"file/out", "file/out: cannot be made: Not a directory"},
          Row{"locked/out", "locked/out: cannot be made: Permission denied"},
          Row{"locked", "locked/a.wav: cannot be created: Permission denied\n"
                        "kelhost: locked/b.wav: cannot be created: Permission denied"}}) {
        SCOPED_TRACE(row.name);
        Command command =
            Kelhost(directory, {"copy", "a.wav", "b.wav", "--quiet", "--output-dir", row.name});
        command.obeysPermissions = true;
        ExpectResult(RunCommand(command), 1, "", "kelhost: " + row.error + "\n");
    }
    ExpectResult(RunKelhost(directory, {"copy", "a.wav", "--output-dir", ""}), 2, "",
                 "kelhost: --output-dir needs the name of a directory, and is empty\n");
    EXPECT_EQ(Content(directory / "file"), "untouched");
    EXPECT_TRUE(fs::is_empty(directory / "locked"));
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "b.wav", "dangling", "file", "locked"}));
}

TEST(Batch, GoesOnBehindFilesThatAreBrokenAndTellsInTheirOrder) {
    for (const std::string& jobs : kNumbersOfJobs) {
        SCOPED_TRACE(jobs);
        const TemporaryDirectory directory;
        WriteTake(directory / "a.wav");
        WriteFile(directory / "b.wav", "no audio at all, but a text of some length\n");
        WriteTake(directory / "c.wav");
        fs::create_directory(directory / "e.wav");
        WriteTake(directory / "f.flac");
        ExpectResult(RunKelhost(directory, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav",
                                            "f.flac", "--output-dir", "out", "--jobs", jobs}),
                     1,
                     Line("a.wav", "out/a.wav") + Line("c.wav", "out/c.wav") +
                         Line("f.flac", "out/f.wav") + "6 files: 3 copied, 3 failed\n",
                     "kelhost: b.wav: cannot be read: [Unable to open file \"b.wav\" with "
                     "libsndfile. Error is:\"Format not recognised.\"]\n"
                     "kelhost: d.wav: No such file or directory\n"
                     "kelhost: e.wav: is a directory; name the audio files in it\n");
        EXPECT_EQ(NamesIn(directory, "out"), (Names{"a.wav", "c.wav", "f.wav"}));
        for (const std::string& name : NamesIn(directory, "out")) {
            EXPECT_TRUE(IsTake((directory / "out/") + name)) << name;
        }
    }
}

TEST(Batch, ReplacesNothingWithoutForce) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "out");
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.wav");
    WriteFile(directory / "out/a.wav", "before");
    const std::vector<std::string> arguments{"copy", "a.wav", "b.wav", "--output-dir", "out"};
    ExpectResult(RunKelhost(directory, arguments), 1,
                 Line("b.wav", "out/b.wav") + "2 files: 1 copied, 1 failed\n",
                 "kelhost: out/a.wav: exists already; use --force to replace it\n");
    EXPECT_EQ(Content(directory / "out/a.wav"), "before");

    std::vector<std::string> forced = arguments;
    forced.emplace_back("--force");
    ExpectResult(RunKelhost(directory, forced), 0,
                 Line("a.wav", "out/a.wav") + Line("b.wav", "out/b.wav") +
                     "2 files: 2 copied, 0 failed\n",
                 "");
    EXPECT_TRUE(IsTake(directory / "out/a.wav"));
    EXPECT_EQ(NamesIn(directory, "out"), (Names{"a.wav", "b.wav"}));
}

TEST(Batch, NeverReplacesAnInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.flac");
    const std::string before = Content(directory / "a.wav");
    ExpectResult(RunKelhost(directory, {"copy", "a.wav", "b.flac", "--output-dir", ".", "--force"}),
                 1, Line("b.flac", "./b.wav") + "2 files: 1 copied, 1 failed\n",
                 "kelhost: ./a.wav: is the same file as the input a.wav; name another output\n");
    EXPECT_EQ(Content(directory / "a.wav"), before);
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "b.flac", "b.wav"}));
}

TEST(Batch, IsQuietWhenAskedTo) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    ExpectResult(
        RunKelhost(directory, {"copy", "a.wav", "b.wav", "--output-dir", "out", "--quiet"}), 1, "",
        "kelhost: b.wav: No such file or directory\n");
    EXPECT_EQ(NamesIn(directory, "out"), Names{"a.wav"});
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
    const std::string directoryError =
        R"("file":"c.wav","message":"c.wav: is a directory; name the audio files in it")";
    for (const std::string& jobs : kNumbersOfJobs) {
        SCOPED_TRACE(jobs);
        const TemporaryDirectory directory;
        WriteTake(directory / "a.wav");
        fs::create_directory(directory / "c.wav");
        WriteTake(directory / "d.wav");
        ExpectResult(RunKelhost(directory, {"--json", "copy", "a.wav", "b.wav", "c.wav", "d.wav",
                                            "--output-dir", "out", "--jobs", jobs}),
                     1,
                     R"({"document":"kelhost.copy","failures":[{)" + missing + "},{" +
                         directoryError + R"(}],"results":[)" + result("a.wav", "out/a.wav") + "," +
                         result("d.wav", "out/d.wav") + "],\"skipped\":[],\"version\":1}\n",
                     R"({"document":"kelhost.error",)" + missing + ",\"version\":1}\n" +
                         R"({"document":"kelhost.error",)" + directoryError + ",\"version\":1}\n");
    }
}

TEST(Batch, GoesOnBehindFilesThatHangWhileTheyAreOpened) {
    for (const std::string& jobs : kOneAndFourJobs) {
        SCOPED_TRACE(jobs);
        const Orphans orphans;
        const TemporaryDirectory directory;
        WriteTake(directory / "a.wav");
        WriteEndlessList(directory / "b.wav", 0xFFFFFFF4);
        ASSERT_EQ(mkfifo((directory / "c.wav").c_str(), 0600), 0);
        WriteTake(directory / "d.wav");
        WriteEndlessList(directory / "e.wav", 0xFFFFFFF8);
        WriteTake(directory / "f.wav");
        ExpectResult(
            RunKelhost(directory, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.wav",
                                   "--output-dir", "out", "--open-timeout", "0.5", "--jobs", jobs}),
            1,
            Line("a.wav", "out/a.wav") + Line("d.wav", "out/d.wav") + Line("f.wav", "out/f.wav") +
                "6 files: 3 copied, 3 failed\n",
            TooSlow("b.wav") + TooSlow("c.wav") + TooSlow("e.wav"));
        EXPECT_EQ(NamesIn(directory, "out"), (Names{"a.wav", "d.wav", "f.wav"}));
        for (const std::string& name : NamesIn(directory, "out")) {
            EXPECT_TRUE(IsTake((directory / "out/") + name)) << name;
        }
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(Batch, GoesOnBehindFilesThatCrashTheirWorker) {
    for (const std::string& jobs : kNumbersOfJobs) {
        SCOPED_TRACE(jobs);
        const Orphans orphans;
        const TemporaryDirectory directory;
        const std::string whole = "40000 2 48000\n";
        for (const char* name : {"a.wav", "d.wav", "g.wav"}) {
            WriteFile(directory / name, whole);
        }
        WriteFile(directory / "b.wav", "40000 2 48000 crashes while opening\n");
        WriteFile(directory / "c.wav", "40000 2 48000 aborts while opening\n");
        WriteFile(directory / "e.wav", "40000 2 48000 crashes while reading\n");
        WriteFile(directory / "f.wav", "40000 2 48000 exits while opening\n");
        const auto line = [](const std::string& name) {
            return name + " -> out/" + name + ": " + kFloats +
                   ", 2 channels, 48000 Hz, 40000 frames, 0:00:00.833\n";
        };
        ExpectResult(
            RunOnTexts(directory, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.wav",
                                   "g.wav", "--output-dir", "out", "--jobs", jobs}),
            1, line("a.wav") + line("d.wav") + line("g.wav") + "7 files: 3 copied, 4 failed\n",
            Lost("b.wav", "by signal 11 (Segmentation fault)") +
                Lost("c.wav", "by signal 6 (Aborted)") +
                Lost("e.wav", "by signal 11 (Segmentation fault)") +
                Lost("f.wav", "with status 3"));
        EXPECT_EQ(NamesIn(directory, "out"), (Names{"a.wav", "d.wav", "g.wav"}));
        for (const std::string& name : NamesIn(directory, "out")) {
            EXPECT_EQ(Content((directory / "out/") + name), whole);
        }
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(Batch, TouchesNothingThatStoodThereWhenAWorkerCrashesWhileWriting) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "out");
    WriteFile(directory / "a.wav", "40000 2 48000 crashes while reading\n");
    WriteFile(directory / "out/a.wav", "before");
    WriteFile(directory / "out/.kelhost-1-abcdef.part.wav", "of another process");
    ExpectResult(RunOnTexts(directory, {"copy", "a.wav", "--output-dir", "out", "--force"}), 1, "",
                 Lost("a.wav", "by signal 11 (Segmentation fault)"));
    EXPECT_EQ(NamesIn(directory, "out"), (Names{".kelhost-1-abcdef.part.wav", "a.wav"}));
    EXPECT_EQ(Content(directory / "out/a.wav"), "before");
}

TEST(BatchOfOne, EndsInAnErrorWhenOpeningHangs) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    WriteEndlessList(directory / "a.wav");
    ASSERT_EQ(mkfifo((directory / "b.wav").c_str(), 0600), 0);
    for (const char* name : {"a.wav", "b.wav"}) {
        ExpectResult(RunKelhost(directory, {"copy", name, "out.wav", "--open-timeout", "0.5"}), 1,
                     "", TooSlow(name));
        ExpectResult(RunKelhost(directory, {"info", name, "--open-timeout", "0.5"}), 1, "",
                     TooSlow(name));
    }
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "b.wav"}));
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
        const TemporaryDirectory directory;
        WriteFile(directory / "a.wav", "40000 2 48000 " + row.fault + "\n");
        ExpectResult(RunOnTexts(directory, {"copy", "a.wav", "out.wav"}), 1, "",
                     Lost("a.wav", row.how));
        EXPECT_EQ(SortedNames(directory), Names{"a.wav"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchOfInfos, GoesOnBehindFilesThatHangOrCrash) {
    for (const std::string& jobs : kOneAndFourJobs) {
        SCOPED_TRACE(jobs);
        const Orphans orphans;
        const TemporaryDirectory directory;
        WriteFile(directory / "a.wav", "1000 2 48000\n");
        WriteFile(directory / "b.wav", "1000 2 48000 crashes while opening\n");
        ASSERT_EQ(mkfifo((directory / "c.wav").c_str(), 0600), 0);
        WriteFile(directory / "d.wav", "48000 1 48000\n");
        ExpectResult(RunOnTexts(directory, {"info", "a.wav", "b.wav", "c.wav", "d.wav",
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
