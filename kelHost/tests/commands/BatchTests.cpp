// Copies and descriptions of many files in one call.

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Orphans.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

const std::string kIntegers = "AIFF-C, int16 big-endian";
const std::string kTextFormat = "extensible WAVE, float32 little-endian";

std::string TooSlow(const std::string& name) {
    return Error(name,
                 "cannot open the file within 0.5 s; it is damaged, a pipe without a writer, or "
                 "on a mount that does not respond (--open-timeout SECONDS allows more)");
}

std::string Lost(const std::string& name, const std::string& how) {
    return Error(name,
                 "the worker process ended with " + how + "; the file or the plug-in is damaged");
}

// Expects copies of WriteTake, and no other file, in the directory "out".
void ExpectTakes(const TemporaryDirectory& directory, const Names& names) {
    EXPECT_EQ(SortedNames(directory / "out"), names);
    for (const std::string& name : names) {
        EXPECT_TRUE(ReadAudio((directory / "out/") + name).values == MakeValues(2000)) << name;
    }
}

// Runs kelhost on the files of the test plug-in.
ProcessResult RunOnTexts(const TemporaryDirectory& directory, const Arguments& arguments) {
    return RunKelhost(directory,
                      arguments + Arguments{"--plugin", TestPlugin("kelFaultyElements")});
}

} // namespace

TEST(Batch, PutsEveryFileUnderItsOwnNameIntoTheDirectory) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "sub");
    for (const char* name : {"sub/a.wav", "b.c.flac", ".e", "f.AIF", "g.rf64", "h.WAVE"}) {
        WriteTake(directory / name);
    }
    ExpectResult(
        RunKelhost(directory, {"copy", "sub/a.wav", "b.c.flac", ".e", "f.AIF", "g.rf64", "./h.WAVE",
                               "--output-dir", "deep/out"}),
        0,
        CopyReport("sub/a.wav", "deep/out/a.wav") + CopyReport("b.c.flac", "deep/out/b.c.wav") +
            CopyReport(".e", "deep/out/.e.wav") + CopyReport("f.AIF", "deep/out/f.AIF", kIntegers) +
            CopyReport("g.rf64", "deep/out/g.rf64", "RF64, int16 little-endian") +
            CopyReport("./h.WAVE", "deep/out/h.WAVE") + "6 files: 6 copied, 0 failed\n",
        "");
    fs::rename(directory / "deep/out", directory / "out");
    ExpectTakes(directory, {".e.wav", "a.wav", "b.c.wav", "f.AIF", "g.rf64", "h.WAVE"});
}

TEST(Batch, UsesTheExtensionOfTheFormatThatIsAskedFor) {
    const TemporaryDirectory directory;
    for (const char* name : {"a.wav", "c", "e.AIFF"}) {
        WriteTake(directory / name);
    }
    EXPECT_EQ(RunKelhost(directory, {"copy", "--format", "aiff", "a.wav", "c", "e.AIFF",
                                     "--output-dir", "out"})
                  .status,
              0);
    ExpectTakes(directory, {"a.aiff", "c.aiff", "e.AIFF"});
}

TEST(Batch, RefusesTwoInputsForOneNameBeforeAnythingIsMade) {
    const TemporaryDirectory directory;
    for (const char* name : {"a.wav", "b.wav"}) {
        WriteTake(directory / name);
    }
    struct Row {
        std::string first;
        std::string second;
        std::string error;
    };
    for (const Row& row :
         {Row{"a.wav", "sub/a.wav", "a.wav and sub/a.wav would both be written to out/a.wav"},
          Row{"a.wav", "./a.wav", "a.wav and ./a.wav would both be written to out/a.wav"},
          Row{"a.flac", "a.wav", "a.flac and a.wav would both be written to out/a.wav"},
          Row{"a\n.wav", "x/a\n.wav",
              "a\\n.wav and x/a\\n.wav would both be written to out/a\\n.wav"}}) {
        ExpectResult(
            RunKelhost(directory, {"copy", "b.wav", row.first, row.second, "--output-dir", "out"}),
            2, "", "kelhost: " + row.error + "\n");
    }
    EXPECT_FALSE(fs::exists(directory / "out"));
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
         {Row{"file", "file: cannot create the directory: Not a directory"},
          Row{"file/out", "file/out: cannot create the directory: Not a directory"},
          Row{"locked/out", "locked/out: cannot create the directory: Permission denied"},
          Row{"locked", "locked/a.wav: cannot create the file: Permission denied\n"
                        "kelhost: locked/b.wav: cannot create the file: Permission denied"}}) {
        SCOPED_TRACE(row.name);
        Command command =
            Kelhost(directory, {"copy", "a.wav", "b.wav", "--quiet", "--output-dir", row.name});
        command.obeysPermissions = true;
        ExpectResult(RunCommand(command), 1, "", "kelhost: " + row.error + "\n");
    }
    ExpectResult(
        RunKelhost(directory, {"copy", "a.wav", "--output-dir", ""}), 2, "",
        "kelhost: empty name for --output-dir: expected the name of a directory; see kelhost copy "
        "--help\n");
    EXPECT_EQ(ReadFile(directory / "file"), "untouched");
    EXPECT_TRUE(fs::is_empty(directory / "locked"));
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "b.wav", "dangling", "file", "locked"}));
}

TEST(Batch, ReportsInTheOrderOfTheFilesAndGoesOnAfterBrokenOnes) {
    for (const std::string jobs : {"1", "256"}) {
        SCOPED_TRACE(jobs);
        const TemporaryDirectory directory;
        WriteTake(directory / "a.wav");
        WriteFile(directory / "b.wav", kNoAudio);
        WriteTake(directory / "c.wav");
        fs::create_directory(directory / "e.wav");
        WriteTake(directory / "f.flac");
        ExpectResult(
            RunKelhost(directory, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.flac",
                                   "--output-dir", "out", "--jobs", jobs}),
            1,
            CopyReport("a.wav", "out/a.wav") + CopyReport("c.wav", "out/c.wav") +
                CopyReport("f.flac", "out/f.wav") + "6 files: 3 copied, 3 failed\n",
            NoAudioError("b.wav") +
                Error("d.wav", "cannot open for reading: No such file or directory") +
                Error("e.wav",
                      "is a directory; copy, info and compare accept it with --recursive"));
        ExpectTakes(directory, {"a.wav", "c.wav", "f.wav"});
    }
}

TEST(Batch, ReplacesOnlyWithForceAndNeverAnInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.flac");
    WriteFile(directory / "b.wav", "before");
    const std::string before = ReadFile(directory / "a.wav");
    const Arguments arguments{"copy", "a.wav", "b.flac", "--output-dir", "."};
    const std::string isInput =
        Error("./a.wav", "is the same file as the input a.wav; name another output");
    ExpectResult(RunKelhost(directory, arguments), 1, "2 files: 0 copied, 2 failed\n",
                 isInput + Error("./b.wav", "exists already; use --force to replace it"));
    EXPECT_EQ(ReadFile(directory / "b.wav"), "before");
    ExpectResult(RunKelhost(directory, arguments + Arguments{"--force"}), 1,
                 CopyReport("b.flac", "./b.wav") + "2 files: 1 copied, 1 failed\n", isInput);
    EXPECT_EQ(ReadFile(directory / "a.wav"), before);
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "b.flac", "b.wav"}));
}

TEST(Batch, GoesOnAfterFilesThatHangWhileTheyAreOpened) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteEndlessList(directory / "b.wav");
    ASSERT_EQ(mkfifo((directory / "c.wav").c_str(), 0600), 0);
    WriteTake(directory / "d.wav");
    for (const std::string jobs : {"1", "4"}) {
        SCOPED_TRACE(jobs);
        ExpectResult(
            RunKelhost(directory, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "--force",
                                   "--output-dir", "out", "--open-timeout", "0.5", "--jobs", jobs}),
            1,
            CopyReport("a.wav", "out/a.wav") + CopyReport("d.wav", "out/d.wav") +
                "4 files: 2 copied, 2 failed\n",
            TooSlow("b.wav") + TooSlow("c.wav"));
        ExpectTakes(directory, {"a.wav", "d.wav"});
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(Batch, GoesOnAfterFilesThatEndTheirWorker) {
    for (const std::string jobs : {"1", "4"}) {
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
        // Existing files, of an earlier copy and of another process, stay.
        fs::create_directory(directory / "out");
        WriteFile(directory / "out/e.wav", "before");
        WriteFile(directory / "out/.kelhost-1-abcdef.part.wav", "of another process");
        const auto line = [](const std::string& name) {
            return CopyReport(name, "out/" + name, kTextFormat, "40000 frames, 0:00:00.833");
        };
        ExpectResult(
            RunOnTexts(directory, {"copy", "a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.wav",
                                   "g.wav", "--output-dir", "out", "--jobs", jobs, "--force"}),
            1, line("a.wav") + line("d.wav") + line("g.wav") + "7 files: 3 copied, 4 failed\n",
            Lost("b.wav", "signal 11 (Segmentation fault)") + Lost("c.wav", "signal 6 (Aborted)") +
                Lost("e.wav", "signal 11 (Segmentation fault)") + Lost("f.wav", "exit status 3"));
        EXPECT_EQ(SortedNames(directory / "out"),
                  (Names{".kelhost-1-abcdef.part.wav", "a.wav", "d.wav", "e.wav", "g.wav"}));
        EXPECT_EQ(ReadFile(directory / "out/a.wav"), whole);
        EXPECT_EQ(ReadFile(directory / "out/e.wav"), "before");
        EXPECT_TRUE(Orphans::AreNone());
    }
}

TEST(BatchOfOne, EndsInAnErrorWhenOpeningHangsOrCrashes) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "a.wav").c_str(), 0600), 0);
    WriteFile(directory / "b.wav", "40000 2 48000 crashes while opening\n");
    ExpectResult(RunKelhost(directory, {"copy", "a.wav", "out.wav", "--open-timeout", "0.5"}), 1,
                 "", TooSlow("a.wav"));
    ExpectResult(RunOnTexts(directory, {"copy", "b.wav", "out.wav"}), 1, "",
                 Lost("b.wav", "signal 11 (Segmentation fault)"));
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "b.wav"}));
    EXPECT_TRUE(Orphans::AreNone());
}

TEST(BatchOfInfos, GoesOnAfterFilesThatHangOrCrash) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    WriteFile(directory / "a.wav", "1000 2 48000\n");
    WriteFile(directory / "b.wav", "1000 2 48000 crashes while opening\n");
    ASSERT_EQ(mkfifo((directory / "c.wav").c_str(), 0600), 0);
    WriteFile(directory / "d.wav", "48000 1 48000\n");
    ExpectResult(RunOnTexts(directory,
                            {"info", "a.wav", "b.wav", "c.wav", "d.wav", "--open-timeout", "0.5"}),
                 1,
                 "File   Format   Channels  Layout         Rate  Frames     Duration  Bytes\n"
                 "a.wav  unknown         2  no layout  48000 Hz    1000  0:00:00.021     13\n"
                 "d.wav  unknown         1  no layout  48000 Hz   48000  0:00:01.000     14\n",
                 Lost("b.wav", "signal 11 (Segmentation fault)") + TooSlow("c.wav"));
    EXPECT_TRUE(Orphans::AreNone());
}

} // namespace kel::test
