/// What elements are registered, and what can be set on them.
#pragma once

#include <optional>
#include <ostream>
#include <string>

namespace kel::host {

/// How Inspect shows what it finds.
enum class InspectStyle { Text, JSON };

/// Shows the registered elements as a table; or one element with its documentation, types and
/// settings.
/// @param implementation the element's name; without one, all elements
/// @throws JobError when no element of that name is registered, with the names that are
void Inspect(const std::optional<std::string>& implementation, InspectStyle style,
             std::ostream& out);

} // namespace kel::host
