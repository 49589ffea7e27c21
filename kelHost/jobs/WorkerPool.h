/// Work in processes of its own: a file that hangs or crashes the one that works on it ends alone.
#pragma once

#include "jobs/Posix.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kel::host {

/// How a job tells the host what it is doing. Used by one thread at a time, in the worker.
class Reporter {
public:
    virtual ~Reporter() = default;

    /// The job begins to open a file; it must be open within the time that WorkerOptions allows.
    virtual void Opening(const std::string& file) = 0;

    /// The file is open.
    virtual void Opened() = 0;

    /// So much of the job is done; passed on ten times a second at most, and the end
    /// always.
    /// @param done of @p total, in frames
    /// @param rate frames per second
    virtual void Progress(std::int64_t done, std::int64_t total, std::uint32_t rate) = 0;

    /// A line for the user.
    virtual void Show(const std::string& line) = 0;
};

/// One piece of work.
struct Job {
    std::string file;            ///< what it works on, for messages
    std::string outputDirectory; ///< where it leaves temporary files when it is ended; may be empty
    /// Does it, in a worker. What it returns is JobOutcome::result; a JobError is its failure.
    std::function<nlohmann::json(Reporter&)> run;
};

/// What became of a job.
struct JobOutcome {
    bool succeeded = false;
    std::string result; ///< JSON text, when it succeeded
    std::string error;  ///< otherwise why not
};

/// What is told of jobs while they run. All functions are called on the thread that called RunJobs.
class JobObserver {
public:
    virtual ~JobObserver() = default;
    virtual void OnProgress(std::size_t job, std::int64_t done, std::int64_t total,
                            std::uint32_t rate) = 0;
    virtual void OnShow(std::size_t job, const std::string& line) = 0;
    virtual void OnFinished(std::size_t job, const JobOutcome& outcome) = 0;
};

/// How the jobs are run.
struct WorkerOptions {
    unsigned workers = 1;                    ///< most processes at once, not 0
    std::chrono::milliseconds openTimeout{}; ///< how long opening a file may take
    bool progress = true;                    ///< whether anybody wants to know of progress
};

/// Runs jobs in worker processes, in order of their numbers, several at once. A worker does one job
/// after the other; one that crashes, or takes too long to open a file, fails its job alone, and
/// another takes its place. Returns when every job has an outcome.
///
/// Called where the process has no other threads: the workers are forked.
/// @throws Interrupted when a signal ended the work, JobError when no worker can be started
void RunJobs(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer);

} // namespace kel::host
