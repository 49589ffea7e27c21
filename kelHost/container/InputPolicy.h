/// Inputs that are accepted although their header or their end is wrong.
#pragma once

namespace kel::host {

/// Exceptions that the user allows.
struct InputPolicy {
    bool allowTruncated = false; ///< a file that ends early
    bool repair = false;         ///< a file with a wrong header, through a copy
};

} // namespace kel::host
