#include "PluginTrustInternal.h"

#include <PluginLoading.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>

namespace kel::test {

namespace fs = std::filesystem;
namespace {

// No user and no group of any system.
constexpr uid_t kNumber = 4000000001;

// Root and the user who runs the test.
TrustedWriters OnlyTheCaller() {
    TrustedWriters trusted;
    trusted.users.insert(geteuid());
    return trusted;
}

// A directory with a library in a directory, which only its owner can change, whatever the umask.
class PluginTrust : public testing::Test {
protected:
    PluginTrust() {
        fs::create_directory(plugins);
        WriteFile(library, "a library\n");
        SetMode(plugins, 0755);
        SetMode(library, 0644);
    }

    static void SetMode(const std::string& path, mode_t mode) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
    }

    static std::string Obstacle(const std::string& path,
                                const TrustedWriters& trusted = OnlyTheCaller(),
                                PathUse use = PathUse::Library) {
        return FindPathObstacle(path, use, trusted);
    }

    std::string SearchObstacle(const TrustedWriters& trusted = OnlyTheCaller()) const {
        return Obstacle(plugins, trusted, PathUse::SearchDirectory);
    }

    TemporaryDirectory directory;
    std::string plugins = directory / "plugins";
    std::string library = directory / "plugins/libkel.so";
};

// Tests that give files to other users and groups.
class PluginTrustAsRoot : public PluginTrust {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can give files to another user";
        }
    }
};

// Returns whether the user has a group of the same name without other members.
bool HasPrivateGroup() {
    const passwd* user = getpwuid(geteuid());
    const std::string name = user != nullptr ? user->pw_name : "";
    const group* own = user != nullptr ? getgrgid(user->pw_gid) : nullptr;
    return own != nullptr && name == own->gr_name && *own->gr_mem == nullptr &&
           own->gr_gid == getegid();
}

// Adds an access control list in which a group may write.
bool AddAccessControlList(const std::string& path) {
    struct Entry {
        std::uint16_t tag;
        std::uint16_t rights;
        std::uint32_t id;
    };
    struct List {
        std::uint32_t version;
        std::array<Entry, 5> entries;
    };
    constexpr std::uint32_t kNone = 0xFFFFFFFF;
    const List list{2,
                    {{{0x01, 6, kNone},
                      {0x04, 4, kNone},
                      {0x08, 6, 4000001}, // a named group
                      {0x10, 6, kNone},
                      {0x20, 4, kNone}}}};
    return setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof list, 0) == 0;
}

} // namespace

TEST_F(PluginTrust, IncludesRootTheCallerAndTheOwnerOfTheProgram) {
    struct stat program {};
    ASSERT_EQ(stat("/proc/self/exe", &program), 0);
    const TrustedWriters trusted = FindTrustedWriters();
    EXPECT_EQ(trusted.users.count(0), 1U);
    EXPECT_EQ(trusted.users.count(geteuid()), 1U);
    EXPECT_EQ(trusted.users.count(program.st_uid), 1U);
    EXPECT_EQ(trusted.users.count(kNumber), 0U);
    EXPECT_FALSE(HasRaisedRights());
}

TEST_F(PluginTrust, AcceptsFilesOfTheCallerAlsoInTheSystemsTemporaryDirectory) {
    EXPECT_EQ(Obstacle(library), "");
    EXPECT_EQ(SearchObstacle(), "");
    SetMode(library, 0400);
    EXPECT_EQ(Obstacle(library), "");
}

TEST_F(PluginTrust, RefusesAFileAndADirectoryThatEveryUserCanChange) {
    SetMode(library, 0646);
    EXPECT_EQ(Obstacle(library), "every user can change " + library + "; use chmod o-w");
    EXPECT_EQ(SearchObstacle(), "");
    SetMode(plugins, 0757);
    EXPECT_EQ(Obstacle(library), "every user can change " + plugins + "; use chmod o-w");
    EXPECT_EQ(SearchObstacle(), "every user can change " + plugins + "; use chmod o-w");
    TrustedWriters everyone = OnlyTheCaller();
    everyone.everyone = true;
    EXPECT_EQ(Obstacle(library, everyone), "");
    EXPECT_EQ(SearchObstacle(everyone), "");
}

TEST_F(PluginTrust, AcceptsAStickyDirectoryOnTheWayButDoesNotSearchIt) {
    SetMode(plugins, 01777);
    EXPECT_EQ(Obstacle(library), "");
    EXPECT_EQ(SearchObstacle(), "other users can create files in it; use a directory of your own");
    SetMode(library, 0646);
    EXPECT_EQ(Obstacle(library), "every user can change " + library + "; use chmod o-w");
    SetMode(plugins, 01755);
    EXPECT_EQ(SearchObstacle(), "");
}

TEST_F(PluginTrust, RefusesEveryDirectoryOnTheWay) {
    fs::create_directories(directory / "a/b/c");
    for (const char* name : {"a", "a/b", "a/b/c"}) {
        SetMode(directory / name, 0755);
    }
    const std::string deep = directory / "a/b/c/libkel.so";
    WriteFile(deep, "a library\n");
    SetMode(deep, 0644);
    EXPECT_EQ(Obstacle(deep), "");
    for (const char* name : {"a/b/c", "a/b", "a"}) {
        SetMode(directory / name, 0777);
        EXPECT_EQ(Obstacle(deep),
                  "every user can change " + (directory / name) + "; use chmod o-w");
    }
}

TEST_F(PluginTrust, RefusesTheDirectoriesOfLinksAndOfTheirTargets) {
    for (const char* name : {"links", "others"}) {
        fs::create_directory(directory / name);
        SetMode(directory / name, 0755);
    }
    fs::create_symlink("../others", directory / "links/relative");
    fs::create_symlink(plugins, directory / "links/absolute");
    fs::create_symlink("../../plugins/libkel.so", directory / "others/library");
    // The name ".." is the parent of the target: the kernel resolves the link before.
    const std::string path = directory / "links/relative/../links/absolute/libkel.so";
    EXPECT_EQ(Obstacle(path), "");
    const auto expectRefused = [&](const std::string& changed, mode_t mode) {
        SetMode(changed, 0777);
        EXPECT_EQ(Obstacle(path), "every user can change " + changed + "; use chmod o-w");
        SetMode(changed, mode);
    };
    expectRefused(directory / "links", 0755);
    expectRefused(directory / "others", 0755);
    expectRefused(plugins, 0755);
    expectRefused(library, 0644);
    EXPECT_EQ(Obstacle(path), "");
}

TEST_F(PluginTrust, AcceptsWhatThePrivateGroupOfTheOwnerCanChange) {
    if (!HasPrivateGroup()) {
        GTEST_SKIP() << "this user has no private group";
    }
    SetMode(library, 0664);
    SetMode(plugins, 0775);
    ASSERT_EQ(chown(library.c_str(), geteuid(), getegid()), 0);
    ASSERT_EQ(chown(plugins.c_str(), geteuid(), getegid()), 0);
    EXPECT_EQ(Obstacle(library), "");
    EXPECT_EQ(SearchObstacle(), "");
}

TEST_F(PluginTrust, RefusesWhatAnAccessControlListLetsOthersChange) {
    if (!AddAccessControlList(library)) {
        ASSERT_EQ(errno, ENOTSUP);
        GTEST_SKIP() << "the file system has no access control lists";
    }
    EXPECT_EQ(Obstacle(library),
              "the access control list of " + library + " lets others change it; use setfacl -b");
}

TEST_F(PluginTrust, RefusesFilesOfTheWrongKind) {
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(Obstacle(pipe), "it is a named pipe");
    EXPECT_EQ(Obstacle("/dev/null"), "it is a device or a socket");
    EXPECT_EQ(Obstacle(plugins), "it is a directory; name a file in it");
    EXPECT_EQ(Obstacle(library, OnlyTheCaller(), PathUse::SearchDirectory),
              "it is not a directory");
}

TEST_F(PluginTrust, ReportsAPathThatLeadsToNothing) {
    fs::create_symlink("loop", directory / "loop");
    fs::create_symlink("missing", directory / "dangling");
    const auto errorOf = [&](const std::string& name) {
        try {
            return Obstacle(directory / name);
        } catch (const std::system_error& error) {
            return error.code().message();
        }
    };
    EXPECT_EQ(errorOf("missing"), "No such file or directory");
    EXPECT_EQ(errorOf("dangling"), "No such file or directory");
    EXPECT_EQ(errorOf("loop"), "Too many levels of symbolic links");
    EXPECT_EQ(errorOf("plugins/libkel.so/more"), "Not a directory");
}

TEST_F(PluginTrustAsRoot, RefusesWhatBelongsToAnotherUser) {
    const std::string end = ", who is neither root nor you";
    ASSERT_EQ(chown(library.c_str(), kNumber, 0), 0);
    EXPECT_EQ(Obstacle(library), library + " belongs to the user number 4000000001" + end);
    TrustedWriters trusted;
    trusted.users.insert(kNumber);
    EXPECT_EQ(Obstacle(library, trusted), "");
    ASSERT_EQ(chown(library.c_str(), 0, 0), 0);
    const passwd* user = getpwuid(1);
    ASSERT_NE(user, nullptr);
    const std::string name = user->pw_name;
    ASSERT_EQ(chown(plugins.c_str(), 1, 0), 0);
    EXPECT_EQ(Obstacle(library), plugins + " belongs to the user " + name + end);
    EXPECT_EQ(SearchObstacle(), plugins + " belongs to the user " + name + end);
}

TEST_F(PluginTrustAsRoot, RefusesALinkOfAnotherUserInAStickyDirectory) {
    const std::string link = directory / "link";
    fs::create_symlink(library, link);
    SetMode(directory.Path(), 01777);
    EXPECT_EQ(Obstacle(link), "");
    ASSERT_EQ(lchown(link.c_str(), kNumber, 0), 0);
    EXPECT_EQ(Obstacle(link), link + " belongs to the user number 4000000001, who is neither root "
                                     "nor you");
}

TEST_F(PluginTrustAsRoot, RefusesWhatAnotherGroupCanChange) {
    SetMode(library, 0664);
    ASSERT_EQ(chown(library.c_str(), 0, kNumber), 0);
    EXPECT_EQ(Obstacle(library),
              "the group number 4000000001 can change " + library + "; use chmod g-w");
    TrustedWriters trusted;
    trusted.groups.insert(kNumber);
    EXPECT_EQ(Obstacle(library, trusted), "");
    // A group that has a name, but not that of the owner.
    const group* other = getgrgid(1);
    ASSERT_NE(other, nullptr);
    const std::string name = other->gr_name;
    ASSERT_EQ(chown(library.c_str(), 0, 1), 0);
    EXPECT_EQ(Obstacle(library),
              "the group " + name + " can change " + library + "; use chmod g-w");
}

} // namespace kel::test
