#include "jobs/WorkerProcess.h"

#include "base/Errors.h"
#include "base/FileName.h"
#include "base/Text.h"
#include "jobs/Posix.h"
#include "jobs/WorkerMessage.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stdio_ext.h>
#include <string>
#include <thread>
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
    PipeReporter(const WorkerEnds& ends, std::size_t job, WorkerState& state, bool progress)
        : m_ends(ends), m_job(static_cast<std::uint32_t>(job)), m_state(state),
          m_wantsProgress(progress) {}

    void Opening(const std::string& file) override { m_state.BeginOpening(file); }
    void Opened() override { m_state.EndOpening(); }

    void Spooled(std::uint64_t bytes) override {
        if (m_wantsProgress) {
            Send(Kind::Spooled, {std::to_string(bytes)});
        }
    }

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

    void Show(const std::string& line) override { Send(Kind::Show, {WithNames(line)}); }

    void ShowAs(const FileName& file) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_names.emplace_back(Escape(file.path), Escape(file.shown));
    }

    void BeginReading() override { m_state.StepReading(); }
    void EndReading() override { m_state.StepReading(); }

    // Any thread may send: a log record comes from the thread that logs. Returns true when the host
    // has yet to read what was printed before.
    bool Send(Kind kind, std::vector<std::string> fields) {
        const bool hasPrinted = HasUnreadBytes(m_ends.printed);
        const std::string bytes = Encode({kind, m_job, std::move(fields), hasPrinted});
        const std::lock_guard<std::mutex> lock(m_mutex); // a long message is not written at once
        if (!WriteAll(m_ends.messages.Number(), bytes.data(), bytes.size())) {
            _exit(kFailure); // the host is gone
        }
        return hasPrinted;
    }

private:
    std::string WithNames(std::string line) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const FileName& name : m_names) {
            line = ShowName(std::move(line), name);
        }
        return line;
    }

    const WorkerEnds& m_ends;
    std::uint32_t m_job;
    std::vector<FileName> m_names; // escaped
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
        return Failure(DescribeFailure(error, job));
    } catch (...) {
        return Failure(DescribeFailure(std::runtime_error("an exception of an unknown type"), job));
    }
}

// Waits after a job until the next one may begin.
void WaitForHost(const WorkerState& state, std::size_t job, bool hasPrinted) {
    constexpr std::chrono::microseconds kMinPause{20};
    constexpr std::chrono::microseconds kMaxPause{10000};
    // Lines that are read later would be those of the next job.
    for (std::chrono::microseconds pause = kMinPause;
         state.IsHeld() || (hasPrinted && !state.AreLinesRead(job));
         pause = std::min(2 * pause, kMaxPause)) {
        std::this_thread::sleep_for(pause);
    }
}

} // namespace

void RunWorker(const std::vector<Job>& jobs,
               const std::function<std::optional<std::size_t>()>& take, bool progress,
               const WorkerEnds& ends, WorkerState& state) {
    try {
        // The host's unwritten output belongs to the host.
        __fpurge(stdout);
        // Only messages reach the user; standard input stays, because it may be the input.
        if (dup2(ends.printed.Number(), STDOUT_FILENO) < 0 ||
            dup2(ends.printed.Number(), STDERR_FILENO) < 0) {
            _exit(kFailure);
        }
        while (const auto number = take()) {
            PipeReporter reporter(ends, *number, state, progress);
            Ending ending = RunOne(jobs[*number], reporter);
            state.EndOpening();
            static_cast<void>(std::fflush(stdout));
            WaitForHost(state, *number, reporter.Send(ending.kind, std::move(ending.fields)));
        }
    } catch (...) {
        // The host's own handlers must not run in its copy in this process.
        _exit(kFailure);
    }
    _exit(kSuccess);
}

} // namespace kel::host
