#include "OutputFile.h"

#include "Errors.h"
#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;
using test::Content;
using test::TemporaryFolder;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

namespace {

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        ADD_FAILURE() << "there is no " << path;
    }
    return status.st_mode & 07777U;
}

// The umask for as long as it lives.
class Umask {
public:
    explicit Umask(mode_t mask) : m_former(umask(mask)) {}
    ~Umask() { umask(m_former); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t m_former;
};

// The current folder for as long as it lives.
class CurrentFolder {
public:
    explicit CurrentFolder(const fs::path& folder) : m_former(fs::current_path()) {
        fs::current_path(folder);
    }
    ~CurrentFolder() { fs::current_path(m_former); }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    fs::path m_former;
};

template <typename Operation>
std::string JobErrorOf(Operation operation) {
    try {
        operation();
    } catch (const JobError& error) {
        return error.what();
    }
    return "no JobError";
}

// What making an output says.
std::string RefusalOf(const std::string& path, bool replace) {
    return JobErrorOf([&] { const OutputFile output(path, replace); });
}

// What committing says.
std::string CommitErrorOf(OutputFile& output) {
    return JobErrorOf([&] { output.Commit(); });
}

// A folder within another whose path has so many bytes.
std::string MakeFolderOfLength(const TemporaryFolder& folder, std::size_t length) {
    std::string path = folder.Path().string();
    while (path.size() < length) {
        const std::size_t rest = length - path.size();
        const std::size_t part = rest > 202 ? 200 : rest - 1;
        path += "/" + std::string(part, 'd');
    }
    fs::create_directories(path);
    return path;
}

} // namespace

TEST(OutputFileTemporary, LiesBesideTheNameWithTheSameExtension) {
    const TemporaryFolder folder;
    struct Row {
        std::string name;
        std::string extension;
    };
    for (const Row& row : {Row{"take.wav", "\\.wav"}, Row{"take.AIFF", "\\.AIFF"}, Row{"take", ""},
                           Row{"a.b.rf64", "\\.rf64"}, Row{".wav", ""}, Row{"take.", "\\."}}) {
        SCOPED_TRACE(row.name);
        const OutputFile output(folder / row.name, false);
        EXPECT_EQ(output.Path(), folder / row.name);
        EXPECT_EQ(fs::path(output.TemporaryPath()).parent_path(), folder.Path());
        EXPECT_THAT(
            fs::path(output.TemporaryPath()).filename().string(),
            MatchesRegex("\\.kelhost-[0-9]+-[0-9a-f]{8}-[0-9A-Za-z]{6}\\.part" + row.extension));
        EXPECT_EQ(folder.Names(),
                  std::vector<std::string>{fs::path(output.TemporaryPath()).filename().string()});
        EXPECT_EQ(Content(output.TemporaryPath()), "");
    }
}

TEST(OutputFileTemporary, LiesInTheCurrentFolderForABareName) {
    const TemporaryFolder folder;
    const CurrentFolder current(folder.Path());
    OutputFile output("take.wav", false);
    EXPECT_THAT(output.TemporaryPath(),
                MatchesRegex("\\.kelhost-[0-9]+-[0-9a-f]{8}-[0-9A-Za-z]{6}\\.part\\.wav"));
    EXPECT_TRUE(fs::exists(folder / output.TemporaryPath()));
    output.Commit();
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileTemporary, IsAnotherOneForEachOutput) {
    const TemporaryFolder folder;
    const OutputFile first(folder / "take.wav", false);
    const OutputFile second(folder / "take.wav", false);
    EXPECT_NE(first.TemporaryPath(), second.TemporaryPath());
}

TEST(OutputFileMode, IsThatOfAPlainOpen) {
    for (const mode_t mask : {0022U, 0027U, 0077U, 0000U}) {
        const TemporaryFolder folder;
        const Umask umask(mask);
        OutputFile output(folder / "take.wav", false);
        output.Commit();
        EXPECT_EQ(ModeOf(folder / "take.wav"), 0666U & ~mask);
    }
}

TEST(OutputFileMode, LeavesTheUmaskAsItWas) {
    const TemporaryFolder folder;
    const Umask mask(0027);
    const OutputFile output(folder / "take.wav", false);
    EXPECT_EQ(umask(0027), 0027U);
}

TEST(OutputFileMode, IsThatOfTheFileThatIsReplaced) {
    for (const mode_t mode : {0600U, 0664U, 0755U}) {
        const TemporaryFolder folder;
        const Umask umask(0022);
        WriteFile(folder / "take.wav", "before");
        fs::permissions(folder / "take.wav", static_cast<fs::perms>(mode));
        OutputFile output(folder / "take.wav", true);
        output.Commit();
        EXPECT_EQ(ModeOf(folder / "take.wav"), mode);
    }
}

TEST(OutputFileCommit, GivesTheFileItsName) {
    const TemporaryFolder folder;
    {
        OutputFile output(folder / "take.wav", false);
        WriteFile(output.TemporaryPath(), "whole");
        EXPECT_FALSE(fs::exists(folder / "take.wav"));
        output.Commit();
    }
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
    EXPECT_EQ(Content(folder / "take.wav"), "whole");
}

TEST(OutputFileCommit, ReplacesWithPermissionAndOnlyThen) {
    const TemporaryFolder folder;
    WriteFile(folder / "take.wav", "before");
    EXPECT_EQ(RefusalOf(folder / "take.wav", false),
              folder / "take.wav: exists already; use --force to replace it");
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));

    OutputFile output(folder / "take.wav", true);
    WriteFile(output.TemporaryPath(), "after");
    EXPECT_EQ(Content(folder / "take.wav"), "before");
    output.Commit();
    EXPECT_EQ(Content(folder / "take.wav"), "after");
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileCommit, DoesNotReplaceAFileThatAppearedMeanwhile) {
    const TemporaryFolder folder;
    {
        OutputFile output(folder / "take.wav", false);
        WriteFile(output.TemporaryPath(), "ours");
        WriteFile(folder / "take.wav", "theirs");
        EXPECT_EQ(CommitErrorOf(output),
                  folder / "take.wav: can not be given its name: File exists");
    }
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
    EXPECT_EQ(Content(folder / "take.wav"), "theirs");
}

TEST(OutputFileCommit, ReplacesAFileThatAppearedMeanwhileWithPermission) {
    const TemporaryFolder folder;
    OutputFile output(folder / "take.wav", true);
    WriteFile(output.TemporaryPath(), "ours");
    WriteFile(folder / "take.wav", "theirs");
    output.Commit();
    EXPECT_EQ(Content(folder / "take.wav"), "ours");
}

TEST(OutputFileCommit, DoesNotReplaceAFolderThatAppearedMeanwhile) {
    for (const bool replace : {false, true}) {
        const TemporaryFolder folder;
        {
            OutputFile output(folder / "take.wav", replace);
            fs::create_directory(folder / "take.wav");
            EXPECT_EQ(CommitErrorOf(output), folder / "take.wav: can not be given its name: " +
                                                 (replace ? "Is a directory" : "File exists"));
        }
        EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
        EXPECT_TRUE(fs::is_directory(folder / "take.wav"));
    }
}

TEST(OutputFileCommit, FailsWhenTheTemporaryFileIsGone) {
    const TemporaryFolder folder;
    {
        OutputFile output(folder / "take.wav", false);
        fs::remove(output.TemporaryPath());
        EXPECT_EQ(CommitErrorOf(output),
                  folder / "take.wav: can not be flushed to disk: No such file or directory");
    }
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(OutputFileOfAProcessThatIsGone, IsRemovedAndNoOther) {
    const TemporaryFolder folder;
    WriteFile(folder / "other", "");
    const OutputFile own(folder / "own.wav", false);
    const pid_t process = fork();
    if (process == 0) {
        const OutputFile first(folder / "first.wav", false);
        const OutputFile second(folder / "second.aiff", false);
        _exit(folder.Names().size() == 4 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(folder.Names().size(), 4U);
    // A process of the same number, on another machine that shares the folder.
    const std::string elsewhere =
        ".kelhost-" + std::to_string(process) + "-not this-abcdef.part.wav";
    WriteFile(folder / elsewhere, "");
    RemoveTemporaryFiles(folder.Path().string(), process);
    EXPECT_THAT(folder.Names(),
                UnorderedElementsAre("other", elsewhere,
                                     fs::path(own.TemporaryPath()).filename().string()));
}

TEST(OutputFileRefusal, NamesAFolderThatIsMissing) {
    const TemporaryFolder folder;
    EXPECT_EQ(RefusalOf(folder / "missing/take.wav", false),
              folder / "missing/take.wav: can not be created: No such file or directory");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(OutputFileRefusal, NamesAFolderThatIsAFile) {
    const TemporaryFolder folder;
    WriteFile(folder / "file", "");
    EXPECT_EQ(RefusalOf(folder / "file/take.wav", false),
              folder / "file/take.wav: can not be created: Not a directory");
}

TEST(OutputFileRefusal, MeetsEverythingThatIsNoRegularFileWithoutTouchingIt) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "folder.wav");
    ASSERT_EQ(mkfifo((folder / "fifo.wav").c_str(), 0600), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder / "socket.wav").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(socket);
    fs::create_symlink("/dev/null", folder / "device.wav");
    fs::create_symlink("folder.wav", folder / "link.wav");
    for (const char* name : {"folder.wav", "fifo.wav", "socket.wav", "device.wav", "link.wav"}) {
        for (const bool replace : {false, true}) {
            EXPECT_EQ(RefusalOf(folder / name, replace),
                      (folder / name) + ": is not a regular file; name another output");
        }
    }
    EXPECT_EQ(RefusalOf("/dev/null", true),
              "/dev/null: is not a regular file; name another output");
    EXPECT_EQ(folder.Names().size(), 5U);
    EXPECT_TRUE(fs::is_fifo(folder / "fifo.wav"));
    EXPECT_TRUE(fs::is_socket(folder / "socket.wav"));
    EXPECT_TRUE(fs::is_symlink(folder / "device.wav"));
}

TEST(OutputFileRefusal, MeetsADanglingLinkWithoutPermission) {
    const TemporaryFolder folder;
    fs::create_symlink("nowhere", folder / "take.wav");
    EXPECT_EQ(RefusalOf(folder / "take.wav", false),
              folder / "take.wav: exists already; use --force to replace it");
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileLinks, AreReplacedThemselves) {
    const TemporaryFolder folder;
    WriteFile(folder / "target.wav", "target");
    fs::create_symlink("target.wav", folder / "take.wav");
    OutputFile output(folder / "take.wav", true);
    WriteFile(output.TemporaryPath(), "new");
    output.Commit();
    EXPECT_FALSE(fs::is_symlink(folder / "take.wav"));
    EXPECT_EQ(Content(folder / "take.wav"), "new");
    EXPECT_EQ(Content(folder / "target.wav"), "target");
}

TEST(OutputFileLinks, ThatDangleAreReplacedThemselvesToo) {
    const TemporaryFolder folder;
    fs::create_symlink("nowhere.wav", folder / "take.wav");
    OutputFile output(folder / "take.wav", true);
    WriteFile(output.TemporaryPath(), "new");
    output.Commit();
    EXPECT_FALSE(fs::is_symlink(folder / "take.wav"));
    EXPECT_EQ(Content(folder / "take.wav"), "new");
    EXPECT_THAT(folder.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileShortage, IsALimitOfTheFileSizeThatHasBeenReached) {
    const TemporaryFolder folder;
    const OutputFile output(folder / "take.wav", false);
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const rlimit few{100, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &few), 0);
    EXPECT_EQ(output.ReasonForShortage(1000), "");
    WriteFile(output.TemporaryPath(), std::string(99, 'x'));
    EXPECT_EQ(output.ReasonForShortage(1000), "");
    WriteFile(output.TemporaryPath(), std::string(100, 'x'));
    EXPECT_EQ(output.ReasonForShortage(1000),
              "; files may have 100 bytes at most here (ulimit -f)");
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(output.ReasonForShortage(1000), "");
}

TEST(OutputFileShortage, IsAFullDiskWhenWhatIsMissingDoesNotFit) {
    const TemporaryFolder folder;
    const OutputFile output(folder / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    EXPECT_EQ(output.ReasonForShortage(kBeyondEveryDisk), "; its disk is full");
    EXPECT_EQ(output.ReasonForShortage(0), "");
    // What is written already needs no more room.
    constexpr std::uint64_t kMuch = std::uint64_t{1} << 40U;
    fs::resize_file(output.TemporaryPath(), kMuch - 1);
    EXPECT_EQ(output.ReasonForShortage(kMuch), "");
}

TEST(OutputFileRoom, IsAskedForBeforeAnythingIsWritten) {
    const TemporaryFolder folder;
    const OutputFile output(folder / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    output.CheckRoomFor(0);
    EXPECT_THAT(JobErrorOf([&] { output.CheckRoomFor(kBeyondEveryDisk); }),
                MatchesRegex((folder / "take.wav") +
                             ": needs 4611686018427387904 bytes, and its disk has [0-9]+ left; "
                             "nothing was written"));
}

TEST(OutputFilePath, MayHave1023BytesAndNoMore) {
    const TemporaryFolder folder;
    const std::string deep = MakeFolderOfLength(folder, 1023 - 101);
    const std::string longest = deep + "/" + std::string(96, 'n') + ".wav";
    ASSERT_EQ(longest.size(), 1023U);
    {
        OutputFile output(longest, false);
        EXPECT_LE(output.TemporaryPath().size(), 1023U);
        output.Commit();
    }
    EXPECT_TRUE(fs::exists(longest));
    fs::remove(longest);

    const std::string tooLong = deep + "/" + std::string(97, 'n') + ".wav";
    EXPECT_EQ(RefusalOf(tooLong, false),
              tooLong + ": the path is longer than 1023 bytes; change to its folder or use a "
                        "shorter name");
    EXPECT_TRUE(fs::is_empty(deep));
}

TEST(OutputFilePath, LeavesRoomForTheTemporaryName) {
    const TemporaryFolder folder;
    // The temporary name is longer than the name that was asked for.
    const std::string deep = MakeFolderOfLength(folder, 1023 - 6);
    const std::string path = deep + "/a.wav";
    ASSERT_EQ(path.size(), 1023U);
    EXPECT_EQ(RefusalOf(path, false),
              path + ": is written under a temporary name first, whose path would be longer than "
                     "1023 bytes; change to its folder");
    EXPECT_TRUE(fs::is_empty(deep));
}

TEST(OutputFileIsSameFile, LooksThroughNamesAndLinks) {
    const TemporaryFolder folder;
    WriteFile(folder / "a", "same");
    WriteFile(folder / "b", "same");
    fs::create_hard_link(folder / "a", folder / "hard");
    fs::create_symlink("a", folder / "soft");
    fs::create_symlink("soft", folder / "softer");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_directory(folder / "sub");
    for (const char* name : {"a", "hard", "soft", "softer", "./a", "sub/../a"}) {
        EXPECT_TRUE(IsSameFile(folder / "a", folder / name)) << name;
        EXPECT_TRUE(IsSameFile(folder / name, folder / "a")) << name;
    }
    for (const char* name : {"b", "dangling", "missing", "sub", "a/", ""}) {
        EXPECT_FALSE(IsSameFile(folder / "a", folder / name)) << name;
    }
    EXPECT_FALSE(IsSameFile(folder / "missing", folder / "missing"));
    EXPECT_FALSE(IsSameFile(folder / "dangling", folder / "dangling"));
    EXPECT_FALSE(IsSameFile("", ""));
}

} // namespace kel::host
