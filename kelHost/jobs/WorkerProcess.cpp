#include "jobs/WorkerProcess.h"

#include "base/Errors.h"
#include "jobs/Posix.h"
#include "jobs/WorkerMessage.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <mutex>
#include <stdio_ext.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = WorkerMessage::Kind;

// Reports about one job to the host. The texts of messages are escaped for display.
class PipeReporter final : public Reporter {
public:
    PipeReporter(int descriptor, std::uint32_t job, WorkerState& state, bool progress)
        : m_descriptor(descriptor), m_job(job), m_state(state), m_wantsProgress(progress) {}

    void Opening(const std::string& file) override { m_state.BeginOpening(file); }
    void Opened() override { m_state.EndOpening(); }

    void Progress(std::int64_t done, std::int64_t total, std::uint32_t rate) override {
        constexpr std::chrono::milliseconds kInterval{100};
        if (!m_wantsProgress) {
            return;
        }
        const Clock::time_point now = Clock::now();
        const bool isEnd = total != kUnknownTotal && done >= total;
        if (isEnd || now - m_lastProgress >= kInterval) {
            m_lastProgress = now;
            Send(Kind::Progress,
                 {std::to_string(done), std::to_string(total), std::to_string(rate)});
        }
    }

    void Show(const std::string& line) override { Send(Kind::Show, {line}); }
    void BeginReading() override { m_state.StepReading(); }
    void EndReading() override { m_state.StepReading(); }

    // Any thread may send: a log record comes from the thread that logs.
    void Send(Kind kind, std::vector<std::string> fields) {
        const std::string bytes = Encode({kind, m_job, std::move(fields)});
        const std::lock_guard<std::mutex> lock(m_mutex); // a long message is not written at once
        if (!WriteAll(m_descriptor, bytes.data(), bytes.size())) {
            _exit(kFailure); // the host is gone
        }
    }

private:
    int m_descriptor;
    std::uint32_t m_job;
    WorkerState& m_state;
    bool m_wantsProgress;
    Clock::time_point m_lastProgress = Clock::now();
    std::mutex m_mutex;
};

// The last message of a job.
struct Ending {
    Kind kind;
    std::vector<std::string> fields;
};

Ending Failure(const ErrorText& error) {
    return {Kind::Error, {error.file, error.message, error.path}};
}

Ending RunOne(const Job& job, Reporter& reporter) {
    try {
        JobResult result = job.run(reporter);
        Ending ending{result.isSkipped ? Kind::Skipped : Kind::Result, {}};
        for (std::string* field : {&result.document, &result.output, &result.report}) {
            ending.fields.push_back(std::move(*field)); // they may be large
        }
        return ending;
    } catch (const std::exception& error) {
        return Failure(DescribeError(error, job.file));
    } catch (...) {
        return Failure(DescribeError(JobError(job.file, "an exception of an unknown type")));
    }
}

} // namespace

void RunWorker(const std::vector<Job>& jobs, bool progress, const WorkerEnds& ends,
               WorkerState& state) {
    try {
        // The host's unwritten output belongs to the host.
        __fpurge(stdout);
        // Only messages reach the user; standard input stays, because it may be the input.
        if (dup2(ends.printed.Number(), STDOUT_FILENO) < 0 ||
            dup2(ends.printed.Number(), STDERR_FILENO) < 0) {
            _exit(kFailure);
        }
        std::uint32_t number = 0;
        while (ReadAll(ends.commands.Number(), &number, sizeof number) && number < jobs.size()) {
            PipeReporter reporter(ends.messages.Number(), number, state, progress);
            Ending ending = RunOne(jobs[number], reporter);
            state.EndOpening();
            // Afterwards the lines are those of the next job.
            static_cast<void>(std::fflush(stdout));
            reporter.Send(ending.kind, std::move(ending.fields));
        }
    } catch (...) {
        // The host's own handlers must not run in its copy in this process.
        _exit(kFailure);
    }
    _exit(kSuccess);
}

} // namespace kel::host
