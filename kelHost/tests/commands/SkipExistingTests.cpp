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

TEST(SkipExisting, LeavesAFileOfAnyContentAsItIsAndNeedsNoInput) {
    const TemporaryDirectory directory;
    WriteOld(directory / "elsewhere", "no audio at all\n");
    fs::create_symlink("elsewhere", directory / "copy.wav");
    const Identity before(directory / "copy.wav");
    ExpectResult(RunKelhost(directory, {"copy", "--skip-existing", "missing.wav", "copy.wav"}), 0,
                 Skipped("missing.wav", "copy.wav"), "");
    ExpectResult(
        RunKelhost(directory, {"copy", "--skip-existing", "--quiet", "missing.wav", "copy.wav"}), 0,
        "", "");
    EXPECT_TRUE(Identity(directory / "copy.wav") == before);
}

TEST(SkipExisting, SkipsOnlyFilesThatAreNotTheInput) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    fs::create_directory(directory / "directory.wav");
    fs::create_symlink("nowhere", directory / "dangling.wav");
    struct Row {
        std::string output;
        std::string error;
    };
    for (const Row& row :
         {Row{"directory.wav", "is a directory; name a file in it"},
          Row{"dangling.wav", "exists already; use --force to replace it"},
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
    WriteOld(directory / "out/b.wav", "before");
    WriteOld(directory / "out/d.wav", "before");
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
    fs::create_directory(directory / "out");
    WriteFile(directory / "out/a.wav", "before");
    WriteFile(directory / "out/c.wav", "before");
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
                              {"output_path", "out/" + name}};
    };
    EXPECT_EQ(document["skipped"], (nlohmann::json{skipped("a.wav"), skipped("c.wav")}));
    ASSERT_EQ(document["results"].size(), 1U);
    EXPECT_EQ(document["results"][0]["output"], "out/b.wav");
    EXPECT_EQ(document["failures"], nlohmann::json::array());
}

} // namespace kel::test
