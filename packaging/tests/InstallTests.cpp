#include <AudioFiles.h>
#include <Binary.h>
#include <Process.h>
#include <TemporaryDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

const std::string kPrefix = KEL_TEST_PREFIX;

// All files and links below a directory, as paths from it.
std::vector<std::string> FilesBelow(const fs::path& directory) {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        if (!entry.is_directory() || entry.is_symlink()) {
            files.push_back(entry.path().lexically_relative(directory).string());
        }
    }
    return files;
}

ProcessResult RunInstalled(const TemporaryDirectory& directory,
                           std::vector<std::string> arguments) {
    Command command;
    command.program = kPrefix + "/bin/kelhost";
    command.arguments = std::move(arguments);
    command.directory = directory.Path();
    command.environment["KEL_PLUGIN_PATH"] = std::nullopt;
    return RunCommand(command);
}

std::string PkgConfig(const std::string& question) {
    Command command;
    command.program = KEL_TEST_PKG_CONFIG;
    command.arguments = {question, "kelCore"};
    command.environment["PKG_CONFIG_PATH"] = kPrefix + "/lib/pkgconfig";
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0) << result.err;
    // The output ends with a blank or a newline, or both.
    return result.out.substr(0, result.out.find_last_not_of(" \n") + 1);
}

} // namespace

TEST(TheInstallation, HasTheseFilesAndNoOthers) {
    std::vector<std::string> expected{
        "bin/kelCopy",
        "bin/kelhost",
        "lib/cmake/kelCore/kelCoreConfig-" KEL_TEST_BUILD_TYPE ".cmake",
        "lib/cmake/kelCore/kelCoreConfig.cmake",
        "lib/cmake/kelCore/kelCoreConfigVersion.cmake",
        "lib/kel/libkelLibsndfile.so",
        "lib/kel/libkelTone.so",
        "lib/libkelCore.so",
        "lib/libkelCore.so.0",
        "lib/libkelCore.so." KEL_TEST_VERSION,
        "lib/pkgconfig/kelCore.pc",
        "share/bash-completion/completions/kelhost",
        "share/fish/vendor_completions.d/kelhost.fish",
        "share/man/man1/kelhost.1.gz",
        "share/zsh/site-functions/_kelhost",
    };
    for (const std::string& header : FilesBelow(KEL_TEST_SOURCES "/kelCore/include")) {
        expected.push_back("include/kelCore/" + header);
    }
    EXPECT_THAT(FilesBelow(kPrefix), UnorderedElementsAreArray(expected));
}

TEST(TheInstallation, RunsWhereItWasMoved) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    const ProcessResult copied = RunInstalled(directory, {"copy", "take.wav", "copy.aiff"});
    EXPECT_EQ(copied.status, 0) << copied.err;
    EXPECT_EQ(ReadAudio(directory / "copy.aiff").values, ReadAudio(directory / "take.wav").values);
}

TEST(TheInstallation, FindsAllPluginsBesideIt) {
    const TemporaryDirectory directory;
    const ProcessResult result = RunInstalled(directory, {"inspect"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string sndfile = kPrefix + "/lib/kel/libkelLibsndfile.so\n";
    const std::string tone = kPrefix + "/lib/kel/libkelTone.so\n";
    EXPECT_EQ(
        result.out,
        "Implementation          Kind                  Types                            "
        "Registered by\n"
        "kel                     MemoryBlockAllocator  Recycler                         "
        "kelCore\n"
        "kel.LibsndfileSource    AudioSource           AIFF, WAVE, BWAVE                " +
            sndfile +
            "kel.LibsndfileSink      AudioSink             Unknown, AIFF, WAVE, BWAVE, RAW  " +
            sndfile +
            "example.ToneSource      AudioSource           Unknown                          " +
            tone +
            "example.LevelMeterSink  AudioSink             Unknown                          " +
            tone +
            "example.NullSink        AudioSink             Unknown                          " +
            tone +
            "example.ChecksumSink    AudioSink             Unknown                          " +
            tone);
}

TEST(TheInstallation, KnowsNoDirectoryOfTheBuild) {
    for (const std::string& file : FilesBelow(kPrefix)) {
        // The examples are built with a user's settings.
        if (file != "bin/kelCopy" && file != "lib/kel/libkelTone.so") {
            EXPECT_EQ(ReadFile(kPrefix + "/" + file).find(KEL_TEST_SOURCES), std::string::npos)
                << file;
        }
    }
}

TEST(TheInstallation, LooksForItsLibrariesBesideItAlone) {
    EXPECT_THAT(Binary(kPrefix + "/bin/kelhost").RunPath(), ElementsAre("$ORIGIN/../lib"));
    EXPECT_THAT(Binary(kPrefix + "/lib/kel/libkelLibsndfile.so").RunPath(),
                ElementsAre("$ORIGIN/.."));
    EXPECT_THAT(Binary(kPrefix + "/lib/libkelCore.so").RunPath(), IsEmpty());
}

TEST(TheInstallation, TellsPkgConfigWhereItIs) {
    const std::string prefix = kPrefix + "/lib/pkgconfig/../..";
    EXPECT_EQ(PkgConfig("--modversion"), KEL_TEST_VERSION);
    EXPECT_EQ(PkgConfig("--cflags"), "-I" + prefix + "/include/kelCore");
    EXPECT_EQ(PkgConfig("--libs"), "-L" + prefix + "/lib -lkelCore");
    EXPECT_EQ(PkgConfig("--variable=pluginsdir"), prefix + "/lib/kel");
}

// Beside the place of the headers and the language that they are written in, a consumer gets
// nothing: no warnings, no definitions.
TEST(TheInstallation, LeavesTheSettingsOfCMakeProjectsAloneAndIsFoundByItsMajorVersion) {
    const TemporaryDirectory directory;
    Command command;
    command.program = KEL_TEST_CMAKE;
    command.arguments = {"-S", KEL_TEST_CONSUMER, "-B", directory.Path(),
                         "-DCMAKE_PREFIX_PATH=" + kPrefix};
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.substr(0, result.out.find("-- Configuring done")),
              "-- 0.0: 1\n"
              "-- 0.1: 1\n"
              "-- 0.2: 0\n"
              "-- 1.0: 0\n"
              "-- version " KEL_TEST_VERSION "\n"
              "-- COMPILE_FEATURES cxx_std_17\n"
              "-- INCLUDE_DIRECTORIES " +
                  kPrefix + "/include/kelCore\n");
}

} // namespace kel::test
