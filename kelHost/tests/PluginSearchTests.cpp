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

constexpr const char* kHint = "; name one with --plugin FILE or its folder in KEL_PLUGIN_PATH\n";

fs::path ProgramRoot() {
    return fs::path(KEL_TEST_HOST).parent_path().parent_path();
}

// Makes a folder with a plug-in of the tests in it.
void AddPlugin(const TemporaryFolder& folder, const std::string& name, const std::string& plugin) {
    fs::create_directories(folder / name);
    fs::create_symlink(TestPlugin(plugin), folder / (name + "/lib" + plugin + ".so"));
}

ProcessResult InspectWith(const TemporaryFolder& folder, const std::string& searchPath) {
    Command command = Kelhost(folder, {"inspect"});
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
std::string ProgramElsewhere(const TemporaryFolder& folder, const std::string& plugin) {
    std::string program = folder / "bin/kelhost";
    fs::create_directory(folder / "bin");
    fs::copy_file(KEL_TEST_HOST_ELSEWHERE, program);
    if (!plugin.empty()) {
        fs::create_directory(folder / "lib");
        AddPlugin(folder, "lib/kel", plugin);
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

TEST(PluginSearch, FindsThePluginBesideTheProgramFromAnyFolder) {
    const TemporaryFolder folder;
    WriteTake(folder / "take.wav");
    EXPECT_EQ(RunKelhost(folder, {"info", "take.wav"}).status, 0);
    Command command = Kelhost(folder, {"info", "take.wav"});
    command.environment["KEL_PLUGIN_PATH"] = "";
    EXPECT_EQ(RunCommand(command).status, 0) << "an empty variable is none";
}

TEST(PluginSearch, LooksBesideTheProgramItselfAndNotBesideALinkToIt) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "bin");
    fs::create_symlink(KEL_TEST_HOST, folder / "bin/kelhost");
    Command command = Kelhost(folder, {"inspect"});
    command.program = folder / "bin/kelhost";
    EXPECT_EQ(RunCommand(command).status, 0);
}

TEST(PluginSearch, NamesThePlaceBesideTheProgramWhenNothingIsThere) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "bin");
    fs::create_directory(folder / "lib");
    fs::copy_file(KEL_TEST_HOST, folder / "bin/kelhost");
    for (const auto& entry : fs::directory_iterator(ProgramRoot() / "lib")) {
        if (entry.path().filename().string().rfind("libkelCore", 0) == 0) {
            fs::create_symlink(entry.path(), folder / ("lib/" + entry.path().filename().string()));
        }
    }
    Command command = Kelhost(folder, {"inspect"});
    command.program = folder / "bin/kelhost";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: no plug-in was found in " + (folder / "lib/kel") + kHint);

    fs::create_directory(folder / "lib/kel");
    fs::create_symlink(TestPlugin("kelFaultyElements"), folder / "lib/kel/libkelText.so");
    ExpectResult(RunCommand(command), 0, TextElements(folder / "lib/kel/libkelText.so"), "");
}

TEST(PluginSearch, FindsThePluginBesideTheCoreWhenNoneIsBesideTheProgram) {
    const TemporaryFolder folder;
    Command command = Kelhost(folder, {"inspect"});
    command.program = ProgramElsewhere(folder, "");
    ExpectResult(RunCommand(command), 0, RunKelhost(folder, {"inspect"}).out, "");
}

TEST(PluginSearch, PrefersThePluginBesideTheProgramToThatBesideTheCore) {
    const TemporaryFolder folder;
    Command command = Kelhost(folder, {"inspect"});
    command.program = ProgramElsewhere(folder, "kelFaultyElements");
    ExpectResult(RunCommand(command), 0, TextElements(folder / "lib/kel/libkelFaultyElements.so"),
                 "");
}

TEST(PluginSearch, NamesBothPlacesWhenNothingIsThere) {
    const TemporaryFolder folder;
    fs::create_directories(folder / "a/bin");
    fs::create_directories(folder / "b");
    fs::copy_file(KEL_TEST_HOST, folder / "a/bin/kelhost");
    for (const auto& entry : fs::directory_iterator(ProgramRoot() / "lib")) {
        if (entry.path().filename().string().rfind("libkelCore", 0) == 0) {
            fs::create_symlink(entry.path(), folder / ("b/" + entry.path().filename().string()));
        }
    }
    Command command = Kelhost(folder, {"inspect"});
    command.program = folder / "a/bin/kelhost";
    command.environment["LD_LIBRARY_PATH"] = folder / "b";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: no plug-in was found in " + (folder / "a/lib/kel") + ", " +
                     (folder / "b/kel") + kHint);
}

// Whoever starts a program that has more rights must not choose what it loads.
TEST(PluginSearch, DoesNotLookAtTheVariableWithRaisedRights) {
    const TemporaryFolder folder;
    AddPlugin(folder, "p", "kelFaultyElements");
    const std::string withoutVariable = RunKelhost(folder, {"inspect"}).out;
    ExpectResult(InspectWith(folder, folder / "p"), 0,
                 TextElements(folder / "p/libkelFaultyElements.so"), "");

    // As far as the C library tells the program, which is so for every user and everywhere.
    Command command = Kelhost(folder, {"inspect"});
    command.environment["KEL_PLUGIN_PATH"] = folder / "p";
    DisturbSystem(command);
    command.environment["KEL_TEST_RAISED_RIGHTS"] = "1";
    ExpectResult(RunCommand(command), 0, withoutVariable, "");

    // And in truth, where the user and the system can give them.
    Command raised = Kelhost(folder, {"inspect"});
    raised.program = ProgramElsewhere(folder, "");
    raised.environment["KEL_PLUGIN_PATH"] = folder / "p";
    const bool isRaised = RaiseRights(raised.program);
    ExpectResult(RunCommand(raised), 0,
                 isRaised ? withoutVariable : TextElements(folder / "p/libkelFaultyElements.so"),
                 "");
}

TEST(PluginSearch, GoesThroughSeveralFoldersAndTheFirstElementOfAFormatIsUsed) {
    const TemporaryFolder folder;
    AddPlugin(folder, "text", "kelFaultyElements");
    WriteTake(folder / "take.wav");
    WriteFile(folder / "text.wav", "1000 2 48000\n");
    const std::string real = ProgramRoot() / "lib/kel";

    Command command = Kelhost(folder, {"info", "text.wav"});
    command.environment["KEL_PLUGIN_PATH"] = "text:missing:" + real;
    EXPECT_EQ(RunCommand(command).status, 0);
    command.arguments = {"info", "take.wav"};
    EXPECT_EQ(RunCommand(command).status, 1);

    command.environment["KEL_PLUGIN_PATH"] = real + ":text";
    EXPECT_EQ(RunCommand(command).status, 0);
    command.arguments = {"info", "text.wav"};
    EXPECT_EQ(RunCommand(command).status, 1);
}

TEST(PluginSearch, NamesTheFoldersWithoutPlugins) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "empty");
    fs::create_directory(folder / "two\nlines");
    WriteFile(folder / "file", "");
    ExpectResult(InspectWith(folder, "empty:missing:file:two\nlines"), 1, "",
                 "kelhost: no plug-in was found in empty, missing, file, two\\nlines" +
                     std::string(kHint));
}

TEST(PluginSearch, NeverLooksIntoTheCurrentFolderForAnEmptyEntry) {
    const TemporaryFolder folder;
    fs::create_symlink(TestPlugin("kelFaultyElements"), folder / "libkelHere.so");
    fs::create_directory(folder / "empty");
    for (const char* searchPath : {":empty", "empty:", "::empty::"}) {
        ExpectResult(InspectWith(folder, searchPath), 1, "",
                     "kelhost: no plug-in was found in empty" + std::string(kHint));
    }
    for (const char* searchPath : {":", "::"}) {
        ExpectResult(InspectWith(folder, searchPath), 1, "",
                     "kelhost: KEL_PLUGIN_PATH is \"" + std::string(searchPath) +
                         "\" and names no folder; name those of the plug-ins, or unset it\n");
    }
    ExpectResult(InspectWith(folder, "."), 0, TextElements(folder / "./libkelHere.so"), "");
}

TEST(PluginSearch, WarnsOfPluginsThatCanNotBeLoadedAndGoesOn) {
    const TemporaryFolder folder;
    AddPlugin(folder, "p", "kelFaultyElements");
    AddPlugin(folder, "p", "kelNoEntryPoint");
    AddPlugin(folder, "p", "kelThrowsError");
    AddPlugin(folder, "p", "kelThrowsNumber");
    AddPlugin(folder, "p", "kelUndefinedSymbol");
    WriteFile(folder / "p/libkelZ.so", "short\n");
    const std::string path = folder / "p/libkel";
    ExpectResult(InspectWith(folder, folder / "p"), 0, TextElements(path + "FaultyElements.so"),
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
                     path + "UndefinedSymbol.so can not be loaded: " + path +
                     "UndefinedSymbol.so: undefined symbol: kelSymbolThatNobodyHas\n"
                     "kelhost: warning: the plug-in " +
                     path + "Z.so can not be loaded: " + path + "Z.so: file too short\n");
}

TEST(PluginSearch, FailsWhenNoPluginCanBeLoaded) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "p");
    WriteFile(folder / "p/libkelZ.so", "short\n");
    const std::string path = folder / "p/libkelZ.so";
    ExpectResult(InspectWith(folder, folder / "p"), 1, "",
                 "kelhost: warning: the plug-in " + path + " can not be loaded: " + path +
                     ": file too short\n" + "kelhost: no plug-in was found in " + (folder / "p") +
                     kHint);
}

TEST(PluginSearch, TakesTheFileThatIsNamedInsteadOfAllFolders) {
    const TemporaryFolder folder;
    AddPlugin(folder, "p", "kelThrowsNumber");
    fs::create_symlink(TestPlugin("kelFaultyElements"), folder / "named");
    for (const std::string& name :
         {std::string("named"), std::string("./named"), folder / "named"}) {
        Command command = Kelhost(folder, {"--plugin", name, "inspect"});
        command.environment["KEL_PLUGIN_PATH"] = folder / "p";
        const std::string shown = name == "./named" ? folder / "./named" : folder / "named";
        ExpectResult(RunCommand(command), 0, TextElements(shown), "");
    }
}

TEST(PluginSearch, TakesSeveralFilesThatAreNamedAndTheFirstElementOfAFormatIsUsed) {
    const TemporaryFolder folder;
    WriteTake(folder / "take.wav");
    WriteFile(folder / "text.wav", "1000 2 48000\n");
    const std::string texts = TestPlugin("kelFaultyElements");
    const auto status = [&](const std::string& first, const std::string& second,
                            const std::string& file) {
        return RunKelhost(folder, {"--plugin", first, "info", file, "--plugin", second}).status;
    };
    EXPECT_EQ(status(KEL_TEST_PLUGIN, texts, "take.wav"), 0);
    EXPECT_EQ(status(KEL_TEST_PLUGIN, texts, "text.wav"), 1);
    EXPECT_EQ(status(texts, KEL_TEST_PLUGIN, "take.wav"), 1);
    EXPECT_EQ(status(texts, KEL_TEST_PLUGIN, "text.wav"), 0);
}

TEST(PluginSearch, FailsWhenTheFileThatIsNamedIsNoPlugin) {
    const TemporaryFolder folder;
    WriteFile(folder / "text.so", "short\n");
    struct Row {
        std::string file;
        std::string error;
    };
    const std::string missing = folder / "missing.so";
    const std::string text = folder / "text.so";
    const std::string undefined = TestPlugin("kelUndefinedSymbol");
    const std::vector<Row> rows{
        {"missing.so", missing + " can not be loaded: " + missing +
                           ": cannot open shared object file: No such file or directory"},
        {"text.so", text + " can not be loaded: " + text + ": file too short"},
        {TestPlugin("kelNoEntryPoint"),
         TestPlugin("kelNoEntryPoint") + " has no entry point RegisterAll: " +
             TestPlugin("kelNoEntryPoint") + ": undefined symbol: RegisterAll"},
        {TestPlugin("kelThrowsError"),
         TestPlugin("kelThrowsError") + " failed in RegisterAll: the licence\\nis missing"},
        {TestPlugin("kelThrowsNumber"),
         TestPlugin("kelThrowsNumber") +
             " failed in RegisterAll with an exception of an unknown type"},
        {undefined, undefined + " can not be loaded: " + undefined +
                        ": undefined symbol: kelSymbolThatNobodyHas"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        ExpectResult(RunKelhost(folder, {"--plugin", row.file, "inspect"}), 1, "",
                     "kelhost: the plug-in " + row.error + "\n");
    }
}

TEST(PluginSearch, FailsWhenTheFileThatIsNamedIsDamaged) {
    const TemporaryFolder folder;
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
    const std::string path = folder / "damaged.so";
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
        ExpectResult(RunKelhost(folder, {"--plugin", "damaged.so", "inspect"}), 1, "",
                     "kelhost: the plug-in " + path + " can not be loaded: " + row.error + "\n");
    }
}

TEST(PluginSearch, WarnsOfAPluginThatWasCutOffAndGoesOn) {
    const TemporaryFolder folder;
    AddPlugin(folder, "p", "kelFaultyElements");
    const std::string cut = folder / "p/libkelCut.so";
    WriteFile(cut, Content(ProgramRoot() / "lib/kel/libkelLibsndfile.so").substr(0, 20000));
    ExpectResult(InspectWith(folder, folder / "p"), 0,
                 TextElements(folder / "p/libkelFaultyElements.so"),
                 "kelhost: warning: the plug-in " + cut +
                     " can not be loaded: it was cut off after 20000 bytes\n");
}

TEST(PluginSearch, RefusesAnEmptyNameAsAWrongCommandLine) {
    const TemporaryFolder folder;
    ExpectResult(RunKelhost(folder, {"--plugin", "", "inspect"}), 2, "",
                 "kelhost: --plugin needs the name of a file, and is empty\n");
}

TEST(PluginSearch, FailsWhenNoPluginOffersTheFormat) {
    const TemporaryFolder folder;
    WriteTake(folder / "take.wav");
    // A library with an entry point that registers nothing.
    ExpectResult(RunKelhost(folder, {"--plugin", TestPlugin("kelNoElements"), "info", "take.wav"}),
                 1, "",
                 "kelhost: no plug-in offers an AudioSource for WAVE; see kelhost inspect\n");
    ExpectResult(RunKelhost(folder, {"--plugin", TestPlugin("kelNoElements"), "copy", "take.wav",
                                     "copy.wav"}),
                 1, "",
                 "kelhost: no plug-in offers an AudioSource for WAVE; see kelhost inspect\n");
    EXPECT_EQ(SortedNames(folder), Names{"take.wav"});
}

} // namespace kel::test
