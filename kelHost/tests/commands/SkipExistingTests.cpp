// Copies that leave existing outputs as they are.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

std::string Skipped(const std::string& input, const std::string& output) {
    return input + " -> " + output + ": exists already, skipped\n";
}

// A file with a content and a time of writing that are its own.
void WriteOld(const std::string& path, const std::string& content) {
    WriteFile(path, content);
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(24));
}

// Changes when a file is written or replaced.
struct Identity {
    explicit Identity(const std::string& path) : content(ReadFile(path)) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        inode = status.st_ino;
        seconds = status.st_mtim.tv_sec;
        nanoseconds = status.st_mtim.tv_nsec;
    }
    bool operator==(const Identity& other) const {
        return content == other.content && inode == other.inode && seconds == other.seconds &&
               nanoseconds == other.nanoseconds;
    }
    std::string content;
    ino_t inode = 0;
    time_t seconds = 0;
    long nanoseconds = 0;
};

} // namespace

TEST(SkipExisting, LeavesACopyAsItIs) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteAudio(directory / "elsewhere", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 2, 48000,
               std::vector<float>(2000));
    fs::create_symlink("elsewhere", directory / "copy.wav");
    const Identity before(directory / "copy.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "copy.wav"}), 0,
                 Skipped("take.wav", "copy.wav"), "");
    ExpectResult(
        RunKelhost(directory, {"copy", "--skip-existing", "--quiet", "take.wav", "copy.wav"}), 0,
        "", "");
    EXPECT_TRUE(Identity(directory / "copy.wav") == before);
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "missing.wav", "copy.wav"}), 1,
                 "", Error("missing.wav", "cannot open for reading: No such file or directory"));
}

TEST(SkipExisting, RefusesFilesThatAreNoCopyOfTheInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    constexpr int kFormat = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    WriteAudio(directory / "channels.wav", kFormat, 1, 48000, std::vector<float>(1000));
    WriteAudio(directory / "rate.wav", kFormat, 2, 44100, std::vector<float>(2000));
    WriteTake(directory / "frames.wav", 999);
    WriteTake(directory / "cut.wav");
    fs::resize_file(directory / "cut.wav", 100);
    WriteFile(directory / "text.wav", kNoAudio);
    const std::string text = NoAudioError("text.wav");
    struct Row {
        std::string output;
        std::string difference;
    };
    for (const char* option : {"--skip-existing", "--update"}) {
        for (const Row& row :
             {Row{"channels.wav", "it has 1000 frames, 1 channel and 48000 Hz instead of 1000 "
                                  "frames, 2 channels and 48000 Hz"},
              Row{"rate.wav", "it has 1000 frames, 2 channels and 44100 Hz instead of 1000 frames, "
                              "2 channels and 48000 Hz"},
              Row{"frames.wav", "it has 999 frames, 2 channels and 48000 Hz instead of 1000 "
                                "frames, 2 channels and 48000 Hz"},
              Row{"cut.wav", "declares 1000 frames and contains 14; it is truncated "
                             "(--allow-truncated accepts the frames that exist)"},
              Row{"text.wav",
                  text.substr(text.find("cannot"), text.size() - 1 - text.find("cannot"))}}) {
            const Identity before(directory / row.output);
            ExpectResult(
                RunKelhost(directory, {"copy", option, "take.wav", row.output}), 1, "",
                Error(row.output, "exists already and is no copy of take.wav: " + row.difference +
                                      "; use --force to replace it, or another output"));
            EXPECT_TRUE(Identity(directory / row.output) == before);
        }
    }
    // A part of the input fits a part of it.
    WriteTake(directory / "part.wav", 10);
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "part.wav",
                                        "--start", "5f", "--duration", "10f"}),
                 0, Skipped("take.wav", "part.wav"), "");
}

TEST(SkipExisting, NoticesAnotherInputOfTheSameName) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "a");
    fs::create_directory(directory / "b");
    WriteTake(directory / "a/x.flac");
    WriteTake(directory / "b/x.flac", 500);
    const Arguments options{"--output-dir", "out", "--skip-existing"};
    EXPECT_EQ(RunKelhost(directory, Arguments{"copy", "a/x.flac"} + options).status, 0);
    ExpectResult(RunKelhost(directory, Arguments{"copy", "b/x.flac"} + options), 1, "",
                 Error("out/x.wav",
                       "exists already and is no copy of b/x.flac: it has 1000 frames, 2 channels "
                       "and 48000 Hz instead of 500 frames, 2 channels and 48000 Hz; use --force "
                       "to replace it, or another output"));
}

TEST(Update, ReplacesOnlyOutputsThatAreOlderThanTheirInput) {
    const TemporaryDirectory directory;
    for (const char* name : {"a.wav", "b.wav", "c.wav"}) {
        WriteTake(directory / name);
    }
    const Arguments arguments{"copy", "a.wav", "b.wav", "c.wav", "--output-dir", "out", "--update"};
    EXPECT_EQ(RunKelhost(directory, arguments).status, 0);
    // As old as the input, and older.
    const auto time = fs::last_write_time(directory / "out/a.wav");
    fs::last_write_time(directory / "a.wav", time);
    fs::last_write_time(directory / "b.wav", fs::last_write_time(directory / "out/b.wav") +
                                                 std::chrono::nanoseconds(1000));
    const Identity a(directory / "out/a.wav");
    const Identity b(directory / "out/b.wav");
    ExpectResult(RunKelhost(directory, arguments), 0,
                 "a.wav -> out/a.wav: is up to date, skipped\n" + CopyReport("b.wav", "out/b.wav") +
                     "c.wav -> out/c.wav: is up to date, skipped\n"
                     "3 files: 1 copied, 2 skipped, 0 failed\n",
                 "");
    EXPECT_TRUE(Identity(directory / "out/a.wav") == a);
    EXPECT_FALSE(Identity(directory / "out/b.wav") == b);
    ExpectResult(RunKelhost(directory, arguments + Arguments{"--skip-existing"}), 2, "",
                 "kelhost: --update excludes --skip-existing\n");
}

TEST(SkipExisting, SkipsOnlyFilesThatAreNotTheInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::create_symlink("nowhere", directory / "dangling.wav");
    struct Row {
        std::string output;
        std::string error;
    };
    for (const Row& row :
         {Row{"dangling.wav", "exists already; use --force to replace it"},
          Row{"./take.wav", "is the same file as the input take.wav; name another output"}}) {
        ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", row.output}), 1,
                     "", Error(row.output, row.error));
    }
    ExpectResult(
        RunKelhost(directory, {"copy", "--skip-existing", "--force", "take.wav", "copy.wav"}), 2,
        "", "kelhost: --skip-existing excludes --force; see kelhost copy --help\n");
}

TEST(SkipExisting, MakesTheRestOfADirectoryAndCounts) {
    const TemporaryDirectory directory;
    for (const char* name : {"a.wav", "b.flac", "d.wav"}) {
        WriteTake(directory / name);
    }
    WriteFile(directory / "e.wav", kNoAudio);
    fs::create_directory(directory / "out");
    WriteTake(directory / "out/b.wav");
    WriteTake(directory / "out/d.wav");
    WriteOld(directory / "out/.kelhost-1-abcdef.part.wav", "of a host on another machine");
    const Identity b(directory / "out/b.wav");
    const Identity unfinished(directory / "out/.kelhost-1-abcdef.part.wav");
    const Arguments arguments{"copy",  "a.wav",        "b.flac", "d.wav",
                              "e.wav", "--output-dir", "out",    "--skip-existing"};
    const std::string skipped = Skipped("b.flac", "out/b.wav") + Skipped("d.wav", "out/d.wav");
    ExpectResult(RunKelhost(directory, arguments), 1,
                 CopyReport("a.wav", "out/a.wav") + skipped +
                     "4 files: 1 copied, 2 skipped, 1 failed\n",
                 NoAudioError("e.wav"));
    EXPECT_TRUE(Identity(directory / "out/b.wav") == b);
    EXPECT_TRUE(Identity(directory / "out/.kelhost-1-abcdef.part.wav") == unfinished);

    // Only the file that failed is tried again.
    WriteTake(directory / "e.wav");
    ExpectResult(RunKelhost(directory, arguments), 0,
                 Skipped("a.wav", "out/a.wav") + skipped + CopyReport("e.wav", "out/e.wav") +
                     "4 files: 1 copied, 3 skipped, 0 failed\n",
                 "");
}

TEST(SkipExisting, ListsSkippedFilesInTheDocument) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.wav");
    WriteTake(directory / "c.wav");
    fs::create_directory(directory / "out");
    WriteTake(directory / "out/a.wav");
    WriteTake(directory / "out/c.wav");
    const ProcessResult result = RunKelhost(directory, {"--json", "copy", "a.wav", "b.wav", "c.wav",
                                                        "--output-dir", "out", "--skip-existing"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.copy"}, result.out);
    const auto document = nlohmann::json::parse(result.out);
    const auto skipped = [](const std::string& name) {
        return nlohmann::json{{"input", name},
                              {"input_path", name},
                              {"output", "out/" + name},
                              {"output_path", "out/" + name},
                              {"reason", "exists"}};
    };
    EXPECT_EQ(document["skipped"], (nlohmann::json{skipped("a.wav"), skipped("c.wav")}));
    ASSERT_EQ(document["results"].size(), 1U);
    EXPECT_EQ(document["results"][0]["output"], "out/b.wav");
    EXPECT_EQ(document["failures"], nlohmann::json::array());
}

} // namespace kel::test
