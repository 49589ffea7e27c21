/// The one exception type of the framework and its elements.
#pragma once

#include "Export.h"

#include <stdexcept>
#include <string>

namespace kel {

/// Thrown on purpose by everything in the framework and its elements; what() is the complete
/// message, exactly as given. Defined in the header so that a host, the framework and a plug-in
/// catch one and the same type.
class KEL_CORE_EXPORT KELRuntimeError : public std::runtime_error {
public:
    /// @param message the complete message
    explicit KELRuntimeError(const std::string& message) : std::runtime_error(message) {}
};

} // namespace kel
