#include "base/OutputFile.h"

#include "Program.h"
#include "base/Errors.h"

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
using test::TemporaryDirectory;
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

// The current directory for as long as it lives.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const fs::path& directory) : m_former(fs::current_path()) {
        fs::current_path(directory);
    }
    ~CurrentDirectory() { fs::current_path(m_former); }
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

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

// A directory within another whose path has so many bytes.
std::string MakeDirectoryOfLength(const TemporaryDirectory& directory, std::size_t length) {
    std::string path = directory.Path().string();
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
    const TemporaryDirectory directory;
    struct Row {
        std::string name;
        std::string extension;
    };
    for (const Row& row : {Row{"take.wav", "\\.wav"}, Row{"take.AIFF", "\\.AIFF"}, Row{"take", ""},
                           Row{"a.b.rf64", "\\.rf64"}, Row{".wav", ""}, Row{"take.", "\\."}}) {
        SCOPED_TRACE(row.name);
        const OutputFile output(directory / row.name, false);
        EXPECT_EQ(output.Path(), directory / row.name);
        EXPECT_EQ(fs::path(output.TemporaryPath()).parent_path(), directory.Path());
        EXPECT_THAT(
            fs::path(output.TemporaryPath()).filename().string(),
            MatchesRegex("\\.kelhost-[0-9]+-[0-9a-f]{8}-[0-9A-Za-z]{6}\\.part" + row.extension));
        EXPECT_EQ(directory.Names(),
                  std::vector<std::string>{fs::path(output.TemporaryPath()).filename().string()});
        EXPECT_EQ(Content(output.TemporaryPath()), "");
    }
}

TEST(OutputFileTemporary, LiesInTheCurrentDirectoryForABareName) {
    const TemporaryDirectory directory;
    const CurrentDirectory current(directory.Path());
    OutputFile output("take.wav", false);
    EXPECT_THAT(output.TemporaryPath(),
                MatchesRegex("\\.kelhost-[0-9]+-[0-9a-f]{8}-[0-9A-Za-z]{6}\\.part\\.wav"));
    EXPECT_TRUE(fs::exists(directory / output.TemporaryPath()));
    output.Commit();
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileTemporary, IsAnotherOneForEachOutput) {
    const TemporaryDirectory directory;
    const OutputFile first(directory / "take.wav", false);
    const OutputFile second(directory / "take.wav", false);
    EXPECT_NE(first.TemporaryPath(), second.TemporaryPath());
}

TEST(OutputFileMode, IsThatOfAPlainOpen) {
    for (const mode_t mask : {0022U, 0027U, 0077U, 0000U}) {
        const TemporaryDirectory directory;
        const Umask umask(mask);
        OutputFile output(directory / "take.wav", false);
        output.Commit();
        EXPECT_EQ(ModeOf(directory / "take.wav"), 0666U & ~mask);
    }
}

TEST(OutputFileMode, LeavesTheUmaskAsItWas) {
    const TemporaryDirectory directory;
    const Umask mask(0027);
    const OutputFile output(directory / "take.wav", false);
    EXPECT_EQ(umask(0027), 0027U);
}

TEST(OutputFileMode, IsThatOfTheFileThatIsReplaced) {
    for (const mode_t mode : {0600U, 0664U, 0755U}) {
        const TemporaryDirectory directory;
        const Umask umask(0022);
        WriteFile(directory / "take.wav", "before");
        fs::permissions(directory / "take.wav", static_cast<fs::perms>(mode));
        OutputFile output(directory / "take.wav", true);
        output.Commit();
        EXPECT_EQ(ModeOf(directory / "take.wav"), mode);
    }
}

TEST(OutputFileCommit, GivesTheFileItsName) {
    const TemporaryDirectory directory;
    {
        OutputFile output(directory / "take.wav", false);
        WriteFile(output.TemporaryPath(), "whole");
        EXPECT_FALSE(fs::exists(directory / "take.wav"));
        output.Commit();
    }
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
    EXPECT_EQ(Content(directory / "take.wav"), "whole");
}

TEST(OutputFileCommit, ReplacesWithPermissionAndOnlyThen) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "before");
    EXPECT_EQ(RefusalOf(directory / "take.wav", false),
              directory / "take.wav: exists already; use --force to replace it");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));

    OutputFile output(directory / "take.wav", true);
    WriteFile(output.TemporaryPath(), "after");
    EXPECT_EQ(Content(directory / "take.wav"), "before");
    output.Commit();
    EXPECT_EQ(Content(directory / "take.wav"), "after");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileCommit, DoesNotReplaceAFileThatAppearedMeanwhile) {
    const TemporaryDirectory directory;
    {
        OutputFile output(directory / "take.wav", false);
        WriteFile(output.TemporaryPath(), "ours");
        WriteFile(directory / "take.wav", "theirs");
        EXPECT_EQ(CommitErrorOf(output),
                  directory / "take.wav: cannot be given its name: File exists");
    }
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
    EXPECT_EQ(Content(directory / "take.wav"), "theirs");
}

TEST(OutputFileCommit, ReplacesAFileThatAppearedMeanwhileWithPermission) {
    const TemporaryDirectory directory;
    OutputFile output(directory / "take.wav", true);
    WriteFile(output.TemporaryPath(), "ours");
    WriteFile(directory / "take.wav", "theirs");
    output.Commit();
    EXPECT_EQ(Content(directory / "take.wav"), "ours");
}

TEST(OutputFileCommit, DoesNotReplaceADirectoryThatAppearedMeanwhile) {
    for (const bool replace : {false, true}) {
        const TemporaryDirectory directory;
        {
            OutputFile output(directory / "take.wav", replace);
            fs::create_directory(directory / "take.wav");
            EXPECT_EQ(CommitErrorOf(output), directory / "take.wav: cannot be given its name: " +
                                                 (replace ? "Is a directory" : "File exists"));
        }
        EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
        EXPECT_TRUE(fs::is_directory(directory / "take.wav"));
    }
}

TEST(OutputFileCommit, FailsWhenTheTemporaryFileIsGone) {
    const TemporaryDirectory directory;
    {
        OutputFile output(directory / "take.wav", false);
        fs::remove(output.TemporaryPath());
        EXPECT_EQ(CommitErrorOf(output),
                  directory / "take.wav: cannot be flushed to disk: No such file or directory");
    }
    EXPECT_THAT(directory.Names(), IsEmpty());
}

TEST(OutputFileOfAProcessThatIsGone, IsRemovedAndNoOther) {
    const TemporaryDirectory directory;
    WriteFile(directory / "other", "");
    const OutputFile own(directory / "own.wav", false);
    const pid_t process = fork();
    if (process == 0) {
        const OutputFile first(directory / "first.wav", false);
        const OutputFile second(directory / "second.aiff", false);
        _exit(directory.Names().size() == 4 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(directory.Names().size(), 4U);
    // A process of the same number, on another machine that shares the directory.
    const std::string elsewhere =
        ".kelhost-" + std::to_string(process) + "-not this-abcdef.part.wav";
    WriteFile(directory / elsewhere, "");
    RemoveTemporaryFiles(directory.Path().string(), process);
    EXPECT_THAT(directory.Names(),
                UnorderedElementsAre("other", elsewhere,
                                     fs::path(own.TemporaryPath()).filename().string()));
}

TEST(OutputFileRefusal, NamesADirectoryThatIsMissing) {
    const TemporaryDirectory directory;
    EXPECT_EQ(RefusalOf(directory / "missing/take.wav", false),
              directory / "missing/take.wav: cannot be created: No such file or directory");
    EXPECT_THAT(directory.Names(), IsEmpty());
}

TEST(OutputFileRefusal, NamesADirectoryThatIsAFile) {
    const TemporaryDirectory directory;
    WriteFile(directory / "file", "");
    EXPECT_EQ(RefusalOf(directory / "file/take.wav", false),
              directory / "file/take.wav: cannot be created: Not a directory");
}

TEST(OutputFileRefusal, MeetsEverythingThatIsNoRegularFileWithoutTouchingIt) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "directory.wav");
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (directory / "socket.wav").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(socket);
    fs::create_symlink("/dev/null", directory / "device.wav");
    fs::create_symlink("directory.wav", directory / "link.wav");
    for (const char* name : {"directory.wav", "fifo.wav", "socket.wav", "device.wav", "link.wav"}) {
        for (const bool replace : {false, true}) {
            EXPECT_EQ(RefusalOf(directory / name, replace),
                      (directory / name) + ": is not a regular file; name another output");
        }
    }
    EXPECT_EQ(RefusalOf("/dev/null", true),
              "/dev/null: is not a regular file; name another output");
    EXPECT_EQ(directory.Names().size(), 5U);
    EXPECT_TRUE(fs::is_fifo(directory / "fifo.wav"));
    EXPECT_TRUE(fs::is_socket(directory / "socket.wav"));
    EXPECT_TRUE(fs::is_symlink(directory / "device.wav"));
}

TEST(OutputFileRefusal, MeetsADanglingLinkWithoutPermission) {
    const TemporaryDirectory directory;
    fs::create_symlink("nowhere", directory / "take.wav");
    EXPECT_EQ(RefusalOf(directory / "take.wav", false),
              directory / "take.wav: exists already; use --force to replace it");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileLinks, AreReplacedThemselves) {
    const TemporaryDirectory directory;
    WriteFile(directory / "target.wav", "target");
    fs::create_symlink("target.wav", directory / "take.wav");
    OutputFile output(directory / "take.wav", true);
    WriteFile(output.TemporaryPath(), "new");
    output.Commit();
    EXPECT_FALSE(fs::is_symlink(directory / "take.wav"));
    EXPECT_EQ(Content(directory / "take.wav"), "new");
    EXPECT_EQ(Content(directory / "target.wav"), "target");
}

TEST(OutputFileLinks, ThatDangleAreReplacedThemselvesToo) {
    const TemporaryDirectory directory;
    fs::create_symlink("nowhere.wav", directory / "take.wav");
    OutputFile output(directory / "take.wav", true);
    WriteFile(output.TemporaryPath(), "new");
    output.Commit();
    EXPECT_FALSE(fs::is_symlink(directory / "take.wav"));
    EXPECT_EQ(Content(directory / "take.wav"), "new");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileShortage, IsALimitOfTheFileSizeThatHasBeenReached) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const rlimit few{100, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &few), 0);
    EXPECT_EQ(output.DescribeShortage(1000), "");
    WriteFile(output.TemporaryPath(), std::string(99, 'x'));
    EXPECT_EQ(output.DescribeShortage(1000), "");
    WriteFile(output.TemporaryPath(), std::string(100, 'x'));
    EXPECT_EQ(output.DescribeShortage(1000), "; files may have 100 bytes at most here (ulimit -f)");
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(output.DescribeShortage(1000), "");
}

TEST(OutputFileShortage, IsAFullDiskWhenWhatIsMissingDoesNotFit) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    EXPECT_EQ(output.DescribeShortage(kBeyondEveryDisk), "; its disk is full");
    EXPECT_EQ(output.DescribeShortage(0), "");
    // What is written already needs no more room.
    constexpr std::uint64_t kMuch = std::uint64_t{1} << 40U;
    fs::resize_file(output.TemporaryPath(), kMuch - 1);
    EXPECT_EQ(output.DescribeShortage(kMuch), "");
}

TEST(OutputFileRoom, IsAskedForBeforeAnythingIsWritten) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    output.RequireSpace(0);
    EXPECT_THAT(JobErrorOf([&] { output.RequireSpace(kBeyondEveryDisk); }),
                MatchesRegex((directory / "take.wav") +
                             ": needs 4611686018427387904 bytes, and its disk has [0-9]+ left; "
                             "nothing was written"));
}

TEST(OutputFilePath, MayHave1023BytesAndNoMore) {
    const TemporaryDirectory directory;
    const std::string deep = MakeDirectoryOfLength(directory, 1023 - 101);
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
              tooLong + ": the path is longer than 1023 bytes; change to its directory or use a "
                        "shorter name");
    EXPECT_TRUE(fs::is_empty(deep));
}

TEST(OutputFilePath, LeavesRoomForTheTemporaryName) {
    const TemporaryDirectory directory;
    // The temporary name is longer than the name that was asked for.
    const std::string deep = MakeDirectoryOfLength(directory, 1023 - 6);
    const std::string path = deep + "/a.wav";
    ASSERT_EQ(path.size(), 1023U);
    EXPECT_EQ(RefusalOf(path, false),
              path + ": is written under a temporary name first, whose path would be longer than "
                     "1023 bytes; change to its directory");
    EXPECT_TRUE(fs::is_empty(deep));
}

TEST(OutputFileIsSameFile, LooksThroughNamesAndLinks) {
    const TemporaryDirectory directory;
    WriteFile(directory / "a", "same");
    WriteFile(directory / "b", "same");
    fs::create_hard_link(directory / "a", directory / "hard");
    fs::create_symlink("a", directory / "soft");
    fs::create_symlink("soft", directory / "softer");
    fs::create_symlink("nowhere", directory / "dangling");
    fs::create_directory(directory / "sub");
    for (const char* name : {"a", "hard", "soft", "softer", "./a", "sub/../a"}) {
        EXPECT_TRUE(IsSameFile(directory / "a", directory / name)) << name;
        EXPECT_TRUE(IsSameFile(directory / name, directory / "a")) << name;
    }
    for (const char* name : {"b", "dangling", "missing", "sub", "a/", ""}) {
        EXPECT_FALSE(IsSameFile(directory / "a", directory / name)) << name;
    }
    EXPECT_FALSE(IsSameFile(directory / "missing", directory / "missing"));
    EXPECT_FALSE(IsSameFile(directory / "dangling", directory / "dangling"));
    EXPECT_FALSE(IsSameFile("", ""));
}

} // namespace kel::host
