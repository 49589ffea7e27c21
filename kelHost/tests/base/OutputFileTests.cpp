#include "base/OutputFile.h"

#include "Program.h"
#include "base/Errors.h"
#include "base/FileName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;
using test::ReadFile;
using test::TemporaryDirectory;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

namespace {

// System calls of the output, as the functions below see them.
struct SystemCalls {
    std::vector<std::string> made;
    bool replacesAlways = false;              // renameat2 fails, as on some file systems
    std::function<void()> beforeNextRename{}; // what another process does at that moment
};
SystemCalls* g_calls = nullptr; // no test looks at them

// Records the system calls of a scope.
class RecordedCalls {
public:
    RecordedCalls() { g_calls = &calls; }
    ~RecordedCalls() { g_calls = nullptr; }
    RecordedCalls(const RecordedCalls&) = delete;
    RecordedCalls& operator=(const RecordedCalls&) = delete;

    SystemCalls calls;
};

void NoteCall(const std::string& call, const std::string& path) {
    if (g_calls != nullptr) {
        g_calls->made.push_back(call + " " + path);
    }
}

void MeetOtherProcess() {
    if (g_calls != nullptr && g_calls->beforeNextRename) {
        std::exchange(g_calls->beforeNextRename, nullptr)();
    }
}

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        ADD_FAILURE() << "there is no " << path;
    }
    return status.st_mode & 07777U;
}

template <typename Operation>
std::string JobErrorOf(Operation operation) {
    try {
        operation();
    } catch (const JobError& error) {
        return DescribeError(error).message;
    }
    return "no JobError";
}

// The error of making an output.
std::string RefusalOf(const std::string& path, bool replace) {
    return JobErrorOf([&] { const OutputFile output(path, replace); });
}

// The error of committing.
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

// In place of the C library's functions, in this program only.
extern "C" {

int fsync(int descriptor) {
    NoteCall("fsync", fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string());
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

int renameat2(int directory, const char* from, int otherDirectory, const char* to,
              unsigned flags) noexcept {
    NoteCall("renameat2", to);
    if (g_calls != nullptr && g_calls->replacesAlways) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, directory, from, otherDirectory, to, flags));
}

int rename(const char* from, const char* to) noexcept {
    NoteCall("rename", to);
    MeetOtherProcess();
    return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int link(const char* from, const char* to) noexcept {
    NoteCall("link", to);
    MeetOtherProcess();
    return static_cast<int>(syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}
}

TEST(OutputFileTemporary, IsBesideTheNameWithTheSameExtension) {
    const TemporaryDirectory directory;
    struct Row {
        std::string name;
        std::string extension;
    };
    for (const Row& row : {Row{"take.AIFF", "\\.AIFF"}, Row{"take", ""}, Row{"a.b.rf64", "\\.rf64"},
                           Row{".wav", ""}, Row{"take.", "\\."}}) {
        SCOPED_TRACE(row.name);
        const OutputFile output(directory / row.name, false);
        EXPECT_EQ(output.Path(), directory / row.name);
        const fs::path path = output.TemporaryPath();
        EXPECT_EQ(path.parent_path(), directory.Path());
        EXPECT_THAT(
            path.filename().string(),
            MatchesRegex("\\.kelhost-[0-9]+-[0-9a-f]{8}-[0-9A-Za-z]{6}\\.part" + row.extension));
        EXPECT_THAT(directory.Names(), ElementsAre(path.filename().string()));
    }
}

TEST(OutputFileTemporary, IsInTheCurrentDirectoryForABareName) {
    const TemporaryDirectory directory;
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    OutputFile output("take.wav", false);
    EXPECT_TRUE(fs::exists(directory / output.TemporaryPath()));
    output.Commit();
    fs::current_path(former);
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileMode, IsThatOfAPlainOpen) {
    const mode_t former = umask(0);
    for (const mode_t mask : {0022U, 0077U, 0000U}) {
        const TemporaryDirectory directory;
        umask(mask);
        OutputFile output(directory / "take.wav", false);
        output.Commit();
        EXPECT_EQ(ModeOf(directory / "take.wav"), 0666U & ~mask);
        EXPECT_EQ(umask(former), mask) << "the umask itself has changed";
    }
    umask(former);
}

TEST(OutputFileMode, IsThatOfTheFileThatIsReplaced) {
    for (const mode_t mode : {0600U, 0755U, 04755U, 02755U, 01644U}) {
        const TemporaryDirectory directory;
        WriteFile(directory / "take.wav", "before");
        ASSERT_EQ(chmod((directory / "take.wav").c_str(), mode), 0);
        OutputFile output(directory / "take.wav", true);
        output.Commit();
        EXPECT_EQ(ModeOf(directory / "take.wav"), mode);
    }
}

TEST(OutputFileCommit, ReplacesWithPermissionAndOnlyThen) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "before");
    EXPECT_EQ(RefusalOf(directory / "take.wav", false),
              directory / "take.wav: exists already; use --force to replace it");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));

    OutputFile output(directory / "take.wav", true);
    WriteFile(output.TemporaryPath(), "after");
    EXPECT_EQ(ReadFile(directory / "take.wav"), "before");
    output.Commit();
    EXPECT_EQ(ReadFile(directory / "take.wav"), "after");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileCommit, DoesNotReplaceADirectoryThatAppearedMeanwhile) {
    for (const bool replace : {false, true}) {
        const TemporaryDirectory directory;
        {
            OutputFile output(directory / "take.wav", replace);
            fs::create_directory(directory / "take.wav");
            EXPECT_EQ(CommitErrorOf(output),
                      directory / "take.wav: cannot rename the file from its temporary name: " +
                          (replace ? "Is a directory" : "File exists"));
        }
        EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
        EXPECT_TRUE(fs::is_directory(directory / "take.wav"));
    }
}

TEST(OutputFileCommit, FlushesTheFileBeforeItsRenameAndTheDirectoryAfterIt) {
    const TemporaryDirectory directory;
    OutputFile output(directory / "take.wav", false);
    const std::string temporaryPath = output.TemporaryPath();
    const RecordedCalls recorded;
    output.Commit();
    EXPECT_THAT(recorded.calls.made,
                ElementsAre("fsync " + temporaryPath, "renameat2 " + (directory / "take.wav"),
                            "fsync " + directory.Path().string()));
}

TEST(OutputFileCommit, DoesNotReplaceAFileThatAppearsMeanwhile) {
    for (const bool isOldFileSystem : {false, true}) {
        SCOPED_TRACE(isOldFileSystem);
        const TemporaryDirectory directory;
        const auto appear = [&] {
            WriteFile(directory / "take.wav", "theirs");
        };
        {
            OutputFile output(directory / "take.wav", false);
            RecordedCalls recorded;
            recorded.calls.replacesAlways = isOldFileSystem;
            if (isOldFileSystem) {
                recorded.calls.beforeNextRename = appear; // at the last moment
            } else {
                appear();
            }
            EXPECT_EQ(CommitErrorOf(output),
                      directory /
                          "take.wav: cannot rename the file from its temporary name: File exists");
        }
        EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
        EXPECT_EQ(ReadFile(directory / "take.wav"), "theirs");
    }
}

TEST(OutputFileCommit, FailsWhenTheTemporaryFileIsGone) {
    const TemporaryDirectory directory;
    {
        OutputFile output(directory / "take.wav", false);
        fs::remove(output.TemporaryPath());
        EXPECT_EQ(CommitErrorOf(output),
                  directory / "take.wav: cannot flush the file to disk: No such file or directory");
    }
    EXPECT_THAT(directory.Names(), IsEmpty());
}

TEST(OutputFilesOfAnEndedProcess, AreRemovedAndNoOthers) {
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

TEST(OutputFileRefusal, NamesADirectoryThatIsMissingOrAFile) {
    const TemporaryDirectory directory;
    WriteFile(directory / "file", "");
    EXPECT_EQ(RefusalOf(directory / "missing/take.wav", false),
              directory / "missing/take.wav: cannot create the file: No such file or directory");
    EXPECT_EQ(RefusalOf(directory / "file/take.wav", false),
              directory / "file/take.wav: cannot create the file: Not a directory");
    EXPECT_THAT(directory.Names(), ElementsAre("file"));
}

TEST(OutputFileRefusal, MeetsOtherThingsThanRegularFiles) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "directory.wav");
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    fs::create_symlink("/dev/null", directory / "device.wav");
    fs::create_symlink("directory.wav", directory / "link.wav");
    for (const char* name : {"directory.wav", "fifo.wav", "device.wav", "link.wav"}) {
        for (const bool replace : {false, true}) {
            EXPECT_EQ(RefusalOf(directory / name, replace),
                      (directory / name) + ": is not a regular file; name another output");
        }
    }
    EXPECT_EQ(RefusalOf("/dev/null", true),
              "/dev/null: is not a regular file; name another output");
    EXPECT_EQ(directory.Names().size(), 4U);
    EXPECT_TRUE(fs::is_fifo(directory / "fifo.wav"));
}

TEST(OutputFileLinks, AreReplacedThemselvesAndOnlyWithPermission) {
    const TemporaryDirectory directory;
    WriteFile(directory / "target.wav", "target");
    for (const char* target : {"target.wav", "missing.wav"}) {
        fs::remove(directory / "take.wav");
        fs::create_symlink(target, directory / "take.wav");
        EXPECT_EQ(RefusalOf(directory / "take.wav", false),
                  directory / "take.wav: exists already; use --force to replace it");
        OutputFile output(directory / "take.wav", true);
        WriteFile(output.TemporaryPath(), "new");
        output.Commit();
        EXPECT_FALSE(fs::is_symlink(directory / "take.wav"));
        EXPECT_EQ(ReadFile(directory / "take.wav"), "new");
    }
    EXPECT_EQ(ReadFile(directory / "target.wav"), "target");
    EXPECT_THAT(directory.Names(), UnorderedElementsAre("take.wav", "target.wav"));
}

TEST(OutputFileShortage, IsALimitOfTheFileSizeThatIsReached) {
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
    EXPECT_EQ(output.DescribeShortage(1000), "; files are limited to 100 bytes (ulimit -f)");
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(output.DescribeShortage(1000), "");
}

TEST(OutputFileShortage, IsAFullDiskWhenTheMissingBytesDoNotFit) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    EXPECT_EQ(output.DescribeShortage(kBeyondEveryDisk), "; its disk is full");
    EXPECT_EQ(output.DescribeShortage(0), "");
    // Written bytes need no more room.
    constexpr std::uint64_t kMuch = std::uint64_t{1} << 40U;
    fs::resize_file(output.TemporaryPath(), kMuch - 1);
    EXPECT_EQ(output.DescribeShortage(kMuch), "");
}

TEST(OutputFileSpace, IsRequired) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    output.RequireSpace(0);
    EXPECT_THAT(JobErrorOf([&] { output.RequireSpace(kBeyondEveryDisk); }),
                MatchesRegex((directory / "take.wav") +
                             ": needs 4611686018427387904 bytes, and its disk has [0-9]+ left; "
                             "nothing was written"));
}

TEST(OutputFilePath, MayHave1023BytesAndNoMoreAlsoUnderItsTemporaryName) {
    const TemporaryDirectory directory;
    const std::string deep = MakeDirectoryOfLength(directory, 1023 - 101);
    const std::string longest = deep + "/" + std::string(96, 'n') + ".wav";
    ASSERT_EQ(longest.size(), 1023U);
    OutputFile(longest, false).Commit();
    EXPECT_TRUE(fs::exists(longest));

    const std::string tooLong = deep + "/" + std::string(97, 'n') + ".wav";
    EXPECT_EQ(RefusalOf(tooLong, false),
              tooLong + ": the path is longer than 1023 bytes; change to its directory or use a "
                        "shorter name");
    // The temporary name is longer than this one.
    const std::string deeper = MakeDirectoryOfLength(directory, 1023 - 6);
    EXPECT_EQ(RefusalOf(deeper + "/a.wav", false),
              deeper +
                  "/a.wav: the path of its temporary file would be longer than 1023 bytes; change "
                  "to its directory");
    EXPECT_TRUE(fs::is_empty(deeper));
}

TEST(RequireDifferentFiles, LooksThroughNamesAndLinks) {
    const TemporaryDirectory directory;
    WriteFile(directory / "a", "same");
    WriteFile(directory / "b", "same");
    fs::create_hard_link(directory / "a", directory / "hard");
    fs::create_symlink("a", directory / "soft");
    fs::create_symlink("soft", directory / "softer");
    fs::create_symlink("nowhere", directory / "dangling");
    fs::create_directory(directory / "sub");
    const std::string input = directory / "a";
    for (const char* name : {"a", "hard", "soft", "softer", "./a", "sub/../a"}) {
        const std::string output = directory / name;
        EXPECT_EQ(JobErrorOf([&] { RequireDifferentFiles(input, output); }),
                  output + ": is the same file as the input " + input + "; name another output");
    }
    for (const char* name : {"b", "dangling", "missing", "sub", "a/", ""}) {
        EXPECT_EQ(JobErrorOf([&] { RequireDifferentFiles(input, directory / name); }),
                  "no JobError")
            << name;
    }
}

} // namespace kel::host
