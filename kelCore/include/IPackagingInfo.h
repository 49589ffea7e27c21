/// How media is packaged.
#pragma once

#include "Export.h"

namespace kel {

/// Description of the packaging of infos or samples. An application's own; the framework hands it
/// through unread.
class KEL_CORE_EXPORT IPackagingInfo {
public:
    virtual ~IPackagingInfo();
};

} // namespace kel
