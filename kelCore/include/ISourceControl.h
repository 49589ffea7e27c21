/// Control side of a media source: opening, positions, outputs.
/// One thread at a time drives an element; it may be another thread at each call.
/// @ingroup sources
#pragma once

#include "Export.h"
#include "IBasicControl.h"
#include "MediaSourceDirection.h"
#include "MediaTime.h"
#include "TimeLimits.h"

#include <memory>
#include <string>
#include <vector>

namespace kel {

class IChannelInfo;
class IMetadata;

/// Control side of any media source.
///
/// Order of calls: IMediaSource::SetInitConfig (which may open already), Open if the configuration
/// named no medium, then outputs, limits and positions in any order, finally IMediaSource::Release.
class KEL_CORE_EXPORT ISourceControl : public IBasicControl {
public:
    ~ISourceControl() override;

    /// Opens the medium.
    /// [closed, one thread]
    /// @param path wide path, see ConvertWideStringToPlatformString
    /// @throws KELRuntimeError when the medium cannot be opened, or one is open already
    virtual void Open(const std::wstring& path) = 0;

    /// Sets the direction in which the medium is delivered.
    /// [any, one thread]
    /// @throws KELRuntimeError if the source cannot deliver in that direction
    virtual void SetDirection(MediaSourceDirection direction) = 0;

    /// Returns the direction in which the medium is delivered.
    /// [any, one thread, does not throw]
    virtual MediaSourceDirection GetDirection() const = 0;

    /// Moves the read position.
    /// [open, one thread]
    /// @param time the new position, in the edit rate of the time limits of the source
    /// @param track the name of the track; sources with one track ignore it
    /// @return the position reached
    /// @throws KELRuntimeError without an open medium, in another edit rate, outside the limits
    virtual MediaTime GotoTimeOffset(const MediaTime& time, std::string track) = 0;

    /// Returns true while a medium is open.
    /// [any, one thread, does not throw]
    virtual bool IsMediaOpen() const = 0;

    /// Returns the extent of the medium.
    /// [open, one thread]
    /// @param track the name of the track; sources with one track ignore it
    /// @throws KELRuntimeError without an open medium
    virtual TimeLimits GetTimeLimits(std::string track) = 0;

    /// Returns the metadata of the medium.
    /// [any, one thread, does not throw]
    virtual std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const = 0;

    /// Returns true when the medium may still become longer.
    /// [any, one thread, does not throw]
    virtual bool IsGrowing() const = 0;

    /// Returns the outputs that the medium offers; empty without an open medium.
    /// [any, one thread, does not throw]
    virtual std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const = 0;

    /// Selects the outputs that are delivered.
    /// [open, one thread]
    /// @param outputs the outputs to deliver; empty for none
    /// @throws KELRuntimeError without an open medium
    virtual void
    ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) = 0;

    /// Returns the outputs that are delivered; empty without an open medium.
    /// [any, one thread, does not throw]
    virtual std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const = 0;
};

} // namespace kel
