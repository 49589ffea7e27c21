/// Base of everything that describes an encoding.
#pragma once

#include "Export.h"

namespace kel {

/// Parameters of an encoding, as check-input reports propose them. Immutable once shared as const.
class KEL_CORE_EXPORT IEncodingParameters {
public:
    virtual ~IEncodingParameters();
};

} // namespace kel
