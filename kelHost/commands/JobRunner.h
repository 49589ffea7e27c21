/// Running the jobs of a command. Used by one thread.
#pragma once

#include "base/Errors.h"
#include "base/FileName.h"
#include "base/FileTree.h"
#include "commands/CommonOptions.h"
#include "elements/HostLogger.h"
#include "jobs/Console.h"
#include "jobs/Job.h"
#include "jobs/SkippedFile.h"

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
    /// @param file the file to work on, for messages; without a path where that is several files
    /// @param output the file that the job writes; empty for none
    void Add(const FileName& file, const std::string& output, Work work);

    /// Runs the jobs. To be called once.
    /// @param show receives each result, in the order of the jobs; not called with --json
    /// @return the number of failures
    std::size_t Run(const std::function<void(const JobResult&)>& show);

    /// Shows and adds what became of directories, before the jobs run.
    /// @param failures directories that cannot be read
    /// @param unused links and special files
    /// @param show receives the results of unused files; not called with --json
    void Begin(const std::vector<JobError>& failures, const std::vector<UnusedFile>& unused,
               const std::function<void(const JobResult&)>& show);

    /// Forgets the documents of results as soon as they are shown, except with --json. A tree may
    /// have a million files.
    void ForgetDocuments() { m_keepsDocuments = m_common.style.json; }

    /// The JSON texts of the results, in the order of the jobs; those of failed jobs are missing.
    const std::vector<std::string>& Documents() const { return m_documents; }

    /// Numbers of files with which nothing was to be done.
    const SkipCounts& Skipped() const { return m_skipped; }

    /// The results as a JSON array.
    nlohmann::json Results() const;

    /// The files with which nothing was to be done, as a JSON array.
    nlohmann::json SkippedFiles() const;

    /// The same with "file" and "reason", for commands without outputs.
    nlohmann::json SkippedInputs() const;

    /// Number of directories that could not be read, which are failures, too.
    std::size_t UnreadDirectories() const { return m_unreadDirectories; }

    /// The failures as a JSON array.
    nlohmann::json Failures() const;

    /// Shows an error.
    void ShowError(const ErrorText& error) { m_console.ShowError(error); }

private:
    void AddSkipped(const JobResult& result);

    const CommonOptions& m_common;
    Console m_console;
    std::vector<Job> m_jobs;
    bool m_keepsDocuments = true;
    std::vector<std::string> m_documents;
    std::vector<std::string> m_skippedDocuments; // with --json only
    SkipCounts m_skipped;
    std::vector<ErrorText> m_failures;
    std::size_t m_unreadDirectories = 0; // the first of them
};

/// Returns the failures as the end of a summary of files: "2 failed", and directories apart from
/// them: "2 failed; 1 directory could not be read".
/// @param failed files and directories
std::string FormatFailed(std::size_t failed, std::size_t directories);

} // namespace kel::host
