// The file system with faults does what the tests that use it rely on.

#include "AudioFiles.h"
#include "Program.h"

#include <FaultyFileSystem.h>
#include <Process.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace {

// An open file.
class Descriptor {
public:
    Descriptor(const std::string& path, int flags)
        : m_number(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return m_number; }

    // The error number of closing, or 0.
    int Close() {
        const int number = m_number;
        m_number = -1;
        return number < 0 || close(number) == 0 ? 0 : errno;
    }

private:
    int m_number;
};

// The error number of writing a text, or 0.
int WriteAll(const Descriptor& file, const std::string& text) {
    return write(file.Number(), text.data(), text.size()) == static_cast<ssize_t>(text.size())
               ? 0
               : errno;
}

constexpr std::size_t kBlock = 4096;

class FaultyFileSystemTest : public testing::Test {
protected:
    void SetUp() override { KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM(); }
};

} // namespace

TEST_F(FaultyFileSystemTest, WithoutFaultsStoresAnExactCopy) {
    const FaultyFileSystem fileSystem;
    const TemporaryDirectory directory;
    WriteTake(fileSystem / "in.wav", 100000);
    EXPECT_EQ(RunKelhost(directory, {"copy", fileSystem / "in.wav", "out.wav"}).status, 0);
    const ProcessResult result =
        RunKelhost(directory, {"copy", fileSystem / "in.wav", fileSystem / "out.wav"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(WithoutTime(ReadFile(fileSystem.Files() / "out.wav")) ==
                WithoutTime(ReadFile(directory / "out.wav")));
    EXPECT_EQ(fileSystem.Failures(), std::vector<std::string>{});
}

TEST_F(FaultyFileSystemTest, FailsOnlyTheChosenOperations) {
    const FaultyFileSystem fileSystem(
        {"--direct", "write,path=bad,from=2,count=1,error=" + std::to_string(ENOSPC)});
    for (const bool bad : {false, true}) {
        const Descriptor file(fileSystem / (bad ? "bad" : "good"), O_CREAT | O_WRONLY);
        EXPECT_EQ(WriteAll(file, "one"), 0);
        EXPECT_EQ(WriteAll(file, "two"), bad ? ENOSPC : 0);
        EXPECT_EQ(WriteAll(file, "three"), 0);
    }
    EXPECT_EQ(ReadFile(fileSystem.Files() / "good"), "onetwothree");
    EXPECT_EQ(ReadFile(fileSystem.Files() / "bad"), "onethree");
    EXPECT_EQ(fileSystem.Failures(), std::vector<std::string>{"write /bad"});
}

TEST_F(FaultyFileSystemTest, FailsReadsFromAnOffsetOn) {
    const FaultyFileSystem fileSystem({"read,offset=4096,error=" + std::to_string(EIO)});
    WriteFile(fileSystem.Files() / "file", std::string(2 * kBlock, 'x'));
    const Descriptor file(fileSystem / "file", O_RDONLY);
    std::string bytes(kBlock, '\0');
    EXPECT_EQ(pread(file.Number(), bytes.data(), kBlock, 0), static_cast<ssize_t>(kBlock));
    EXPECT_EQ(pread(file.Number(), bytes.data(), kBlock, kBlock), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(FaultyFileSystemTest, LosesBytesAndReportsItOnlyWhenTheFileIsClosed) {
    const FaultyFileSystem fileSystem({"write,lose", "flush,error=" + std::to_string(EIO)});
    Descriptor file(fileSystem / "file", O_CREAT | O_WRONLY);
    EXPECT_EQ(WriteAll(file, "text"), 0);
    EXPECT_EQ(fsync(file.Number()), 0);
    EXPECT_EQ(file.Close(), EIO);
    EXPECT_EQ(ReadFile(fileSystem.Files() / "file"), std::string(4, '\0'));
}

TEST_F(FaultyFileSystemTest, ReportsLateWritesWhenTheyAreSynchronized) {
    const FaultyFileSystem fileSystem({"--write-back", "write,error=" + std::to_string(ENOSPC)});
    const Descriptor file(fileSystem / "file", O_CREAT | O_WRONLY);
    EXPECT_EQ(WriteAll(file, "text"), 0);
    EXPECT_EQ(fsync(file.Number()), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(FaultyFileSystemTest, FlipsBitsThatTheCacheStillHas) {
    const FaultyFileSystem fileSystem({"--keep-cache", "write,flip"});
    const std::string text(kBlock, 'a');
    {
        const Descriptor file(fileSystem / "file", O_CREAT | O_WRONLY);
        EXPECT_EQ(WriteAll(file, text), 0);
    }
    EXPECT_EQ(ReadFile(fileSystem.Files() / "file"), std::string(kBlock, '`'));
    EXPECT_EQ(ReadFile(fileSystem / "file"), text);
    const Descriptor file(fileSystem / "file", O_RDONLY);
    EXPECT_EQ(posix_fadvise(file.Number(), 0, 0, POSIX_FADV_DONTNEED), 0);
    EXPECT_EQ(ReadFile(fileSystem / "file"), std::string(kBlock, '`'));
}

TEST_F(FaultyFileSystemTest, ReportsNoSpaceAsFileSystemsInMemoryDo) {
    const FaultyFileSystem fileSystem({"statfs,zero"});
    struct statvfs status {};
    ASSERT_EQ(statvfs(fileSystem.Path().c_str(), &status), 0);
    EXPECT_EQ(status.f_blocks, 0U);
    EXPECT_EQ(status.f_bavail, 0U);
}

TEST_F(FaultyFileSystemTest, HasNoUnnamedFiles) {
    const FaultyFileSystem fileSystem;
    EXPECT_LT(open(fileSystem.Path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600), 0);
    EXPECT_EQ(errno, EOPNOTSUPP);
}

namespace {

// A program that reads a file while the operation does not return.
class Reader {
public:
    explicit Reader(const std::string& effect) : m_fileSystem({"open,path=file," + effect}) {
        WriteFile(m_fileSystem.Files() / "file", "text");
        Command command;
        command.program = "/bin/cat";
        command.arguments = {m_fileSystem / "file"};
        m_process.emplace(command);
        while (m_fileSystem.Failures().empty() && !m_process->HasEnded()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_FALSE(m_process->HasEnded());
    }

    FaultyFileSystem& FileSystem() { return m_fileSystem; }
    RunningProcess& Process() { return *m_process; }

private:
    FaultyFileSystem m_fileSystem;
    std::optional<RunningProcess> m_process;
};

} // namespace

TEST_F(FaultyFileSystemTest, HangsUntilItEnds) {
    Reader reader("hang");
    struct stat status {};
    EXPECT_EQ(stat((reader.FileSystem() / "file").c_str(), &status), 0) << "the others return";
    reader.Process().Signal(SIGKILL);
    EXPECT_FALSE(reader.Process().HasEnded());
    reader.FileSystem().End();
    EXPECT_EQ(reader.Process().Wait().status, -SIGKILL);
}

TEST_F(FaultyFileSystemTest, WaitsUntilTheProgramIsKilled) {
    Reader reader("wait");
    reader.Process().Signal(SIGKILL);
    EXPECT_EQ(reader.Process().Wait().status, -SIGKILL);
}

} // namespace kel::test
