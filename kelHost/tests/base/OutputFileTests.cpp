#include "base/OutputFile.h"

#include "Program.h"
#include "base/Errors.h"
#include "base/FileName.h"
#include "base/TemporaryFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <system_error>
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
    bool replacesAlways = false;                 // renameat2 fails, as on some file systems
    std::function<void()> beforeTakingTheName{}; // what another process does at that moment
    int flushError = 0;                          // of fsync
    std::function<void(const char* name)> afterMakingADirectory{};
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
    if (g_calls != nullptr && g_calls->beforeTakingTheName) {
        std::exchange(g_calls->beforeTakingTheName, nullptr)();
    }
}

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        ADD_FAILURE() << "there is no " << path;
    }
    return status.st_mode & 07777U;
}

std::string AttributeOf(const std::string& file, const char* name) {
    std::array<char, 256> value{};
    const ssize_t size = getxattr(file.c_str(), name, value.data(), value.size());
    return size < 0 ? "none" : std::string(value.data(), static_cast<std::size_t>(size));
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

// For its lifetime, this thread is a user other than root. The C library's function would change
// all threads.
class OtherUser {
public:
    static constexpr uid_t kNumber = 1234;
    OtherUser() { Become(kNumber); }
    ~OtherUser() { Become(0); }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

private:
    static void Become(uid_t user) { EXPECT_EQ(syscall(SYS_setresuid, -1, user, -1), 0); }
};

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

// With a temporary file that has no name, where that is possible, and one that has.
class OutputFileWithName : public testing::TestWithParam<TemporaryName> {};

INSTANTIATE_TEST_SUITE_P(From, OutputFileWithName,
                         testing::Values(TemporaryName::None, TemporaryName::Requested),
                         [](const auto& test) {
                             return test.param == TemporaryName::None ? "None" : "Requested";
                         });

} // namespace

// In place of the C library's functions, in this program only.
extern "C" {

int fsync(int descriptor) {
    NoteCall("fsync", fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string());
    if (g_calls != nullptr && g_calls->flushError != 0) {
        errno = g_calls->flushError;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

int mkdirat(int directory, const char* name, mode_t mode) noexcept {
    const int result = static_cast<int>(syscall(SYS_mkdirat, directory, name, mode));
    if (g_calls != nullptr && g_calls->afterMakingADirectory) {
        g_calls->afterMakingADirectory(name);
    }
    return result;
}

int renameat2(int directory, const char* from, int otherDirectory, const char* to,
              unsigned flags) noexcept {
    NoteCall("renameat2", to);
    if (g_calls != nullptr && g_calls->replacesAlways) {
        errno = EINVAL;
        return -1;
    }
    MeetOtherProcess();
    return static_cast<int>(syscall(SYS_renameat2, directory, from, otherDirectory, to, flags));
}

int linkat(int directory, const char* from, int otherDirectory, const char* to,
           int flags) noexcept {
    NoteCall("linkat", to);
    MeetOtherProcess();
    return static_cast<int>(syscall(SYS_linkat, directory, from, otherDirectory, to, flags));
}
}

TEST(OutputFileTemporary, HasNoName) {
    const TemporaryDirectory directory;
    const int unnamed = open(directory.Path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (unnamed < 0) {
        GTEST_SKIP() << "this file system needs a name for every file";
    }
    close(unnamed);
    OutputFile output(directory / "take.wav", false);
    EXPECT_EQ(output.Path(), directory / "take.wav");
    WriteFile(output.TemporaryPath(), "whole");
    EXPECT_THAT(directory.Names(), IsEmpty());
    output.Commit();
    EXPECT_EQ(ReadFile(directory / "take.wav"), "whole");
}

TEST(OutputFileTemporary, HasTheRequestedNameInAPrivateDirectory) {
    const TemporaryDirectory directory;
    const mode_t former = umask(0);
    const OutputFile output(directory / "take.AIFF", false, TemporaryName::Requested);
    umask(former);
    EXPECT_EQ(fs::path(output.TemporaryPath()).filename(), "take.AIFF");
    ASSERT_EQ(directory.Names().size(), 1U);
    const std::string name = directory.Names().front();
    EXPECT_THAT(name, MatchesRegex("\\.kelhost-[0-9]+-[0-9a-f]{8}-[0-9a-z]{6}\\.part"));
    EXPECT_EQ(ModeOf(directory / name), 0700U);
    EXPECT_TRUE(fs::is_regular_file(directory / (name + "/take.AIFF")));
}

TEST_P(OutputFileWithName, IsInTheCurrentDirectoryForABareName) {
    const TemporaryDirectory directory;
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    OutputFile output("take.wav", false, GetParam());
    WriteFile(output.TemporaryPath(), "whole");
    output.Commit();
    fs::current_path(former);
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
    EXPECT_EQ(ReadFile(directory / "take.wav"), "whole");
}

TEST_P(OutputFileWithName, IsCompletedInADirectoryThatIsRenamedMeanwhile) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "before");
    {
        OutputFile output(directory / "before/take.wav", false, GetParam());
        const OutputFile lost(directory / "before/lost.wav", false, GetParam());
        fs::rename(directory / "before", directory / "after");
        output.Commit();
    }
    EXPECT_THAT(directory.Names(), ElementsAre("after"));
    EXPECT_EQ(fs::directory_iterator(directory / "after")->path(), directory / "after/take.wav");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory / "after"), {}), 1);
}

TEST(OutputFileMode, IsThatOfAPlainOpen) {
    const mode_t former = umask(0);
    for (const mode_t mask : {0022U, 0077U, 0000U, 0777U}) {
        const TemporaryDirectory directory;
        std::optional<OtherUser> user; // whom permissions concern
        if (geteuid() == 0) {
            ASSERT_EQ(chown(directory.Path().c_str(), OtherUser::kNumber, getegid()), 0);
            user.emplace();
        }
        umask(mask);
        OutputFile output(directory / "take.wav", false);
        WriteFile(output.TemporaryPath(), "whole");
        output.Commit();
        EXPECT_EQ(ModeOf(directory / "take.wav"), 0666U & ~mask);
        EXPECT_EQ(umask(former), mask) << "the umask itself has changed";
    }
    umask(former);
}

TEST(OutputFileAttributes, AreThoseOfTheReplacedFileWithoutItsSpecialModeBits) {
    struct Row {
        mode_t before;
        mode_t after;
    };
    for (const Row& row : {Row{0600, 0600}, Row{0755, 0755}, Row{0444, 0444}, Row{04755, 0755},
                           Row{02755, 0755}, Row{01644, 0644}}) {
        const TemporaryDirectory directory;
        const std::string file = directory / "take.wav";
        WriteFile(file, "before");
        // Not every file system has attributes of users.
        const bool hasTitle = setxattr(file.c_str(), "user.title", "Take 1", 6, 0) == 0;
        ASSERT_EQ(chmod(file.c_str(), row.before), 0);
        OutputFile output(file, true);
        EXPECT_THAT(output.Finish(), IsEmpty());
        output.Commit();
        EXPECT_EQ(ModeOf(file), row.after);
        EXPECT_EQ(AttributeOf(file, "user.title"), hasTitle ? "Take 1" : "none");
    }
}

TEST(OutputFileAttributes, IncludeTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files to others";
    }
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "before");
    ASSERT_EQ(chown((directory / "take.wav").c_str(), 4321, 8765), 0);
    OutputFile output(directory / "take.wav", true);
    EXPECT_THAT(output.Finish(), IsEmpty());
    output.Commit();
    struct stat status {};
    ASSERT_EQ(stat((directory / "take.wav").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 4321U);
    EXPECT_EQ(status.st_gid, 8765U);
}

TEST(OutputFileAttributes, ThatCannotBePreservedAreNamed) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file of another user, and become a third one";
    }
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "before");
    ASSERT_EQ(chown((directory / "take.wav").c_str(), 4321, 8765), 0);
    ASSERT_EQ(chmod((directory / "take.wav").c_str(), 0664), 0);
    ASSERT_EQ(chmod(directory.Path().c_str(), 0777), 0);
    {
        const OtherUser user;
        OutputFile output(directory / "take.wav", true);
        EXPECT_THAT(output.Finish(),
                    ElementsAre(directory / "take.wav: cannot preserve of the replaced file: "
                                            "group, owner"));
        output.Commit();
    }
    EXPECT_EQ(ModeOf(directory / "take.wav"), 0644U) << "its group gets what all others had";
}

// See acl(5) for the entries, and the kernel's posix_acl_xattr.h for their form.
std::string AccessList(std::uint16_t ownerPermissions, std::uint16_t groupPermissions) {
    struct Entry {
        std::uint16_t tag;
        std::uint16_t permissions;
        std::uint32_t id;
    };
    constexpr std::uint32_t kNone = 0xFFFFFFFF;
    const Entry entries[] = {{0x01, ownerPermissions, kNone}, // the owner
                             {0x02, 6, 4321},                 // a user
                             {0x04, groupPermissions, kNone}, // the group
                             {0x10, 6, kNone},                // the mask
                             {0x20, 0, kNone}};               // others
    const std::uint32_t version = 2;
    std::string bytes(reinterpret_cast<const char*>(&version), sizeof version);
    return bytes.append(reinterpret_cast<const char*>(entries), sizeof entries);
}

TEST(OutputFileAttributes, IncludeTheAccessControlList) {
    const TemporaryDirectory directory;
    const std::string list = AccessList(6, 4);
    for (const bool hasList : {true, false}) {
        const std::string file = directory / (hasList ? "with.wav" : "without.wav");
        WriteFile(file, "before");
        if (hasList) {
            if (setxattr(file.c_str(), "system.posix_acl_access", list.data(), list.size(), 0) !=
                0) {
                GTEST_SKIP() << "this file system has no access control lists";
            }
            // For new files, not for the replaced one.
            const std::string other = AccessList(7, 7);
            ASSERT_EQ(setxattr(directory.Path().c_str(), "system.posix_acl_default", other.data(),
                               other.size(), 0),
                      0);
        }
        const std::string before = AttributeOf(file, "system.posix_acl_access");
        const mode_t mode = ModeOf(file);
        if (!hasList) {
            ASSERT_EQ(removexattr(file.c_str(), "system.posix_acl_access"), 0);
            ASSERT_EQ(chmod(file.c_str(), 0640), 0);
        }
        OutputFile output(file, true);
        EXPECT_THAT(output.Finish(), IsEmpty());
        output.Commit();
        EXPECT_EQ(AttributeOf(file, "system.posix_acl_access"), hasList ? before : "none");
        EXPECT_EQ(ModeOf(file), hasList ? mode : 0640U);
    }
}

TEST_P(OutputFileWithName, GetsTheDefaultListOfItsDirectory) {
    const TemporaryDirectory directory;
    const std::string list = AccessList(7, 7);
    if (setxattr(directory.Path().c_str(), "system.posix_acl_default", list.data(), list.size(),
                 0) != 0) {
        GTEST_SKIP() << "this file system has no access control lists";
    }
    const int plain = open((directory / "plain").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
    ASSERT_GE(plain, 0);
    close(plain);
    OutputFile output(directory / "take.wav", false, GetParam());
    output.Commit();
    EXPECT_NE(AttributeOf(directory / "plain", "system.posix_acl_access"), "none");
    EXPECT_EQ(AttributeOf(directory / "take.wav", "system.posix_acl_access"),
              AttributeOf(directory / "plain", "system.posix_acl_access"));
}

TEST_P(OutputFileWithName, ReplacesWithPermissionAndOnlyThen) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "before");
    EXPECT_EQ(RefusalOf(directory / "take.wav", false),
              directory / "take.wav: exists already; use --force to replace it");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));

    OutputFile output(directory / "take.wav", true, GetParam());
    WriteFile(output.TemporaryPath(), "after");
    EXPECT_EQ(ReadFile(directory / "take.wav"), "before");
    output.Commit();
    EXPECT_EQ(ReadFile(directory / "take.wav"), "after");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST_P(OutputFileWithName, DoesNotReplaceADirectoryThatAppearedMeanwhile) {
    for (const bool replace : {false, true}) {
        const TemporaryDirectory directory;
        {
            OutputFile output(directory / "take.wav", replace, GetParam());
            fs::create_directory(directory / "take.wav");
            EXPECT_EQ(CommitErrorOf(output),
                      directory / "take.wav: " +
                          (replace ? "cannot give the file its name: Is a directory"
                                   : "exists already; use --force to replace it"));
        }
        EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
        EXPECT_TRUE(fs::is_directory(directory / "take.wav"));
    }
}

TEST(OutputFileCommit, FollowsTheFlushOfTheFileAndPrecedesThatOfTheDirectory) {
    const TemporaryDirectory directory;
    OutputFile output(directory / "take.wav", false);
    const std::string file = fs::read_symlink(output.TemporaryPath()).string();
    const RecordedCalls recorded;
    output.Flush();
    output.Commit();
    EXPECT_THAT(recorded.calls.made, ElementsAre("fsync " + file, "linkat take.wav",
                                                 "fsync " + directory.Path().string()));
}

TEST(OutputFileFlush, WarnsWhereTheFileSystemDoesNotSupportIt) {
    const TemporaryDirectory directory;
    for (const int error : {EPERM, EOPNOTSUPP, EINVAL}) {
        OutputFile output(directory / "take.wav", true);
        RecordedCalls recorded;
        recorded.calls.flushError = error;
        EXPECT_THAT(output.Flush(),
                    ElementsAre(directory / "take.wav: cannot flush the file to disk: " +
                                std::generic_category().message(error) +
                                "; a power failure may lose it"));
        output.Commit();
        EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
    }
}

TEST_P(OutputFileWithName, DoesNotReplaceAFileThatAppearsMeanwhile) {
    for (const bool isOldFileSystem : {false, true}) {
        SCOPED_TRACE(isOldFileSystem);
        const TemporaryDirectory directory;
        {
            OutputFile output(directory / "take.wav", false, GetParam());
            RecordedCalls recorded;
            recorded.calls.replacesAlways = isOldFileSystem;
            recorded.calls.beforeTakingTheName = [&] { // at the last moment
                WriteFile(directory / "take.wav", "theirs");
            };
            EXPECT_EQ(CommitErrorOf(output),
                      directory / "take.wav: exists already; use --force to replace it");
        }
        EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
        EXPECT_EQ(ReadFile(directory / "take.wav"), "theirs");
    }
}

TEST(OutputFileFlush, FailsWhenTheWriterHasRemovedTheFile) {
    const TemporaryDirectory directory;
    {
        OutputFile output(directory / "take.wav", false, TemporaryName::Requested);
        fs::remove(output.TemporaryPath());
        EXPECT_EQ(JobErrorOf([&] { output.Flush(); }),
                  directory / "take.wav: cannot flush the file to disk: No such file or directory");
    }
    EXPECT_THAT(directory.Names(), IsEmpty());
}

TEST(OutputFileFlush, FollowsAWriterThatReplacesTheFile) {
    const TemporaryDirectory directory;
    const mode_t former = umask(0777); // so that Commit must set the mode of the new file
    OutputFile output(directory / "take.wav", false, TemporaryName::Requested);
    umask(former);
    WriteFile(output.TemporaryPath() + "~", "new");
    fs::rename(output.TemporaryPath() + "~", output.TemporaryPath());
    output.Flush();
    output.Commit();
    EXPECT_EQ(ModeOf(directory / "take.wav"), 0U);
}

TEST(OutputFileInASharedDirectory, DoesNotFollowLinks) {
    const TemporaryDirectory directory;
    WriteFile(directory / "target.wav", "before");
    fs::create_symlink("target.wav", directory / "take.wav");
    const std::string refusal =
        directory / "take.wav: is a symbolic link that another user can change; name its target";
    for (const fs::perms others : {fs::perms::others_write, fs::perms::group_write}) {
        fs::permissions(directory.Path(), fs::perms::owner_all | others);
        EXPECT_EQ(RefusalOf(directory / "take.wav", true), refusal);
    }
    if (geteuid() == 0) {
        fs::permissions(directory.Path(), fs::perms::owner_all);
        ASSERT_EQ(lchown((directory / "take.wav").c_str(), OtherUser::kNumber, 0), 0);
        EXPECT_EQ(RefusalOf(directory / "take.wav", true), refusal) << "the link of another user";
    }
    EXPECT_EQ(ReadFile(directory / "target.wav"), "before");
}

// Another user may change the names in a directory without the sticky bit at any moment.
TEST(OutputFileInASharedDirectory, IsNotConfusedByASwappedPrivateDirectory) {
    const TemporaryDirectory directory;
    const TemporaryDirectory victim;
    WriteFile(victim / "take.wav", "of another");
    ASSERT_EQ(chmod((victim / "take.wav").c_str(), 0600), 0);
    {
        OutputFile output(directory / "take.wav", false, TemporaryName::Requested);
        const std::string name = directory.Names().front();
        fs::rename(directory / name, directory / "taken away");
        fs::create_directory_symlink(victim.Path(), directory / name);
        WriteFile(output.TemporaryPath(), "whole");
        output.Finish();
        output.Commit();
        EXPECT_EQ(ReadFile(directory / "take.wav"), "whole");
    }
    EXPECT_EQ(ReadFile(victim / "take.wav"), "of another");
    EXPECT_EQ(ModeOf(victim / "take.wav"), 0600U);
}

TEST(OutputFileInASharedDirectory, IsRefusedWhenItsPrivateDirectoryIsSwappedAtOnce) {
    const TemporaryDirectory directory;
    const TemporaryDirectory victim;
    RecordedCalls recorded;
    recorded.calls.afterMakingADirectory = [&](const char* name) {
        fs::remove(directory / name);
        fs::create_directory_symlink(victim.Path(), directory / name);
    };
    EXPECT_EQ(JobErrorOf([&] {
                  const OutputFile output(directory / "take.wav", false, TemporaryName::Requested);
              }),
              directory / "take.wav: cannot create the file: Not a directory");
    EXPECT_THAT(victim.Names(), IsEmpty());
}

TEST(OutputFileInASharedDirectory, DoesNotPassOnTheModeOfALink) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", "before");
    OutputFile output(directory / "take.wav", true);
    fs::remove(directory / "take.wav");
    fs::create_symlink("nowhere", directory / "take.wav");
    EXPECT_EQ(JobErrorOf([&] { output.Finish(); }),
              directory / "take.wav: is not a regular file any more; name another output");
}

TEST(OutputFilesOfAnEndedProcess, AreRemovedAndNoOthers) {
    const TemporaryDirectory directory;
    WriteFile(directory / "other", "");
    const OutputFile own(directory / "own.wav", false, TemporaryName::Requested);
    const pid_t process = fork();
    if (process == 0) {
        const OutputFile first(directory / "first.wav", false, TemporaryName::Requested);
        const OutputFile second(directory / "second.aiff", false, TemporaryName::Requested);
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
                UnorderedElementsAre("other", elsewhere, MatchesRegex("\\.kelhost-.*\\.part")));
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
    for (const bool replace : {false, true}) {
        for (const char* name : {"fifo.wav", "device.wav"}) {
            EXPECT_EQ(RefusalOf(directory / name, replace),
                      (directory / name) + ": is not a regular file; name another output");
        }
        for (const char* name : {"directory.wav", "link.wav", "missing/", "directory.wav/."}) {
            EXPECT_EQ(RefusalOf(directory / name, replace),
                      (directory / name) + ": is a directory; name a file in it");
        }
    }
    EXPECT_EQ(RefusalOf("/dev/null", true),
              "/dev/null: is not a regular file; name another output");
    EXPECT_EQ(directory.Names().size(), 4U);
    EXPECT_TRUE(fs::is_fifo(directory / "fifo.wav"));
}

TEST_P(OutputFileWithName, FollowsALinkAndReplacesItsTargetWithPermission) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "elsewhere");
    WriteFile(directory / "elsewhere/target.wav", "target");
    fs::create_symlink("elsewhere/target.wav", directory / "take.wav");
    EXPECT_EQ(RefusalOf(directory / "take.wav", false),
              directory / "take.wav: exists already; use --force to replace it");
    OutputFile output(directory / "take.wav", true, GetParam());
    WriteFile(output.TemporaryPath(), "new");
    output.Commit();
    EXPECT_TRUE(fs::is_symlink(directory / "take.wav"));
    EXPECT_EQ(ReadFile(directory / "elsewhere/target.wav"), "new");
    EXPECT_THAT(directory.Names(), UnorderedElementsAre("take.wav", "elsewhere"));
}

TEST(OutputFileRefusal, MeetsALinkWithoutATarget) {
    const TemporaryDirectory directory;
    fs::create_symlink("missing.wav", directory / "take.wav");
    EXPECT_EQ(RefusalOf(directory / "take.wav", true),
              directory / "take.wav: cannot follow the symbolic link: No such file or directory; "
                          "remove it or name another output");
    EXPECT_THAT(directory.Names(), ElementsAre("take.wav"));
}

TEST(OutputFileShortage, IsALimitOfTheFileSizeThatIsReached) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const rlimit few{100, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &few), 0);
    EXPECT_EQ(output.DescribeShortage(1000, ""), "");
    WriteFile(output.TemporaryPath(), std::string(99, 'x'));
    EXPECT_EQ(output.DescribeShortage(1000, ""), "");
    WriteFile(output.TemporaryPath(), std::string(100, 'x'));
    EXPECT_EQ(output.DescribeShortage(1000, ""), "; files are limited to 100 bytes (ulimit -f)");
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(output.DescribeShortage(1000, ""), "");
}

TEST(OutputFileWithoutAName, GetsNone) {
    const TemporaryDirectory directory;
    const TemporaryFile file(directory.Path());
    OutputFile output(FileName(file.Path(), "standard output"));
    WriteFile(output.TemporaryPath(), "take");
    EXPECT_EQ(output.Finish(), std::vector<std::string>());
    output.Commit();
    EXPECT_EQ(ReadFile(file.Path()), "take");
    EXPECT_EQ(directory.Names(), std::vector<std::string>());
    constexpr std::uint64_t kTooLarge = std::uint64_t{1} << 62U;
    EXPECT_EQ(output.DescribeShortage(kTooLarge, "No space left on device"),
              "; its temporary directory is full (--temp-dir DIRECTORY names another place)");
    const std::string tooLarge = JobErrorOf([&] { output.RequireSpace(kTooLarge); });
    EXPECT_EQ(test::ReplaceMatches(tooLarge, "has [0-9]+ left", "has N left"),
              "standard output: needs 4611686018427387904 bytes, and its temporary directory has N "
              "left (--temp-dir DIRECTORY names another place)");
    EXPECT_EQ(JobErrorOf([&] { const OutputFile missing(FileName(directory / "no", "shown")); }),
              "shown: cannot create the file: No such file or directory");
}

TEST(OutputFileShortage, IsAFullDiskWhenTheMissingBytesDoNotFit) {
    const TemporaryDirectory directory;
    const OutputFile output(directory / "take.wav", false);
    constexpr std::uint64_t kBeyondEveryDisk = std::uint64_t{1} << 62U;
    EXPECT_EQ(output.DescribeShortage(kBeyondEveryDisk, "it failed"), "; its disk is full");
    EXPECT_EQ(output.DescribeShortage(kBeyondEveryDisk, "it failed: No space left on device"), "");
    EXPECT_EQ(output.DescribeShortage(0, ""), "");
    // Written bytes need no more room.
    constexpr std::uint64_t kMuch = std::uint64_t{1} << 40U;
    fs::resize_file(output.TemporaryPath(), kMuch - 1);
    EXPECT_EQ(output.DescribeShortage(kMuch, ""), "");
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

TEST_P(OutputFileWithName, MayHaveAPathOf1023BytesAndNoMore) {
    const TemporaryDirectory directory;
    const std::string deep = MakeDirectoryOfLength(directory, 1023 - 101);
    const std::string longest = deep + "/" + std::string(96, 'n') + ".wav";
    ASSERT_EQ(longest.size(), 1023U);
    OutputFile(longest, false, GetParam()).Commit();
    EXPECT_TRUE(fs::exists(longest));

    const std::string tooLong = deep + "/" + std::string(97, 'n') + ".wav";
    EXPECT_EQ(RefusalOf(tooLong, false),
              tooLong + ": the path is longer than 1023 bytes; change to its directory or use a "
                        "shorter name");
}

TEST_P(OutputFileWithName, MayHaveANameOf255BytesAndNoMore) {
    const TemporaryDirectory directory;
    const std::string longest = directory / (std::string(251, 'n') + ".wav");
    OutputFile(longest, false, GetParam()).Commit();
    EXPECT_TRUE(fs::exists(longest));
    const std::string tooLong = directory / (std::string(252, 'n') + ".wav");
    EXPECT_EQ(JobErrorOf([&] { const OutputFile output(tooLong, false, GetParam()); }),
              tooLong + ": cannot create the file: File name too long");
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
