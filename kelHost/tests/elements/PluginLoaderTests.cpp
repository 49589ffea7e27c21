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

// Name under which the broken plug-in throws when it registers.
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

TEST(LoadedPlugin, IsRefusedWithAnErrorThatNamesTheFile) {
    const std::string library = TestPlugin("kelNoEntryPoint");
    const std::string missing = "the plug-in has no entry point RegisterAll: " + library +
                                ": undefined symbol: RegisterAll";
    try {
        const LoadedPlugin plugin{fs::path(library)};
        ADD_FAILURE() << "it was loaded";
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), library);
        EXPECT_EQ(error.what(), missing);
    }
    try {
        const PluginLibrary plugin{fs::path(library)};
        plugin.FindEntryPoint();
        ADD_FAILURE() << "it has an entry point";
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), library);
        EXPECT_EQ(error.what(), missing);
    }
    try {
        const PluginLibrary plugin{fs::path("/dev/null")};
        ADD_FAILURE() << "it was loaded";
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), "/dev/null");
        EXPECT_EQ(std::string(error.what()), "cannot load the plug-in: it is a device or a socket");
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

TEST(LoadPlugins, FailsWithoutADirectoryToSearch) {
    SetSearchPath(":.");
    std::string warnings;
    EXPECT_EQ(ErrorOfSearching(warnings),
              "invalid value \":.\" for KEL_PLUGIN_PATH: expected absolute paths of directories, "
              "separated by colons");
    EXPECT_EQ(warnings,
              "kelhost: warning: KEL_PLUGIN_PATH: cannot search \"\": it is not an absolute path\n"
              "kelhost: warning: KEL_PLUGIN_PATH: cannot search \".\": it is not an absolute "
              "path\n");
}

} // namespace kel::host
