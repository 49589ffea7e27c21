#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
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

fs::path ProgramRoot() {
    return fs::path(KEL_TEST_HOST).parent_path().parent_path();
}

// Makes a directory with a plug-in of the tests in it.
void AddPlugin(const TemporaryDirectory& directory, const std::string& name,
               const std::string& plugin) {
    fs::create_directories(directory / name);
    fs::create_symlink(TestPlugin(plugin), directory / (name + "/lib" + plugin + ".so"));
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

// A program that lies elsewhere than the core, with a plug-in of the tests beside it if one is
// named.
std::string ProgramElsewhere(const TemporaryDirectory& directory, const std::string& plugin) {
    std::string program = directory / "bin/kelhost";
    fs::create_directory(directory / "bin");
    fs::copy_file(KEL_TEST_HOST_ELSEWHERE, program);
    if (!plugin.empty()) {
        fs::create_directory(directory / "lib");
        AddPlugin(directory, "lib/kel", plugin);
    }
    return program;
}

// Another group than the user's own that the user may give a file to; none where there is none.
std::optional<gid_t> OtherGroup() {
    if (geteuid() == 0) {
        return getegid() + 1;
    }
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, getgroups(0, nullptr))));
    groups.resize(static_cast<std::size_t>(
        std::max(0, getgroups(static_cast<int>(groups.size()), groups.data()))));
    for (const gid_t group : groups) {
        if (group != getegid()) {
            return group;
        }
    }
    return std::nullopt;
}

// Gives a program the rights of another group; false where the system does not.
bool RaiseRights(const std::string& program) {
    struct statvfs disk {};
    const std::optional<gid_t> group = OtherGroup();
    return group.has_value() && prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0 &&
           statvfs(program.c_str(), &disk) == 0 && (disk.f_flag & ST_NOSUID) == 0 &&
           chown(program.c_str(), static_cast<uid_t>(-1), *group) == 0 &&
           chmod(program.c_str(), S_ISGID | S_IRWXU | S_IRWXG) == 0;
}

} // namespace

TEST(PluginSearch, FindsThePluginBesideTheProgramFromAnyDirectory) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    EXPECT_EQ(RunKelhost(directory, {"info", "take.wav"}).status, 0);
    Command command = Kelhost(directory, {"info", "take.wav"});
    command.environment["KEL_PLUGIN_PATH"] = "";
    EXPECT_EQ(RunCommand(command).status, 0) << "an empty variable is none";
}

TEST(PluginSearch, LooksBesideTheProgramItselfAndNotBesideALinkToIt) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "bin");
    fs::create_symlink(KEL_TEST_HOST, directory / "bin/kelhost");
    Command command = Kelhost(directory, {"inspect"});
    command.program = directory / "bin/kelhost";
    EXPECT_EQ(RunCommand(command).status, 0);
}

TEST(PluginSearch, NamesThePlaceBesideTheProgramWhenNothingIsThere) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "bin");
    fs::create_directory(directory / "lib");
    fs::copy_file(KEL_TEST_HOST, directory / "bin/kelhost");
    for (const auto& entry : fs::directory_iterator(ProgramRoot() / "lib")) {
        if (entry.path().filename().string().rfind("libkelCore", 0) == 0) {
            fs::create_symlink(entry.path(),
                               directory / ("lib/" + entry.path().filename().string()));
        }
    }
    Command command = Kelhost(directory, {"inspect"});
    command.program = directory / "bin/kelhost";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: no plug-in was found in " + (directory / "lib/kel") + kHint);

    fs::create_directory(directory / "lib/kel");
    fs::create_symlink(TestPlugin("kelFaultyElements"), directory / "lib/kel/libkelText.so");
    ExpectResult(RunCommand(command), 0, TextElements(directory / "lib/kel/libkelText.so"), "");
}

TEST(PluginSearch, FindsThePluginBesideTheCoreWhenNoneIsBesideTheProgram) {
    const TemporaryDirectory directory;
    Command command = Kelhost(directory, {"inspect"});
    command.program = ProgramElsewhere(directory, "");
    ExpectResult(RunCommand(command), 0, RunKelhost(directory, {"inspect"}).out, "");
}

TEST(PluginSearch, PrefersThePluginBesideTheProgramToThatBesideTheCore) {
    const TemporaryDirectory directory;
    Command command = Kelhost(directory, {"inspect"});
    command.program = ProgramElsewhere(directory, "kelFaultyElements");
    ExpectResult(RunCommand(command), 0,
                 TextElements(directory / "lib/kel/libkelFaultyElements.so"), "");
}

TEST(PluginSearch, NamesBothPlacesWhenNothingIsThere) {
    const TemporaryDirectory directory;
    fs::create_directories(directory / "a/bin");
    fs::create_directories(directory / "b");
    fs::copy_file(KEL_TEST_HOST, directory / "a/bin/kelhost");
    for (const auto& entry : fs::directory_iterator(ProgramRoot() / "lib")) {
        if (entry.path().filename().string().rfind("libkelCore", 0) == 0) {
            fs::create_symlink(entry.path(), directory / ("b/" + entry.path().filename().string()));
        }
    }
    Command command = Kelhost(directory, {"inspect"});
    command.program = directory / "a/bin/kelhost";
    command.environment["LD_LIBRARY_PATH"] = directory / "b";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: no plug-in was found in " + (directory / "a/lib/kel") + ", " +
                     (directory / "b/kel") + kHint);
}

// Whoever starts a program that has more rights must not choose what it loads.
TEST(PluginSearch, DoesNotLookAtTheVariableWithRaisedRights) {
    const TemporaryDirectory directory;
    AddPlugin(directory, "p", "kelFaultyElements");
    const std::string withoutVariable = RunKelhost(directory, {"inspect"}).out;
    ExpectResult(InspectWith(directory, directory / "p"), 0,
                 TextElements(directory / "p/libkelFaultyElements.so"), "");

    // As far as the C library tells the program, which is so for every user and everywhere.
    Command command = Kelhost(directory, {"inspect"});
    command.environment["KEL_PLUGIN_PATH"] = directory / "p";
    DisturbSystem(command);
    command.environment["KEL_TEST_RAISED_RIGHTS"] = "1";
    ExpectResult(RunCommand(command), 0, withoutVariable, "");

    // And in truth, where the user and the system can give them.
    Command raised = Kelhost(directory, {"inspect"});
    raised.program = ProgramElsewhere(directory, "");
    raised.environment["KEL_PLUGIN_PATH"] = directory / "p";
    const bool isRaised = RaiseRights(raised.program);
    ExpectResult(RunCommand(raised), 0,
                 isRaised ? withoutVariable : TextElements(directory / "p/libkelFaultyElements.so"),
                 "");
}

TEST(PluginSearch, GoesThroughSeveralDirectoriesAndTheFirstElementOfAFormatIsUsed) {
    const TemporaryDirectory directory;
    AddPlugin(directory, "text", "kelFaultyElements");
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", "1000 2 48000\n");
    const std::string real = ProgramRoot() / "lib/kel";

    Command command = Kelhost(directory, {"info", "text.wav"});
    command.environment["KEL_PLUGIN_PATH"] = "text:missing:" + real;
    EXPECT_EQ(RunCommand(command).status, 0);
    command.arguments = {"info", "take.wav"};
    EXPECT_EQ(RunCommand(command).status, 1);

    command.environment["KEL_PLUGIN_PATH"] = real + ":text";
    EXPECT_EQ(RunCommand(command).status, 0);
    command.arguments = {"info", "text.wav"};
    EXPECT_EQ(RunCommand(command).status, 1);
}

TEST(PluginSearch, NamesTheDirectoriesWithoutPlugins) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "empty");
    fs::create_directory(directory / "two\nlines");
    WriteFile(directory / "file", "");
    ExpectResult(InspectWith(directory, "empty:missing:file:two\nlines"), 1, "",
                 "kelhost: no plug-in was found in empty, missing, file, two\\nlines" +
                     std::string(kHint));
}

TEST(PluginSearch, NeverLooksIntoTheCurrentDirectoryForAnEmptyEntry) {
    const TemporaryDirectory directory;
    fs::create_symlink(TestPlugin("kelFaultyElements"), directory / "libkelHere.so");
    fs::create_directory(directory / "empty");
    for (const char* searchPath : {":empty", "empty:", "::empty::"}) {
        ExpectResult(InspectWith(directory, searchPath), 1, "",
                     "kelhost: no plug-in was found in empty" + std::string(kHint));
    }
    for (const char* searchPath : {":", "::"}) {
        ExpectResult(InspectWith(directory, searchPath), 1, "",
                     "kelhost: KEL_PLUGIN_PATH is \"" + std::string(searchPath) +
                         "\" and names no directory; name those of the plug-ins, or unset it\n");
    }
    ExpectResult(InspectWith(directory, "."), 0, TextElements(directory / "./libkelHere.so"), "");
}

TEST(PluginSearch, WarnsOfPluginsThatCanNotBeLoadedAndGoesOn) {
    const TemporaryDirectory directory;
    AddPlugin(directory, "p", "kelFaultyElements");
    AddPlugin(directory, "p", "kelNoEntryPoint");
    AddPlugin(directory, "p", "kelThrowsError");
    AddPlugin(directory, "p", "kelThrowsNumber");
    AddPlugin(directory, "p", "kelUndefinedSymbol");
    WriteFile(directory / "p/libkelZ.so", "short\n");
    const std::string path = directory / "p/libkel";
    ExpectResult(InspectWith(directory, directory / "p"), 0,
                 TextElements(path + "FaultyElements.so"),
                 "kelhost: warning: the plug-in " + path +
                     "NoEntryPoint.so has no entry point RegisterAll: " + path +
                     "NoEntryPoint.so: undefined symbol: RegisterAll\n"
                     "kelhost: warning: the plug-in " +
                     path +
                     "ThrowsError.so failed in RegisterAll: the licence\\nis missing\n"
                     "kelhost: warning: the plug-in " +
                     path +
                     "ThrowsNumber.so failed in RegisterAll with an exception of an unknown type\n"
                     "kelhost: warning: the plug-in " +
                     path + "UndefinedSymbol.so cannot be loaded: " + path +
                     "UndefinedSymbol.so: undefined symbol: kelSymbolThatNobodyHas\n"
                     "kelhost: warning: the plug-in " +
                     path + "Z.so cannot be loaded: " + path + "Z.so: file too short\n");
}

TEST(PluginSearch, FailsWhenNoPluginCanBeLoaded) {
    const TemporaryDirectory directory;
    fs::create_directory(directory / "p");
    WriteFile(directory / "p/libkelZ.so", "short\n");
    const std::string path = directory / "p/libkelZ.so";
    ExpectResult(InspectWith(directory, directory / "p"), 1, "",
                 "kelhost: warning: the plug-in " + path + " cannot be loaded: " + path +
                     ": file too short\n" + "kelhost: no plug-in was found in " +
                     (directory / "p") + kHint);
}

TEST(PluginSearch, TakesTheFileThatIsNamedInsteadOfAllDirectories) {
    const TemporaryDirectory directory;
    AddPlugin(directory, "p", "kelThrowsNumber");
    fs::create_symlink(TestPlugin("kelFaultyElements"), directory / "named");
    for (const std::string& name :
         {std::string("named"), std::string("./named"), directory / "named"}) {
        Command command = Kelhost(directory, {"--plugin", name, "inspect"});
        command.environment["KEL_PLUGIN_PATH"] = directory / "p";
        const std::string shown = name == "./named" ? directory / "./named" : directory / "named";
        ExpectResult(RunCommand(command), 0, TextElements(shown), "");
    }
}

TEST(PluginSearch, TakesSeveralFilesThatAreNamedAndTheFirstElementOfAFormatIsUsed) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", "1000 2 48000\n");
    const std::string texts = TestPlugin("kelFaultyElements");
    const auto status = [&](const std::string& first, const std::string& second,
                            const std::string& file) {
        return RunKelhost(directory, {"--plugin", first, "info", file, "--plugin", second}).status;
    };
    EXPECT_EQ(status(KEL_TEST_PLUGIN, texts, "take.wav"), 0);
    EXPECT_EQ(status(KEL_TEST_PLUGIN, texts, "text.wav"), 1);
    EXPECT_EQ(status(texts, KEL_TEST_PLUGIN, "take.wav"), 1);
    EXPECT_EQ(status(texts, KEL_TEST_PLUGIN, "text.wav"), 0);
}

TEST(PluginSearch, FailsWhenTheFileThatIsNamedIsNoPlugin) {
    const TemporaryDirectory directory;
    WriteFile(directory / "text.so", "short\n");
    struct Row {
        std::string file;
        std::string error;
    };
    const std::string missing = directory / "missing.so";
    const std::string text = directory / "text.so";
    const std::string undefined = TestPlugin("kelUndefinedSymbol");
    const std::vector<Row> rows{
        {"missing.so", missing + " cannot be loaded: " + missing +
                           ": cannot open shared object file: No such file or directory"},
        {"text.so", text + " cannot be loaded: " + text + ": file too short"},
        {TestPlugin("kelNoEntryPoint"),
         TestPlugin("kelNoEntryPoint") + " has no entry point RegisterAll: " +
             TestPlugin("kelNoEntryPoint") + ": undefined symbol: RegisterAll"},
        {TestPlugin("kelThrowsError"),
         TestPlugin("kelThrowsError") + " failed in RegisterAll: the licence\\nis missing"},
        {TestPlugin("kelThrowsNumber"),
         TestPlugin("kelThrowsNumber") +
             " failed in RegisterAll with an exception of an unknown type"},
        {undefined, undefined + " cannot be loaded: " + undefined +
                        ": undefined symbol: kelSymbolThatNobodyHas"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        ExpectResult(RunKelhost(directory, {"--plugin", row.file, "inspect"}), 1, "",
                     "kelhost: the plug-in " + row.error + "\n");
    }
}

TEST(PluginSearch, FailsWhenTheFileThatIsNamedIsDamaged) {
    const TemporaryDirectory directory;
    const std::string whole = Content(ProgramRoot() / "lib/kel/libkelLibsndfile.so");
    const auto withByte = [&whole](std::size_t place, char byte) {
        std::string bytes = whole;
        bytes.at(place) = byte;
        return bytes;
    };
    struct Row {
        std::string bytes;
        std::string error;
    };
    const std::string path = directory / "damaged.so";
    const std::vector<Row> rows{
        {"", path + ": file too short"},
        {whole.substr(0, 3), path + ": file too short"},
        {whole.substr(0, 63), path + ": file too short"},
        {whole.substr(0, 1000), "it was cut off after 1000 bytes"},
        {whole.substr(0, 20000), "it was cut off after 20000 bytes"},
        {whole.substr(0, whole.size() / 2),
         "it was cut off after " + std::to_string(whole.size() / 2) + " bytes"},
        {withByte(0, 'x'), path + ": invalid ELF header"},
        {withByte(4, 1), path + ": wrong ELF class: ELFCLASS32"},
        {withByte(5, 2), path + ": ELF file data encoding not little-endian"},
        {withByte(16, 2), path + ": cannot dynamically load executable"},
        {withByte(18, 8), "it is for another processor"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        WriteFile(path, row.bytes);
        ExpectResult(RunKelhost(directory, {"--plugin", "damaged.so", "inspect"}), 1, "",
                     "kelhost: the plug-in " + path + " cannot be loaded: " + row.error + "\n");
    }
}

TEST(PluginSearch, WarnsOfAPluginThatWasCutOffAndGoesOn) {
    const TemporaryDirectory directory;
    AddPlugin(directory, "p", "kelFaultyElements");
    const std::string cut = directory / "p/libkelCut.so";
    WriteFile(cut, Content(ProgramRoot() / "lib/kel/libkelLibsndfile.so").substr(0, 20000));
    ExpectResult(InspectWith(directory, directory / "p"), 0,
                 TextElements(directory / "p/libkelFaultyElements.so"),
                 "kelhost: warning: the plug-in " + cut +
                     " cannot be loaded: it was cut off after 20000 bytes\n");
}

TEST(PluginSearch, RefusesAnEmptyNameAsAWrongCommandLine) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"--plugin", "", "inspect"}), 2, "",
                 "kelhost: --plugin needs the name of a file, and is empty\n");
}

TEST(PluginSearch, FailsWhenNoPluginOffersTheFormat) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    // A library with an entry point that registers nothing.
    ExpectResult(
        RunKelhost(directory, {"--plugin", TestPlugin("kelNoElements"), "info", "take.wav"}), 1, "",
        "kelhost: no plug-in offers an AudioSource for WAVE; see kelhost inspect\n");
    ExpectResult(RunKelhost(directory, {"--plugin", TestPlugin("kelNoElements"), "copy", "take.wav",
                                        "copy.wav"}),
                 1, "",
                 "kelhost: no plug-in offers an AudioSource for WAVE; see kelhost inspect\n");
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

} // namespace kel::test
