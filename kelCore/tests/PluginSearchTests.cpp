#include <PluginLoading.h>

#include "RaisedRights.h"
#include "TestPlugins.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// The directories of the tests must not be writable by others, whatever the user's umask.
[[maybe_unused]] const mode_t kOwnDirectoriesMask = umask(022);

using Paths = std::vector<std::string>;

const std::string kNextToCore = fs::path(KEL_TEST_CORE).parent_path() / "kel";

// Sets KEL_PLUGIN_PATH while it exists.
class SearchPath {
public:
    explicit SearchPath(const std::string& directories) {
        setenv("KEL_PLUGIN_PATH", directories.c_str(), 1);
    }
    ~SearchPath() { unsetenv("KEL_PLUGIN_PATH"); }
    SearchPath(const SearchPath&) = delete;
    SearchPath& operator=(const SearchPath&) = delete;
};

void ExpectFound(const PluginSearch& search, PluginOrigin origin, const Paths& files,
                 const Paths& directories, const Paths& warnings) {
    Paths found;
    for (const PluginFile& file : search.files) {
        found.push_back(file.path);
        EXPECT_EQ(file.origin, origin) << file.path;
    }
    EXPECT_EQ(found, files);
    EXPECT_EQ(search.directories, directories);
    EXPECT_EQ(search.warnings, warnings);
}

} // namespace

TEST(FindPlugins, LooksThroughTheDirectoriesOfTheVariableInOrderEachOnceAndInEachByName) {
    const TemporaryDirectory directory;
    // Neither in the order in which they are made nor in the reverse one.
    for (const char* name : {"2", "1", "4", "A", "3"}) {
        WriteFile(directory / (std::string("libkel") + name + ".so"), "not loaded\n");
    }
    const std::string last = LinkPlugin("kelSmall", directory / "a/libkel.so");
    fs::create_symlink("a", directory / "b");
    const std::string first = directory.Path();
    const std::string missing = directory / "missing";
    const SearchPath path(first + ":" + missing + ":" + (directory / "a") + ":" + first +
                          "/.:" + (directory / "b"));
    ExpectFound(FindPlugins({directory / "a"}), PluginOrigin::Named,
                {directory / "libkel1.so", directory / "libkel2.so", directory / "libkel3.so",
                 directory / "libkel4.so", directory / "libkelA.so", last},
                {first, missing, directory / "a"}, {});
}

TEST(FindPlugins, FindsOnlyFilesThatAreNamedLikePlugins) {
    const TemporaryDirectory directory;
    for (const char* name : {"libother.so", "kelPlugin.so", "libkelPlugin.so.1", "libkelPlugin",
                             "libkelPlugin.txt", "LIBKELPLUGIN.SO", "xlibkelPlugin.so"}) {
        WriteFile(directory / name, "");
    }
    LinkPlugin("kelSmall", directory / "directory/libkelDeep.so");
    const SearchPath path(directory.Path());
    ExpectFound(FindPlugins(), PluginOrigin::Named, {}, {directory.Path()}, {});
}

TEST(FindPlugins, IgnoresEntriesOfTheVariableThatAreEmptyOrRelative) {
    const TemporaryDirectory directory;
    LinkPlugin("kelSmall", directory / "libkelHere.so");
    LinkPlugin("kelSmall", directory / "plugins/libkelThere.so");
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    const auto warningOf = [](const std::string& entry) {
        return "KEL_PLUGIN_PATH: cannot search \"" + entry + "\": it is not an absolute path";
    };
    {
        const SearchPath path(":.:" + (directory / "plugins") + ":plugins:");
        ExpectFound(FindPlugins(), PluginOrigin::Named, {directory / "plugins/libkelThere.so"},
                    {directory / "plugins"},
                    {warningOf(""), warningOf("."), warningOf("plugins"), warningOf("")});
    }
    {
        const SearchPath path(".");
        ExpectFound(FindPlugins(), PluginOrigin::Named, {}, {}, {warningOf(".")});
    }
    fs::current_path(former);
}

TEST(FindPlugins, DoesNotSearchDirectoriesThatOtherUsersCanChange) {
    const TemporaryDirectory directory;
    LinkPlugin("kelSmall", directory / "shared/libkelPlugin.so");
    const std::string good = LinkPlugin("kelSmall", directory / "good/libkelPlugin.so");
    const std::string shared = directory / "shared";
    fs::permissions(shared, fs::perms::others_write, fs::perm_options::add);
    const std::string warning = shared + ": cannot search for plug-ins: every user can change " +
                                shared + "; use chmod o-w";
    ExpectFound(FindPlugins({shared, directory / "good"}), PluginOrigin::Installed, {good},
                {shared, directory / "good"}, {warning});
    const SearchPath path(shared + ":" + (directory / "good"));
    ExpectFound(FindPlugins(), PluginOrigin::Named, {good}, {shared, directory / "good"},
                {warning});
}

TEST(FindPlugins, LooksWithoutTheVariableInTheFirstInstalledDirectoryThatHasAny) {
    const TemporaryDirectory directory;
    const std::string second = LinkPlugin("kelSmall", directory / "second/libkelPlugin.so");
    LinkPlugin("kelSmall", directory / "third/libkelPlugin.so");
    ExpectFound(FindPlugins({directory / "first", directory / "second", directory / "third"}),
                PluginOrigin::Installed, {second}, {directory / "first", directory / "second"}, {});
    const SearchPath empty(""); // the same as none
    ExpectFound(FindPlugins({directory / "first"}), PluginOrigin::Installed, {KEL_TEST_PLUGIN},
                {directory / "first", kNextToCore}, {});
}

TEST(FindPlugins, DoesNotLookAtTheVariableWithRaisedRights) {
    const TemporaryDirectory directory;
    LinkPlugin("kelSmall", directory / "libkelPlugin.so");
    const SearchPath path(directory.Path());
    const RaisedRights raised;
    ExpectFound(FindPlugins(), PluginOrigin::Installed, {KEL_TEST_PLUGIN}, {kNextToCore}, {});
}

} // namespace kel::test
