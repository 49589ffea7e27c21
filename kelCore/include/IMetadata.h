/// An item of metadata.
#pragma once

#include "Export.h"

namespace kel {

/// An item of metadata of a stream or a sample. An application's own; the framework hands it
/// through unread.
class KEL_CORE_EXPORT IMetadata {
public:
    virtual ~IMetadata();
};

} // namespace kel
