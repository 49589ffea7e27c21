/// Long work in steps.
#pragma once

#include <functional>

namespace kel::host {

/// Runs the steps of long work, one by one.
using StepRunner = std::function<void(const std::function<void()>& step)>;

} // namespace kel::host
