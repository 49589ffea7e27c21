/// Base of every media description.
#pragma once

#include "Export.h"

namespace kel {

/// A description of one stream of media. Immutable once shared as const, so that any number of
/// threads may read it; so are all descriptions that derive from it.
class KEL_CORE_EXPORT IInfo {
public:
    virtual ~IInfo();
};

} // namespace kel
