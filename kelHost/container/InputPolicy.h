/// Inputs that are accepted although their header or their end is wrong.
#pragma once

namespace kel::host {

/// What the user allows.
struct InputPolicy {
    bool allowTruncated = false; ///< a file that ends early
};

} // namespace kel::host
