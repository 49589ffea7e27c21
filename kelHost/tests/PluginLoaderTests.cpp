#include "PluginLoader.h"

#include "Errors.h"
#include "Program.h"

#include <kelCore.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using test::TestPlugin;
using test::WriteFile;

namespace {

// The names of the registrations, which are the paths of the plug-ins.
std::vector<std::string> RegisteredBy() {
    std::vector<std::string> names;
    for (const Registration& registration : GetRegistrations()) {
        names.push_back(registration.name);
    }
    return names;
}

std::string ErrorOfLoading(const std::string& file) {
    try {
        const LoadedPlugin plugin{fs::path(file)};
    } catch (const JobError& error) {
        return error.what();
    }
    return "it was loaded";
}

std::string ErrorOfSearching(std::ostream& warnings) {
    try {
        LoadPlugins({}, warnings);
    } catch (const JobError& error) {
        return error.what();
    }
    return "something was loaded";
}

void SetSearchPath(const std::string& folders) {
    ASSERT_EQ(setenv("KEL_PLUGIN_PATH", folders.c_str(), 1), 0);
}

// A link to a plug-in of the tests, under another name.
std::string LinkPlugin(const std::string& name, const std::string& link) {
    fs::create_symlink(TestPlugin(name), link);
    return link;
}

const std::vector<std::string> kCoreAlone{"kelCore"};

std::vector<std::string> CoreAnd(const std::vector<std::string>& plugins) {
    std::vector<std::string> names = kCoreAlone;
    for (const std::string& plugin : plugins) {
        names.insert(names.end(), 6, plugin); // two elements for three formats
    }
    return names;
}

} // namespace

TEST(LoadedPlugin, RegistersUnderItsAbsolutePathForAsLongAsItLives) {
    const TemporaryFolder folder;
    LinkPlugin("kelFaultyElements", folder / "plugin.so");
    const fs::path former = fs::current_path();
    fs::current_path(folder.Path());
    {
        const LoadedPlugin plugin(fs::path("plugin.so"));
        EXPECT_EQ(plugin.Path(), folder / "plugin.so");
        EXPECT_EQ(RegisteredBy(), CoreAnd({folder / "plugin.so"}));
    }
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
    fs::current_path(former);
}

TEST(LoadedPlugin, CanBeMoved) {
    const TemporaryFolder folder;
    const std::string path = LinkPlugin("kelFaultyElements", folder / "plugin.so");
    {
        std::optional<LoadedPlugin> first(std::in_place, fs::path(path));
        const LoadedPlugin second(std::move(*first));
        first.reset();
        EXPECT_EQ(second.Path(), path);
        EXPECT_EQ(RegisteredBy(), CoreAnd({path}));
    }
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadedPlugin, CanBeLoadedAgain) {
    for (int round = 0; round < 3; ++round) {
        const LoadedPlugin plugin(fs::path(TestPlugin("kelFaultyElements")));
        EXPECT_EQ(RegisteredBy(), CoreAnd({TestPlugin("kelFaultyElements")}));
    }
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadedPlugin, IsNotAFileThatIsMissing) {
    const TemporaryFolder folder;
    const std::string path = folder / "missing.so";
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " can not be loaded: " + path +
                  ": cannot open shared object file: No such file or directory");
}

TEST(LoadedPlugin, IsNotATextFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "libkelText.so";
    WriteFile(path, std::string(100, 'x') + "\n");
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " can not be loaded: " + path + ": invalid ELF header");
    WriteFile(path, "short\n");
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " can not be loaded: " + path + ": file too short");
}

TEST(LoadedPlugin, IsNotAFolder) {
    const TemporaryFolder folder;
    const std::string path = folder.Path().string();
    EXPECT_EQ(ErrorOfLoading(path), "the plug-in " + path + " can not be loaded: " + path +
                                        ": cannot read file data: Is a directory");
}

TEST(LoadedPlugin, HasAnEntryPoint) {
    const std::string path = TestPlugin("kelNoEntryPoint");
    EXPECT_EQ(ErrorOfLoading(path), "the plug-in " + path + " has no entry point RegisterAll: " +
                                        path + ": undefined symbol: RegisterAll");
}

TEST(LoadedPlugin, HasAllItsSymbols) {
    const std::string path = TestPlugin("kelUndefinedSymbol");
    EXPECT_EQ(ErrorOfLoading(path), "the plug-in " + path + " can not be loaded: " + path +
                                        ": undefined symbol: kelSymbolThatNobodyHas");
}

TEST(LoadedPlugin, LeavesNoRegistrationWhenItsEntryPointFails) {
    const std::string path = TestPlugin("kelThrowsError");
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " failed in RegisterAll: the licence\\nis missing");
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadedPlugin, MayFailWithAnything) {
    const std::string path = TestPlugin("kelThrowsNumber");
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path +
                  " failed in RegisterAll with an exception of an unknown type");
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
    EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is still loaded";
}

TEST(LoadedPlugin, IsNamedOnOneLine) {
    const TemporaryFolder folder;
    const std::string path = folder / "two\nlines.so";
    WriteFile(path, "short\n");
    const std::string shown = folder / "two\\nlines.so";
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + shown + " can not be loaded: " + shown + ": file too short");
}

TEST(LoadPlugins, LoadsTheFileThatIsNamedAndNoOther) {
    const TemporaryFolder folder;
    LinkPlugin("kelFaultyElements", folder / "libkelOther.so");
    SetSearchPath(folder.Path());
    std::ostringstream warnings;
    {
        const auto plugins = LoadPlugins({TestPlugin("kelFaultyElements")}, warnings);
        EXPECT_EQ(RegisteredBy(), CoreAnd({TestPlugin("kelFaultyElements")}));
    }
    EXPECT_EQ(warnings.str(), "");
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadPlugins, LoadsTheFilesThatAreNamedInTheirOrderAndEachOnce) {
    const TemporaryFolder folder;
    const std::string first = folder / "b.so";
    const std::string second = folder / "a.so";
    for (const std::string& copy : {first, second}) {
        fs::copy_file(TestPlugin("kelFaultyElements"), copy);
    }
    fs::create_symlink(second, folder / "c.so");
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({first, second, first, folder / "c.so"}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({first, second}));
    EXPECT_EQ(warnings.str(), "");
}

TEST(LoadPlugins, LoadsNoneOfTheFilesThatAreNamedWhenOneCanNotBeLoaded) {
    std::ostringstream warnings;
    EXPECT_THROW(
        LoadPlugins({TestPlugin("kelFaultyElements"), TestPlugin("kelNoEntryPoint")}, warnings),
        JobError);
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadPlugins, FailsWhenTheFileThatIsNamedCanNotBeLoaded) {
    std::ostringstream warnings;
    EXPECT_THROW(LoadPlugins({TestPlugin("kelNoEntryPoint")}, warnings), JobError);
    EXPECT_EQ(warnings.str(), "");
}

TEST(LoadPlugins, LooksThroughTheFoldersInTheirOrderAndInEachByName) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "b");
    fs::create_directory(folder / "a");
    const std::string first = LinkPlugin("kelFaultyElements", folder / "b/libkel2.so");
    const std::string second = LinkPlugin("kelFaultyElements", folder / "b/libkelB.so");
    const std::string third = LinkPlugin("kelFaultyElements", folder / "a/libkel.so");
    SetSearchPath((folder / "b") + ":" + (folder / "missing") + ":" + (folder / "a"));
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({first, second, third}));
    EXPECT_EQ(warnings.str(), "");
}

TEST(LoadPlugins, TakesOnlyWhatIsNamedLikeAPlugin) {
    const TemporaryFolder folder;
    for (const char* name : {"libother.so", "kelPlugin.so", "libkelPlugin.so.1", "libkelPlugin",
                             "libkelPlugin.txt", "LIBKELPLUGIN.SO", "xlibkelPlugin.so"}) {
        LinkPlugin("kelFaultyElements", folder / name);
    }
    fs::create_directory(folder / "folder");
    LinkPlugin("kelFaultyElements", folder / "folder/libkelDeep.so");
    SetSearchPath(folder.Path());
    std::ostringstream warnings;
    EXPECT_EQ(ErrorOfSearching(warnings),
              "no plug-in was found in " + folder.Path().string() +
                  "; name one with --plugin FILE or its folder in KEL_PLUGIN_PATH");
    EXPECT_EQ(warnings.str(), "");
}

TEST(LoadPlugins, WarnsOfWhatCanNotBeLoadedAndLoadsTheOthers) {
    const TemporaryFolder folder;
    WriteFile(folder / "libkelA.so", "short\n");
    const std::string entry = LinkPlugin("kelNoEntryPoint", folder / "libkelB.so");
    const std::string good = LinkPlugin("kelFaultyElements", folder / "libkelC.so");
    const std::string number = LinkPlugin("kelThrowsNumber", folder / "libkelD.so");
    const std::string error = LinkPlugin("kelThrowsError", folder / "libkelE.so");
    SetSearchPath(folder.Path());
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({good}));
    const std::string text = folder / "libkelA.so";
    EXPECT_EQ(warnings.str(),
              "kelhost: warning: the plug-in " + text + " can not be loaded: " + text +
                  ": file too short\n"
                  "kelhost: warning: the plug-in " +
                  entry + " has no entry point RegisterAll: " + entry +
                  ": undefined symbol: RegisterAll\n"
                  "kelhost: warning: the plug-in " +
                  number + " failed in RegisterAll with an exception of an unknown type\n" +
                  "kelhost: warning: the plug-in " + error +
                  " failed in RegisterAll: the licence\\nis missing\n");
}

TEST(LoadPlugins, NeverLooksIntoTheCurrentFolderForAnEmptyEntry) {
    const TemporaryFolder folder;
    LinkPlugin("kelFaultyElements", folder / "libkelPlugin.so");
    fs::create_directory(folder / "empty");
    const fs::path former = fs::current_path();
    fs::current_path(folder.Path());
    const std::string empty = folder / "empty";
    for (const std::string& path : {":" + empty, empty + ":", "::" + empty + "::"}) {
        SetSearchPath(path);
        std::ostringstream warnings;
        EXPECT_EQ(ErrorOfSearching(warnings),
                  "no plug-in was found in " + empty +
                      "; name one with --plugin FILE or its folder in KEL_PLUGIN_PATH");
    }
    for (const char* path : {":", ":::"}) {
        SetSearchPath(path);
        std::ostringstream warnings;
        EXPECT_EQ(ErrorOfSearching(warnings),
                  "KEL_PLUGIN_PATH is \"" + std::string(path) +
                      "\" and names no folder; name those of the plug-ins, or unset it");
    }
    fs::current_path(former);
}

TEST(LoadPlugins, LoadsAFolderThatIsNamedTwiceOnce) {
    const TemporaryFolder folder;
    const std::string plugin = LinkPlugin("kelFaultyElements", folder / "libkelPlugin.so");
    SetSearchPath(folder.Path().string() + ":" + folder.Path().string());
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({plugin}));
}

} // namespace kel::host
