/// Receiver of the samples that a source pushes.
/// The host defines it, and with it the threads that may use it.
/// @ingroup sources
#pragma once

#include "Export.h"

namespace kel {

/// An object of the host to which a source may push its samples. Sources that deliver samples
/// through IMediaSource::GetSample ignore it.
class KEL_CORE_EXPORT IOutputMediator {
public:
    virtual ~IOutputMediator();
};

} // namespace kel
