/// What the user sees of a run of jobs.
#pragma once

#include "jobs/Progress.h"
#include "jobs/WorkerPool.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// How results, errors and progress are given out.
struct ConsoleStyle {
    bool json = false;  ///< errors and log records as JSON documents
    bool quiet = false; ///< no reports and no progress
    ProgressStyle progress = ProgressStyle::Nothing;
    std::size_t width = 80; ///< characters in a line of the terminal that shows progress
};

/// Runs jobs and shows what becomes of them, in the order of the jobs, each as soon as those before
/// it have ended: errors itself, results through the functions of the command.
class Console final : public JobObserver {
public:
    /// Is given the number of a job and the JSON text of its result.
    using OnResult = std::function<void(std::size_t job, const std::string& result)>;

    Console(std::ostream& err, ConsoleStyle style) : m_err(err), m_style(style) {}

    /// Runs the jobs.
    /// @return how many failed
    std::size_t Run(const std::vector<Job>& jobs, const WorkerOptions& options, OnResult onResult);

    /// Shows an error in the style that was asked for.
    /// @param file the file that it is about, escaped; may be empty
    void ShowError(const std::string& file, const std::string& message);

    /// Shows a line of the log in the style that was asked for.
    void ShowLog(const std::string& line);

    /// What failed in the last run: the job's file and the error, escaped.
    struct Failure {
        std::string file;
        std::string error;
    };
    const std::vector<Failure>& Failures() const { return m_failures; }

    void OnProgress(std::size_t job, std::int64_t done, std::int64_t total,
                    std::uint32_t rate) override;
    void OnShow(std::size_t job, const std::string& line) override;
    void OnFinished(std::size_t job, const JobOutcome& outcome) override;

private:
    void ShowLine(const std::string& line);
    void Deliver(std::size_t job, const JobOutcome& outcome);

    std::ostream& m_err;
    ConsoleStyle m_style;
    OnResult m_onResult;
    std::vector<std::string> m_files;
    Progress* m_progress = nullptr;              // of the present run
    std::map<std::size_t, JobOutcome> m_waiting; // for those before them
    std::size_t m_next = 0;                      // the job whose outcome is delivered next
    std::vector<Failure> m_failures;
};

} // namespace kel::host
