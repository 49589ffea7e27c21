/// Milestones: operations whose start should be visible in the log.
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

/// Stands for a running operation: whoever runs it keeps the handle from the start to the end,
/// normal or by an exception.
class KEL_CORE_EXPORT IMilestone {
public:
    virtual ~IMilestone();
};

/// Returns the handle that stands for the operation @p name. The framework keeps no record of its
/// own of milestones; what a host sees is the record at level Milestone that goes with one.
/// Any thread may call it.
KEL_CORE_EXPORT std::shared_ptr<IMilestone> CreateMilestone(std::string name);

} // namespace kel
