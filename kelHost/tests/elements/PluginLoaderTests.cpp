#include "elements/PluginLoader.h"

#include "Program.h"
#include "base/Errors.h"

#include <kelCore.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <system_error>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;
using test::ReadFile;
using test::TemporaryDirectory;
using test::TestPlugin;
using test::WriteFile;

namespace {

// The directories of the tests must not be writable by others, whatever the user's umask.
[[maybe_unused]] const mode_t kUsualMask = umask(022);

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
        return DescribeError(error).message;
    }
    return "it was loaded";
}

// Loads plug-ins and collects the warnings, each with a newline.
std::vector<LoadedPlugin> Load(const std::vector<std::string>& files, std::string& warnings) {
    return LoadPlugins(files, {[&](const std::string& line) { warnings += line + "\n"; },
                               [](const JobError& error) {
                                   ADD_FAILURE() << error.what();
                               }});
}

std::string ErrorOfSearching(std::string& warnings) {
    try {
        Load({}, warnings);
    } catch (const JobError& error) {
        return DescribeError(error).message;
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

// Names under which the broken plug-in throws when it registers.
const std::string kThrowsError = "libkelBroken-throws-while-registering.so";
const std::string kThrowsNumber = "libkelBroken-throws-number-while-registering.so";

const std::vector<std::string> kCoreAlone{"kelCore"};

std::vector<std::string> CoreAnd(const std::vector<std::string>& plugins) {
    std::vector<std::string> names = kCoreAlone;
    for (const std::string& plugin : plugins) {
        names.insert(names.end(), 6, plugin); // two elements for three formats
    }
    return names;
}

// The warnings about a plug-in whose two elements another one registers, too.
std::string DuplicateWarnings(const std::string& unused, const std::string& used) {
    const std::string end =
        " for WAVE, AIFF, BWAVE is not used, because " + used + " registers it, too\n";
    return "kelhost: warning: " + unused + ": its AudioSource test.TextSource" + end +
           "kelhost: warning: " + unused + ": its AudioSink test.TextSink" + end;
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

TEST(LoadedPlugin, CanBeMovedAndLoadedAgain) {
    const TemporaryDirectory directory;
    const std::string path = LinkPlugin("kelFaultyElements", directory / "plugin.so");
    for (int round = 0; round < 2; ++round) {
        std::optional<LoadedPlugin> first(std::in_place, fs::path(path));
        const LoadedPlugin second(std::move(*first));
        first.reset();
        EXPECT_EQ(second.Path(), path);
        EXPECT_EQ(RegisteredBy(), CoreAnd({path}));
    }
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
}

TEST(LoadedPlugin, IsRefusedWithTheReason) {
    const TemporaryDirectory directory;
    WriteFile(directory / "text.so", std::string(100, 'x') + "\n");
    WriteFile(directory / "two\nlines.so", "short\n");
    const std::string missing = directory / "missing.so";
    const std::string text = directory / "text.so";
    const std::string shown = directory / "two\\nlines.so";
    const std::string parent = directory.Path().string();
    const std::string pipe = directory / "pipe.so";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string loop = directory / "loop.so";
    fs::create_symlink("loop.so", loop);
    const std::string data = TestPlugin("kelEntryPointIsData");
    const std::string noEntry = TestPlugin("kelNoEntryPoint");
    const std::string undefined = TestPlugin("kelUndefinedSymbol");
    const std::string error = LinkPlugin("kelBroken", directory / kThrowsError);
    const std::string number = LinkPlugin("kelBroken", directory / kThrowsNumber);
    struct Row {
        std::string file;
        std::string error;
    };
    for (const Row& row : {
             Row{missing, missing + ": cannot load the plug-in: " + missing +
                              ": cannot open shared object file: No such file or directory"},
             Row{text, text + ": cannot load the plug-in: " + text + ": invalid ELF header"},
             Row{directory / "two\nlines.so",
                 shown + ": cannot load the plug-in: " + shown + ": file too short"},
             Row{parent,
                 parent + ": cannot load the plug-in: it is a directory; name a file in it"},
             Row{pipe, pipe + ": cannot load the plug-in: it is a named pipe"},
             Row{"/dev/null", "/dev/null: cannot load the plug-in: it is a device or a socket"},
             Row{loop, loop + ": cannot load the plug-in: " + loop +
                           ": cannot open shared object file: Too many levels of symbolic links"},
             Row{data, data + ": the plug-in has no entry point RegisterAll: its symbol of this "
                              "name is not a function"},
             Row{noEntry, noEntry + ": the plug-in has no entry point RegisterAll: " + noEntry +
                              ": undefined symbol: RegisterAll"},
             Row{undefined, undefined + ": cannot load the plug-in: " + undefined +
                                ": undefined symbol: kelSymbolThatIsMissing"},
             Row{error, error + ": the plug-in failed in RegisterAll: the licence\\nis missing"},
             Row{number,
                 number +
                     ": the plug-in failed in RegisterAll with an exception of an unknown type"},
         }) {
        EXPECT_EQ(ErrorOfLoading(row.file), row.error);
        EXPECT_EQ(RegisteredBy(), kCoreAlone);
        std::error_code unknown;
        if (fs::is_regular_file(fs::status(row.file, unknown))) { // the loader would open a pipe
            EXPECT_EQ(dlopen(row.file.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << row.file;
        }
    }
}

TEST(LoadedPlugin, IsRefusedWhereTheLoaderWouldEndTheProcessOrMislead) {
    const TemporaryDirectory directory;
    const std::string path = directory / "damaged.so";
    const std::string whole = ReadFile(KEL_TEST_PLUGIN);
    std::string otherProcessor = whole;
    otherProcessor.at(18) = 8;
    struct Row {
        std::string bytes;
        std::string error;
    };
    for (const Row& row :
         {Row{whole.substr(0, 63), path + ": file too short"},
          Row{whole.substr(0, 1000), "it was cut off after 1000 bytes"},
          Row{whole.substr(0, whole.size() / 2),
              "it was cut off after " + std::to_string(whole.size() / 2) + " bytes"},
          Row{otherProcessor, "it is for another processor"}}) {
        WriteFile(path, row.bytes);
        EXPECT_EQ(ErrorOfLoading(path), path + ": cannot load the plug-in: " + row.error);
    }
}

TEST(LoadPlugins, LoadsOnlyTheFilesThatAreNamedInTheirOrderAndEachOnce) {
    const TemporaryDirectory directory;
    LinkPlugin("kelFaultyElements", directory / "libkelOther.so");
    SetSearchPath(directory.Path());
    const std::string first = directory / "b.so";
    const std::string second = directory / "a.so";
    for (const std::string& copy : {first, second}) {
        fs::copy_file(TestPlugin("kelFaultyElements"), copy);
    }
    fs::create_symlink(second, directory / "c.so");
    std::string warnings;
    {
        const auto plugins = Load({first, second, first, directory / "c.so"}, warnings);
        EXPECT_EQ(RegisteredBy(), CoreAnd({first, second}));
    }
    EXPECT_EQ(warnings, DuplicateWarnings(second, first));
    warnings.clear();
    EXPECT_THROW(Load({first, TestPlugin("kelNoEntryPoint")}, warnings), JobError);
    EXPECT_EQ(RegisteredBy(), kCoreAlone);
    EXPECT_EQ(warnings, "");
}

TEST(LoadPlugins, LooksThroughTheDirectoriesInTheirOrderAndInEachByName) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "b");
    fs::create_directory(directory / "a");
    // Neither in the order in which they are made nor in the reverse one.
    std::vector<std::string> plugins;
    for (const char* name : {"4", "1", "6", "3", "A", "0", "5", "B", "2"}) {
        plugins.push_back(
            LinkPlugin("kelFaultyElements", directory / (std::string("b/libkel") + name + ".so")));
    }
    std::sort(plugins.begin(), plugins.end());
    plugins.push_back(LinkPlugin("kelFaultyElements", directory / "a/libkel.so"));
    SetSearchPath((directory / "b") + ":" + (directory / "missing") + ":" + (directory / "a") +
                  ":" + (directory / "b"));
    std::string warnings;
    const auto loaded = Load({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd(plugins));
    std::string expected;
    for (std::size_t i = 1; i < plugins.size(); ++i) {
        expected += DuplicateWarnings(plugins[i], plugins[0]);
    }
    EXPECT_EQ(warnings, expected);
}

TEST(LoadPlugins, LoadsOnlyFilesThatAreNamedLikePlugins) {
    const TemporaryDirectory directory;
    for (const char* name : {"libother.so", "kelPlugin.so", "libkelPlugin.so.1", "libkelPlugin",
                             "libkelPlugin.txt", "LIBKELPLUGIN.SO", "xlibkelPlugin.so"}) {
        LinkPlugin("kelFaultyElements", directory / name);
    }
    fs::create_directory(directory / "directory");
    LinkPlugin("kelFaultyElements", directory / "directory/libkelDeep.so");
    SetSearchPath(directory.Path());
    std::string warnings;
    EXPECT_EQ(ErrorOfSearching(warnings),
              "found no plug-in in " + directory.Path().string() +
                  "; name one with --plugin FILE or its directory in KEL_PLUGIN_PATH");
    EXPECT_EQ(warnings, "");
}

TEST(LoadPlugins, WarnsOfFilesThatCannotBeLoadedAndLoadsTheOthers) {
    const TemporaryDirectory directory;
    WriteFile(directory / "libkelA.so", "short\n");
    const std::string entry = LinkPlugin("kelNoEntryPoint", directory / "libkelB.so");
    const std::string number = LinkPlugin("kelBroken", directory / kThrowsNumber);
    const std::string good = LinkPlugin("kelFaultyElements", directory / "libkelC.so");
    SetSearchPath(directory.Path());
    std::string warnings;
    const auto plugins = Load({}, warnings);
    EXPECT_EQ(RegisteredBy(), CoreAnd({good}));
    const std::string text = directory / "libkelA.so";
    EXPECT_EQ(warnings,
              "kelhost: warning: " + text + ": cannot load the plug-in: " + text +
                  ": file too short\n"
                  "kelhost: warning: " +
                  entry + ": the plug-in has no entry point RegisterAll: " + entry +
                  ": undefined symbol: RegisterAll\n"
                  "kelhost: warning: " +
                  number +
                  ": the plug-in failed in RegisterAll with an exception of an unknown type\n");
}

TEST(LoadPlugins, NeverLooksIntoTheCurrentDirectory) {
    const TemporaryDirectory directory;
    LinkPlugin("kelFaultyElements", directory / "libkelPlugin.so");
    fs::create_directory(directory / "empty");
    fs::create_directory(directory / "plugins");
    LinkPlugin("kelFaultyElements", directory / "plugins/libkelPlugin.so");
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    const std::string empty = directory / "empty";
    const auto warningOf = [](const std::string& entry) {
        return "kelhost: warning: KEL_PLUGIN_PATH: cannot search \"" + entry +
               "\": it is not an absolute path\n";
    };
    struct Row {
        std::string path;
        std::string warnings;
    };
    for (const Row& row :
         {Row{":" + empty, warningOf("")}, Row{empty + ":", warningOf("")},
          Row{"::" + empty + "::", warningOf("") + warningOf("") + warningOf("") + warningOf("")},
          Row{".:" + empty + ":plugins:./plugins",
              warningOf(".") + warningOf("plugins") + warningOf("./plugins")}}) {
        SetSearchPath(row.path);
        std::string warnings;
        EXPECT_EQ(ErrorOfSearching(warnings),
                  "found no plug-in in " + empty +
                      "; name one with --plugin FILE or its directory in KEL_PLUGIN_PATH");
        EXPECT_EQ(warnings, row.warnings);
    }
    for (const Row& row : {Row{":", warningOf("") + warningOf("")}, Row{".", warningOf(".")}}) {
        SetSearchPath(row.path);
        std::string warnings;
        EXPECT_EQ(ErrorOfSearching(warnings),
                  "invalid value \"" + row.path +
                      "\" for KEL_PLUGIN_PATH: expected absolute paths of directories, separated "
                      "by colons");
        EXPECT_EQ(warnings, row.warnings);
    }
    fs::current_path(former);
}

} // namespace kel::host
