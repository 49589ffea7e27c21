/// A step of a workflow.
#pragma once

#include "Export.h"

namespace kel {

/// The step of a workflow that an element is made for. An application's own; the framework hands it
/// through unread.
class KEL_CORE_EXPORT IStep {
public:
    virtual ~IStep();
};

} // namespace kel
