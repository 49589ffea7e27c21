/// The side of the worker: a process that does jobs and reports them to the host.
#pragma once

#include "base/Descriptor.h"
#include "jobs/Job.h"
#include "jobs/WorkerState.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace kel::host {

/// The worker's ends of the pipes to the host.
struct WorkerEnds {
    Descriptor messages; ///< receives the worker's messages
    Descriptor printed;  ///< receives what libraries print
};

/// Takes jobs and does them until none is left, and ends the process. Standard output and error are
/// redirected, because only messages reach the user.
/// @param take returns the number of the next job; none when none is left
/// @param progress whether progress is reported
/// @param state shared with the host
[[noreturn]] void RunWorker(const std::vector<Job>& jobs,
                            const std::function<std::optional<std::size_t>()>& take, bool progress,
                            const WorkerEnds& ends, WorkerState& state);

} // namespace kel::host
