#include "jobs/WorkerPool.h"

#include "base/Errors.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "jobs/Posix.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

// The worker's side of a reporter: messages to the host. They are JSON texts, a line each; texts in
// them are escaped for display, and so are UTF-8.
class PipeReporter final : public Reporter {
public:
    PipeReporter(int descriptor, bool progress)
        : m_descriptor(descriptor), m_wantsProgress(progress) {}

    void Opening(const std::string& file) override { Send({{"opening", Escape(file)}}); }
    void Opened() override { Send({{"opened", true}}); }

    void Progress(std::int64_t done, std::int64_t total, std::uint32_t rate) override {
        constexpr std::chrono::milliseconds kInterval{100};
        if (!m_wantsProgress) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (done >= total || now - m_lastProgress >= kInterval) {
            m_lastProgress = now;
            Send({{"progress", {done, total, rate}}});
        }
    }

    void Show(const std::string& line) override { Send({{"show", line}}); }

    void Send(const json& message) const {
        const std::string line =
            message.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
        if (!WriteAll(m_descriptor, line.data(), line.size())) {
            _exit(kFailure); // the host is gone
        }
    }

private:
    int m_descriptor;
    bool m_wantsProgress;
    Clock::time_point m_lastProgress = Clock::now();
};

json RunOne(const Job& job, Reporter& reporter) {
    try {
        return {{"result", job.run(reporter)}};
    } catch (const JobError& error) {
        return {{"error", error.what()}};
    } catch (const std::exception& error) {
        return {{"error", fmt::format("{}: {}", Escape(job.file), Escape(UserMessage(error)))}};
    } catch (...) {
        return {{"error", fmt::format("{}: an exception of an unknown type", Escape(job.file))}};
    }
}

// The life of a worker: takes numbers of jobs until there are no more.
[[noreturn]] void Work(const std::vector<Job>& jobs, bool progress, int commands, int messages) {
    try {
        PipeReporter reporter(messages, progress);
        std::uint32_t number = 0;
        while (read(commands, &number, sizeof number) == sizeof number) {
            reporter.Send(RunOne(jobs[number], reporter));
        }
    } catch (...) {
        // What the host does in such a case is not for its copy in this process.
        _exit(kFailure);
    }
    _exit(kSuccess);
}

struct Worker {
    pid_t process = -1;
    Descriptor commands;
    Descriptor messages;
    std::string received; // the beginning of a message
    std::optional<std::size_t> job;
    std::string opening; // the file that is being opened, "" for none
    Clock::time_point openBy;
};

class Host {
public:
    Host(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer)
        : m_jobs(jobs), m_options(options), m_observer(observer) {}

    ~Host() {
        for (Worker& worker : m_workers) {
            kill(worker.process, SIGKILL);
            waitpid(worker.process, nullptr, 0);
            try {
                RemoveLeftovers(worker);
            } catch (...) { // NOLINT(bugprone-empty-catch): no memory, and nobody left to tell
            }
        }
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void Run() {
        const std::size_t wanted = std::min<std::size_t>(m_options.workers, m_jobs.size());
        while (m_finished < m_jobs.size()) {
            StartWorkers(wanted);
            WaitForMessages();
            KillTimedOut();
        }
        for (Worker& worker : m_workers) {
            worker.commands = Descriptor(); // no more jobs
            waitpid(worker.process, nullptr, 0);
        }
        m_workers.clear();
    }

private:
    // Where the system has no room for so many, fewer do.
    void StartWorkers(std::size_t wanted) {
        try {
            while (m_workers.size() < wanted && m_next < m_jobs.size()) {
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
        Pipe commands = MakePipe();
        Pipe messages = MakePipe();
        const pid_t host = getpid();
        const pid_t process = fork();
        if (process < 0) {
            FailToStart(errno);
        }
        if (process == 0) {
            // A worker must not outlive its host, nor keep the pipes of the others open.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != host) {
                _exit(kFailure);
            }
            for (Worker& other : m_workers) {
                close(other.commands.Number());
                close(other.messages.Number());
            }
            close(commands.out.Number());
            close(messages.in.Number());
            Work(m_jobs, m_options.progress, commands.in.Number(), messages.out.Number());
        }
        Worker worker;
        worker.process = process;
        worker.commands = std::move(commands.out);
        worker.messages = std::move(messages.in);
        m_workers.push_back(std::move(worker));
        GiveJob(m_workers.back());
    }

    void GiveJob(Worker& worker) {
        worker.job.reset();
        worker.opening.clear();
        if (m_next < m_jobs.size()) {
            const auto number = static_cast<std::uint32_t>(m_next);
            worker.job = m_next++;
            // If the worker has died, its end of the other pipe tells so.
            WriteAll(worker.commands.Number(), &number, sizeof number);
        }
    }

    void WaitForMessages() {
        std::vector<pollfd> polled{{m_signals.Number(), POLLIN, 0}};
        for (const Worker& worker : m_workers) {
            polled.push_back({worker.messages.Number(), POLLIN, 0});
        }
        poll(polled.data(), polled.size(), MillisecondsToWait());
        m_signals.Check();
        // Backwards, as a worker that has died is taken out.
        for (std::size_t i = m_workers.size(); i-- > 0;) {
            if (polled[i + 1].revents != 0) {
                Receive(i);
            }
        }
    }

    int MillisecondsToWait() const {
        std::optional<Clock::time_point> first;
        for (const Worker& worker : m_workers) {
            if (!worker.opening.empty() && (!first.has_value() || worker.openBy < *first)) {
                first = worker.openBy;
            }
        }
        if (!first.has_value()) {
            return -1;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(*first - Clock::now()).count();
        return static_cast<int>(std::clamp<std::int64_t>(left + 1, 0, 60000));
    }

    void Receive(std::size_t place) {
        Worker& worker = m_workers[place];
        std::array<char, 65536> bytes{};
        const ssize_t count = read(worker.messages.Number(), bytes.data(), bytes.size());
        if (count <= 0) {
            int status = 0;
            waitpid(worker.process, &status, 0);
            Lose(place, WIFSIGNALED(status)
                            ? fmt::format("ended by signal {} ({})", WTERMSIG(status),
                                          strsignal(WTERMSIG(status)))
                            : fmt::format("ended with status {}", WEXITSTATUS(status)));
            return;
        }
        worker.received.append(bytes.data(), static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = worker.received.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            Handle(worker, json::parse(worker.received.substr(begin, end - begin)));
        }
        worker.received.erase(0, begin);
    }

    void Handle(Worker& worker, const json& message) {
        const std::size_t job = *worker.job;
        if (message.contains("opening")) {
            worker.opening = message["opening"].get<std::string>();
            worker.openBy = Clock::now() + m_options.openTimeout;
        } else if (message.contains("opened")) {
            worker.opening.clear();
        } else if (message.contains("progress")) {
            const json& progress = message["progress"];
            m_observer.OnProgress(job, progress[0], progress[1], progress[2]);
        } else if (message.contains("show")) {
            m_observer.OnShow(job, message["show"]);
        } else {
            JobOutcome outcome;
            outcome.succeeded = message.contains("result");
            outcome.result = outcome.succeeded ? message["result"].dump() : "";
            outcome.error = outcome.succeeded ? "" : message["error"].get<std::string>();
            GiveJob(worker);
            Finish(job, outcome);
        }
    }

    void KillTimedOut() {
        for (std::size_t i = m_workers.size(); i-- > 0;) {
            Worker& worker = m_workers[i];
            if (worker.opening.empty() || Clock::now() < worker.openBy) {
                continue;
            }
            kill(worker.process, SIGKILL);
            waitpid(worker.process, nullptr, 0);
            const double seconds = std::chrono::duration<double>(m_options.openTimeout).count();
            LoseWith(i, fmt::format("{}: could not be opened within {} s; it is damaged, or nobody "
                                    "writes into it (--open-timeout SECONDS allows more)",
                                    worker.opening, seconds));
        }
    }

    // Forgets a worker that is gone, and fails its job.
    void Lose(std::size_t place, const std::string& how) {
        const auto job = m_workers[place].job;
        LoseWith(place, job.has_value()
                            ? fmt::format("{}: the process that worked on it was {}; the file is "
                                          "damaged, or the plug-in is",
                                          Escape(m_jobs[*job].file), how)
                            : how);
    }

    void LoseWith(std::size_t place, const std::string& error) {
        const Worker worker = std::move(m_workers[place]);
        m_workers.erase(m_workers.begin() + static_cast<std::ptrdiff_t>(place));
        RemoveLeftovers(worker);
        if (worker.job.has_value()) {
            Finish(*worker.job, {false, "", error});
        }
    }

    void RemoveLeftovers(const Worker& worker) const {
        if (worker.job.has_value() && !m_jobs[*worker.job].outputDirectory.empty()) {
            RemoveTemporaryFiles(m_jobs[*worker.job].outputDirectory, worker.process);
        }
    }

    void Finish(std::size_t job, const JobOutcome& outcome) {
        ++m_finished;
        m_observer.OnFinished(job, outcome);
    }

    const std::vector<Job>& m_jobs;
    const WorkerOptions& m_options;
    JobObserver& m_observer;
    SignalReader m_signals;
    std::vector<Worker> m_workers;
    std::size_t m_next = 0;
    std::size_t m_finished = 0;
};

} // namespace

void RunJobs(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer) {
    Host(jobs, options, observer).Run();
}

} // namespace kel::host
