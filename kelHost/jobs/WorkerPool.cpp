#include "jobs/WorkerPool.h"

#include "base/Descriptor.h"
#include "base/Errors.h"
#include "base/Numbers.h"
#include "base/OutputFile.h"
#include "base/Text.h"
#include "jobs/Posix.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using Clock = std::chrono::steady_clock;

// A message of a worker to the host.
struct Message {
    enum class Kind : char { Opening, Opened, Progress, Show, Result, Skipped, Error };

    Kind kind;
    std::vector<std::string> fields;
};

void AppendSize(std::string& bytes, std::size_t size) {
    const auto number = static_cast<std::uint32_t>(size);
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

// Reads a size that AppendSize wrote, and moves the place after it.
std::size_t TakeSize(const std::string& bytes, std::size_t& place) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + place, sizeof number);
    place += sizeof number;
    return number;
}

// The bytes of a message: the size of what follows, the kind, and each field after its size.
std::string Encode(const Message& message) {
    std::string content(1, static_cast<char>(message.kind));
    for (const std::string& field : message.fields) {
        AppendSize(content, field.size());
        content += field;
    }
    std::string bytes;
    AppendSize(bytes, content.size());
    return bytes + content;
}

// Removes the first message from received bytes; none while it is incomplete.
std::optional<Message> TakeMessage(std::string& received) {
    std::size_t place = 0;
    if (received.size() < sizeof(std::uint32_t)) {
        return std::nullopt;
    }
    const std::size_t end = TakeSize(received, place) + place;
    if (received.size() < end) {
        return std::nullopt;
    }
    Message message{static_cast<Message::Kind>(received[place++]), {}};
    while (place < end) {
        const std::size_t size = TakeSize(received, place);
        message.fields.push_back(received.substr(place, size));
        place += size;
    }
    received.erase(0, end);
    return message;
}

// Sends reports to the host. The texts are escaped for display.
class PipeReporter final : public Reporter {
public:
    PipeReporter(int descriptor, bool progress)
        : m_descriptor(descriptor), m_wantsProgress(progress) {}

    void Opening(const std::string& file) override {
        Send({Message::Kind::Opening, {Escape(file)}});
    }
    void Opened() override { Send({Message::Kind::Opened, {}}); }

    void Progress(std::int64_t done, std::int64_t total, std::uint32_t rate) override {
        constexpr std::chrono::milliseconds kInterval{100};
        if (!m_wantsProgress) {
            return;
        }
        const Clock::time_point now = Clock::now();
        const bool isEnd = total != kUnknownTotal && done >= total;
        if (isEnd || now - m_lastProgress >= kInterval) {
            m_lastProgress = now;
            Send({Message::Kind::Progress,
                  {std::to_string(done), std::to_string(total), std::to_string(rate)}});
        }
    }

    void Show(const std::string& line) override { Send({Message::Kind::Show, {line}}); }

    void Send(const Message& message) const {
        const std::string bytes = Encode(message);
        if (!WriteAll(m_descriptor, bytes.data(), bytes.size())) {
            _exit(kFailure); // the host is gone
        }
    }

private:
    int m_descriptor;
    bool m_wantsProgress;
    Clock::time_point m_lastProgress = Clock::now();
};

Message Failure(const ErrorText& error) {
    return {Message::Kind::Error, {error.file, error.message}};
}

Message RunOne(const Job& job, Reporter& reporter) {
    try {
        const JobResult result = job.run(reporter);
        return {result.isSkipped ? Message::Kind::Skipped : Message::Kind::Result,
                {result.document, result.output, result.report}};
    } catch (const std::exception& error) {
        return Failure(DescribeError(error, job.file));
    } catch (...) {
        return Failure(DescribeError(JobError(job.file, "an exception of an unknown type")));
    }
}

// Body of a worker: does the jobs whose numbers arrive until there are no more.
[[noreturn]] void Work(const std::vector<Job>& jobs, bool progress, int commands, int messages) {
    try {
        PipeReporter reporter(messages, progress);
        std::uint32_t number = 0;
        while (read(commands, &number, sizeof number) == sizeof number) {
            reporter.Send(RunOne(jobs[number], reporter));
        }
    } catch (...) {
        // The host's own handlers must not run in its copy in this process.
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
    std::string opening; // the file being opened, escaped; "" for none
    Clock::time_point openBy;
};

// The workers of a run. Kills those that are left at its end.
class WorkerPool {
public:
    WorkerPool(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer)
        : m_jobs(jobs), m_options(options), m_observer(observer) {}

    ~WorkerPool() {
        for (Worker& worker : m_workers) {
            kill(worker.process, SIGKILL);
            waitpid(worker.process, nullptr, 0);
            try {
                RemoveLeftovers(worker);
            } catch (...) { // NOLINT(bugprone-empty-catch): out of memory in a destructor
            }
        }
    }
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

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
    // Does with fewer workers when the system cannot start all of them.
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
        const pid_t process = ForkChild();
        if (process == 0) {
            // It must not keep the pipes of the other workers open.
            m_workers.clear();
            commands.out = Descriptor();
            messages.in = Descriptor();
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
            // If the worker has died, the other pipe reports its end.
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
        // Backwards, because a worker that has died is removed.
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

    void Receive(std::size_t index) {
        Worker& worker = m_workers[index];
        std::array<char, 65536> bytes{};
        const ssize_t count = read(worker.messages.Number(), bytes.data(), bytes.size());
        if (count <= 0) {
            int status = 0;
            waitpid(worker.process, &status, 0);
            const std::string how =
                WIFSIGNALED(status)
                    ? fmt::format("signal {} ({})", WTERMSIG(status), strsignal(WTERMSIG(status)))
                    : fmt::format("exit status {}", WEXITSTATUS(status));
            Lose(index,
                 std::runtime_error(fmt::format(
                     "the worker process ended with {}; the file or the plug-in is damaged", how)));
            return;
        }
        worker.received.append(bytes.data(), static_cast<std::size_t>(count));
        while (const auto message = TakeMessage(worker.received)) {
            Handle(worker, *message);
        }
    }

    void Handle(Worker& worker, const Message& message) {
        const std::size_t job = *worker.job;
        const std::vector<std::string>& fields = message.fields;
        switch (message.kind) {
        case Message::Kind::Opening:
            worker.opening = fields[0];
            worker.openBy = Clock::now() + m_options.openTimeout;
            break;
        case Message::Kind::Opened:
            worker.opening.clear();
            break;
        case Message::Kind::Progress:
            m_observer.OnProgress(job, ParseInteger<std::int64_t>(fields[0]).value(),
                                  ParseInteger<std::int64_t>(fields[1]).value(),
                                  ParseInteger<std::uint32_t>(fields[2]).value());
            break;
        case Message::Kind::Show:
            m_observer.OnShow(job, fields[0]);
            break;
        case Message::Kind::Result:
        case Message::Kind::Skipped:
            GiveJob(worker);
            Finish(job, {true,
                         {fields[0], fields[1], fields[2], message.kind == Message::Kind::Skipped},
                         {}});
            break;
        case Message::Kind::Error:
            GiveJob(worker);
            Finish(job, {false, {}, {fields[0], fields[1]}});
            break;
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
            Lose(i,
                 JobError(worker.opening,
                          fmt::format("cannot open the file within {} s; it is damaged, or a pipe "
                                      "without a writer (--open-timeout SECONDS allows more)",
                                      seconds)));
        }
    }

    // Forgets a worker that is gone, and fails its job.
    void Lose(std::size_t index, const std::exception& error) {
        const Worker worker = std::move(m_workers[index]);
        m_workers.erase(m_workers.begin() + static_cast<std::ptrdiff_t>(index));
        RemoveLeftovers(worker);
        if (worker.job.has_value()) {
            Finish(*worker.job, {false, {}, DescribeError(error, m_jobs[*worker.job].file)});
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
    WorkerPool(jobs, options, observer).Run();
}

} // namespace kel::host
