/// Base of all units of media.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup memory
#pragma once

#include "Export.h"

namespace kel {

/// One unit of media.
class KEL_CORE_EXPORT ISample {
public:
    virtual ~ISample();
};

} // namespace kel
