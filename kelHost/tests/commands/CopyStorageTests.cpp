// Copies onto storage that fails in its own ways.

#include "AudioFiles.h"
#include "Program.h"

#include <FaultyFileSystem.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace kel::test {

namespace {

// The frames of a file whose samples fill several blocks of the file system.
constexpr std::size_t kFrames = 40001;

// Copies onto a file system with faults.
ProcessResult CopyOnto(const FaultyFileSystem& fileSystem, const Arguments& options = {},
                       std::size_t frames = kFrames) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", frames);
    return RunKelhost(directory, Arguments{"copy", "take.wav", fileSystem / "out.wav"} + options);
}

// The output of a copy that succeeds, verified or not.
std::string Report(const FaultyFileSystem& fileSystem, bool isVerified) {
    const std::string report =
        CopyReport("take.wav", fileSystem / "out.wav", "extensible WAVE, int16 little-endian",
                   "40001 frames, 0:00:00.833");
    return isVerified ? report.substr(0, report.size() - 1) + ", verified\n" : report;
}

} // namespace

TEST(CopyOntoLateStorage, IsReadBackByDefault) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    const FaultyFileSystem fileSystem;
    ExpectResult(CopyOnto(fileSystem), 0, Report(fileSystem, true), "");
    EXPECT_EQ(SortedNames(fileSystem.Files()), Names{"out.wav"});
}

TEST(CopyOntoLateStorage, FailsWhenDataAreLostWithoutAnError) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    // The kernel has the right bytes in memory. It collects writes of up to 1 MiB, so that this one
    // does not include the header.
    constexpr std::size_t kManyFrames = 500000;
    for (const char* effect : {"lose", "flip"}) {
        const FaultyFileSystem fileSystem({"--write-back", "--keep-cache",
                                           std::string("write,offset=2000000,count=1,") + effect});
        ExpectResult(CopyOnto(fileSystem, {}, kManyFrames), 1, "",
                     Error(fileSystem / "out.wav", "differs from the written samples when it is "
                                                   "read back; do not trust this disk"));
        EXPECT_EQ(SortedNames(fileSystem.Files()), Names{});
    }
}

TEST(CopyOntoLateStorage, IsNotReadBackOnRequest) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    const FaultyFileSystem fileSystem({"write,offset=100000,count=1,flip"});
    ExpectResult(CopyOnto(fileSystem, {"--no-verify"}), 0, Report(fileSystem, false), "");
    EXPECT_EQ(fileSystem.Failures().size(), 1U);
}

TEST(CopyOntoLateStorage, FailsWhenClosingReportsLostData) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    const FaultyFileSystem fileSystem({"write,offset=100000,lose", "flush,error=5"});
    ExpectResult(CopyOnto(fileSystem, {"--no-verify"}), 1, "",
                 Error(fileSystem / "out.wav", "cannot close the file: Input/output error"));
    EXPECT_EQ(SortedNames(fileSystem.Files()), Names{});
}

TEST(CopyOntoLateStorage, FailsWhenFlushingReportsLostData) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    const FaultyFileSystem fileSystem({"--write-back", "write,error=28"});
    ExpectResult(
        CopyOnto(fileSystem, {"--no-verify"}), 1, "",
        Error(fileSystem / "out.wav", "cannot flush the file to disk: No space left on device"));
    EXPECT_EQ(SortedNames(fileSystem.Files()), Names{});
}

TEST(CopyOntoStorage, WarnsWhereItCannotBeFlushed) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    const FaultyFileSystem fileSystem({"fsync,error=95"});
    ExpectResult(CopyOnto(fileSystem), 0, Report(fileSystem, true),
                 "kelhost: warning: " + fileSystem / "out.wav" +
                     ": cannot flush the file to disk: Operation not supported; a power failure "
                     "may lose it\n");
}

TEST(CopyOntoStorage, ThatReportsNoSpaceAtAllIsMade) {
    KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM();
    const FaultyFileSystem fileSystem({"statfs,zero"});
    EXPECT_EQ(CopyOnto(fileSystem).status, 0);
}

// Without /proc, the path of a file leads through names that others can change. The loader needs
// /proc for libraries at a place relative to the program.
TEST(CopyWithoutProc, IsMadeWhereOthersCannotChangeTheDirectory) {
#ifdef KEL_TEST_NEEDS_PROC
    GTEST_SKIP() << "an instrumented program does not run without /proc";
#endif
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    std::filesystem::create_directory(directory / "open");
    std::filesystem::permissions(directory / "open", std::filesystem::perms::all);
    const auto run = [&](const std::string& output) {
        Command command =
            Kelhost(directory, {"--plugin", KEL_TEST_PLUGIN, "copy", "take.wav", output});
        command.arguments.insert(command.arguments.begin(),
                                 {"--mount", "sh", "-c",
                                  "mount -t tmpfs tmpfs /proc && exec \"$0\" \"$@\"",
                                  KEL_TEST_HOST_ELSEWHERE});
        command.program = "/usr/bin/unshare";
        return RunCommand(command);
    };
    const ProcessResult result = run("own.wav");
    if (result.err.find("unshare") == 0 || result.err.find("mount") == 0) {
        GTEST_SKIP() << result.err;
    }
    ExpectResult(result, 0, CopyReport("take.wav", "own.wav"), "");
    ExpectResult(run("open/out.wav"), 1, "",
                 Error("open/out.wav", "cannot create the file safely: other users can change "
                                       "its directory, and /proc is not mounted"));
    EXPECT_EQ(SortedNames(directory / "open"), Names{});
}

} // namespace kel::test
