/// A named group of tracks.
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

/// A named group of tracks. Immutable.
class KEL_CORE_EXPORT ITrackGroup {
public:
    virtual ~ITrackGroup();

    /// The name that the group was made with, in the platform's narrow text.
    virtual const std::string& GetName() const = 0;
};

/// Makes a group of tracks. Any thread may call it.
/// @param name its name, in the platform's narrow text
KEL_CORE_EXPORT std::shared_ptr<ITrackGroup> CreateTrackGroup(std::string name);

} // namespace kel
