// Copies that leave alone what is there already.

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

std::string Copied(const std::string& input, const std::string& output) {
    return input + " -> " + output +
           ": extensible WAVE, float32 little-endian, 2 channels, 48000 Hz, 1000 frames, "
           "0:00:00.021\n";
}

std::string Skipped(const std::string& input, const std::string& output) {
    return input + " -> " + output + ": exists already, skipped\n";
}

// A file with a content and a time of writing that are its own.
void WriteOld(const std::string& path, const std::string& content) {
    WriteFile(path, content);
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(24));
}

// What changes when somebody writes to a file or replaces it.
struct Identity {
    explicit Identity(const std::string& path) : content(Content(path)) {
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

TEST(SkipExisting, LeavesAFileOfAnyContentAsItIs) {
    for (const char* content : {"", "no audio at all\n", "RIFF"}) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav");
        WriteOld(directory / "copy.wav", content);
        const Identity before(directory / "copy.wav");
        ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "copy.wav"}), 0,
                     Skipped("take.wav", "copy.wav"), "");
        EXPECT_TRUE(Identity(directory / "copy.wav") == before);
        EXPECT_EQ(SortedNames(directory), (Names{"copy.wav", "take.wav"}));
    }
}

TEST(SkipExisting, DoesNotLookAtTheInput) {
    const TemporaryDirectory directory;
    WriteFile(directory / "copy.wav", "before");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "missing.wav", "copy.wav"}), 0,
                 Skipped("missing.wav", "copy.wav"), "");
}

TEST(SkipExisting, FollowsALinkToAFile) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "elsewhere", "before");
    fs::create_symlink("elsewhere", directory / "copy.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "copy.wav"}), 0,
                 Skipped("take.wav", "copy.wav"), "");
    EXPECT_EQ(Content(directory / "elsewhere"), "before");
}

TEST(SkipExisting, CopiesWhatIsNotThere) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "copy.wav"}), 0,
                 Copied("take.wav", "copy.wav"), "");
    EXPECT_EQ(ReadAudio(directory / "copy.wav").values, MakeValues(2000));
}

TEST(SkipExisting, DoesNotTakeWhatIsNoFileForACopy) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::create_directory(directory / "directory.wav");
    fs::create_symlink("nowhere", directory / "dangling.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "directory.wav"}), 1,
                 "", "kelhost: directory.wav: is not a regular file; name another output\n");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "dangling.wav"}), 1,
                 "", "kelhost: dangling.wav: exists already; use --force to replace it\n");
}

TEST(SkipExisting, StillRefusesTheInputAsTheOutput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "take.wav", "./take.wav"}), 1,
                 "",
                 "kelhost: ./take.wav: is the same file as the input take.wav; name another "
                 "output\n");
}

TEST(SkipExisting, GoesNotTogetherWithForce) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(
        RunKelhost(directory, {"copy", "--skip-existing", "--force", "take.wav", "copy.wav"}), 2,
        "", "--force excludes --skip-existing\nRun with --help for more information.\n");
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

TEST(SkipExisting, MakesTheRestOfADirectoryAndCounts) {
    for (const char* jobs : {"1", "4"}) {
        SCOPED_TRACE(jobs);
        const TemporaryDirectory directory;
        for (const char* name : {"a.wav", "b.flac", "c.wav", "d.wav"}) {
            WriteTake(directory / name);
        }
        WriteFile(directory / "e.wav", "no audio at all, but a text of some length\n");
        fs::create_directory(directory / "out");
        WriteOld(directory / "out/b.wav", "before");
        WriteOld(directory / "out/d.wav", "before");
        const Identity b(directory / "out/b.wav");
        const Identity d(directory / "out/d.wav");
        const std::vector<std::string> arguments{
            "copy",         "a.wav", "b.flac",          "c.wav",  "d.wav", "e.wav",
            "--output-dir", "out",   "--skip-existing", "--jobs", jobs};
        const std::string broken = "kelhost: e.wav: cannot be read: [Unable to open file "
                                   "\"e.wav\" with libsndfile. Error is:\"Format not "
                                   "recognised.\"]\n";
        ExpectResult(RunKelhost(directory, arguments), 1,
                     Copied("a.wav", "out/a.wav") + Skipped("b.flac", "out/b.wav") +
                         Copied("c.wav", "out/c.wav") + Skipped("d.wav", "out/d.wav") +
                         "5 files: 2 copied, 2 skipped, 1 failed\n",
                     broken);
        EXPECT_TRUE(Identity(directory / "out/b.wav") == b);
        EXPECT_TRUE(Identity(directory / "out/d.wav") == d);

        // Nothing but what failed is tried again.
        ExpectResult(RunKelhost(directory, arguments), 1,
                     Skipped("a.wav", "out/a.wav") + Skipped("b.flac", "out/b.wav") +
                         Skipped("c.wav", "out/c.wav") + Skipped("d.wav", "out/d.wav") +
                         "5 files: 0 copied, 4 skipped, 1 failed\n",
                     broken);
        WriteTake(directory / "e.wav");
        ExpectResult(RunKelhost(directory, arguments), 0,
                     Skipped("a.wav", "out/a.wav") + Skipped("b.flac", "out/b.wav") +
                         Skipped("c.wav", "out/c.wav") + Skipped("d.wav", "out/d.wav") +
                         Copied("e.wav", "out/e.wav") + "5 files: 1 copied, 4 skipped, 0 failed\n",
                     "");
    }
}

TEST(SkipExisting, DoesNotTakeTheTemporaryFileOfAnotherHostForAnOutput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    fs::create_directory(directory / "out");
    WriteOld(directory / "out/.kelhost-1-abcdef.part.wav", "before");
    const Identity before(directory / "out/.kelhost-1-abcdef.part.wav");
    ExpectResult(RunKelhost(directory, {"copy", "a.wav", "--output-dir", "out", "--skip-existing"}),
                 0, Copied("a.wav", "out/a.wav"), "");
    EXPECT_TRUE(Identity(directory / "out/.kelhost-1-abcdef.part.wav") == before)
        << "its host may be at work, on another machine";
}

TEST(SkipExisting, IsQuietWhenAskedTo) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteFile(directory / "b.wav", "before");
    ExpectResult(RunKelhost(directory, {"copy", "a.wav", "b.wav", "--skip-existing", "--quiet"}), 0,
                 "", "");
}

TEST(SkipExisting, ListsWhatWasSkippedInTheDocument) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.wav");
    fs::create_directory(directory / "out");
    WriteFile(directory / "out/a.wav", "before");
    WriteFile(directory / "out/c.wav", "before");
    const ProcessResult result = RunKelhost(directory, {"--json", "copy", "a.wav", "b.wav", "c.wav",
                                                        "--output-dir", "out", "--skip-existing"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    ExpectDocuments({"kelhost.copy"}, result.out);
    const auto document = nlohmann::json::parse(result.out);
    EXPECT_EQ(document["skipped"], (nlohmann::json{{{"input", "a.wav"}, {"output", "out/a.wav"}},
                                                   {{"input", "c.wav"}, {"output", "out/c.wav"}}}));
    ASSERT_EQ(document["results"].size(), 1U);
    EXPECT_EQ(document["results"][0]["output"], "out/b.wav");
    EXPECT_EQ(document["failures"], nlohmann::json::array());
}

} // namespace kel::test
