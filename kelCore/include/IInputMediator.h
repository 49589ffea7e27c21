/// Provider of the samples that a sink pulls.
#pragma once

#include "Export.h"

namespace kel {

/// An object of the host that a sink may be given to pull its samples from. Sinks that are fed with
/// IMediaSink::PushSample do not take one.
class KEL_CORE_EXPORT IInputMediator {
public:
    virtual ~IInputMediator();
};

} // namespace kel
