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
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// The directories of the tests must not be writable by others, whatever the user's umask.
[[maybe_unused]] const mode_t kUsualMask = umask(022);

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

constexpr const char* kOneFailure =
    "1 check: 0 passed, 1 failed, 0 not applicable; --seed 1 repeats the random calls\n";

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

// A line of a validation that failed in this way, without the measured time and memory.
std::string WithoutMeasures(const std::string& text) {
    return ReplaceMatches(text, " +[0-9]+ ms +[0-9.]+ MiB", "");
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

TEST(PluginSearch, RefusesANamedPluginWithRaisedRights) {
    const TemporaryDirectory directory;
    const std::string plugin = AddTextPlugin(directory, "p");
    const std::string reason = "kelhost runs with raised rights (set-user-ID, set-group-ID or "
                               "capabilities) and loads only installed plug-ins";
    Command simulated = Kelhost(directory, {"--plugin", plugin, "inspect"});
    DisturbSystem(simulated);
    simulated.environment["KEL_TEST_RAISED_RIGHTS"] = "1";
    ExpectResult(RunCommand(simulated), 2, "", "kelhost: --plugin is refused: " + reason + "\n");

    // The validator loads the plug-in that is its argument.
    simulated.arguments = {"validate", plugin, "--check", "plugin.loads", "--quiet", "--seed", "1"};
    const ProcessResult validated = RunCommand(simulated);
    EXPECT_EQ(validated.status, 1);
    EXPECT_EQ(WithoutMeasures(validated.out),
              "FAILED  plugin.loads  cannot load the plug-in: " + reason + "\n" + kOneFailure);

    Command raised = Kelhost(directory, {"--plugin", plugin, "inspect"});
    raised.program = directory / "kelhost";
    fs::copy_file(KEL_TEST_HOST_ELSEWHERE, raised.program);
    if (!RaiseRights(raised.program)) {
        GTEST_SKIP() << "only root can raise the rights of a program, and not on every system";
    }
    ExpectResult(RunCommand(raised), 2, "", "kelhost: --plugin is refused: " + reason + "\n");
}

TEST(PluginSearch, SkipsWhatOtherUsersCanChangeOrWhatIsNoFile) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "good");
    const std::string good = directory / "good/libkelGood.so";
    fs::copy_file(TestPlugin("kelFaultyElements"), good);
    const std::string writable = directory / "good/libkelWritable.so";
    fs::copy_file(good, writable);
    fs::permissions(writable, fs::perms::others_write, fs::perm_options::add);
    const std::string pipe = directory / "good/libkelPipe.so";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string shared = directory / "shared";
    AddTextPlugin(directory, "shared");
    fs::permissions(shared, fs::perms::others_write, fs::perm_options::add);
    const std::string change = "every user can change ";
    ExpectResult(InspectWith(directory, shared + ":" + (directory / "good")), 0, TextElements(good),
                 "kelhost: warning: " + shared + ": cannot search for plug-ins: " + change +
                     shared + "; use chmod o-w\n" + "kelhost: warning: " + pipe +
                     ": cannot load the plug-in: it is a named pipe\n" +
                     "kelhost: warning: " + writable + ": cannot load the plug-in: " + change +
                     writable + "; use chmod o-w\n");
    // Nothing waits for the other end of the pipe.
    ExpectResult(
        RunKelhost(directory, {"validate", pipe, "--check", "plugin.one-entry-point", "--quiet"}),
        0, "", "");
    const std::string inShared = shared + "/libkelText.so";
    ExpectResult(RunKelhost(directory, {"--plugin", inShared, "inspect"}), 1, "",
                 "kelhost: " + inShared + ": cannot load the plug-in: " + change + shared +
                     "; use chmod o-w\n");
    const ProcessResult validated = RunKelhost(
        directory, {"validate", inShared, "--check", "plugin.loads", "--quiet", "--seed", "1"});
    EXPECT_EQ(validated.status, 1);
    EXPECT_EQ(WithoutMeasures(validated.out),
              "FAILED  plugin.loads  cannot load the plug-in: " + change + shared +
                  "; use chmod o-w\n" + kOneFailure);
}

TEST(PluginSearch, TrustsUsersWhoCanReplaceTheProgram) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "bin");
    Command command = Kelhost(directory, {"inspect"});
    command.program = directory / "bin/kelhost";
    fs::copy_file(KEL_TEST_HOST_ELSEWHERE, command.program);
    const std::string shared = directory / "shared";
    const std::string plugin = AddTextPlugin(directory, "shared");
    command.environment["KEL_PLUGIN_PATH"] = shared;
    const auto expectOnlyWith = [&](const auto& change, const std::string& obstacle) {
        change(shared);
        ExpectResult(RunCommand(command), 1, "",
                     "kelhost: warning: " + shared + ": cannot search for plug-ins: " + obstacle +
                         "\nkelhost: found no plug-in in " + shared + kHint);
        change(directory / "bin");
        ExpectResult(RunCommand(command), 0, TextElements(plugin), "");
        for (const std::string& path : {shared, directory / "bin"}) {
            fs::permissions(path, fs::perms(0755));
        }
    };
    expectOnlyWith([](const std::string& path) { fs::permissions(path, fs::perms(0757)); },
                   "every user can change " + shared + "; use chmod o-w");
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files to another user";
    }
    constexpr uid_t kNumber = 4000000001; // no user and no group
    expectOnlyWith(
        [](const std::string& path) {
            ASSERT_EQ(chown(path.c_str(), 0, kNumber), 0);
            fs::permissions(path, fs::perms(0775));
        },
        "the group number 4000000001 can change " + shared + "; use chmod g-w");
    expectOnlyWith([](const std::string& path) { ASSERT_EQ(chown(path.c_str(), kNumber, 0), 0); },
                   shared + " belongs to the user number 4000000001, who is neither root nor you");
}

TEST(PluginSearch, FailsWhenAPluginCallsExit) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "p");
    WriteFile(directory / "p/libkelA.so", "short\n");
    const std::string warning = (directory / "p/libkelA.so") +
                                ": cannot load the plug-in: " + (directory / "p/libkelA.so") +
                                ": file too short";
    for (const char* fault : {"exits-while-loading", "exits-while-registering"}) {
        const std::string plugin = directory / ("p/libkelBroken-" + std::string(fault) + ".so");
        fs::create_symlink(TestPlugin("kelBroken"), plugin);
        const std::string error = plugin + ": cannot load the plug-in: it called exit";
        ExpectResult(InspectWith(directory, directory / "p"), 1, "goodbye\n",
                     "kelhost: warning: " + warning + "\nkelhost: " + error + "\n");
        const ProcessResult documents =
            RunKelhost(directory, {"--json", "--plugin", plugin, "inspect"});
        ExpectResult(documents, 1, "goodbye\n",
                     R"({"document":"kelhost.error","file":")" + plugin + R"(","message":")" +
                         error + "\",\"path\":\"" + plugin + "\",\"version\":1}\n");
        fs::remove(plugin);
    }
    const std::string quick = directory / "libkelBroken-exits-quickly-while-registering.so";
    fs::create_symlink(TestPlugin("kelBroken"), quick);
    ExpectResult(RunKelhost(directory, {"--plugin", quick, "inspect"}), 1, "",
                 "kelhost: " + quick + ": cannot load the plug-in: it called exit\n");
}

TEST(PluginSearch, LetsAProcessOfAPluginExit) {
    const TemporaryDirectory directory;
    const std::string plugin = directory / "libkelBroken-has-a-process-that-exits.so";
    fs::create_symlink(TestPlugin("kelBroken"), plugin);
    ExpectResult(RunKelhost(directory, {"--plugin", plugin, "inspect", "test.Heap"}), 0,
                 "its status is 0\n"
                 "Implementation  test.Heap\n"
                 "Kind            MemoryBlockAllocator\n"
                 "Types           Heap\n"
                 "Registered by   " +
                     plugin + "\n\nFor trying the checks of plug-ins.\n\nIt has no settings.\n",
                 "");
}

TEST(PluginSearch, WarnsOfElementsThatTwoPluginsRegister) {
    const TemporaryDirectory directory;
    const std::string first = directory / "a.so";
    const std::string second = directory / "b.so";
    for (const std::string& copy : {first, second}) {
        fs::copy_file(TestPlugin("kelFaultyElements"), copy);
    }
    WriteFile(directory / "text.wav", "1000 2 48000\n");
    const std::string end =
        " for WAVE, AIFF, BWAVE is not used, because " + first + " registers it, too\n";
    const ProcessResult result = RunKelhost(directory, {"--plugin", first, "--plugin", second,
                                                        "info", "--field", "frames", "text.wav"});
    ExpectResult(result, 0, "1000\n",
                 "kelhost: warning: " + second + ": its AudioSource test.TextSource" + end +
                     "kelhost: warning: " + second + ": its AudioSink test.TextSink" + end);
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
    const std::string text = directory / "text";
    command.environment["KEL_PLUGIN_PATH"] = text + ":" + (directory / "missing") + ":" + real;
    EXPECT_EQ(statuses(command), textFirst);
    command.environment["KEL_PLUGIN_PATH"] = real + ":" + text;
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
    ExpectResult(InspectWith(directory, (directory / "p") + ":" + (directory / "two\nlines")), 1,
                 "",
                 warning + "kelhost: found no plug-in in " + (directory / "p") + ", " +
                     (directory / "two\\nlines") + kHint);
    const std::string good = AddTextPlugin(directory, "p");
    ExpectResult(InspectWith(directory, directory / "p"), 0, TextElements(good), warning);
    ExpectResult(RunKelhost(directory, {"--plugin", "p/libkelA.so", "inspect"}), 1, "",
                 "kelhost: " + bad + ": cannot load the plug-in: " + bad + ": file too short\n");
    ExpectResult(
        RunKelhost(directory, {"--plugin", "", "inspect"}), 2, "",
        "kelhost: empty name for --plugin: expected the name of a file; see kelhost inspect "
        "--help\n");
}

TEST(PluginSearch, FailsWhenNoPluginOffersTheFormat) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(
        RunKelhost(directory, {"--plugin", TestPlugin("kelNoElements"), "info", "take.wav"}), 1, "",
        "kelhost: no plug-in has an AudioSource for WAVE; see kelhost inspect\n");
}

} // namespace kel::test
