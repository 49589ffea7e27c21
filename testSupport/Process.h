/// Runs of other programs, with their exit status and output.
/// One thread at a time uses a process.
#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <linux/capability.h>
#include <map>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace kel::test {

/// A program with its arguments and environment. Standard input is empty unless it is closed.
struct Command {
    std::string program; ///< a path
    std::vector<std::string> arguments;
    /// Variables that differ from those of the test: their values, or none to remove them.
    std::map<std::string, std::optional<std::string>> environment;
    std::string directory;               ///< the working directory; empty for that of the test
    std::optional<rlim_t> mostFileBytes; ///< RLIMIT_FSIZE
    std::optional<mode_t> fileMask;      ///< the umask
    /// A file for standard output, for example /dev/full, which accepts nothing.
    std::string standardOutput;
    /// The same for standard error.
    std::string standardError;
    std::vector<int> closedDescriptors;
    std::vector<int> ignoredSignals;
    bool obeysPermissions = false; ///< file permissions count even when the test runs as root
};

/// Result of a program.
struct ProcessResult {
    int status = 0; ///< the exit status, or the negative number of the signal that ended it
    std::string out;
    std::string err;
};

namespace detail {

[[noreturn]] inline void FailWithErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// A pipe that a program writes to. A file would be subject to the limit of file sizes.
class Capture {
public:
    Capture() {
        if (pipe2(m_ends.data(), O_CLOEXEC) != 0) {
            FailWithErrno("pipe2");
        }
    }
    ~Capture() {
        close(ReadEnd());
        CloseWriteEnd();
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    int ReadEnd() const { return m_ends[0]; }
    int WriteEnd() const { return m_ends[1]; }

    void CloseWriteEnd() {
        if (m_ends[1] >= 0) {
            close(m_ends[1]);
        }
        m_ends[1] = -1;
    }

    // Waits for bytes and reads them; returns false at the end.
    bool Read() {
        std::array<char, 65536> piece{};
        const ssize_t count = read(ReadEnd(), piece.data(), piece.size());
        if (count < 0 && errno != EINTR) {
            FailWithErrno("read");
        }
        m_text.append(piece.data(), static_cast<std::size_t>(count > 0 ? count : 0));
        return count != 0;
    }

    const std::string& Text() const { return m_text; }

private:
    std::array<int, 2> m_ends{-1, -1};
    std::string m_text;
};

// Reads both to their ends, in the order in which bytes arrive.
inline void ReadAll(Capture& first, Capture& second) {
    const std::array<Capture*, 2> captures{&first, &second};
    std::array<pollfd, 2> polled{};
    for (std::size_t i = 0; i < captures.size(); ++i) {
        polled[i] = {captures[i]->ReadEnd(), POLLIN, 0};
    }
    // poll ignores a negative descriptor.
    while (polled[0].fd >= 0 || polled[1].fd >= 0) {
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
            FailWithErrno("poll");
        }
        for (std::size_t i = 0; i < captures.size(); ++i) {
            if (polled[i].fd >= 0 && polled[i].revents != 0 && !captures[i]->Read()) {
                polled[i].fd = -1;
            }
        }
    }
}

inline std::vector<std::string> MakeEnvironment(const Command& command) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (command.environment.count(text.substr(0, text.find('='))) == 0) {
            variables.push_back(text);
        }
    }
    for (const auto& [name, value] : command.environment) {
        if (value.has_value()) {
            variables.push_back(name + "=" + *value);
        }
    }
    return variables;
}

inline std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace detail

/// A running program; the destructor kills it unless Wait was called.
class RunningProcess {
public:
    explicit RunningProcess(const Command& command) {
        std::vector<std::string> arguments{command.program};
        arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
        std::vector<std::string> variables = detail::MakeEnvironment(command);
        const std::vector<char*> argv = detail::Pointers(arguments);
        const std::vector<char*> envp = detail::Pointers(variables);
        m_pid = fork();
        if (m_pid < 0) {
            detail::FailWithErrno("fork");
        }
        if (m_pid == 0) {
            Prepare(command);
            execve(command.program.c_str(), argv.data(), envp.data());
            _exit(kNotStarted);
        }
        m_out.CloseWriteEnd();
        m_err.CloseWriteEnd();
    }

    ~RunningProcess() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }

    RunningProcess(const RunningProcess&) = delete;
    RunningProcess& operator=(const RunningProcess&) = delete;

    /// Sends it a signal.
    void Signal(int number) const {
        if (kill(m_pid, number) != 0) {
            detail::FailWithErrno("kill");
        }
    }

    /// Returns true when it has ended.
    bool HasEnded() const {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == m_pid;
    }

    /// Waits for its end and returns its result. To be called once.
    ProcessResult Wait() {
        detail::ReadAll(m_out, m_err);
        int status = 0;
        while (waitpid(m_pid, &status, 0) < 0) {
            if (errno != EINTR) {
                detail::FailWithErrno("waitpid");
            }
        }
        m_pid = -1;
        if (WIFEXITED(status) && WEXITSTATUS(status) == kNotStarted) {
            throw std::runtime_error("the program cannot be started: " + m_err.Text());
        }
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_out.Text(),
                m_err.Text()};
    }

private:
    // An exit status that neither kelhost nor the tools of the shell use.
    static constexpr int kNotStarted = 119;

    static void Require(bool done, const char* what) {
        if (!done) {
            dprintf(STDERR_FILENO, "%s: errno %d\n", what, errno);
            _exit(kNotStarted);
        }
    }

    // Runs in the child, between fork and exec.
    void Prepare(const Command& command) const {
        Require(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl");
        Redirect(m_err, command.standardError, STDERR_FILENO);
        Redirect(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        Redirect(m_out, command.standardOutput, STDOUT_FILENO);
        Require(command.directory.empty() || chdir(command.directory.c_str()) == 0, "chdir");
        if (command.mostFileBytes.has_value()) {
            const rlimit limit{*command.mostFileBytes, *command.mostFileBytes};
            Require(setrlimit(RLIMIT_FSIZE, &limit) == 0, "setrlimit");
        }
        if (command.fileMask.has_value()) {
            umask(*command.fileMask);
        }
        if (command.obeysPermissions) {
            DropPrivileges();
        }
        PrepareSignals(command);
        for (const int descriptor : command.closedDescriptors) {
            close(descriptor);
        }
    }

    static void Redirect(int from, int to) {
        Require(from >= 0 && dup2(from, to) >= 0, "standard streams");
    }

    // Redirects to the file if it has a name.
    static void Redirect(const detail::Capture& capture, const std::string& file, int to) {
        Redirect(file.empty() ? capture.WriteEnd()
                              : open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY),
                 to);
    }

    // The program can be interrupted even if the test ignores or blocks signals.
    static void PrepareSignals(const Command& command) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXFSZ}) {
            std::signal(number, SIG_DFL);
        }
        for (const int number : command.ignoredSignals) {
            std::signal(number, SIG_IGN);
        }
    }

    // The program gets only the capabilities of the bounding set; a user other than root has none.
    static void DropPrivileges() {
        for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
            Require(prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) == 0 || geteuid() != 0,
                    "capabilities");
        }
    }

    detail::Capture m_out;
    detail::Capture m_err;
    pid_t m_pid = -1;
};

/// Runs a program to its end.
inline ProcessResult RunCommand(const Command& command) {
    return RunningProcess(command).Wait();
}

} // namespace kel::test
