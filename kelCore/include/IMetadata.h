/// An item of metadata.
/// The application defines it, and with it the threads that may use it.
/// @ingroup streams
#pragma once

#include "Export.h"

namespace kel {

/// An item of metadata of a stream or a sample. The framework stores it and does not read it.
class KEL_CORE_EXPORT IMetadata {
public:
    virtual ~IMetadata();
};

} // namespace kel
