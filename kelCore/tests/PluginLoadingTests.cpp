#include <PluginLoading.h>

#include "RaisedRights.h"
#include "TestPlugins.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <utility>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// The directories of the tests must not be writable by others, whatever the user's umask.
[[maybe_unused]] const mode_t kOwnFilesMask = umask(022);

using Names = std::vector<std::string>;

// An error of loading, in parts.
struct LoadingError {
    std::string text;
    std::string path;
    std::string symbol;
    std::string cause;
};

LoadingError ErrorOf(const PluginFile& file) {
    try {
        const LoadedPlugin plugin = LoadPlugin(file);
    } catch (const PluginError& error) {
        EXPECT_EQ(error.what(), error.Path() + ": " + error.Problem());
        return {error.what(), error.Path(), error.Symbol(), error.Cause()};
    }
    return {"it was loaded", "", "", ""};
}

void ExpectError(const std::string& file, const std::string& problem, const std::string& symbol,
                 const std::string& cause) {
    const LoadingError error = ErrorOf({file});
    EXPECT_EQ(error.text, file + ": " + problem + cause);
    EXPECT_EQ(error.path, file);
    EXPECT_EQ(error.symbol, symbol);
    EXPECT_EQ(error.cause, cause);
    EXPECT_EQ(RegisteredNames(), Names{"kelCore"});
    std::error_code unknown;
    if (fs::is_regular_file(fs::status(file, unknown))) { // the loader would open a pipe
        EXPECT_EQ(dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << file;
    }
}

} // namespace

TEST(LoadPlugin, RegistersUnderTheAbsolutePathForAsLongAsTheOwnerLives) {
    const TemporaryDirectory directory;
    const std::string path = LinkPlugin("kelSmall", directory / "plugin.so");
    const fs::path former = fs::current_path();
    fs::current_path(directory.Path());
    {
        const LoadedPlugin plugin = LoadPlugin("plugin.so");
        EXPECT_EQ(plugin.Path(), path);
        EXPECT_EQ(RegisteredNames(), (Names{"kelCore", path}));
    }
    fs::current_path(former);
    EXPECT_EQ(RegisteredNames(), Names{"kelCore"});
    EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST(LoadPlugin, ReturnsAnOwnerThatCanBeMovedAndLoadsAgainAfterwards) {
    const TemporaryDirectory directory;
    const std::string path = LinkPlugin("kelSmall", directory / "plugin.so");
    for (int round = 0; round < 2; ++round) {
        std::optional<LoadedPlugin> first = LoadPlugin(path);
        const LoadedPlugin second(std::move(*first));
        first.reset();
        EXPECT_EQ(second.Path(), path);
        EXPECT_EQ(RegisteredNames(), (Names{"kelCore", path}));
    }
    EXPECT_EQ(RegisteredNames(), Names{"kelCore"});
}

TEST(LoadPlugin, RefusesAFileThatIsLoadedAlready) {
    const std::string path = TestPlugin("kelSmall");
    const LoadedPlugin plugin = LoadPlugin(path);
    EXPECT_EQ(ErrorOf({path}).text, path + ": cannot load the plug-in: it is loaded already");
    EXPECT_EQ(RegisteredNames(), (Names{"kelCore", path}));
}

TEST(LoadPlugin, RefusesFilesWithTheReason) {
    const TemporaryDirectory directory;
    const std::string load = "cannot load the plug-in: ";
    const std::string notOpened = ": cannot open shared object file: ";
    const std::string missing = directory / "missing.so";
    ExpectError(missing, load, "", missing + notOpened + "No such file or directory");
    const std::string loop = directory / "loop.so";
    fs::create_symlink("loop.so", loop);
    ExpectError(loop, load, "", loop + notOpened + "Too many levels of symbolic links");
    const std::string text = directory / "text.so";
    WriteFile(text, std::string(100, 'x') + "\n");
    ExpectError(text, load, "", text + ": invalid ELF header");
    WriteFile(text, "short\n");
    ExpectError(text, load, "", text + ": file too short");
    ExpectError(directory.Path(), load, "", "it is a directory; name a file in it");
    const std::string pipe = directory / "pipe.so";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ExpectError(pipe, load, "", "it is a named pipe");
    ExpectError("/dev/null", load, "", "it is a device or a socket");
    const std::string shared = directory / "shared.so";
    fs::copy_file(TestPlugin("kelSmall"), shared);
    fs::permissions(shared, fs::perms::others_write, fs::perm_options::add);
    ExpectError(shared, load, "", "every user can change " + shared + "; use chmod o-w");
    const std::string undefined = TestPlugin("kelUndefinedSymbol");
    ExpectError(undefined, load, "", undefined + ": undefined symbol: kelSymbolThatIsMissing");
    EXPECT_EQ(ErrorOf({""}).text, "\"\": cannot load the plug-in: its path is empty");
}

TEST(LoadPlugin, RefusesLibrariesWithoutAnEntryPoint) {
    const std::string problem = "the plug-in has no entry point RegisterAll: ";
    const std::string library = TestPlugin("kelNoEntryPoint");
    ExpectError(library, problem, "RegisterAll", library + ": undefined symbol: RegisterAll");
    ExpectError(TestPlugin("kelEntryPointIsData"), problem, "RegisterAll",
                "its symbol of this name is not a function");
}

TEST(LoadPlugin, ReportsTheExceptionOfAnEntryPointAndRegistersNothing) {
    const TemporaryDirectory directory;
    ExpectError(LinkPlugin("kelSmall", directory / "throws-error.so"),
                "the plug-in failed in RegisterAll: ", "RegisterAll", "the licence is missing");
    ExpectError(LinkPlugin("kelSmall", directory / "throws-number.so"),
                "the plug-in failed in RegisterAll with an exception of an unknown type",
                "RegisterAll", "");
}

TEST(LoadPlugin, RefusesFilesWithWhichTheLoaderWouldEndTheProcessOrMislead) {
    const TemporaryDirectory directory;
    const std::string path = directory / "damaged.so";
    const std::string whole = ReadFile(KEL_TEST_PLUGIN);
    const auto expect = [&](const std::string& bytes, const std::string& cause) {
        WriteFile(path, bytes);
        ExpectError(path, "cannot load the plug-in: ", "", cause);
    };
    expect(whole.substr(0, 63), path + ": file too short");
    expect(whole.substr(0, 1000), "it was cut off after 1000 bytes");
    expect(whole.substr(0, whole.size() / 2),
           "it was cut off after " + std::to_string(whole.size() / 2) + " bytes");
    std::string otherProcessor = whole;
    otherProcessor.at(18) = 8;
    expect(otherProcessor, "it is for another processor");
}

TEST(LoadPlugin, LoadsOnlyInstalledPluginsWithRaisedRights) {
    const std::string path = TestPlugin("kelSmall");
    const RaisedRights raised;
    EXPECT_TRUE(HasRaisedRights());
    ExpectError(path, "cannot load the plug-in: ", "",
                "the program runs with raised rights (set-user-ID, set-group-ID or capabilities) "
                "and loads only installed plug-ins");
    EXPECT_EQ(LoadPlugin({path, PluginOrigin::Installed}).Path(), path);
}

} // namespace kel::test
