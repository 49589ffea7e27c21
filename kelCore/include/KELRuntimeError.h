/// The exception type of the framework and its elements.
/// A value like every exception: the thread that catches it owns it.
/// @ingroup checks
#pragma once

#include "Export.h"

#include <stdexcept>
#include <string>

namespace kel {

/// Thrown by the framework and its elements; what() is the complete message, unchanged. Exported so
/// that a host, the framework and a plug-in catch the same type.
class KEL_CORE_EXPORT KELRuntimeError : public std::runtime_error {
public:
    /// @param message the complete message
    explicit KELRuntimeError(const std::string& message) : std::runtime_error(message) {}
};

} // namespace kel
