/// Packaging of media.
/// The application defines it, and with it the threads that may use it.
/// @ingroup streams
#pragma once

#include "Export.h"

namespace kel {

/// Description of the packaging of infos or samples. The framework stores it and does not read it.
class KEL_CORE_EXPORT IPackagingInfo {
public:
    virtual ~IPackagingInfo();
};

} // namespace kel
