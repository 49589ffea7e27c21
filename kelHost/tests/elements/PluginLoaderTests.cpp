#include "elements/PluginLoader.h"

#include "Program.h"
#include "base/Errors.h"

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
using test::TemporaryDirectory;
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

void SetSearchPath(const std::string& directories) {
    ASSERT_EQ(setenv("KEL_PLUGIN_PATH", directories.c_str(), 1), 0);
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
    const TemporaryDirectory directory;
    LinkPlugin("kelFaultyElements", directory / "plugin.so");
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    {
        const LoadedPlugin plugin(fs::path("plugin.so"));
        EXPECT_EQ(plugin.Path(), directory / "plugin.so");
        EXPECT_EQ(RegisteredBy(), CoreAnd({directory / "plugin.so"}));
    }
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
    fs::current_path(former);
}

TEST(LoadedPlugin, CanBeMoved) {
    const TemporaryDirectory directory;
    const std::string path = LinkPlugin("kelFaultyElements", directory / "plugin.so");
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
    const TemporaryDirectory directory;
    const std::string path = directory / "missing.so";
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " cannot be loaded: " + path +
                  ": cannot open shared object file: No such file or directory");
}

TEST(LoadedPlugin, IsNotATextFile) {
    const TemporaryDirectory directory;
    const std::string path = directory / "libkelText.so";
    WriteFile(path, std::string(100, 'x') + "\n");
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " cannot be loaded: " + path + ": invalid ELF header");
    WriteFile(path, "short\n");
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + path + " cannot be loaded: " + path + ": file too short");
}

TEST(LoadedPlugin, IsNotADirectory) {
    const TemporaryDirectory directory;
    const std::string path = directory.Path().string();
    EXPECT_EQ(ErrorOfLoading(path), "the plug-in " + path + " cannot be loaded: " + path +
                                        ": cannot read file data: Is a directory");
}

TEST(LoadedPlugin, HasAnEntryPoint) {
    const std::string path = TestPlugin("kelNoEntryPoint");
    EXPECT_EQ(ErrorOfLoading(path), "the plug-in " + path + " has no entry point RegisterAll: " +
                                        path + ": undefined symbol: RegisterAll");
}

TEST(LoadedPlugin, HasAllItsSymbols) {
    const std::string path = TestPlugin("kelUndefinedSymbol");
    EXPECT_EQ(ErrorOfLoading(path), "the plug-in " + path + " cannot be loaded: " + path +
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
    const TemporaryDirectory directory;
    const std::string path = directory / "two\nlines.so";
    WriteFile(path, "short\n");
    const std::string shown = directory / "two\\nlines.so";
    EXPECT_EQ(ErrorOfLoading(path),
              "the plug-in " + shown + " cannot be loaded: " + shown + ": file too short");
}

TEST(LoadPlugins, LoadsTheFileThatIsNamedAndNoOther) {
    const TemporaryDirectory directory;
    LinkPlugin("kelFaultyElements", directory / "libkelOther.so");
    SetSearchPath(directory.Path());
    std::ostringstream warnings;
    {
        const auto plugins = LoadPlugins({TestPlugin("kelFaultyElements")}, warnings);
        EXPECT_EQ(RegisteredBy(), CoreAnd({TestPlugin("kelFaultyElements")}));
    }
    EXPECT_EQ(warnings.str(), "");
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadPlugins, LoadsTheFilesThatAreNamedInTheirOrderAndEachOnce) {
    const TemporaryDirectory directory;
    const std::string first = directory / "b.so";
    const std::string second = directory / "a.so";
    for (const std::string& copy : {first, second}) {
        fs::copy_file(TestPlugin("kelFaultyElements"), copy);
    }
    fs::create_symlink(second, directory / "c.so");
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({first, second, first, directory / "c.so"}, warnings);
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

TEST(LoadPlugins, LooksThroughTheDirectoriesInTheirOrderAndInEachByName) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "b");
    fs::create_directory(directory / "a");
    const std::string first = LinkPlugin("kelFaultyElements", directory / "b/libkel2.so");
    const std::string second = LinkPlugin("kelFaultyElements", directory / "b/libkelB.so");
    const std::string third = LinkPlugin("kelFaultyElements", directory / "a/libkel.so");
    SetSearchPath((directory / "b") + ":" + (directory / "missing") + ":" + (directory / "a"));
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({first, second, third}));
    EXPECT_EQ(warnings.str(), "");
}

TEST(LoadPlugins, TakesOnlyWhatIsNamedLikeAPlugin) {
    const TemporaryDirectory directory;
    for (const char* name : {"libother.so", "kelPlugin.so", "libkelPlugin.so.1", "libkelPlugin",
                             "libkelPlugin.txt", "LIBKELPLUGIN.SO", "xlibkelPlugin.so"}) {
        LinkPlugin("kelFaultyElements", directory / name);
    }
    fs::create_directory(directory / "directory");
    LinkPlugin("kelFaultyElements", directory / "directory/libkelDeep.so");
    SetSearchPath(directory.Path());
    std::ostringstream warnings;
    EXPECT_EQ(ErrorOfSearching(warnings),
              "no plug-in was found in " + directory.Path().string() +
                  "; name one with --plugin FILE or its directory in KEL_PLUGIN_PATH");
    EXPECT_EQ(warnings.str(), "");
}

TEST(LoadPlugins, WarnsOfWhatCanNotBeLoadedAndLoadsTheOthers) {
    const TemporaryDirectory directory;
    WriteFile(directory / "libkelA.so", "short\n");
    const std::string entry = LinkPlugin("kelNoEntryPoint", directory / "libkelB.so");
    const std::string good = LinkPlugin("kelFaultyElements", directory / "libkelC.so");
    const std::string number = LinkPlugin("kelThrowsNumber", directory / "libkelD.so");
    const std::string error = LinkPlugin("kelThrowsError", directory / "libkelE.so");
    SetSearchPath(directory.Path());
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({good}));
    const std::string text = directory / "libkelA.so";
    EXPECT_EQ(warnings.str(),
              "kelhost: warning: the plug-in " + text + " cannot be loaded: " + text +
                  ": file too short\n"
                  "kelhost: warning: the plug-in " +
                  entry + " has no entry point RegisterAll: " + entry +
                  ": undefined symbol: RegisterAll\n"
                  "kelhost: warning: the plug-in " +
                  number + " failed in RegisterAll with an exception of an unknown type\n" +
                  "kelhost: warning: the plug-in " + error +
                  " failed in RegisterAll: the licence\\nis missing\n");
}

TEST(LoadPlugins, NeverLooksIntoTheCurrentDirectoryForAnEmptyEntry) {
    const TemporaryDirectory directory;
    LinkPlugin("kelFaultyElements", directory / "libkelPlugin.so");
    fs::create_directory(directory / "empty");
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    const std::string empty = directory / "empty";
    for (const std::string& path : {":" + empty, empty + ":", "::" + empty + "::"}) {
        SetSearchPath(path);
        std::ostringstream warnings;
        EXPECT_EQ(ErrorOfSearching(warnings),
                  "no plug-in was found in " + empty +
                      "; name one with --plugin FILE or its directory in KEL_PLUGIN_PATH");
    }
    for (const char* path : {":", ":::"}) {
        SetSearchPath(path);
        std::ostringstream warnings;
        EXPECT_EQ(ErrorOfSearching(warnings),
                  "KEL_PLUGIN_PATH is \"" + std::string(path) +
                      "\" and names no directory; name those of the plug-ins, or unset it");
    }
    fs::current_path(former);
}

TEST(LoadPlugins, LoadsADirectoryThatIsNamedTwiceOnce) {
    const TemporaryDirectory directory;
    const std::string plugin = LinkPlugin("kelFaultyElements", directory / "libkelPlugin.so");
    SetSearchPath(directory.Path().string() + ":" + directory.Path().string());
    std::ostringstream warnings;
    const auto plugins = LoadPlugins({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({plugin}));
}

} // namespace kel::host
