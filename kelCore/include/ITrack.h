/// A track of a medium.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup streams
#pragma once

#include "ContentType.h"
#include "Export.h"
#include "TrackLayout.h"

#include <cstdint>
#include <memory>

namespace kel {

class ITrackGroup;

/// A track of a medium.
class KEL_CORE_EXPORT ITrack {
public:
    virtual ~ITrack();

    /// Returns the content type of the track.
    /// [any, any thread, does not throw]
    virtual ContentType GetContentType() const = 0;
    /// Returns the number of channels in the track; may be 0.
    /// [any, any thread, does not throw]
    virtual std::uint32_t GetNumberOfChannels() const = 0;
    /// Returns the group that the track belongs to; empty when it was made without one.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const ITrackGroup> GetTrackGroup() const = 0;
    /// Returns the layout of the channels.
    /// [any, any thread, does not throw]
    virtual TrackLayout GetLayout() const = 0;
};

/// Makes a track. Any thread may call it.
/// @param type its content type
/// @param channels number of channels, 0 included
/// @param group the group that it belongs to, shared; may be empty
/// @param layout the layout of its channels
KEL_CORE_EXPORT std::shared_ptr<ITrack> CreateTrack(ContentType type, std::uint32_t channels,
                                                    std::shared_ptr<const ITrackGroup> group,
                                                    TrackLayout layout);

} // namespace kel
