/// Inputs that are accepted although their header or their end is wrong, and temporary copies.
#pragma once

#include "base/TemporaryFile.h"

namespace kel::host {

/// Exceptions that the user allows, and the place of copies.
struct InputPolicy {
    bool allowTruncated = false; ///< a file that ends early
    bool repair = false;         ///< a file with a wrong header, through a copy
    SpoolPolicy spool;           ///< copies of what cannot be sought; also the place of repairs
};

} // namespace kel::host
