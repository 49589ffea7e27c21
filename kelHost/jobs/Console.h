/// Display of errors, log lines and progress of a run of jobs.
#pragma once

#include "base/Errors.h"
#include "jobs/Job.h"
#include "jobs/Progress.h"
#include "jobs/WorkerPool.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// Style of results, errors and progress.
struct ConsoleStyle {
    bool json = false;  ///< errors and log records as JSON documents
    bool quiet = false; ///< no reports and no progress
    ProgressStyle progress = ProgressStyle::None;
    std::size_t width = 80;   ///< characters in a line of the terminal that shows progress
    bool showsPrinted = true; ///< lines that libraries print are shown, as log records
    bool colours = false;     ///< errors and warnings are coloured
};

/// Runs jobs and shows their outcomes in the order of the jobs, each as soon as those before it
/// have ended: errors itself, results through a function of the command. One thread at a time.
class Console final : public JobObserver {
public:
    /// Receives the number of a job and its result.
    using OnResult = std::function<void(std::size_t job, const JobResult& result)>;

    /// @param err receives errors, log lines and progress; outlives the console
    Console(std::ostream& err, ConsoleStyle style) : m_err(err), m_style(style) {}

    /// Runs the jobs.
    /// @return the number of jobs that failed
    /// @throws Interrupted, JobError as RunJobs does
    std::size_t Run(const std::vector<Job>& jobs, const WorkerOptions& options, OnResult onResult);

    /// Shows an error.
    void ShowError(const ErrorText& error);

    /// Shows a line of the log, escaped.
    void ShowLog(const std::string& line);

    /// The errors of the jobs that failed in the last run.
    const std::vector<ErrorText>& Failures() const { return m_failures; }

    void OnSpooled(std::size_t job, std::uint64_t bytes) override;
    void OnProgress(std::size_t job, std::int64_t done, std::int64_t total,
                    std::uint32_t rate) override;
    void OnWaiting(std::size_t job, std::int64_t seconds) override;
    void OnShow(std::size_t job, const std::string& line) override;
    void OnPrinted(std::size_t job, const std::string& line) override;
    void OnFinished(std::size_t job, const JobOutcome& outcome) override;

private:
    void ShowLine(const std::string& line);
    void Deliver(std::size_t job, const JobOutcome& outcome);

    std::ostream& m_err;
    ConsoleStyle m_style;
    OnResult m_onResult;
    const std::vector<Job>* m_jobs = nullptr;    // of the current run
    Progress* m_progress = nullptr;              // of the current run
    std::map<std::size_t, JobOutcome> m_waiting; // for jobs before them
    std::size_t m_next = 0;                      // the job to deliver next
    std::vector<ErrorText> m_failures;
};

} // namespace kel::host
