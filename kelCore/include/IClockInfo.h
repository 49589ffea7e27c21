/// Description of a clock.
/// The application defines it, and with it the threads that may use it.
/// @ingroup streams
#pragma once

#include "Export.h"

namespace kel {

/// The clock that a position was read from. The framework stores it and does not read it.
class KEL_CORE_EXPORT IClockInfo {
public:
    virtual ~IClockInfo();
};

} // namespace kel
