/// Description of a clock.
#pragma once

#include "Export.h"

namespace kel {

/// The clock that a position was read from. An application's own; the framework hands it through
/// unread.
class KEL_CORE_EXPORT IClockInfo {
public:
    virtual ~IClockInfo();
};

} // namespace kel
