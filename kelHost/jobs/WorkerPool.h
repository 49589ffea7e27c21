/// Jobs in worker processes: a file that hangs or crashes its worker fails alone.
#pragma once

#include "jobs/Job.h"

#include <chrono>
#include <vector>

namespace kel::host {

/// Settings of a run of jobs.
struct WorkerOptions {
    unsigned workers = 1;                    ///< maximum number of processes, not 0
    std::chrono::milliseconds openTimeout{}; ///< maximum time for opening a file
    bool progress = true;                    ///< whether progress is reported
};

/// Runs jobs in worker processes, in the order of their numbers, several at once. A worker does one
/// job after the other. One that crashes, or takes too long to open a file, fails only its job, and
/// another takes its place. Returns when every job has an outcome.
///
/// The process must have no other threads: the workers are forked.
/// @throws Interrupted when a signal ended the work, JobError when no worker can be started
void RunJobs(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer);

} // namespace kel::host
