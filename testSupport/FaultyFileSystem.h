/// A mounted file system whose operations fail as a test requires, see faultyFileSystem.cpp.
/// One thread at a time; programs may use the files from any thread.
#pragma once

#include "Process.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel::test {

/// The files of a directory, seen through a mount with faults. The mount exists as long as the
/// object.
class FaultyFileSystem {
public:
    /// @param arguments options and faults as faultyFileSystem.cpp describes them, for example
    ///     "--direct" and "write,path=out.wav,from=3,error=5"
    explicit FaultyFileSystem(const std::vector<std::string>& arguments = {})
        : m_process(Mount(arguments)) {
        constexpr int kMostWaits = 2000; // of 10 ms
        for (int i = 0; i < kMostWaits && !IsMounted() && !m_process.HasEnded(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (!IsMounted()) {
            m_process.Signal(SIGKILL);
            throw std::runtime_error("cannot mount a file system: " + m_process.Wait().err);
        }
    }

    ~FaultyFileSystem() { End(); }

    FaultyFileSystem(const FaultyFileSystem&) = delete;
    FaultyFileSystem& operator=(const FaultyFileSystem&) = delete;

    /// The reason why no file system can be mounted here, or nothing.
    static std::string Obstacle() {
        if (access("/dev/fuse", R_OK | W_OK) != 0) {
            return "cannot open /dev/fuse: " + std::generic_category().message(errno);
        }
        try {
            const FaultyFileSystem fileSystem;
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            // A container may lack the right. Any other failure is one of the test.
            if (text.find(std::generic_category().message(EPERM)) == std::string::npos) {
                throw;
            }
            return text;
        }
        return "";
    }

    /// The directory that has the faults.
    std::string Path() const { return m_mountPoint.Path(); }

    /// The path of a file with the faults.
    std::string operator/(const std::string& name) const { return m_mountPoint / name; }

    /// The same files without the faults.
    const TemporaryDirectory& Files() const { return m_files; }

    /// Unmounts it before the object ends. Operations that hang fail then. A test must call it
    /// before it waits for a program whose operation hangs, because such a program cannot even be
    /// killed.
    void End() {
        m_process.Signal(SIGKILL);
        const std::string path = Path();
        // A user other than root leaves it to fusermount3, which waits for the end of the process.
        umount2(path.c_str(), MNT_DETACH);
        constexpr int kMostWaits = 1000; // of 10 ms
        for (int i = 0; i < kMostWaits && IsMounted(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    /// The operations that have failed so far, in their order: "write /out.wav".
    std::vector<std::string> Failures() const {
        std::vector<std::string> lines;
        std::istringstream log(ReadFile(LogPath()));
        for (std::string line; std::getline(log, line);) {
            lines.push_back(line);
        }
        return lines;
    }

private:
    std::string LogPath() const { return m_log / "log"; }

    Command Mount(const std::vector<std::string>& arguments) const {
        Command command;
        command.program = KEL_TEST_FAULTY_FILE_SYSTEM;
        for (const std::string& argument : arguments) {
            if (argument.rfind("--", 0) == 0) {
                command.arguments.push_back(argument);
            }
        }
        command.arguments.insert(command.arguments.end(),
                                 {LogPath(), m_files.Path(), m_mountPoint.Path()});
        for (const std::string& argument : arguments) {
            if (argument.rfind("--", 0) != 0) {
                command.arguments.push_back(argument);
            }
        }
        return command;
    }

    // Asks nothing of the file system, which may hang.
    bool IsMounted() const {
        return std::filesystem::exists(LogPath()) &&
               ReadFile("/proc/self/mounts").find(" " + Path() + " ") != std::string::npos;
    }

    TemporaryDirectory m_log;
    TemporaryDirectory m_files;
    TemporaryDirectory m_mountPoint;
    RunningProcess m_process;
};

} // namespace kel::test

/// Skips the test where no file system can be mounted.
#define KEL_SKIP_WITHOUT_FAULTY_FILE_SYSTEM()                                                      \
    if (const std::string obstacle = kel::test::FaultyFileSystem::Obstacle(); !obstacle.empty())   \
    GTEST_SKIP() << obstacle
