/// Base of all descriptions of encodings.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup formats
#pragma once

#include "Export.h"

namespace kel {

/// Parameters of an encoding, as the reports of input checks propose them.
class KEL_CORE_EXPORT IEncodingParameters {
public:
    virtual ~IEncodingParameters();
};

} // namespace kel
