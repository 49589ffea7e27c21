/// Base of every unit of media.
#pragma once

#include "Export.h"

namespace kel {

/// One unit of media. Immutable once shared as const.
class KEL_CORE_EXPORT ISample {
public:
    virtual ~ISample();
};

} // namespace kel
