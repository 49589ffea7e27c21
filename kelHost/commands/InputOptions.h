/// Options of all commands that read audio files. Used by one thread.
#pragma once

#include "base/FileName.h"
#include "commands/Option.h"
#include "container/InputPolicy.h"

#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The options as they are typed.
struct InputArguments {
    bool allowTruncated = false;
    bool repair = false;
    std::optional<std::string> directory;
    std::string maxSpool = "8G";

    /// Returns the options, which refer to this object.
    std::vector<Option> Options();

    /// @throws UsageError when a value is invalid
    InputPolicy Interpret() const;
};

/// Returns inputs as they were typed, of which one may be "-" for standard input.
/// @throws UsageError when several are
std::vector<FileName> InputNames(const std::vector<std::string>& typed);

} // namespace kel::host
