/// Description of one audio stream.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup streams
#pragma once

#include "Export.h"
#include "IInfo.h"

#include <memory>
#include <string>
#include <vector>

namespace kel {

class IAudioParameters;
class IChannelInfo;
class IClockInfo;
class IMetadata;

/// Description of one audio stream: its parameters, channels, metadata and clocks.
class KEL_CORE_EXPORT IAudioInfo : public IInfo {
public:
    ~IAudioInfo() override;

    /// Returns the channels of the stream; empty when it was made without them.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IChannelInfo> GetChannelInfo() const = 0;

    /// Returns a text that identifies this info: no two infos of a process have the same.
    /// [any, any thread, does not throw]
    virtual const std::string& GetId() const = 0;

    /// Returns the codec parameters of the stream; may be empty.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IAudioParameters> GetAudioParameters() const = 0;

    /// Returns the metadata that the info was made with.
    /// [any, any thread, does not throw]
    virtual std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const = 0;

    /// Returns the clocks that the info was made with.
    /// [any, any thread, does not throw]
    virtual std::vector<std::shared_ptr<const IClockInfo>> GetClockInfos() const = 0;
};

/// Describes an audio stream. All handles are shared with the info. Any thread may call it.
/// @param parameters the codec parameters; may be empty
/// @param channels the channels; may be empty where they are not known yet
/// @param metadata metadata of the stream; may be empty
/// @param clocks clocks of the stream; may be empty
KEL_CORE_EXPORT std::shared_ptr<IAudioInfo>
CreateAudioInfo(std::shared_ptr<const IAudioParameters> parameters,
                std::shared_ptr<const IChannelInfo> channels,
                std::vector<std::shared_ptr<const IMetadata>> metadata,
                std::vector<std::shared_ptr<const IClockInfo>> clocks);

} // namespace kel
