/// Milestones: operations whose start should be visible in the log.
/// Any thread may call the function; a handle has no state.
/// @ingroup logging
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

/// Represents a running operation: its caller holds the handle from the start to the end, which may
/// be an exception.
class KEL_CORE_EXPORT IMilestone {
public:
    virtual ~IMilestone();
};

/// Returns a new handle for the operation @p name. The framework does not list milestones: a host
/// sees the record at level Milestone that the operation writes.
KEL_CORE_EXPORT std::shared_ptr<IMilestone> CreateMilestone(std::string name);

} // namespace kel
