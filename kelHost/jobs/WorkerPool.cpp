#include "jobs/WorkerPool.h"

#include "base/Descriptor.h"
#include "base/Errors.h"
#include "base/Numbers.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "jobs/JobClaims.h"
#include "jobs/Posix.h"
#include "jobs/WorkerMessage.h"
#include "jobs/WorkerProcess.h"
#include "jobs/WorkerState.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using Clock = std::chrono::steady_clock;
using Duration = Clock::duration;
using Kind = WorkerMessage::Kind;

// Time in which the host attends to its workers: not the time in which it is stopped or waits for
// its output to be read, while the workers may have reported long ago.
class AttentiveClock {
public:
    Duration Now() const { return m_now; }

    // Advances the clock after a wait that was to take no longer than that.
    void Advance(Duration limit) {
        constexpr std::chrono::milliseconds kTolerance{100};
        const Clock::time_point last = std::exchange(m_last, Clock::now());
        m_now += std::min<Duration>(m_last - last, limit + kTolerance);
    }

private:
    Clock::time_point m_last = Clock::now();
    Duration m_now{};
};

struct Worker {
    std::uint32_t number = 0; // from 1, another one for each worker
    pid_t process = -1;
    Descriptor messages;
    Descriptor printed;
    WorkerState state;
    std::string received; // the beginning of a message
    std::string line;     // the beginning of a printed line
    std::size_t lineJob = 0;
    std::string failure; // the reason why the host cannot work with it; "" for none
    // As the host saw them last.
    bool isStopped = false;
    std::uint32_t openings = 0;
    std::uint32_t reads = 0;
    Duration idleSince{}; // begin of the present wait
    std::int64_t shownSeconds = 0;

    bool IsOpening() const { return openings % 2 == 1; }

    // True when the job waits: it opens a file, reads its input, or is stopped.
    bool IsIdle() const { return IsOpening() || isStopped || reads % 2 == 1; }
};

// Returns true when bytes, or the end, can be read at once.
bool IsReadable(const Descriptor& descriptor) {
    pollfd polled{descriptor.Number(), POLLIN, 0};
    return poll(&polled, 1, 0) > 0;
}

std::string DescribeTermination(int status) {
    return WIFSIGNALED(status)
               ? fmt::format("signal {} ({})", WTERMSIG(status), strsignal(WTERMSIG(status)))
               : fmt::format("exit status {}", WEXITSTATUS(status));
}

// Returns the time until then, not negative.
std::chrono::milliseconds TimeLeft(Clock::time_point end) {
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()),
                    std::chrono::milliseconds{});
}

// "0.5" or "60".
std::string FormatLimit(std::chrono::milliseconds limit) {
    return fmt::format("{}", std::chrono::duration<double>(limit).count());
}

// Does work in a child process and ends it, whatever happens.
template <typename Work>
[[noreturn]] void ExitAfter(const Work& work) {
    try {
        work();
    } catch (...) {
        _exit(kFailure);
    }
    _exit(kSuccess);
}

// The workers of a run. Kills those that are left at its end.
class WorkerPool {
public:
    WorkerPool(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer)
        : m_jobs(jobs), m_options(options), m_observer(observer), m_claims(jobs.size()),
          m_isFinished(jobs.size()) {}

    ~WorkerPool() {
        for (const Worker& worker : m_workers) {
            kill(worker.process, SIGKILL); // all at once
        }
        constexpr std::chrono::milliseconds kLimit{2000};
        const Clock::time_point end = Clock::now() + kLimit;
        for (const Worker& worker : m_workers) {
            WaitForEnd(worker.process, TimeLeft(end));
        }
        try {
            RemoveLeftovers(m_workers);
        } catch (...) { // NOLINT(bugprone-empty-catch): out of memory in a destructor
        }
    }
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    void Run() {
        const std::size_t wanted = std::min<std::size_t>(m_options.workers, m_jobs.size());
        while (m_finished < m_jobs.size()) {
            StartWorkers(wanted);
            WaitForMessages();
            WatchWorkers();
        }
        Dismiss();
        m_signals.Check(); // one that came while the last result was shown
    }

private:
    // Does with fewer workers when the system cannot start all of them.
    void StartWorkers(std::size_t wanted) {
        try {
            while (m_workers.size() < wanted && m_claims.AreLeft()) {
                Start();
            }
        } catch (const JobError&) {
            if (m_workers.empty()) {
                throw;
            }
        }
    }

    void Start() {
        m_workers.reserve(m_workers.size() + 1); // nothing may fail once there is a process
        Pipe messages = MakePipe();
        Pipe printed = MakePipe();
        // A library that prints must not wait for the host, nor the host for a library.
        for (const Descriptor* end : {&printed.in, &printed.out}) {
            fcntl(end->Number(), F_SETFL, O_NONBLOCK);
        }
        Worker worker;
        worker.number = ++m_started;
        worker.process = ForkChild();
        if (worker.process == 0) {
            // It must not keep the host's ends of any pipe open.
            m_workers.clear();
            messages.in = Descriptor();
            printed.in = Descriptor();
            RunWorker(
                m_jobs, [&] { return m_claims.Take(worker.number); }, m_options.progress,
                {std::move(messages.out), std::move(printed.out)}, worker.state);
        }
        worker.messages = std::move(messages.in);
        worker.printed = std::move(printed.in);
        m_workers.push_back(std::move(worker));
    }

    // The job that a worker does; none when it has reported the end of all that it has taken.
    std::optional<std::size_t> JobOf(const Worker& worker) const {
        const auto job = m_claims.LastOf(worker.number);
        return job.has_value() && !m_isFinished[*job] ? job : std::nullopt;
    }

    void WaitForMessages() {
        constexpr std::chrono::milliseconds kPause{1};
        std::vector<pollfd> polled{{m_signals.Number(), POLLIN, 0}};
        for (const Worker& worker : m_workers) {
            polled.push_back({worker.printed.Number(), POLLIN, 0});
        }
        if (m_claims.AreLeft()) {
            // Workers of short jobs go on meanwhile, instead of sharing a processor with the host
            // after each. They wait only for lines that they have printed.
            poll(polled.data(), polled.size(), kPause.count());
        }
        for (const Worker& worker : m_workers) {
            polled.push_back({worker.messages.Number(), POLLIN, 0});
        }
        const Duration wait = std::max(m_nextWatch - m_clock.Now(), Duration{});
        const auto milliseconds =
            std::chrono::duration_cast<std::chrono::milliseconds>(wait).count() + 1;
        poll(polled.data(), polled.size(), static_cast<int>(milliseconds));
        m_clock.Advance(wait + kPause);
        // Backwards, because a worker that has died is removed.
        const std::size_t count = m_workers.size();
        for (std::size_t i = count; i-- > 0;) {
            const bool hasPrinted = polled[1 + i].revents != 0;
            // The end of a job comes before lines of the next one.
            if (polled[1 + count + i].revents != 0 ||
                (hasPrinted && IsReadable(m_workers[i].messages))) {
                Receive(i);
            } else if (hasPrinted) {
                ReceivePrinted(m_workers[i]);
            }
        }
        // Afterwards, because files may have been finished before the signal.
        if (polled.front().revents != 0) {
            m_signals.Check();
        }
    }

    void Receive(std::size_t index) {
        Worker& worker = m_workers[index];
        const ssize_t count = read(worker.messages.Number(), m_buffer.get(), kBufferSize);
        if (count < 0 && errno == EINTR) {
            return;
        }
        if (count == 0) {
            LoseEnded(index);
            return;
        }
        if (count < 0) {
            worker.failure =
                fmt::format("cannot receive from a worker process: {}", std::strerror(errno));
        } else {
            worker.received.append(m_buffer.get(), static_cast<std::size_t>(count));
            HandleReceived(worker);
        }
        LoseIfBroken(index);
    }

    void HandleReceived(Worker& worker) {
        try {
            while (worker.failure.empty()) {
                auto message = TakeMessage(worker.received);
                if (!message.has_value()) {
                    return;
                }
                const std::size_t job = message->job;
                if (!m_claims.IsOf(job, worker.number) || m_isFinished[job]) {
                    throw InvalidMessage();
                }
                if (message->hasPrinted) {
                    ReceivePrinted(worker);
                }
                Handle(worker, *std::move(message));
            }
        } catch (const InvalidMessage&) {
            worker.failure = "cannot understand a message of a worker process: the plug-in wrote "
                             "into a pipe of the host";
        }
    }

    void Handle(Worker& worker, WorkerMessage message) {
        const std::size_t job = message.job;
        std::vector<std::string>& fields = message.fields;
        switch (message.kind) {
        case Kind::Progress:
            m_observer.OnProgress(job, ParseInteger<std::int64_t>(fields[0]).value(),
                                  ParseInteger<std::int64_t>(fields[1]).value(),
                                  ParseInteger<std::uint32_t>(fields[2]).value());
            break;
        case Kind::Spooled:
            m_observer.OnSpooled(job, ParseInteger<std::uint64_t>(fields[0]).value());
            break;
        case Kind::Show:
            m_observer.OnShow(job, fields[0]);
            break;
        case Kind::Result:
        case Kind::Skipped:
            EndJob(worker, job);
            Finish(job, {true,
                         {std::move(fields[0]), std::move(fields[1]), std::move(fields[2]),
                          message.kind == Kind::Skipped},
                         {}});
            break;
        case Kind::Error:
            EndJob(worker, job);
            Finish(job, {false, {}, {fields[0], fields[1], fields[2]}});
            break;
        }
    }

    // The worker may go on with the next job, or has already done so when nothing was printed.
    void EndJob(Worker& worker, std::size_t job) {
        if (worker.lineJob == job) {
            EndLine(worker);
        }
        worker.shownSeconds = 0;
        worker.state.NoteLinesRead(job);
    }

    // Receives what libraries have printed, of a worker that prints for ever only some. A worker
    // that has printed something does not begin another job before that is read.
    void ReceivePrinted(Worker& worker) {
        constexpr int kMaxPieces = 16;
        for (int i = 0; i < kMaxPieces && IsReadable(worker.printed); ++i) {
            const std::size_t job = m_claims.LastOf(worker.number).value_or(0);
            const ssize_t count = read(worker.printed.Number(), m_buffer.get(), kBufferSize);
            if (count > 0) {
                AddPrinted(worker, job, {m_buffer.get(), static_cast<std::size_t>(count)});
            } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
                worker.printed = Descriptor(); // nothing more will come
            }
        }
    }

    void AddPrinted(Worker& worker, std::size_t job, std::string_view bytes) {
        constexpr std::size_t kMaxLine = 4096;
        if (worker.lineJob != job) {
            EndLine(worker);
            worker.lineJob = job;
        }
        for (const char byte : bytes) {
            if (byte == '\n' || worker.line.size() == kMaxLine) {
                EndLine(worker);
            }
            if (byte != '\n') {
                worker.line += byte;
            }
        }
    }

    // Reports the line that was printed last, as far as it goes. Empty lines are not worth one.
    void EndLine(Worker& worker) {
        const std::string line = std::exchange(worker.line, "");
        if (!line.empty()) {
            m_observer.OnPrinted(worker.lineJob, line);
        }
    }

    // Looks after workers that report nothing, a few times a second.
    void WatchWorkers() {
        constexpr std::chrono::milliseconds kInterval{250};
        if (m_clock.Now() < m_nextWatch) {
            return;
        }
        m_nextWatch = m_clock.Now() + kInterval;
        for (std::size_t i = m_workers.size(); i-- > 0;) {
            Watch(i);
        }
    }

    void Watch(std::size_t index) {
        Worker& worker = m_workers[index];
        siginfo_t state{};
        waitid(P_PID, static_cast<id_t>(worker.process), &state,
               WEXITED | WSTOPPED | WNOHANG | WNOWAIT);
        const bool isStopped = state.si_code == CLD_STOPPED || state.si_code == CLD_TRAPPED;
        if (state.si_pid == worker.process && !isStopped) {
            // A process that it started may keep its pipe open.
            if (!IsReadable(worker.messages)) {
                LoseEnded(index);
            }
            return;
        }
        const std::uint32_t openings = worker.state.Openings();
        const std::uint32_t reads = worker.state.Reads();
        const bool goesOn = openings != worker.openings || !worker.IsIdle() ||
                            (!worker.IsOpening() && reads != worker.reads);
        worker.isStopped = isStopped && JobOf(worker).has_value();
        worker.openings = openings;
        worker.reads = reads;
        if (goesOn) {
            worker.idleSince = m_clock.Now();
        }
        ShowWait(worker);
        KillIfTimedOut(index);
    }

    // The time for which the job has waited.
    Duration WaitOf(const Worker& worker) const {
        return worker.IsIdle() ? m_clock.Now() - worker.idleSince : Duration{};
    }

    void ShowWait(Worker& worker) {
        const auto seconds =
            std::chrono::duration_cast<std::chrono::seconds>(WaitOf(worker)).count();
        const auto job = JobOf(worker);
        if (m_options.progress && job.has_value() && seconds != worker.shownSeconds) {
            worker.shownSeconds = seconds;
            m_observer.OnWaiting(*job, seconds);
        }
    }

    void KillIfTimedOut(std::size_t index) {
        Worker& worker = m_workers[index];
        const bool isOpening = worker.IsOpening();
        const std::chrono::milliseconds limit =
            isOpening ? m_options.openTimeout : m_options.stallTimeout;
        if (!isOpening && (!worker.IsIdle() || limit.count() == 0)) {
            return;
        }
        if (WaitOf(worker) < limit) {
            m_nextWatch = std::min(m_nextWatch, m_clock.Now() + limit - WaitOf(worker));
            return;
        }
        worker.state.Hold();
        const auto job = JobOf(worker);
        if (IsReadable(worker.messages) || !job.has_value()) {
            worker.state.Release(); // it has gone on
            return;
        }
        const std::string message =
            isOpening ? fmt::format("cannot open the file within {} s; it is damaged, a pipe "
                                    "without a writer, or on a mount that does not respond "
                                    "(--open-timeout SECONDS allows more)",
                                    FormatLimit(limit))
            : worker.isStopped
                ? fmt::format("cannot go on: the worker process was stopped for {} s "
                              "(--stall-timeout SECONDS allows more, 0 any time)",
                              FormatLimit(limit))
                : fmt::format("cannot read the file: it delivered nothing for {} s "
                              "(--stall-timeout SECONDS allows more, 0 any time)",
                              FormatLimit(limit));
        KillChild(worker.process);
        if (isOpening) {
            Lose(index, JobError(worker.state.File(), message));
        } else {
            Lose(index, std::runtime_error(message));
        }
    }

    // Loses a worker that has ended, or that has at least closed its pipe.
    void LoseEnded(std::size_t index) {
        const int status = KillChild(m_workers[index].process);
        Lose(index, std::runtime_error(fmt::format(
                        "the worker process ended with {}; the file or the plug-in is damaged",
                        DescribeTermination(status))));
    }

    // Loses a worker that the host cannot work with.
    void LoseIfBroken(std::size_t index) {
        const Worker& worker = m_workers[index];
        if (worker.failure.empty()) {
            return;
        }
        const int status = KillChild(worker.process);
        const bool endedItself = !WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL;
        Lose(index, std::runtime_error(
                        worker.failure +
                        (endedItself ? "; it ended with " + DescribeTermination(status) : "")));
    }

    // Forgets a worker that is gone, and fails the jobs whose end it has not reported.
    void Lose(std::size_t index, const std::exception& error) {
        std::vector<Worker> lost;
        lost.push_back(std::move(m_workers[index]));
        m_workers.erase(m_workers.begin() + static_cast<std::ptrdiff_t>(index));
        Worker& worker = lost.front();
        ReceivePrinted(worker);
        EndLine(worker);
        RemoveLeftovers(lost);
        for (std::size_t job = 0; job < m_jobs.size(); ++job) {
            if (m_claims.IsOf(job, worker.number) && !m_isFinished[job]) {
                Finish(job, {false, {}, DescribeFailure(error, m_jobs[job])});
            }
        }
    }

    // Removes the files that killed workers have left. In a process of its own: a mount that does
    // not respond would stop the host, too.
    void RemoveLeftovers(const std::vector<Worker>& workers) const {
        const auto leavesFiles = [this](const Worker& worker) {
            const auto job = JobOf(worker);
            return job.has_value() && !m_jobs[*job].outputDirectory.empty();
        };
        const auto remove = [&] {
            for (const Worker& worker : workers) {
                if (leavesFiles(worker)) {
                    RemoveTemporaryFiles(m_jobs[*JobOf(worker)].outputDirectory, worker.process);
                }
            }
        };
        if (std::none_of(workers.begin(), workers.end(), leavesFiles)) {
            return;
        }
        constexpr std::chrono::milliseconds kLimit{5000};
        pid_t remover = -1;
        try {
            remover = ForkChild();
        } catch (const JobError&) {
            remove(); // no process can be started
            return;
        }
        if (remover == 0) {
            ExitAfter(remove);
        }
        if (!WaitForEnd(remover, kLimit).has_value()) {
            KillChild(remover);
        }
    }

    // Waits for the ends of the workers, which find no job left.
    void Dismiss() {
        constexpr std::chrono::milliseconds kLimit{500};
        const Clock::time_point end = Clock::now() + kLimit;
        for (const Worker& worker : m_workers) {
            // The pipe closes when the process ends.
            pollfd polled{worker.messages.Number(), POLLIN, 0};
            poll(&polled, 1, static_cast<int>(TimeLeft(end).count()));
            KillChild(worker.process);
        }
        m_workers.clear();
    }

    void Finish(std::size_t job, const JobOutcome& outcome) {
        ++m_finished;
        m_isFinished[job] = true;
        m_observer.OnFinished(job, outcome);
    }

    static constexpr std::size_t kBufferSize = 65536;

    const std::vector<Job>& m_jobs;
    const WorkerOptions& m_options;
    JobObserver& m_observer;
    // For what is received. Not cleared: most messages are short, and touch one page of it.
    std::unique_ptr<char[]> m_buffer{new char[kBufferSize]};
    SignalReader m_signals;
    std::vector<Worker> m_workers;
    AttentiveClock m_clock;
    Duration m_nextWatch{};
    JobClaims m_claims;
    std::vector<bool> m_isFinished; // of each job
    std::size_t m_finished = 0;     // number of them
    std::uint32_t m_started = 0;    // number of workers, also of those that are gone
};

} // namespace

void RunJobs(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer) {
    WorkerPool(jobs, options, observer).Run();
}

} // namespace kel::host
