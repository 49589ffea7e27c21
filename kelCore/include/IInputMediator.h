/// Provider of the samples that a sink pulls.
/// The host defines it, and with it the threads that may use it.
/// @ingroup sinks
#pragma once

#include "Export.h"

namespace kel {

/// An object of the host from which a sink may pull its samples. Sinks that receive samples through
/// IMediaSink::PushSample accept none.
class KEL_CORE_EXPORT IInputMediator {
public:
    virtual ~IInputMediator();
};

} // namespace kel
