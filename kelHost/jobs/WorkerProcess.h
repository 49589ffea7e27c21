/// The side of the worker: a process that does jobs and reports them to the host.
#pragma once

#include "base/Descriptor.h"
#include "jobs/Job.h"
#include "jobs/WorkerState.h"

#include <vector>

namespace kel::host {

/// The ends of the pipes that a worker uses.
struct WorkerEnds {
    Descriptor commands; ///< the numbers of the jobs to do
    Descriptor messages; ///< receives the worker's messages
    Descriptor printed;  ///< receives what libraries print
};

/// Does the jobs whose numbers arrive until there are no more, and ends the process. Standard
/// output and error are redirected, because only messages reach the user.
/// @param progress whether progress is reported
/// @param state what the worker waits for
[[noreturn]] void RunWorker(const std::vector<Job>& jobs, bool progress, const WorkerEnds& ends,
                            WorkerState& state);

} // namespace kel::host
