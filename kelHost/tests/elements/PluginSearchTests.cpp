// The plug-ins that the program finds, and their order; the errors of single files are those of
// PluginLoaderTests.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr const char* kHint = "; name one with --plugin FILE or its directory in KEL_PLUGIN_PATH\n";

// Makes a directory with the text plug-in in it; returns its path.
std::string AddTextPlugin(const TemporaryDirectory& directory, const std::string& name) {
    fs::create_directories(directory / name);
    const std::string path = directory / (name + "/libkelText.so");
    fs::create_symlink(TestPlugin("kelFaultyElements"), path);
    return path;
}

// Makes links to the core's library in a directory.
void LinkCore(const fs::path& directory) {
    fs::create_directories(directory);
    const fs::path libraries = fs::path(KEL_TEST_HOST).parent_path().parent_path() / "lib";
    for (const auto& entry : fs::directory_iterator(libraries)) {
        const std::string name = entry.path().filename();
        if (name.rfind("libkelCore", 0) == 0) {
            fs::create_symlink(entry.path(), directory / name);
        }
    }
}

// Runs a program that is copied into the directory "bin".
ProcessResult InspectWithCopy(const TemporaryDirectory& directory, const std::string& program) {
    fs::create_directories(directory / "bin");
    fs::copy_file(program, directory / "bin/kelhost", fs::copy_options::overwrite_existing);
    Command command = Kelhost(directory, {"inspect"});
    command.program = directory / "bin/kelhost";
    command.environment["LD_LIBRARY_PATH"] = directory / "core";
    return RunCommand(command);
}

ProcessResult InspectWith(const TemporaryDirectory& directory, const std::string& searchPath) {
    Command command = Kelhost(directory, {"inspect"});
    command.environment["KEL_PLUGIN_PATH"] = searchPath;
    return RunCommand(command);
}

std::string TextElements(const std::string& plugin) {
    return "Implementation   Kind                  Types              Registered by\n"
           "kel              MemoryBlockAllocator  Recycler           kelCore\n"
           "test.TextSource  AudioSource           WAVE, AIFF, BWAVE  " +
           plugin + "\n" + "test.TextSink    AudioSink             WAVE, AIFF, BWAVE  " + plugin +
           "\n";
}

// Raises the rights of a program, as root can; false where the system does not.
bool RaiseRights(const std::string& program) {
    struct statvfs disk {};
    return geteuid() == 0 && prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0 &&
           statvfs(program.c_str(), &disk) == 0 && (disk.f_flag & ST_NOSUID) == 0 &&
           chown(program.c_str(), static_cast<uid_t>(-1), getegid() + 1) == 0 &&
           chmod(program.c_str(), S_ISGID | S_IRWXU | S_IRWXG) == 0;
}

} // namespace

TEST(PluginSearch, FindsThePluginBesideTheProgramAndNotBesideALinkToIt) {
    const TemporaryDirectory directory;
    fs::create_symlink(KEL_TEST_HOST, directory / "kelhost");
    Command command = Kelhost(directory, {"inspect", "kel.LibsndfileSource"});
    command.program = directory / "kelhost";
    command.environment["KEL_PLUGIN_PATH"] = ""; // the same as none
    EXPECT_EQ(RunCommand(command).status, 0);
}

TEST(PluginSearch, LooksBesideTheProgramThenBesideTheCore) {
    const TemporaryDirectory directory;
    LinkCore(directory / "core");
    ExpectResult(InspectWithCopy(directory, KEL_TEST_HOST), 1, "",
                 "kelhost: found no plug-in in " + (directory / "lib/kel") + ", " +
                     (directory / "core/kel") + kHint);
    const std::string besideCore = AddTextPlugin(directory, "core/kel");
    ExpectResult(InspectWithCopy(directory, KEL_TEST_HOST), 0, TextElements(besideCore), "");
    const std::string besideProgram = AddTextPlugin(directory, "lib/kel");
    ExpectResult(InspectWithCopy(directory, KEL_TEST_HOST), 0, TextElements(besideProgram), "");

    // The core in the directory of the program's own libraries is one place, which is named once.
    const TemporaryDirectory other;
    LinkCore(other / "lib");
    ExpectResult(InspectWithCopy(other, KEL_TEST_HOST), 1, "",
                 "kelhost: found no plug-in in " + (other / "lib/kel") + kHint);
}

// The user who starts a program with more rights must not choose the plug-ins that it loads.
TEST(PluginSearch, DoesNotLookAtTheVariableWithRaisedRights) {
    const TemporaryDirectory directory;
    const std::string plugin = AddTextPlugin(directory, "p");
    const std::string withoutVariable = RunKelhost(directory, {"inspect"}).out;
    ExpectResult(InspectWith(directory, directory / "p"), 0, TextElements(plugin), "");

    // Simulated by the C library, which works for every user.
    Command command = Kelhost(directory, {"inspect"});
    command.environment["KEL_PLUGIN_PATH"] = directory / "p";
    DisturbSystem(command);
    command.environment["KEL_TEST_RAISED_RIGHTS"] = "1";
    ExpectResult(RunCommand(command), 0, withoutVariable, "");

    // Real ones, where root runs the test and the system allows it.
    Command raised = Kelhost(directory, {"inspect"});
    raised.program = directory / "kelhost";
    fs::copy_file(KEL_TEST_HOST_ELSEWHERE, raised.program);
    raised.environment["KEL_PLUGIN_PATH"] = directory / "p";
    const bool isRaised = RaiseRights(raised.program);
    ExpectResult(RunCommand(raised), 0, isRaised ? withoutVariable : TextElements(plugin), "");
}

TEST(PluginSearch, UsesTheFirstElementOfAFormat) {
    const TemporaryDirectory directory;
    const std::string texts = AddTextPlugin(directory, "text");
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", "1000 2 48000\n");
    const std::string real = fs::path(KEL_TEST_PLUGIN).parent_path();
    const auto statuses = [&](Command command) {
        std::vector<int> found;
        for (const char* name : {"text.wav", "take.wav"}) {
            command.arguments.back() = name;
            found.push_back(RunCommand(command).status);
        }
        return found;
    };
    const std::vector<int> textFirst{0, 1};
    const std::vector<int> realFirst{1, 0};
    Command command = Kelhost(directory, {"info", ""});
    command.environment["KEL_PLUGIN_PATH"] = "text:missing:" + real;
    EXPECT_EQ(statuses(command), textFirst);
    command.environment["KEL_PLUGIN_PATH"] = real + ":text";
    EXPECT_EQ(statuses(command), realFirst);
    // Files that are named take the place of all directories.
    command.arguments = {"--plugin", texts, "--plugin", KEL_TEST_PLUGIN, "info", ""};
    EXPECT_EQ(statuses(command), textFirst);
    command.arguments = {"--plugin", KEL_TEST_PLUGIN, "--plugin", texts, "info", ""};
    EXPECT_EQ(statuses(command), realFirst);
}

TEST(PluginSearch, WarnsOfPluginsThatCannotBeLoadedAndFailsWhenNoneIsLeft) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "p");
    WriteFile(directory / "p/libkelA.so", "short\n");
    const std::string bad = directory / "p/libkelA.so";
    const std::string warning =
        "kelhost: warning: " + bad + ": cannot load the plug-in: " + bad + ": file too short\n";
    ExpectResult(InspectWith(directory, (directory / "p") + ":two\nlines"), 1, "",
                 warning + "kelhost: found no plug-in in " + (directory / "p") + ", two\\nlines" +
                     kHint);
    const std::string good = AddTextPlugin(directory, "p");
    ExpectResult(InspectWith(directory, directory / "p"), 0, TextElements(good), warning);
    ExpectResult(RunKelhost(directory, {"--plugin", "p/libkelA.so", "inspect"}), 1, "",
                 "kelhost: " + bad + ": cannot load the plug-in: " + bad + ": file too short\n");
    ExpectResult(RunKelhost(directory, {"--plugin", "", "inspect"}), 2, "",
                 "kelhost: invalid value \"\" for --plugin: expected the name of a file\n");
}

TEST(PluginSearch, FailsWhenNoPluginOffersTheFormat) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(
        RunKelhost(directory, {"--plugin", TestPlugin("kelNoElements"), "info", "take.wav"}), 1, "",
        "kelhost: no plug-in has an AudioSource for WAVE; see kelhost inspect\n");
}

} // namespace kel::test
