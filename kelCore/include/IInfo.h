/// Base of all descriptions of media.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup streams
#pragma once

#include "Export.h"

namespace kel {

/// A description of one stream of media.
class KEL_CORE_EXPORT IInfo {
public:
    virtual ~IInfo();
};

} // namespace kel
