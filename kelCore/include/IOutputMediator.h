/// Receiver of the samples that a source pushes.
#pragma once

#include "Export.h"

namespace kel {

/// An object of the host that a source may be given to push its samples to. Sources that are pulled
/// with IMediaSource::GetSample ignore it.
class KEL_CORE_EXPORT IOutputMediator {
public:
    virtual ~IOutputMediator();
};

} // namespace kel
