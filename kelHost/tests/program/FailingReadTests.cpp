// Inputs on file systems that cannot read a part of them.

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"

#include <FaultyFileSystem.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

const std::string kError = "error=" + std::to_string(EIO);
const std::string kCause = "cannot read its header: Input/output error";

class FailingRead : public testing::Test {
protected:
    void SetUp() override { KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM(); }

    // Expects that every command that reads the file reports the cause and leaves nothing.
    void ExpectFailure(const std::string& input, const std::string& cause) const {
        const Names before = SortedNames(m_directory);
        for (const Arguments& arguments :
             {Arguments{"copy", input, "out.wav"},
              Arguments{"run", "kel.LibsndfileSource:WAVE", "FilePath=" + input, "!",
                        "kel.LibsndfileSink", "FilePath=out.wav"},
              Arguments{"info", input}, Arguments{"info", "--measure", input},
              Arguments{"plot", input, "out.png"}}) {
            SCOPED_TRACE(arguments.front());
            ExpectResult(RunKelhost(m_directory, arguments), 1, "", Error(input, cause));
            EXPECT_EQ(SortedNames(m_directory), before);
        }
    }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(FailingRead, OfTheBeginningIsReported) {
    const FaultyFileSystem fileSystem({"read,path=take.wav," + kError});
    WriteTake(fileSystem.Files() / "take.wav");
    ExpectFailure(fileSystem / "take.wav", kCause);
}

TEST_F(FailingRead, OfTheBeginningIsReportedAlsoWhenLaterReadsSucceed) {
    const FaultyFileSystem fileSystem({"--direct", "read,path=take.wav,count=1," + kError});
    WriteTake(fileSystem.Files() / "take.wav");
    const std::string input = fileSystem / "take.wav";
    ExpectResult(RunKelhost(m_directory, {"copy", input, "out.wav"}), 1, "", Error(input, kCause));
    ExpectResult(RunKelhost(m_directory, {"copy", input, "out.wav"}), 0,
                 CopyReport(input, "out.wav"), "");
}

// After the part that is read of every file.
TEST_F(FailingRead, OfALateChunkIsReported) {
    constexpr std::size_t kBytes = 300000;
    const FaultyFileSystem fileSystem(
        {"--direct", "read,path=take.wav,offset=100000,count=1," + kError});
    WriteTake(m_directory / "short.wav", 100);
    std::string bytes = ReadFile(m_directory / "short.wav");
    constexpr std::size_t kSecondChunk = 36;
    bytes.insert(kSecondChunk, Chunk("JUNK", std::string(kBytes, 'x')) +
                                   Chunk("LIST", "INFO" + Chunk("INAM", std::string(kBytes, 'y'))));
    WriteFile(fileSystem.Files() / "take.wav", bytes);
    const std::string input = fileSystem / "take.wav";
    ExpectResult(RunKelhost(m_directory, {"info", "--field", "frames", input}), 1, "",
                 Error(input, kCause));
    ExpectResult(RunKelhost(m_directory, {"info", "--field", "frames", input}), 0, "100\n", "");
}

// Formats whose header the host does not know have parts of it at the end.
TEST_F(FailingRead, OfTheEndIsReported) {
    const FaultyFileSystem fileSystem({"read,path=take.flac,offset=100000," + kError});
    WriteAudio(fileSystem.Files() / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000,
               MakeValues(80000));
    ASSERT_GT(fs::file_size(fileSystem.Files() / "take.flac"), 100000U);
    ExpectFailure(fileSystem / "take.flac", kCause);
}

// The time limit for opening includes the time to read the header.
TEST_F(FailingRead, ThatDoesNotReturnEndsWithTheTimeLimit) {
    const FaultyFileSystem fileSystem({"read,path=take.wav,wait"});
    WriteTake(fileSystem.Files() / "take.wav");
    const std::string input = fileSystem / "take.wav";
    ExpectResult(RunKelhost(m_directory, {"copy", "--open-timeout", "1", input, "out.wav"}), 1, "",
                 Error(input,
                       "cannot open the file within 1 s; it is damaged, a pipe without a writer, "
                       "or on a mount that does not respond (--open-timeout SECONDS allows more)"));
    EXPECT_TRUE(fs::is_empty(m_directory.Path()));
}

namespace {

// The formats whose headers libsndfile reads number by number.
class HeaderRead : public testing::TestWithParam<int> {};

} // namespace

// By this name, libsndfile also opens a file whose header it does not know. Each read of an opening
// fails once. libsndfile takes zeros for what it cannot read; the output must be exact even so, or
// the copy fails.
TEST_P(HeaderRead, ThatFailsOnceGivesAnExactCopyOrNone) {
    const TemporaryDirectory directory;
    const TemporaryDirectory marker;
    constexpr std::size_t kFrames = 5000;
    WriteAudio(directory / "take.au", GetParam() | SF_FORMAT_PCM_16, 2, 48000,
               MakeValues(2 * kFrames));
    Command command = Kelhost(directory, {"copy", "take.au", "out.wav"});
    DisturbSystem(command);
    command.environment["KEL_TEST_FAULTY_CALL"] = "read";
    command.environment["KEL_TEST_FAULTY_FILE"] = "/take.au";
    command.environment["KEL_TEST_FAULT_MARKER"] = marker / "marker";
    bool hasFailed = true;
    for (int number = 1; hasFailed; ++number) {
        SCOPED_TRACE(number);
        command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(number);
        fs::remove(marker / "marker");
        const ProcessResult result = RunCommand(command);
        hasFailed = fs::exists(marker / "marker");
        if (result.status == 0) {
            EXPECT_EQ(ReadAudio(directory / "out.wav").values, MakeValues(2 * kFrames));
            fs::remove(directory / "out.wav");
        }
        EXPECT_TRUE(hasFailed || result.status == 0) << result.err;
        EXPECT_EQ(SortedNames(directory), Names{"take.au"});
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, HeaderRead,
                         testing::Values(SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_RF64,
                                         SF_FORMAT_AIFF, SF_FORMAT_AU, SF_FORMAT_CAF,
                                         SF_FORMAT_W64));

TEST(HeaderRead, ThatFailsOnceIsShownByTheSecondOpening) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.au", SF_FORMAT_AU | SF_FORMAT_PCM_16, 2, 48000, MakeValues(2000));
    Command command = Kelhost(directory, {"info", "take.au"});
    DisturbSystem(command);
    command.environment["KEL_TEST_FAULTY_CALL"] = "read";
    command.environment["KEL_TEST_FAULTY_FILE"] = "/take.au";
    constexpr int kMostReads = 100;
    const std::string error = Error(
        "take.au", "cannot read its header: opened twice, it has 4024 frames, 1 channel and "
                   "8000 Hz from byte 0 and then 1000 frames, 2 channels and 48000 Hz from byte "
                   "24; the disk fails, or a program changes the file");
    bool isFound = false;
    for (int number = 1; !isFound && number < kMostReads; ++number) {
        command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(number);
        isFound = RunCommand(command).err == error;
    }
    EXPECT_TRUE(isFound);
}

} // namespace kel::test
