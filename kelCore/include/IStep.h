/// A step of a workflow.
/// The application defines it, and with it the threads that may use it.
/// @ingroup making
#pragma once

#include "Export.h"

namespace kel {

/// The step of a workflow that an element is made for. The framework does not read it.
class KEL_CORE_EXPORT IStep {
public:
    virtual ~IStep();
};

} // namespace kel
