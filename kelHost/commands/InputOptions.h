/// Options of all commands that read whole files. Used by one thread.
#pragma once

#include "commands/Option.h"
#include "container/InputPolicy.h"

#include <vector>

namespace kel::host {

/// Returns the options.
/// @param policy receives the values; outlives the options
std::vector<Option> InputOptions(InputPolicy& policy);

} // namespace kel::host
