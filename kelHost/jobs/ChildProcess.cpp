#include "jobs/ChildProcess.h"

#include "base/Descriptor.h"
#include "base/Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace kel::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kNoteSize = 512;
constexpr std::size_t kMaxOutput = std::size_t{64} * 1024;

// Creates an unnamed file for the output of a child: unlike a pipe it never makes the child wait.
Descriptor MakeOutputFile() {
    Descriptor file(memfd_create("output", MFD_CLOEXEC));
    if (file.Number() < 0) {
        FailToStart(errno);
    }
    return file;
}

std::string ReadOutput(int file) {
    std::string text(kMaxOutput, '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

[[noreturn]] void Work(const std::function<std::string()>& work, const std::string& directory,
                       int output, int result) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const Descriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (input.Number() < 0 || dup2(input.Number(), STDIN_FILENO) < 0 ||
        dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0 ||
        chdir(directory.c_str()) != 0) {
        _exit(kFailure);
    }
    const std::string text = work();
    static_cast<void>(std::fflush(nullptr));
    _exit(WriteAll(result, text.data(), text.size()) ? kSuccess : kFailure);
}

// A child process and the processes that it starts. Kills them at its end.
class Child {
public:
    explicit Child(pid_t process) : m_process(process) {
        // Both sides do it, because either may be first.
        setpgid(process, process);
    }
    ~Child() {
        if (!m_ended) {
            End();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Returns true when it has ended, and kills the processes that it has left.
    bool HasEnded() {
        siginfo_t info{};
        const bool ended =
            waitid(P_PID, static_cast<id_t>(m_process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == m_process;
        if (ended) {
            End();
        }
        return ended;
    }

    void End() {
        kill(-m_process, SIGKILL);
        constexpr std::chrono::milliseconds kLimit{2000};
        const Clock::time_point end = Clock::now() + kLimit;
        // One that waits for a device that does not respond is left to the kernel.
        while (wait4(m_process, &m_status, WNOHANG, &m_usage) != m_process && Clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        m_ended = true;
    }

    int Status() const { return m_status; }
    long PeakKiB() const { return m_usage.ru_maxrss; }

private:
    pid_t m_process;
    bool m_ended = false;
    int m_status = 0;
    rusage m_usage{};
};

enum class Piece { Read, NoneYet, End };

// Reads a piece of the result without waiting for it.
Piece ReadPiece(int result, std::string& text) {
    std::array<char, 65536> piece{};
    const ssize_t count = read(result, piece.data(), piece.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return Piece::NoneYet;
    }
    text.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return count > 0 ? Piece::Read : Piece::End;
}

// Collects the result until the child has ended. Returns false when it has not ended in time.
bool Collect(Child& child, int result, Clock::time_point end, const SignalReader& signals,
             std::string& text) {
    bool isOpen = true;
    while (!child.HasEnded()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left < 0) {
            return false;
        }
        // After the result, the end of the child follows soon, without an event to wait for. Before
        // it, a process that the child started may keep the pipe open.
        const std::int64_t interval = isOpen ? 100 : 1;
        // poll ignores a negative descriptor.
        std::array<pollfd, 2> polled{
            {{signals.Number(), POLLIN, 0}, {isOpen ? result : -1, POLLIN, 0}}};
        poll(polled.data(), polled.size(),
             static_cast<int>(std::min<std::int64_t>(left + 1, interval)));
        signals.Check();
        if (polled[1].revents != 0) {
            isOpen = ReadPiece(result, text) != Piece::End;
        }
    }
    // The child has written everything. A process that it started outside of its group may have the
    // pipe open for ever.
    while (isOpen && ReadPiece(result, text) == Piece::Read) {
    }
    return true;
}

} // namespace

ChildNote::ChildNote()
    : m_text(static_cast<char*>(
          mmap(nullptr, kNoteSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    if (m_text == MAP_FAILED) {
        FailToStart(errno);
    }
}

ChildNote::~ChildNote() {
    munmap(m_text, kNoteSize);
}

void ChildNote::Set(std::string_view text) {
    const std::size_t size = std::min(text.size(), kNoteSize - 1);
    std::memcpy(m_text, text.data(), size);
    m_text[size] = '\0';
}

std::string ChildNote::Get() const {
    return {m_text, strnlen(m_text, kNoteSize)};
}

ChildOutcome RunInChild(const std::function<std::string()>& work, const std::string& directory,
                        std::chrono::milliseconds limit, const SignalReader& signals) {
    const Descriptor output = MakeOutputFile();
    Pipe result = MakePipe();
    fcntl(result.in.Number(), F_SETFL, O_NONBLOCK);
    const Clock::time_point start = Clock::now();
    const pid_t process = ForkChild();
    if (process == 0) {
        setpgid(0, 0); // not the terminal's signals
        Work(work, directory, output.Number(), result.out.Number());
    }
    Child child(process);
    result.out = Descriptor();
    ChildOutcome outcome;
    if (!Collect(child, result.in.Number(), start + limit, signals, outcome.result)) {
        child.End();
        outcome.end = ChildEnd::TimedOut;
    } else if (WIFSIGNALED(child.Status())) {
        outcome.end = ChildEnd::Signal;
        outcome.code = WTERMSIG(child.Status());
    } else if (WEXITSTATUS(child.Status()) != kSuccess || outcome.result.empty()) {
        outcome.end = ChildEnd::Exited;
        outcome.code = WEXITSTATUS(child.Status());
    }
    outcome.output = ReadOutput(output.Number());
    outcome.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    outcome.peakKiB = child.PeakKiB();
    return outcome;
}

} // namespace kel::host
