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
    /// Maximum time of a read of the input, and of a worker that is stopped; 0 for no limit.
    std::chrono::milliseconds stallTimeout{};
    bool progress = true; ///< whether progress is reported, and what a job waits for
};

/// Runs jobs in worker processes, in the order of their numbers, several at once. A worker does one
/// job after the other. One that crashes, takes too long to open or to read its input, or cannot be
/// reached, is killed and fails only its job, and another takes its place. Returns when every job
/// has an outcome.
///
/// Time in which this process is stopped, or waits for its output to be read, does not count. What
/// libraries print in a worker is reported to the observer, and lost where it is more than a pipe
/// holds while this process is busy.
///
/// The process must have no other threads: the workers are forked.
/// @throws Interrupted when a signal ended the work, JobError when no worker can be started
void RunJobs(const std::vector<Job>& jobs, const WorkerOptions& options, JobObserver& observer);

} // namespace kel::host
