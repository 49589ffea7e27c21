/// Corrections of mistyped names. Pure functions.
#pragma once

#include "base/Errors.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Returns the name that a mistyped word most likely means: one with few different characters, in
/// upper or lower case, or one that the word begins or is a part of. None when no name is close.
std::optional<std::string> ClosestName(std::string_view word,
                                       const std::vector<std::string>& names);

/// Returns the message for a name that does not exist, with the closest one or else all.
/// @param kind "command"
std::string DescribeUnknown(std::string_view kind, std::string_view name,
                            const std::vector<std::string>& names);

/// Returns the error of an option whose value is none of its choices, with the closest one.
/// @param name "--encoding"
UsageError InvalidChoice(std::string_view name, std::string_view value,
                         const std::vector<std::string>& choices);

} // namespace kel::host
