/// The channels of an audio stream.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup streams
#pragma once

#include "Export.h"

#include <cstdint>
#include <memory>

namespace kel {

class ITrack;

/// Description of the channels of an audio stream.
class KEL_CORE_EXPORT IChannelInfo {
public:
    virtual ~IChannelInfo();

    /// Returns the number of channels of the track; may be 0.
    /// [any, any thread, does not throw]
    virtual std::uint32_t GetNumberOfChannels() const = 0;

    /// Returns the track that the channels belong to.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const ITrack> GetTrack() const = 0;
};

/// Describes the channels of a track. Any thread may call it.
/// @param track the track, shared
/// @throws KELRuntimeError when @p track is empty
KEL_CORE_EXPORT std::shared_ptr<IChannelInfo>
CreateChannelInfo(std::shared_ptr<const ITrack> track);

} // namespace kel
