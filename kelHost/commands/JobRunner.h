/// Running the jobs of a command. Used by one thread.
#pragma once

#include "commands/CommonOptions.h"
#include "elements/HostLogger.h"
#include "jobs/Console.h"
#include "jobs/Job.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// The work of a job, done in a worker with a logger installed.
using Work = std::function<JobResult(const HostLogger&, Reporter&)>;

/// The jobs of a command.
class JobRunner {
public:
    /// @param err receives errors, log lines and progress; outlives the runner
    JobRunner(const CommonOptions& common, std::ostream& err);

    /// Adds a job.
    /// @param file the file to work on, for messages
    /// @param output the file that the job writes; empty for none
    void Add(const std::string& file, const std::string& output, Work work);

    /// Runs the jobs.
    /// @param show receives each result, in the order of the jobs; not called with --json
    /// @return the number of jobs that failed
    std::size_t Run(const std::function<void(const JobResult&)>& show);

    /// The JSON texts of the results, in the order of the jobs; those of failed jobs are missing.
    const std::vector<std::string>& Documents() const { return m_documents; }

    /// Number of jobs in which nothing was to be done.
    std::size_t Skipped() const { return m_skipped; }

    /// The results as a JSON array.
    nlohmann::json Results() const;

    /// The failures as a JSON array.
    nlohmann::json Failures() const;

    /// Shows an error.
    void ShowError(const ErrorText& error) { m_console.ShowError(error); }

private:
    const CommonOptions& m_common;
    Console m_console;
    std::vector<Job> m_jobs;
    std::vector<std::string> m_documents;
    std::size_t m_skipped = 0;
};

} // namespace kel::host
