// Copies of directory trees.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

using nlohmann::json;

// A directory with trees.
class Tree : public testing::Test {
protected:
    // Writes an audio file and makes its directories.
    void Write(const std::string& path) const {
        fs::create_directories(fs::path(m_directory / path).parent_path());
        WriteTake(m_directory / path);
    }

    void WriteOther(const std::string& path) const {
        fs::create_directories(fs::path(m_directory / path).parent_path());
        WriteFile(m_directory / path, kNoAudio);
    }

    // The paths of the files and the empty directories in a directory, sorted.
    Names Everything(const std::string& directory) const {
        Names names;
        for (const auto& entry : fs::recursive_directory_iterator(m_directory / directory)) {
            if (!entry.is_directory() || fs::is_empty(entry.path())) {
                names.push_back(fs::relative(entry.path(), m_directory / directory).string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    ProcessResult Copy(const Arguments& arguments) const {
        return RunKelhost(m_directory, Arguments{"copy"} + arguments);
    }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(Tree, IsCopiedWithItsStructureAndWithoutItsOtherFiles) {
    Write("day/b/2.wav");
    Write("day/b/1.flac");
    Write("day/a.aiff");
    WriteOther("day/c/notes.txt");
    WriteOther("day/b/cover.jpg");
    WriteOther("day/b/cover.png"); // the same name with another extension, and no audio either
    fs::create_symlink("a.aiff", m_directory / "day/link.wav");
    ASSERT_EQ(mkfifo((m_directory / "day/pipe").c_str(), 0600), 0);
    Write("single.wav");
    ExpectResult(Copy({"-r", "day", "single.wav", "--output-dir", "x/out"}), 0,
                 "day/link.wav: is a symbolic link, skipped\n"
                 "day/pipe: is not a regular file, skipped\n" +
                     CopyReport("day/a.aiff", "x/out/day/a.aiff", "AIFF-C, int16 big-endian") +
                     CopyReport("day/b/1.flac", "x/out/day/b/1.wav") +
                     CopyReport("day/b/2.wav", "x/out/day/b/2.wav") +
                     "day/b/cover.jpg: is not audio, skipped\n"
                     "day/b/cover.png: is not audio, skipped\n"
                     "day/c/notes.txt: is not audio, skipped\n" +
                     CopyReport("single.wav", "x/out/single.wav") +
                     "9 files: 4 copied, 5 skipped (3 not audio, 1 symbolic link, 1 special "
                     "file), 0 failed\n",
                 "");
    EXPECT_EQ(Everything("x/out"),
              (Names{"day/a.aiff", "day/b/1.wav", "day/b/2.wav", "single.wav"}));
}

TEST_F(Tree, KeepsTheNameOfADirectoryAsRsyncDoes) {
    Write("up/day/a.wav");
    Write("z.wav");
    struct Row {
        std::string name;
        std::string output;
    };
    for (const Row& row :
         {Row{"up/day", "day/a.wav"}, Row{"up/day/", "a.wav"}, Row{"up/day/.", "a.wav"},
          Row{"up/day/../day", "day/a.wav"}, Row{"up/day//", "a.wav"}}) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Copy({"--recursive", row.name, "z.wav", "--output-dir", "out"}).status, 0);
        EXPECT_EQ(Everything("out"), (Names{row.output, "z.wav"}));
        fs::remove_all(m_directory / "out");
    }
}

// Its other files, and those of other directories, are copied.
TEST_F(Tree, FailsForADirectoryThatCannotBeReadToItsEnd) {
    Write("day/a.wav");
    Write("day/b/c.wav");
    Command command = Kelhost(m_directory, {"copy", "-r", "day", "--output-dir", "out"});
    DisturbSystem(command);
    command.environment["KEL_TEST_FAULTY_CALL"] = "readdir";
    command.environment["KEL_TEST_FAULTY_FILE"] = "day/b";
    command.environment["KEL_TEST_FAULTY_NUMBER"] = "1";
    ExpectResult(RunCommand(command), 1,
                 CopyReport("day/a.wav", "out/day/a.wav") +
                     "1 file: 1 copied, 0 skipped, 0 failed; 1 directory could not be read\n",
                 Error("day/b", "cannot read the directory: Input/output error"));
}

TEST_F(Tree, FailsForDamagedFilesAndUnreadableDirectories) {
    WriteOther("day/a.wav"); // has the name of audio
    Write("day/b.wav");
    fs::resize_file(m_directory / "day/b.wav", 100);
    Write("day/c/d.wav");
    fs::create_directory(m_directory / "day/locked");
    fs::permissions(m_directory / "day/locked", fs::perms(0));
    WriteOther("notes.txt"); // named by the user
    Command command =
        Kelhost(m_directory, {"copy", "-r", "day", "missing", "notes.txt", "--output-dir", "out"});
    command.obeysPermissions = true;
    fs::create_directory(m_directory / "out");
    fs::permissions(m_directory / "out", fs::perms(0777));
    ExpectResult(RunCommand(command), 1,
                 CopyReport("day/c/d.wav", "out/day/c/d.wav") +
                     "5 files: 1 copied, 0 skipped, 4 failed; 1 directory could not be read\n",
                 Error("day/locked", "cannot read the directory: Permission denied") +
                     NoAudioError("day/a.wav") +
                     Error("day/b.wav", "declares 1000 frames and contains 14; it is truncated "
                                        "(--allow-truncated accepts the frames that exist)") +
                     Error("missing", "cannot open for reading: No such file or directory") +
                     NoAudioError("notes.txt"));
    EXPECT_EQ(Everything("out"), Names{"day/c/d.wav"});
}

TEST_F(Tree, IsListedInTheDocument) {
    Write("day/a.wav");
    WriteOther("day/b.txt");
    fs::create_symlink("a.wav", m_directory / "day/link");
    ASSERT_EQ(mkfifo((m_directory / "day/pipe").c_str(), 0600), 0);
    fs::create_directory_symlink(".", m_directory / "day/loop");
    const ProcessResult result =
        Copy({"-r", "day", "--output-dir", "out", "--json", "--follow-links", "--exclude", "link"});
    EXPECT_EQ(result.status, 1);
    ExpectDocuments({"kelhost.copy"}, result.out);
    const auto document = json::parse(result.out);
    ASSERT_EQ(document["results"].size(), 1U);
    EXPECT_EQ(document["results"][0]["output"], "out/day/a.wav");
    EXPECT_EQ(document["skipped"], (json{{{"input", "day/pipe"},
                                          {"input_path", "day/pipe"},
                                          {"output", nullptr},
                                          {"output_path", nullptr},
                                          {"reason", "special-file"}},
                                         {{"input", "day/b.txt"},
                                          {"input_path", "day/b.txt"},
                                          {"output", nullptr},
                                          {"output_path", nullptr},
                                          {"reason", "not-audio"}}}));
    const std::string loop = "is a link to a directory above it; leave it out with --exclude";
    EXPECT_EQ(document["failures"], (json{{{"file", "day/loop"},
                                           {"path", "day/loop"},
                                           {"directory", true},
                                           {"message", "day/loop: " + loop}}}));
}

TEST_F(Tree, DoesNotContainTheOutputsOfAnEarlierRun) {
    Write("day/a.flac");
    WriteFile(m_directory / "day/.kelhost-1-0a1b2c3d-abcdef.part", "unfinished");
    const Arguments arguments{"-r", "day/", "--output-dir", "day/out"};
    const std::string report =
        CopyReport("day/a.flac", "day/out/a.wav") + "1 file: 1 copied, 0 skipped, 0 failed\n";
    ExpectResult(Copy(arguments), 0, report, "");
    ExpectResult(Copy(arguments + Arguments{"--force"}), 0, report, "");
    EXPECT_EQ(Everything("day/out"), Names{"a.wav"});
}

TEST_F(Tree, IsRefusedWhenTwoOfItsFilesHaveOneOutput) {
    Write("day/a.wav");
    Write("day/a.flac");
    ExpectResult(Copy({"-r", "day", "--output-dir", "out"}), 2, "",
                 "kelhost: day/a.flac and day/a.wav would both be written to out/day/a.wav; leave "
                 "one out with --exclude\n");
    // A name without a usual extension counts if the file is audio.
    fs::rename(m_directory / "day/a.flac", m_directory / "day/a.take");
    WriteOther("day/a.txt");
    ExpectResult(Copy({"-r", "day", "--output-dir", "out"}), 2, "",
                 "kelhost: day/a.take and day/a.wav would both be written to out/day/a.wav; leave "
                 "one out with --exclude\n");
    EXPECT_EQ(SortedNames(m_directory), Names{"day"});
    ExpectResult(Copy({"-r", "day", "--output-dir", "out", "--exclude", "*.take"}), 0,
                 "day/a.txt: is not audio, skipped\n" + CopyReport("day/a.wav", "out/day/a.wav") +
                     "2 files: 1 copied, 1 skipped (1 not audio), 0 failed\n",
                 "");
}

TEST_F(Tree, IsCopiedInPartsThatMatchPatterns) {
    for (const char* name : {"day/a.wav", "day/b.flac", "day/old/c.wav", "day/sub/d.wav"}) {
        Write(name);
    }
    EXPECT_EQ(Copy({"-r", "day/", "--include", "*.wav", "--include", "sub/*", "--exclude", "old",
                    "--exclude", "x", "--output-dir", "out"})
                  .status,
              0);
    EXPECT_EQ(Everything("out"), (Names{"a.wav", "sub/d.wav"}));
    ExpectResult(Copy({"-r", "day", "--include", "*.mp3", "--output-dir", "none"}), 0,
                 "0 files: 0 copied, 0 skipped, 0 failed\n", "");
    EXPECT_FALSE(fs::exists(m_directory / "none"));
}

TEST_F(Tree, NeedsOptionsThatFitTogether) {
    fs::create_directory(m_directory / "day");
    struct Row {
        Arguments arguments;
        std::string error;
    };
    const std::string directory =
        ": is a directory; copy, info and compare accept it with --recursive\n";
    for (const Row& row :
         {Row{{}, "FILE is missing; name audio files, or use --files-from LIST\n"},
          Row{{"-r", "day"}, "--recursive needs --output-dir DIRECTORY\n"},
          Row{{"-r", "day", "out"}, "--recursive needs --output-dir out\n"},
          Row{{"--files-from", "list"}, "--files-from needs --output-dir DIRECTORY\n"},
          Row{{"a.wav", "o1/"}, "o1/: is a directory; use --output-dir o1\n"},
          Row{{"a.wav", "b.wav", "day"}, "day: is a directory; use --output-dir day\n"},
          Row{{"-r", "day", "day//"}, "day//: is a directory; use --output-dir day\n"},
          Row{{"--parents", "../a.wav", "--output-dir", "out"},
              "../a.wav: --parents cannot keep \"..\"; change to that directory\n"},
          Row{{"-r", "day", "--output-dir", "out", "--include", ""},
              "invalid value \"\" for --include: expected a pattern of files, such as *.wav or "
              "2024/*.wav\n"},
          Row{{"-r", "day", "--output-dir", "out", "--include", "old/"},
              "invalid value \"old/\" for --include: expected a pattern of files, such as *.wav or "
              "2024/*.wav\n"},
          Row{{"-r", "day", "--output-dir", "out", "--exclude", "//"},
              "invalid value \"//\" for --exclude: expected a pattern, such as *.wav, old or "
              "2024/*.wav\n"}}) {
        SCOPED_TRACE(row.error);
        ExpectResult(Copy(row.arguments), 2, "", "kelhost: " + row.error);
    }
    ExpectResult(Copy({"day/", "day", "--output-dir", "out"}), 2, "",
                 "kelhost: day/ and day would both be written to out/day.wav\n");
    ExpectResult(Copy({"day/", "--output-dir", "out"}), 1, "", "kelhost: day/" + directory);
    EXPECT_EQ(SortedNames(m_directory), Names{"day"});
}

TEST_F(Tree, IsCopiedFromAListOfFiles) {
    Write("day/b.wav");
    Write("day/a\xFF.wav");
    Write("night/b.wav");
    Write("x.wav");
    WriteFile(m_directory / "list", "day/b.wav\n\nnight/b.wav\n./day/../x.wav\n");
    // They are treated as if they were typed.
    const Arguments arguments{"--output-dir", "out", "--quiet", "--files-from"};
    ExpectResult(Copy(arguments + Arguments{"list"}), 2, "",
                 "kelhost: day/b.wav and night/b.wav would both be written to out/b.wav\n");
    WriteFile(m_directory / "list0", std::string("day/b.wav\0./night//b.wav\0day/a\xFF.wav\0", 36));
    Command command =
        Kelhost(m_directory, Arguments{"-c", R"(exec "$0" "$@" <list0)", KEL_TEST_HOST, "copy",
                                       "x.wav", "-0", "--parents"} +
                                 arguments + Arguments{"-"});
    command.program = "/bin/sh";
    ExpectResult(RunCommand(command), 0, "", "");
    EXPECT_EQ(Everything("out"), (Names{"day/a\xFF.wav", "day/b.wav", "night/b.wav", "x.wav"}));
    fs::remove_all(m_directory / "out");
    EXPECT_EQ(
        Copy({"--parents", "-r", "./day", m_directory / "night/", "--output-dir", "out"}).status,
        0);
    EXPECT_EQ(Everything("out"), (Names{"day/a\xFF.wav", "day/b.wav",
                                        m_directory.Path().string().substr(1) + "/night/b.wav"}));
    // A list may be empty, or have a wrong name.
    WriteFile(m_directory / "list", "\n");
    ExpectResult(Copy({"--output-dir", "none", "--files-from", "list"}), 0,
                 "0 files: 0 copied, 0 failed\n", "");
    ExpectResult(Copy({"--output-dir", "none", "--files-from", "list", "-0"}), 1, "",
                 Error("\\n", "cannot open for reading: No such file or directory"));
    ExpectResult(Copy({"--output-dir", "none", "--files-from", "missing"}), 1, "",
                 Error("missing", "cannot open for reading: No such file or directory"));
    EXPECT_FALSE(fs::exists(m_directory / "none"));
}

} // namespace kel::test
