/// A named group of tracks.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup streams
#pragma once

#include "Export.h"

#include <memory>
#include <string>

namespace kel {

/// A named group of tracks.
class KEL_CORE_EXPORT ITrackGroup {
public:
    virtual ~ITrackGroup();

    /// Returns the name of the group as a narrow text, see PlatformString.h.
    /// [any, any thread, does not throw]
    virtual const std::string& GetName() const = 0;
};

/// Makes a group of tracks. Any thread may call it.
/// @param name its name as a narrow text, see PlatformString.h
KEL_CORE_EXPORT std::shared_ptr<ITrackGroup> CreateTrackGroup(std::string name);

} // namespace kel
