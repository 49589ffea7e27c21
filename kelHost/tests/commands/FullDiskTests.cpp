// What the host does when a disk has no room for what it writes: a small file system in memory that
// only the test sees or, where that may not be mounted, a limit of the size of files.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <ostream>
#include <regex>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kFrames = 40001; // three samples of at most 16384 frames

// Gives this process mounts of its own, as far as it may have them.
bool HasOwnMounts() {
    static const bool has = [] {
        const uid_t user = geteuid();
        const gid_t group = getegid();
        if (unshare(CLONE_NEWNS) != 0) {
            // Not root: as the root of a world in which there is nobody else.
            if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
                return false;
            }
            std::ofstream("/proc/self/setgroups") << "deny";
            std::ofstream("/proc/self/uid_map") << user << " " << user << " 1";
            std::ofstream("/proc/self/gid_map") << group << " " << group << " 1";
        }
        return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }();
    return has;
}

// A directory "disk" that is a file system of so many bytes if it can be, otherwise a plain one.
class SmallDisk {
public:
    SmallDisk(const TemporaryDirectory& directory, std::size_t bytes) : m_path(directory / "disk") {
        fs::create_directory(m_path);
        const std::string options = "mode=0700,size=" + std::to_string(bytes);
        m_mounted =
            HasOwnMounts() && mount("tmpfs", m_path.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~SmallDisk() {
        if (m_mounted) {
            umount2(m_path.c_str(), MNT_DETACH);
        }
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool IsMounted() const { return m_mounted; }

    std::uint64_t Room() const {
        struct statvfs status {};
        return statvfs(m_path.c_str(), &status) == 0
                   ? std::uint64_t{status.f_bavail} * status.f_frsize
                   : 0;
    }

    // Writes until there is no room.
    void Fill() const {
        const int file = open((m_path + "/filler").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        while (write(file, page.data(), page.size()) > 0) {
        }
        close(file);
    }

    Names NamesOnIt() const {
        Names names;
        for (const auto& entry : fs::directory_iterator(m_path)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string m_path;
    bool m_mounted = false;
};

struct Output {
    std::string name;
    std::size_t headerBytes; // before the samples
    std::size_t sampleBytes; // of 16384 frames
};

void PrintTo(const Output& output, std::ostream* stream) {
    *stream << output.name;
}

// The size of the unfinished output in the directory, 0 if there is none.
std::uintmax_t UnfinishedBytes(const std::string& directory) {
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.path().filename().string().rfind(".kelhost-", 0) == 0) {
            return entry.file_size();
        }
    }
    return 0;
}

// Writes the beginning of a file into a FIFO, and the rest when there is a file called "go on".
Command WriteInTwoParts(const TemporaryDirectory& directory, const std::string& file,
                        const std::string& fifo) {
    Command command;
    command.program = "/bin/sh";
    command.directory = directory.Path();
    command.arguments = {"-c",
                         "{ head -c 20000 \"$0\"; while [ ! -e 'go on' ]; do sleep 0.01; done; "
                         "tail -c +20001 \"$0\"; } > \"$1\"",
                         file, fifo};
    return command;
}

class FullDiskWhileWriting : public testing::TestWithParam<Output> {};

std::string OutputName(const testing::TestParamInfo<Output>& info) {
    return info.param.name.substr(info.param.name.find('.') + 1);
}

} // namespace

TEST_P(FullDiskWhileWriting, IsTold) {
    const Output& output = GetParam();
    const TemporaryDirectory directory;
    const SmallDisk disk(directory, 1U << 20U);
    WriteTake(directory / "take.wav", kFrames);
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    Command command = Kelhost(directory, {"copy", "fifo.wav", "disk/" + output.name});
    constexpr std::size_t kPage = 4096; // what the header has taken of the disk
    if (!disk.IsMounted()) {
        command.mostFileBytes = kPage;
    }
    RunningProcess process(command);
    RunningProcess writer(WriteInTwoParts(directory, "take.wav", "fifo.wav"));
    while (UnfinishedBytes(directory / "disk") == 0 && !process.HasEnded()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (disk.IsMounted()) {
        disk.Fill();
    }
    WriteFile(directory / "go on", "");
    ExpectResult(process.Wait(), 1, "",
                 "kelhost: disk/" + output.name + ": Warning: tried to write " +
                     std::to_string(output.sampleBytes) + " bytes but could only write " +
                     std::to_string(kPage - output.headerBytes) +
                     (disk.IsMounted() ? "; its disk is full\n"
                                       : "; files may have 4096 bytes at most here (ulimit -f)\n"));
    EXPECT_EQ(disk.NamesOnIt(), disk.IsMounted() ? Names{"filler"} : Names{});
}

INSTANTIATE_TEST_SUITE_P(Formats, FullDiskWhileWriting,
                         testing::Values(Output{"out.wav", 112, 131072},
                                         Output{"out.rf64", 104, 131072},
                                         Output{"out.aiff", 72, 98304}),
                         OutputName);

TEST(FullDisk, IsForeseenBeforeAnythingIsWritten) {
    const TemporaryDirectory directory;
    const SmallDisk disk(directory, 1U << 18U);
    // Twice as large as the room when it is copied, and nearly nothing on the disk that it lies on.
    const std::uint64_t frames = disk.Room() / 4;
    WriteAudio(directory / "take.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 2, 48000, {0, 0});
    const std::uint64_t header = fs::file_size(directory / "take.rf64") - 4;
    const std::uint64_t bytes = frames * 4;
    std::fstream file(directory / "take.rf64", std::ios::in | std::ios::out | std::ios::binary);
    for (const auto& [place, number] :
         {std::pair<int, std::uint64_t>{20, header + bytes - 8}, {28, bytes}, {36, frames}}) {
        file.seekp(place);
        file.write(reinterpret_cast<const char*>(&number), sizeof number);
    }
    file.close();
    fs::resize_file(directory / "take.rf64", header + bytes);

    const ProcessResult result = RunKelhost(directory, {"copy", "take.rf64", "disk/out.rf64"});
    const std::regex room("disk has [0-9]+ left");
    ExpectResult(
        {result.status, result.out, std::regex_replace(result.err, room, "disk has N left")}, 1, "",
        "kelhost: disk/out.rf64: needs " + std::to_string(frames * 8 + 512 + 32) +
            " bytes, and its disk has N left; nothing was written\n");
    if (disk.IsMounted()) {
        EXPECT_NE(result.err.find("disk has 262144 left"), std::string::npos);
    }
    EXPECT_EQ(disk.NamesOnIt(), Names{});
}

TEST(FullDisk, TakesTheFilesOfABatchForWhichThereIsRoom) {
    const TemporaryDirectory directory;
    const SmallDisk disk(directory, 1U << 17U);
    WriteTake(directory / "a.wav");
    WriteTake(directory / "b.wav", kFrames);
    WriteTake(directory / "c.wav");
    Command command = Kelhost(
        directory, {"copy", "a.wav", "b.wav", "c.wav", "--output-dir", "disk", "--jobs", "1"});
    std::string error = "needs 320552 bytes, and its disk has 122880 left; nothing was written";
    if (!disk.IsMounted()) {
        command.mostFileBytes = 1U << 17U;
        error = "Warning: tried to write 131072 bytes but could only write 130960; files may have "
                "131072 bytes at most here (ulimit -f)";
    }
    const auto line = [](const std::string& name) {
        return name + " -> disk/" + name +
               ": extensible WAVE, float32 little-endian, 2 channels, 48000 Hz, 1000 frames, "
               "0:00:00.021\n";
    };
    ExpectResult(RunCommand(command), 1,
                 line("a.wav") + line("c.wav") + "3 files: 2 copied, 1 failed\n",
                 "kelhost: disk/b.wav: " + error + "\n");
    EXPECT_EQ(disk.NamesOnIt(), (Names{"a.wav", "c.wav"}));
    EXPECT_EQ(ReadAudio(directory / "disk/c.wav").values, MakeValues(2000));
}

} // namespace kel::test
